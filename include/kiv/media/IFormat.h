// The picture and container formats that media operations name.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IFormat {
public:
    IFormat();
    IFormat(const IFormat&);
    IFormat& operator=(const IFormat&);
    virtual ~IFormat();
    /// The format type: one of the constants below.
    virtual unsigned char GetType() = 0;

    static const unsigned char FORMAT_RGB_888;  ///< 0
    static const unsigned char FORMAT_RGB_565;  ///< 1
    static const unsigned char FORMAT_YUV_444;  ///< 2
    static const unsigned char FORMAT_YUV_420;  ///< 3
    static const unsigned char FORMAT_YUV_422;  ///< 4
    static const unsigned char FORMAT_JPEG;     ///< 5
    static const unsigned char FORMAT_MP4;      ///< 6
    static const unsigned char FORMAT_3GP;      ///< 7
};

}  // namespace kiv::media
