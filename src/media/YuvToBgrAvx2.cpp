// 256-bit row-pair kernel, compiled for AVX2 and only called on CPUs that
// have it. 32 pixels per row and block.
#include <immintrin.h>

#include "media/YuvToBgr.h"

namespace kiv::media::detail {

namespace {

constexpr std::size_t kBlock = 32;

struct Offsets {
    // Each channel's chroma term per pixel, split into its positive and
    // negative parts so that saturating byte arithmetic clamps the sum.
    __m256i redUp, redDown, greenUp, greenDown, blueUp, blueDown;
};

template <int Shift>
__m256i DivideTruncating(__m256i t) {
    const __m256i bias =
        _mm256_and_si256(_mm256_srai_epi16(t, 15), _mm256_set1_epi16((1 << Shift) - 1));
    return _mm256_srai_epi16(_mm256_add_epi16(t, bias), Shift);
}

__m128i ClampBytes(__m128i v, char lo, char hi) {
    return _mm_min_epu8(_mm_max_epu8(v, _mm_set1_epi8(lo)), _mm_set1_epi8(hi));
}

__m256i ClampBytes(__m256i v, char lo, char hi) {
    return _mm256_min_epu8(_mm256_max_epu8(v, _mm256_set1_epi8(lo)), _mm256_set1_epi8(hi));
}

// Sixteen 16-bit terms become 32 bytes, one per pixel, in pixel order
// (packing and unpacking both stay within 128-bit lanes).
void Split(__m256i term, __m256i& up, __m256i& down) {
    const __m256i u = _mm256_packus_epi16(term, term);
    const __m256i d = _mm256_packus_epi16(_mm256_sub_epi16(_mm256_setzero_si256(), term), term);
    up = _mm256_unpacklo_epi8(u, u);
    down = _mm256_unpacklo_epi8(d, d);
}

Offsets OffsetsOf(const std::uint8_t* cb, const std::uint8_t* cr) {
    const __m256i c128 = _mm256_set1_epi16(128);
    const __m128i cbBytes =
        ClampBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(cb)), 16, char(240));
    const __m128i crBytes =
        ClampBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(cr)), 16, char(240));
    const __m256i db = _mm256_sub_epi16(_mm256_cvtepu8_epi16(cbBytes), c128);
    const __m256i dr = _mm256_sub_epi16(_mm256_cvtepu8_epi16(crBytes), c128);

    const __m256i red = DivideTruncating<3>(_mm256_mullo_epi16(dr, _mm256_set1_epi16(3)));
    const __m256i green =
        _mm256_add_epi16(DivideTruncating<5>(_mm256_mullo_epi16(db, _mm256_set1_epi16(-11))),
                         DivideTruncating<6>(_mm256_mullo_epi16(dr, _mm256_set1_epi16(-45))));
    const __m256i blue =
        _mm256_add_epi16(db, DivideTruncating<6>(_mm256_mullo_epi16(db, _mm256_set1_epi16(47))));
    Offsets o;
    Split(red, o.redUp, o.redDown);
    Split(green, o.greenUp, o.greenDown);
    Split(blue, o.blueUp, o.blueDown);
    return o;
}

__m256i Channel(__m256i y, __m256i up, __m256i down) {
    return _mm256_subs_epu8(_mm256_adds_epu8(y, up), down);
}

// Byte j of each 16-byte output piece of a lane holds channel j % 3 of
// pixel j / 3 (counted from the piece's first pixel); -1 leaves it zero.
struct ShuffleMasks {
    alignas(32) std::int8_t piece[3][3][32];  // [piece][channel][byte]
};

constexpr ShuffleMasks MakeShuffleMasks() {
    ShuffleMasks m{};
    for (int piece = 0; piece < 3; ++piece) {
        for (int channel = 0; channel < 3; ++channel) {
            for (int j = 0; j < 16; ++j) {
                const int n = 16 * piece + j;
                const auto value = static_cast<std::int8_t>(n % 3 == channel ? n / 3 : -1);
                m.piece[piece][channel][j] = value;
                m.piece[piece][channel][j + 16] = value;
            }
        }
    }
    return m;
}

constexpr ShuffleMasks kShuffles = MakeShuffleMasks();

__m256i Mask(int piece, int channel) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(kShuffles.piece[piece][channel]));
}

void StoreBgr(std::uint8_t* out, __m256i b, __m256i g, __m256i r) {
    __m256i piece[3];
    for (int k = 0; k < 3; ++k) {
        piece[k] = _mm256_or_si256(
            _mm256_or_si256(_mm256_shuffle_epi8(b, Mask(k, 0)), _mm256_shuffle_epi8(g, Mask(k, 1))),
            _mm256_shuffle_epi8(r, Mask(k, 2)));
    }
    // Lane 0 holds bytes 0..47 of the block's output, lane 1 bytes 48..95.
    __m256i* dst = reinterpret_cast<__m256i*>(out);
    _mm256_storeu_si256(dst, _mm256_permute2x128_si256(piece[0], piece[1], 0x20));
    _mm256_storeu_si256(dst + 1, _mm256_permute2x128_si256(piece[2], piece[0], 0x30));
    _mm256_storeu_si256(dst + 2, _mm256_permute2x128_si256(piece[1], piece[2], 0x31));
}

void ConvertRow(const std::uint8_t* y, const Offsets& o, std::uint8_t* out) {
    const __m256i luma =
        ClampBytes(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(y)), 16, char(235));
    StoreBgr(out, Channel(luma, o.blueUp, o.blueDown), Channel(luma, o.greenUp, o.greenDown),
             Channel(luma, o.redUp, o.redDown));
}

void ConvertBlock(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                  const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1, std::size_t x) {
    const Offsets o = OffsetsOf(cb + x / 2, cr + x / 2);
    ConvertRow(y0 + x, o, out0 + 3 * x);
    ConvertRow(y1 + x, o, out1 + 3 * x);
}

}  // namespace

bool ConvertRowPairAvx2(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                        const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1,
                        std::size_t count) {
    if (count < kBlock) {
        return false;
    }
    std::size_t x = 0;
    for (; x + kBlock <= count; x += kBlock) {
        ConvertBlock(y0, y1, cb, cr, out0, out1, x);
    }
    if (x < count) {
        // The last block ends at the row's end and overlaps the one before,
        // writing the same bytes there again; it starts on a chroma pair.
        ConvertBlock(y0, y1, cb, cr, out0, out1, count - kBlock);
    }
    return true;
}

}  // namespace kiv::media::detail
