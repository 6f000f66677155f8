// Positions a video player on frames rather than times.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IFrameControl : public IControl {
public:
    /// "FrameControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// Moves to frame `frame` (0 is the first); returns the frame reached,
    /// which may differ when the stream cannot stop there.
    virtual int Seek(int frame) = 0;
    /// Moves `frames` frames on (back if negative) without playing; returns
    /// the number of frames actually skipped.
    virtual int Skip(int frames) = 0;
    /// The media time (ms) of frame `frame`; -1 if it cannot be told.
    virtual int MapFrameToTime(int frame) = 0;
    /// The frame shown at media time `time` (ms); -1 if it cannot be told.
    virtual int MapTimeToFrame(int time) = 0;
};

}  // namespace kiv::media
