#include <kiv/media/MVideoCodec.h>
#include <kiv/media/MVideoFormat.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

#include "media/GuardedBuffer.h"
#include "media/YuvReference.h"

namespace kiv::media {
namespace {

using Bgr = std::array<int, 3>;

// Converts a frame labelled the way callers label it (input 0, output 3).
std::vector<std::uint8_t> Convert(int width, int height, std::vector<std::uint8_t> in) {
    MVideoFormat input(width, height, IFormat::FORMAT_RGB_888);
    MVideoFormat output(width, height, IFormat::FORMAT_YUV_420);
    MVideoCodec codec;
    codec.SetInputFormat(&input);
    codec.SetOutputFormat(&output);
    std::vector<std::uint8_t> out(3 * static_cast<std::size_t>(width) * height, 0xEE);
    EXPECT_EQ(0u, codec.Transform(in.data(), static_cast<int>(in.size()), out.data(),
                                  static_cast<int>(out.size())));
    return out;
}

Bgr PixelAt(const std::vector<std::uint8_t>& out, int width, int row, int column) {
    const std::uint8_t* p = out.data() + (row * width + column) * 3;
    return {p[0], p[1], p[2]};
}

// One 2 x 2 frame per chroma pair; its four pixels share the pair.
TEST(MVideoCodecTest, PixelExamplesClampsAndBottomUpBgrLayout) {
    struct Case {
        std::uint8_t cb, cr;
        std::array<std::uint8_t, 4> luma;  // top left, top right, bottom left, bottom right
        std::array<Bgr, 4> expected;       // same order, as blue, green, red
    };
    const Case cases[] = {
        {128,
         128,
         {16, 235, 0, 255},
         {{{16, 16, 16}, {235, 235, 235}, {16, 16, 16}, {235, 235, 235}}}},
        {128,
         240,
         {128, 128, 128, 128},
         {{{128, 50, 170}, {128, 50, 170}, {128, 50, 170}, {128, 50, 170}}}},
        {240,
         128,
         {128, 128, 128, 128},
         {{{255, 90, 128}, {255, 90, 128}, {255, 90, 128}, {255, 90, 128}}}},
        // Chroma beyond 240 clamps to 240; below 16 to 16 (weak red: 128 - 42).
        {255,
         255,
         {128, 128, 128, 128},
         {{{255, 12, 170}, {255, 12, 170}, {255, 12, 170}, {255, 12, 170}}}},
        {0, 0, {16, 16, 16, 16}, {{{0, 132, 0}, {0, 132, 0}, {0, 132, 0}, {0, 132, 0}}}},
    };
    for (const Case& c : cases) {
        const auto out = Convert(2, 2, {c.luma[0], c.luma[1], c.luma[2], c.luma[3], c.cb, c.cr});
        // The bottom picture row comes first in memory.
        EXPECT_EQ(c.expected[2], PixelAt(out, 2, 0, 0));
        EXPECT_EQ(c.expected[3], PixelAt(out, 2, 0, 1));
        EXPECT_EQ(c.expected[0], PixelAt(out, 2, 1, 0));
        EXPECT_EQ(c.expected[1], PixelAt(out, 2, 1, 1));
    }
}

TEST(MVideoCodecTest, ConvertsOnlyWhenTheInputSaysRgb888AndTheOutputYuv420) {
    std::vector<std::uint8_t> in = {100, 100, 100, 100, 128, 128};
    for (int inType = 0; inType < 8; ++inType) {
        for (int outType = 0; outType < 8; ++outType) {
            MVideoFormat input(2, 2, inType);
            MVideoFormat output(2, 2, outType);
            MVideoCodec codec;
            codec.SetInputFormat(&input);
            codec.SetOutputFormat(&output);
            MVideoCodec copy(codec);
            std::vector<std::uint8_t> out(12, 0xEE);
            EXPECT_EQ(0u, copy.Transform(in.data(), 6, out.data(), 12));
            const bool converted = out != std::vector<std::uint8_t>(12, 0xEE);
            EXPECT_EQ(inType == 0 && outType == 3, converted) << inType << " -> " << outType;
        }
    }
}

TEST(MVideoCodecTest, FramesWithoutRowsOrColumnsWriteNothing) {
    std::vector<std::uint8_t> in(16, 128);
    for (auto [w, h] : {std::pair{0, 4}, std::pair{4, 0}, std::pair{0, 0}, std::pair{-2, 2}}) {
        MVideoFormat input(w, h, IFormat::FORMAT_RGB_888);
        MVideoFormat output(w, h, IFormat::FORMAT_YUV_420);
        MVideoCodec codec;
        codec.SetInputFormat(&input);
        codec.SetOutputFormat(&output);
        std::vector<std::uint8_t> out(16, 0xEE);
        EXPECT_EQ(0u, codec.Transform(in.data(), 16, out.data(), 16));
        EXPECT_EQ(std::vector<std::uint8_t>(16, 0xEE), out) << w << " x " << h;
    }
}

// 3 x 5 frame, luma 128 throughout. Each chroma row is 3 bytes: Cb, Cr and
// a byte no pixel uses. The last column takes the pair that begins the next
// chroma row; the last row pair's last column and the fifth row have none
// and show grey.
TEST(MVideoCodecTest, OddSizesTakeTheNextChromaRowThenNeutralChroma) {
    std::vector<std::uint8_t> in(15, 128);
    in.insert(in.end(), {128, 128, 0, 240, 128, 255});
    const auto out = Convert(3, 5, in);
    const Bgr grey = {128, 128, 128};
    const Bgr blueish = {255, 90, 128};
    const Bgr expected[5][3] = {{grey, grey, blueish},
                                {grey, grey, blueish},
                                {blueish, blueish, grey},
                                {blueish, blueish, grey},
                                {grey, grey, grey}};
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 3; ++x) {
            EXPECT_EQ(expected[y][x], PixelAt(out, 3, 4 - y, x)) << x << ", " << y;
        }
    }
}

TEST(MVideoCodecTest, TransformStaysInsideTheFrameAndTheOutputSize) {
    for (auto [w, h] :
         {std::pair{1, 1}, std::pair{7, 3}, std::pair{130, 66}, std::pair{641, 361}}) {
        test::GuardedBuffer in(test::InputSize(w, h));
        std::memset(in.data(), 77, in.size());
        test::GuardedBuffer out(3 * static_cast<std::size_t>(w) * h);
        MVideoFormat input(w, h, IFormat::FORMAT_RGB_888);
        MVideoFormat output(w, h, IFormat::FORMAT_YUV_420);
        MVideoCodec codec;
        codec.SetInputFormat(&input);
        codec.SetOutputFormat(&output);
        // The buffers end at inaccessible pages: a stray access faults.
        EXPECT_EQ(0u, codec.Transform(in.data(), 0, out.data(), 0));
        std::vector<std::uint8_t> expected(out.size());
        test::ReferenceFrame(in.data(), w, h, expected.data());
        EXPECT_EQ(0, std::memcmp(expected.data(), out.data(), out.size())) << w << " x " << h;
    }
}

}  // namespace
}  // namespace kiv::media
