#include <kiv/media/IFormat.h>

namespace kiv::media {

const unsigned char IFormat::FORMAT_RGB_888 = 0;
const unsigned char IFormat::FORMAT_RGB_565 = 1;
const unsigned char IFormat::FORMAT_YUV_444 = 2;
const unsigned char IFormat::FORMAT_YUV_420 = 3;
const unsigned char IFormat::FORMAT_YUV_422 = 4;
const unsigned char IFormat::FORMAT_JPEG = 5;
const unsigned char IFormat::FORMAT_MP4 = 6;
const unsigned char IFormat::FORMAT_3GP = 7;

IFormat::IFormat() = default;
IFormat::IFormat(const IFormat&) = default;
IFormat& IFormat::operator=(const IFormat&) = default;
IFormat::~IFormat() = default;

}  // namespace kiv::media
