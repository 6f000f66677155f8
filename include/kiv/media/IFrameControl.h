// Positions a video player on frames rather than times. Frame k is shown
// from media time k / frame rate on; frame numbers start at 0.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IFrameControl : public IControl {
public:
    /// "FrameControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// Moves to frame `frame`, taken as the first or last frame when it lies
    /// before or after the media, and fires MEDIA_TIME_SET; returns the frame
    /// reached, -1 if the player cannot move.
    virtual int Seek(int frame) = 0;
    /// Moves `frames` frames on (back if negative), within the media; returns
    /// the number of frames actually skipped (negative backwards).
    virtual int Skip(int frames) = 0;
    /// The media time (ms) from which frame `frame` is shown; -1 for a frame
    /// outside the media.
    virtual int MapFrameToTime(int frame) = 0;
    /// The frame shown at media time `time` (ms); -1 outside the media.
    virtual int MapTimeToFrame(int time) = 0;
};

}  // namespace kiv::media
