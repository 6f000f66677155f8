// Chooses among the streams of one media: its audio streams (languages,
// commentary tracks) and its subtitle streams. Streams are numbered from 0,
// the audio streams first, each kind in the order of the container.
// Subtitles are hidden until one is selected.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IMediaSelectControl : public IControl {
public:
    static const int AUDIO_STREAM;     ///< 0
    static const int SUBTITLE_STREAM;  ///< 1

    /// "MediaSelectControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// The number of selectable streams.
    virtual int GetStreamCount() = 0;
    /// AUDIO_STREAM or SUBTITLE_STREAM; -1 outside.
    virtual int GetStreamType(int index) = 0;
    /// A name to show for stream `index`: its title and language, or
    /// "Audio n" / "Subtitles n" when the media names neither; empty outside.
    virtual std::wstring GetStreamName(int index) = 0;
    /// The language of stream `index` as the media states it (an ISO 639
    /// code such as "en" or "deu"); empty when unknown or outside.
    virtual std::string GetStreamLanguage(int index) = 0;
    /// Plays an audio stream instead of the one playing now, or shows a
    /// subtitle stream, also during playback; a status for an index outside.
    virtual unsigned int SelectStream(int index) = 0;
    /// The audio stream playing now; -1 if none.
    virtual int GetSelectedStream() = 0;
    /// The subtitle stream shown now; -1 if none.
    virtual int GetSelectedSubtitle() = 0;
    /// Shows no subtitles.
    virtual void HideSubtitles() = 0;
};

}  // namespace kiv::media
