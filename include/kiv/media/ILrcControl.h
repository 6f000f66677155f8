// Timed lyrics (LRC) of the current media. The player fires LRC_LINE_CHANGE
// and LRC_WORD_CHANGE as playback moves through them.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API ILrcControl : public IControl {
public:
    /// "LrcControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// Reads the lyrics file at `path`; an empty path looks for the file of
    /// the media's name with the extension ".lrc". A status if none is read.
    virtual unsigned int LoadLyrics(std::wstring path) = 0;
    /// The number of timed lines; 0 without lyrics.
    virtual int GetLineCount() = 0;
    /// The text of line `index`; empty outside 0..GetLineCount()-1.
    virtual std::wstring GetLineText(int index) = 0;
    /// The media time (ms) at which line `index` begins; -1 outside.
    virtual int GetLineTime(int index) = 0;
    /// The line at the current media time; -1 before the first.
    virtual int GetCurrentLine() = 0;
    /// The word of the current line at the current media time, for lyrics
    /// timed word by word; -1 otherwise.
    virtual int GetCurrentWord() = 0;
};

}  // namespace kiv::media
