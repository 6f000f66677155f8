// Chooses among the streams of one media (audio tracks, subtitles).
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IMediaSelectControl : public IControl {
public:
    /// "MediaSelectControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// The number of selectable streams.
    virtual int GetStreamCount() = 0;
    /// A name to show for stream `index` (language, title); empty outside.
    virtual std::wstring GetStreamName(int index) = 0;
    /// Plays stream `index` instead of the one of its kind playing now.
    virtual unsigned int SelectStream(int index) = 0;
    /// The stream playing now; -1 if none.
    virtual int GetSelectedStream() = 0;
};

}  // namespace kiv::media
