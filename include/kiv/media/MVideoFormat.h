// The size and type of a video frame.
#pragma once

#include <kiv/media/IFormat.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API MVideoFormat : public IFormat {
public:
    /// Keeps the three values; only the low byte of `type` is kept.
    MVideoFormat(int width, int height, int type);
    /// The frame width and height in pixels.
    void GetSize(int& width, int& height);
    /// The type given at construction (its low byte).
    unsigned char GetType() override;

private:
    int m_width;
    int m_height;
    unsigned char m_type;
};

}  // namespace kiv::media
