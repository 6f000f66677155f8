// Chooses among the audio streams of one media (languages, commentary
// tracks). Streams are numbered from 0 in the order of the container.
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
    /// A name to show for stream `index`: its title and language, or
    /// "Audio n" when the media names neither; empty outside.
    virtual std::wstring GetStreamName(int index) = 0;
    /// The language of stream `index` as the media states it (an ISO 639
    /// code such as "en" or "deu"); empty when unknown or outside.
    virtual std::string GetStreamLanguage(int index) = 0;
    /// Plays stream `index` instead of the one playing now, also during
    /// playback; a status for an index outside.
    virtual unsigned int SelectStream(int index) = 0;
    /// The stream playing now; -1 if none.
    virtual int GetSelectedStream() = 0;
};

}  // namespace kiv::media
