// The frame converter behind MVideoCodec: planar YUV 4:2:0 in the codec's
// input layout to bottom-up BGR, with one code path per instruction set.
//
// Every path gives the same bytes; the fastest one the CPU runs is chosen
// once. Tests and benchmarks name a path to compare them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kiv::media::detail {

enum class YuvPath : int { Portable = 0, Sse2 = 1, Avx2 = 2, Avx512 = 3 };

/// Chroma where the frame supplies none (the last row of an odd height, the
/// last column of an odd width in the last row pair, every pixel of a frame
/// one pixel wide): neutral, so those pixels are the grey of their luma.
inline constexpr std::uint8_t kMissingChroma = 128;

/// What one chroma pair adds to the (clamped) luma of each of its pixels.
struct ChromaTerms {
    int red;
    int green;
    int blue;
};

constexpr int ClampTo(int v, int lo, int hi) {
    return v < lo ? lo : (v > hi ? hi : v);
}

/// The colour rule, integer divisions truncating toward zero. The red term
/// is deliberately weak (3/8 of the red difference): the system's own rule.
constexpr ChromaTerms ChromaTermsOf(int cb, int cr) {
    const int db = ClampTo(cb, 16, 240) - 128;
    const int dr = ClampTo(cr, 16, 240) - 128;
    return {(3 * dr) / 8, (11 * -db) / 32 + (45 * -dr) / 64, db + (47 * db) / 64};
}

/// One channel from clamped luma and its chroma term. Rounding the sum
/// (adding 0.5, truncating toward zero) changes only negative sums, and
/// those become 0 either way, so it is left out.
constexpr std::uint8_t ChannelOf(int y, int term) {
    return static_cast<std::uint8_t>(ClampTo(ClampTo(y, 16, 235) + term, 0, 255));
}

/// Writes blue, green, red of one pixel to `bgr`.
inline void ConvertPixel(std::uint8_t y, std::uint8_t cb, std::uint8_t cr, std::uint8_t* bgr) {
    const ChromaTerms t = ChromaTermsOf(cb, cr);
    bgr[0] = ChannelOf(y, t.blue);
    bgr[1] = ChannelOf(y, t.green);
    bgr[2] = ChannelOf(y, t.red);
}

/// Whether this CPU (and build) can run `path`.
bool IsPathAvailable(YuvPath path);

/// The path ConvertFrame uses: the widest one available.
YuvPath BestPath();

/// Converts a `width` x `height` frame; nothing is written when either is
/// zero or negative. Writes exactly 3 x width x height bytes to `out`.
void ConvertFrame(const std::uint8_t* in, int width, int height, std::uint8_t* out);

/// The same through a named path, which must be available.
void ConvertFrame(YuvPath path, const std::uint8_t* in, int width, int height, std::uint8_t* out);

/// Row-pair kernels: `count` (even) pixels of the luma rows `y0` and `y1`,
/// which share the count / 2 samples at `cb` and `cr`, into `out0` and
/// `out1`. The vector kernels return false, writing nothing, when `count` is
/// below their block width; otherwise they convert the whole row pair.
void ConvertRowPairPortable(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                            const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1,
                            std::size_t count);
bool ConvertRowPairSse2(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                        const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1,
                        std::size_t count);
bool ConvertRowPairAvx2(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                        const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1,
                        std::size_t count);
bool ConvertRowPairAvx512(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                          const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1,
                          std::size_t count);

}  // namespace kiv::media::detail
