#include "media/YuvToBgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "media/GuardedBuffer.h"
#include "media/YuvReference.h"

namespace kiv::media::detail {
namespace {

using test::GuardedBuffer;
using test::InputSize;
using test::ReferenceFrame;

std::vector<YuvPath> AvailablePaths() {
    std::vector<YuvPath> paths;
    for (YuvPath p : {YuvPath::Portable, YuvPath::Sse2, YuvPath::Avx2, YuvPath::Avx512}) {
        if (IsPathAvailable(p)) {
            paths.push_back(p);
        }
    }
    return paths;
}

std::string NameOf(YuvPath path) {
    const char* names[] = {"portable", "sse2", "avx2", "avx512"};
    return names[static_cast<int>(path)];
}

// A 512 x 128 frame per Cb value: each of the 256 Cr values owns 64 chroma
// samples, and the 4 pixels of each sample take 4 consecutive luma values,
// so the frame holds every (Y, Cr) pair once with that Cb.
void FillAllTriplesFrame(int cb, std::vector<std::uint8_t>& in) {
    constexpr int kWidth = 512;
    constexpr int kHeight = 128;
    in.assign(InputSize(kWidth, kHeight), 0);
    for (int sample = 0; sample < 256 * 64; ++sample) {
        const int cr = sample / 64;
        const int cx = sample % 256;
        const int cy = sample / 256;
        std::uint8_t* chroma = in.data() + kWidth * kHeight + cy * kWidth;
        chroma[cx] = static_cast<std::uint8_t>(cb);
        chroma[kWidth / 2 + cx] = static_cast<std::uint8_t>(cr);
        for (int d = 0; d < 4; ++d) {
            const int y = 4 * (sample % 64) + d;
            in[(2 * cy + d / 2) * kWidth + 2 * cx + d % 2] = static_cast<std::uint8_t>(y);
        }
    }
}

TEST(YuvToBgrTest, EveryYCbCrTripleMatchesTheColourRuleOnEveryPath) {
    constexpr int kWidth = 512;
    constexpr int kHeight = 128;
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizer build is unoptimised and some 20 times slower: every
    // Cr and Y still, with a spread of Cb values that includes both clamps.
    constexpr int kCbStep = 7;
#else
    constexpr int kCbStep = 1;
#endif
    std::vector<std::uint8_t> in;
    std::vector<std::uint8_t> expected(3 * kWidth * kHeight);
    std::vector<std::uint8_t> actual(expected.size());
    for (int cb = 0; cb < 256; cb += kCbStep) {
        FillAllTriplesFrame(cb, in);
        ReferenceFrame(in.data(), kWidth, kHeight, expected.data());
        for (YuvPath path : AvailablePaths()) {
            ConvertFrame(path, in.data(), kWidth, kHeight, actual.data());
            ASSERT_EQ(0, std::memcmp(expected.data(), actual.data(), expected.size()))
                << NameOf(path) << " with Cb " << cb;
        }
    }
}

// Random frames of every small size, video sizes and an odd one, through
// every path, each in buffers that end at an inaccessible page, so reading
// past the input or writing past the output faults.
TEST(YuvToBgrTest, RandomFramesMatchTheReferenceByteForByteOnEveryPath) {
    std::vector<std::pair<int, int>> sizes;
    for (int w = 1; w <= 65; ++w) {
        for (int h = 0; h <= 9; ++h) {
            sizes.emplace_back(w, h);
        }
    }
    sizes.insert(sizes.end(), {{1280, 720}, {1920, 1080}, {333, 97}, {0, 5}});
    std::mt19937 random(20261123);
    for (auto [w, h] : sizes) {
        GuardedBuffer in(InputSize(w, h));
        for (std::size_t i = 0; i < in.size(); ++i) {
            in.data()[i] = static_cast<std::uint8_t>(random());
        }
        std::vector<std::uint8_t> expected(3 * static_cast<std::size_t>(w) * h);
        ReferenceFrame(in.data(), w, h, expected.data());
        for (YuvPath path : AvailablePaths()) {
            GuardedBuffer out(expected.size());
            std::memset(out.data(), 0x5A, out.size());
            ConvertFrame(path, in.data(), w, h, out.data());
            ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.data()))
                << NameOf(path) << " at " << w << " x " << h;
        }
    }
}

}  // namespace
}  // namespace kiv::media::detail
