#include <kiv/media/MVideoFormat.h>

#include <gtest/gtest.h>

namespace kiv::media {
namespace {

TEST(MVideoFormatTest, KeepsTheSizeAndTheLowByteOfTheType) {
    MVideoFormat format(640, 480, 0x1203);
    int width = 0;
    int height = 0;
    format.GetSize(width, height);
    EXPECT_EQ(640, width);
    EXPECT_EQ(480, height);
    EXPECT_EQ(IFormat::FORMAT_YUV_420, format.GetType());
    IFormat& asInterface = format;
    EXPECT_EQ(3, asInterface.GetType());
}

}  // namespace
}  // namespace kiv::media
