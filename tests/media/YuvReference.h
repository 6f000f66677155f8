// The colour rule and the frame walk written out plainly, pixel by pixel,
// as the yardstick for the library's converter (tests and benchmarks only).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kiv::media::test {

struct Rgb {
    int r;
    int g;
    int b;
};

inline Rgb ReferencePixel(int y, int cb, int cr) {
    y = std::clamp(y, 16, 235);
    cb = std::clamp(cb, 16, 240);
    cr = std::clamp(cr, 16, 240);
    int r = y + (3 * (cr - 128)) / 8;
    int g = y + (11 * (128 - cb)) / 32 + (45 * (128 - cr)) / 64;
    int b = y + (cb - 128) + (47 * (cb - 128)) / 64;
    r = static_cast<int>(static_cast<double>(r) + 0.5);
    g = static_cast<int>(static_cast<double>(g) + 0.5);
    b = static_cast<int>(static_cast<double>(b) + 0.5);
    return {std::clamp(r, 0, 255), std::clamp(g, 0, 255), std::clamp(b, 0, 255)};
}

/// Separate Cb and Cr planes of (H / 2) x (W / 2) samples, then every pixel
/// from plane index (y / 2) * (W / 2) + x / 2. An index past the copied
/// samples has no chroma in the frame and reads as 128.
inline void ReferenceFrame(const std::uint8_t* in, int width, int height, std::uint8_t* out) {
    const std::size_t w = static_cast<std::size_t>(std::max(width, 0));
    const std::size_t h = static_cast<std::size_t>(std::max(height, 0));
    const std::size_t half = w / 2;
    std::vector<std::uint8_t> cbPlane;
    std::vector<std::uint8_t> crPlane;
    const std::uint8_t* chroma = in + w * h;
    for (std::size_t row = 0; row < h / 2; ++row) {
        cbPlane.insert(cbPlane.end(), chroma + row * w, chroma + row * w + half);
        crPlane.insert(crPlane.end(), chroma + row * w + half, chroma + row * w + 2 * half);
    }
    for (std::size_t y = 0; y < h; ++y) {
        for (std::size_t x = 0; x < w; ++x) {
            const std::size_t i = (y / 2) * half + x / 2;
            const int cb = i < cbPlane.size() ? cbPlane[i] : 128;
            const int cr = i < crPlane.size() ? crPlane[i] : 128;
            const Rgb p = ReferencePixel(in[y * w + x], cb, cr);
            std::uint8_t* dst = out + (h - 1 - y) * 3 * w + 3 * x;
            dst[0] = static_cast<std::uint8_t>(p.b);
            dst[1] = static_cast<std::uint8_t>(p.g);
            dst[2] = static_cast<std::uint8_t>(p.r);
        }
    }
}

/// Bytes of a frame in the input layout.
inline std::size_t InputSize(int width, int height) {
    return static_cast<std::size_t>(width) * height + static_cast<std::size_t>(height / 2) * width;
}

}  // namespace kiv::media::test
