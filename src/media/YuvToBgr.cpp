#include "media/YuvToBgr.h"

#include <initializer_list>

namespace kiv::media::detail {

namespace {

void ConvertRowPairThrough(YuvPath path, const std::uint8_t* y0, const std::uint8_t* y1,
                           const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* out0,
                           std::uint8_t* out1, std::size_t count) {
    // A vector kernel declines rows narrower than its block; the next
    // narrower one takes them, and the portable loop takes what is left.
    switch (path) {
#if defined(KIV_YUV_X86_PATHS)
        case YuvPath::Avx512:
            if (ConvertRowPairAvx512(y0, y1, cb, cr, out0, out1, count)) {
                return;
            }
            [[fallthrough]];
        case YuvPath::Avx2:
            if (ConvertRowPairAvx2(y0, y1, cb, cr, out0, out1, count)) {
                return;
            }
            [[fallthrough]];
        case YuvPath::Sse2:
            if (ConvertRowPairSse2(y0, y1, cb, cr, out0, out1, count)) {
                return;
            }
            [[fallthrough]];
#endif
        default:
            ConvertRowPairPortable(y0, y1, cb, cr, out0, out1, count);
    }
}

YuvPath DetectBestPath() {
    for (YuvPath path : {YuvPath::Avx512, YuvPath::Avx2, YuvPath::Sse2}) {
        if (IsPathAvailable(path)) {
            return path;
        }
    }
    return YuvPath::Portable;
}

}  // namespace

void ConvertRowPairPortable(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                            const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1,
                            std::size_t count) {
    for (std::size_t x = 0; x < count; x += 2) {
        const ChromaTerms t = ChromaTermsOf(cb[x / 2], cr[x / 2]);
        for (std::size_t dx = 0; dx < 2; ++dx) {
            std::uint8_t* p0 = out0 + 3 * (x + dx);
            std::uint8_t* p1 = out1 + 3 * (x + dx);
            p0[0] = ChannelOf(y0[x + dx], t.blue);
            p0[1] = ChannelOf(y0[x + dx], t.green);
            p0[2] = ChannelOf(y0[x + dx], t.red);
            p1[0] = ChannelOf(y1[x + dx], t.blue);
            p1[1] = ChannelOf(y1[x + dx], t.green);
            p1[2] = ChannelOf(y1[x + dx], t.red);
        }
    }
}

bool IsPathAvailable(YuvPath path) {
    switch (path) {
        case YuvPath::Portable:
            return true;
#if defined(KIV_YUV_X86_PATHS)
        case YuvPath::Sse2:
            return __builtin_cpu_supports("sse2");
        case YuvPath::Avx2:
            return __builtin_cpu_supports("avx2");
        case YuvPath::Avx512:
            // Byte permutes do the interleaving: without them this path has no
            // edge over the 256-bit one.
            return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
                   __builtin_cpu_supports("avx512vbmi");
#endif
        default:
            return false;
    }
}

YuvPath BestPath() {
    static const YuvPath best = DetectBestPath();
    return best;
}

void ConvertFrame(const std::uint8_t* in, int width, int height, std::uint8_t* out) {
    ConvertFrame(BestPath(), in, width, height, out);
}

void ConvertFrame(YuvPath path, const std::uint8_t* in, int width, int height, std::uint8_t* out) {
    if (width <= 0 || height <= 0) {
        return;
    }
    const std::size_t w = static_cast<std::size_t>(width);
    const std::size_t h = static_cast<std::size_t>(height);
    const std::size_t half = w / 2;
    const std::size_t pairs = h / 2;
    const std::uint8_t* chroma = in + w * h;
    // The picture is stored bottom row first.
    auto outRow = [&](std::size_t y) { return out + (h - 1 - y) * 3 * w; };

    for (std::size_t r = 0; r < pairs; ++r) {
        const std::uint8_t* y0 = in + 2 * r * w;
        const std::uint8_t* cb = chroma + r * w;
        std::uint8_t* out0 = outRow(2 * r);
        std::uint8_t* out1 = outRow(2 * r + 1);
        ConvertRowPairThrough(path, y0, y0 + w, cb, cb + half, out0, out1, 2 * half);
        if (w % 2 != 0) {
            // The last column of an odd width takes the chroma pair that
            // begins the next chroma row; the last row pair has none.
            std::uint8_t nextCb = kMissingChroma;
            std::uint8_t nextCr = kMissingChroma;
            if (half > 0 && r + 1 < pairs) {
                nextCb = chroma[(r + 1) * w];
                nextCr = chroma[(r + 1) * w + half];
            }
            ConvertPixel(y0[w - 1], nextCb, nextCr, out0 + 3 * (w - 1));
            ConvertPixel(y0[2 * w - 1], nextCb, nextCr, out1 + 3 * (w - 1));
        }
    }
    if (h % 2 != 0) {
        // The last row of an odd height has no chroma row in the frame.
        const std::uint8_t* y = in + (h - 1) * w;
        std::uint8_t* row = outRow(h - 1);
        for (std::size_t x = 0; x < w; ++x) {
            ConvertPixel(y[x], kMissingChroma, kMissingChroma, row + 3 * x);
        }
    }
}

}  // namespace kiv::media::detail
