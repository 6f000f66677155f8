// 128-bit row-pair kernel: the floor of every x86-64 CPU, so it uses SSE2
// only (no byte shuffles). 16 pixels per row and block.
#include <emmintrin.h>

#include "media/YuvToBgr.h"

namespace kiv::media::detail {

namespace {

constexpr std::size_t kBlock = 16;

struct Offsets {
    // Each channel's chroma term per pixel, split into its positive and
    // negative parts so that saturating byte arithmetic clamps the sum.
    __m128i redUp, redDown, greenUp, greenDown, blueUp, blueDown;
};

template <int Shift>
__m128i DivideTruncating(__m128i t) {
    const __m128i bias = _mm_and_si128(_mm_srai_epi16(t, 15), _mm_set1_epi16((1 << Shift) - 1));
    return _mm_srai_epi16(_mm_add_epi16(t, bias), Shift);
}

__m128i ClampBytes(__m128i v, char lo, char hi) {
    return _mm_min_epu8(_mm_max_epu8(v, _mm_set1_epi8(lo)), _mm_set1_epi8(hi));
}

// Eight 16-bit terms become sixteen bytes, one per pixel.
void Split(__m128i term, __m128i& up, __m128i& down) {
    const __m128i u = _mm_packus_epi16(term, term);
    const __m128i d = _mm_packus_epi16(_mm_sub_epi16(_mm_setzero_si128(), term), term);
    up = _mm_unpacklo_epi8(u, u);
    down = _mm_unpacklo_epi8(d, d);
}

Offsets OffsetsOf(const std::uint8_t* cb, const std::uint8_t* cr) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i c128 = _mm_set1_epi16(128);
    const __m128i cbBytes =
        ClampBytes(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(cb)), 16, char(240));
    const __m128i crBytes =
        ClampBytes(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(cr)), 16, char(240));
    const __m128i db = _mm_sub_epi16(_mm_unpacklo_epi8(cbBytes, zero), c128);
    const __m128i dr = _mm_sub_epi16(_mm_unpacklo_epi8(crBytes, zero), c128);

    const __m128i red = DivideTruncating<3>(_mm_mullo_epi16(dr, _mm_set1_epi16(3)));
    const __m128i green =
        _mm_add_epi16(DivideTruncating<5>(_mm_mullo_epi16(db, _mm_set1_epi16(-11))),
                      DivideTruncating<6>(_mm_mullo_epi16(dr, _mm_set1_epi16(-45))));
    const __m128i blue =
        _mm_add_epi16(db, DivideTruncating<6>(_mm_mullo_epi16(db, _mm_set1_epi16(47))));
    Offsets o;
    Split(red, o.redUp, o.redDown);
    Split(green, o.greenUp, o.greenDown);
    Split(blue, o.blueUp, o.blueDown);
    return o;
}

__m128i Channel(__m128i y, __m128i up, __m128i down) {
    return _mm_subs_epu8(_mm_adds_epu8(y, up), down);
}

// Four pixels held as b, g, r, 0 in 32-bit lanes become 12 packed bytes
// at the bottom of the register; the top 4 bytes are zero.
__m128i PackFour(__m128i bgr0) {
    const __m128i low3 = _mm_set_epi32(0, 0x00FFFFFF, 0, 0x00FFFFFF);
    const __m128i next3 =
        _mm_set_epi32(0xFFFF, static_cast<int>(0xFF000000), 0xFFFF, static_cast<int>(0xFF000000));
    const __m128i six =
        _mm_or_si128(_mm_and_si128(bgr0, low3), _mm_and_si128(_mm_srli_epi64(bgr0, 8), next3));
    return _mm_or_si128(_mm_move_epi64(six), _mm_slli_si128(_mm_srli_si128(six, 8), 6));
}

void StoreBgr(std::uint8_t* out, __m128i b, __m128i g, __m128i r) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bgLow = _mm_unpacklo_epi8(b, g);
    const __m128i bgHigh = _mm_unpackhi_epi8(b, g);
    const __m128i r0Low = _mm_unpacklo_epi8(r, zero);
    const __m128i r0High = _mm_unpackhi_epi8(r, zero);
    const __m128i p0 = PackFour(_mm_unpacklo_epi16(bgLow, r0Low));
    const __m128i p1 = PackFour(_mm_unpackhi_epi16(bgLow, r0Low));
    const __m128i p2 = PackFour(_mm_unpacklo_epi16(bgHigh, r0High));
    const __m128i p3 = PackFour(_mm_unpackhi_epi16(bgHigh, r0High));
    __m128i* dst = reinterpret_cast<__m128i*>(out);
    _mm_storeu_si128(dst, _mm_or_si128(p0, _mm_slli_si128(p1, 12)));
    _mm_storeu_si128(dst + 1, _mm_or_si128(_mm_srli_si128(p1, 4), _mm_slli_si128(p2, 8)));
    _mm_storeu_si128(dst + 2, _mm_or_si128(_mm_srli_si128(p2, 8), _mm_slli_si128(p3, 4)));
}

void ConvertRow(const std::uint8_t* y, const Offsets& o, std::uint8_t* out) {
    const __m128i luma =
        ClampBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(y)), 16, char(235));
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

bool ConvertRowPairSse2(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
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
        // The last block ends at the row's end and overlaps the one before;
        // it writes the same bytes there again. count and kBlock are even,
        // so the block starts on a chroma pair.
        ConvertBlock(y0, y1, cb, cr, out0, out1, count - kBlock);
    }
    return true;
}

}  // namespace kiv::media::detail
