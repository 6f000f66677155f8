// 512-bit row-pair kernel, compiled for AVX-512 (BW, VL, VBMI) and only called
// on CPUs that have them. 64 pixels per row and block; a row's last,
// shorter block is loaded and stored under masks, so every width from 2 up
// is handled here.
#include <immintrin.h>

#include "media/YuvToBgr.h"

namespace kiv::media::detail {

namespace {

constexpr std::size_t kBlock = 64;

struct Offsets {
    // Each channel's chroma term per pixel, split into its positive and
    // negative parts so that saturating byte arithmetic clamps the sum.
    __m512i redUp, redDown, greenUp, greenDown, blueUp, blueDown;
};

template <int Shift>
__m512i DivideTruncating(__m512i t) {
    const __m512i bias =
        _mm512_and_si512(_mm512_srai_epi16(t, 15), _mm512_set1_epi16((1 << Shift) - 1));
    return _mm512_srai_epi16(_mm512_add_epi16(t, bias), Shift);
}

__m256i ClampBytes(__m256i v, char lo, char hi) {
    return _mm256_min_epu8(_mm256_max_epu8(v, _mm256_set1_epi8(lo)), _mm256_set1_epi8(hi));
}

__m512i ClampBytes(__m512i v, char lo, char hi) {
    return _mm512_min_epu8(_mm512_max_epu8(v, _mm512_set1_epi8(lo)), _mm512_set1_epi8(hi));
}

// 32 16-bit terms become 64 bytes, one per pixel, in pixel order (packing
// and unpacking both stay within 128-bit lanes).
void Split(__m512i term, __m512i& up, __m512i& down) {
    const __m512i u = _mm512_packus_epi16(term, term);
    const __m512i d = _mm512_packus_epi16(_mm512_sub_epi16(_mm512_setzero_si512(), term), term);
    up = _mm512_unpacklo_epi8(u, u);
    down = _mm512_unpacklo_epi8(d, d);
}

Offsets OffsetsOf(const std::uint8_t* cb, const std::uint8_t* cr, __mmask32 samples) {
    const __m512i c128 = _mm512_set1_epi16(128);
    const __m256i cbBytes = ClampBytes(_mm256_maskz_loadu_epi8(samples, cb), 16, char(240));
    const __m256i crBytes = ClampBytes(_mm256_maskz_loadu_epi8(samples, cr), 16, char(240));
    const __m512i db = _mm512_sub_epi16(_mm512_cvtepu8_epi16(cbBytes), c128);
    const __m512i dr = _mm512_sub_epi16(_mm512_cvtepu8_epi16(crBytes), c128);

    const __m512i red = DivideTruncating<3>(_mm512_mullo_epi16(dr, _mm512_set1_epi16(3)));
    const __m512i green =
        _mm512_add_epi16(DivideTruncating<5>(_mm512_mullo_epi16(db, _mm512_set1_epi16(-11))),
                         DivideTruncating<6>(_mm512_mullo_epi16(dr, _mm512_set1_epi16(-45))));
    const __m512i blue =
        _mm512_add_epi16(db, DivideTruncating<6>(_mm512_mullo_epi16(db, _mm512_set1_epi16(47))));
    Offsets o;
    Split(red, o.redUp, o.redDown);
    Split(green, o.greenUp, o.greenDown);
    Split(blue, o.blueUp, o.blueDown);
    return o;
}

__m512i Channel(__m512i y, __m512i up, __m512i down) {
    return _mm512_subs_epu8(_mm512_adds_epu8(y, up), down);
}

// Output byte n of a block (0..191) is channel n % 3 of pixel n / 3. Each
// 64-byte piece takes blue and green with one two-table permute and red
// with a masked one.
struct Permutes {
    __m512i blueGreen[3];
    __m512i red[3];
    __mmask64 redBytes[3];
};

Permutes MakePermutes() {
    Permutes p;
    for (int piece = 0; piece < 3; ++piece) {
        alignas(64) char blueGreen[64];
        alignas(64) char red[64];
        __mmask64 redBytes = 0;
        for (int j = 0; j < 64; ++j) {
            const int n = 64 * piece + j;
            const int pixel = n / 3;
            // Bit 6 of a two-table index picks the second table (green).
            blueGreen[j] = static_cast<char>(n % 3 == 1 ? 64 + pixel : pixel);
            red[j] = static_cast<char>(pixel);
            if (n % 3 == 2) {
                redBytes |= __mmask64{1} << j;
            }
        }
        p.blueGreen[piece] = _mm512_load_si512(blueGreen);
        p.red[piece] = _mm512_load_si512(red);
        p.redBytes[piece] = redBytes;
    }
    return p;
}

__mmask64 FirstBytes(std::size_t n) {
    return n >= 64 ? ~__mmask64{0} : (__mmask64{1} << n) - 1;
}

void ConvertRow(const std::uint8_t* y, const Offsets& o, std::uint8_t* out, std::size_t count,
                const Permutes& p) {
    const __m512i luma = ClampBytes(_mm512_maskz_loadu_epi8(FirstBytes(count), y), 16, char(235));
    const __m512i b = Channel(luma, o.blueUp, o.blueDown);
    const __m512i g = Channel(luma, o.greenUp, o.greenDown);
    const __m512i r = Channel(luma, o.redUp, o.redDown);
    for (std::size_t k = 0; k < 3; ++k) {
        const __m512i bg = _mm512_permutex2var_epi8(b, p.blueGreen[k], g);
        const __m512i piece = _mm512_mask_permutexvar_epi8(bg, p.redBytes[k], p.red[k], r);
        const std::size_t bytes = 3 * count;
        if (bytes >= 64 * (k + 1)) {
            _mm512_storeu_si512(out + 64 * k, piece);
        } else if (bytes > 64 * k) {
            _mm512_mask_storeu_epi8(out + 64 * k, FirstBytes(bytes - 64 * k), piece);
        }
    }
}

}  // namespace

bool ConvertRowPairAvx512(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                          const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1,
                          std::size_t count) {
    const Permutes permutes = MakePermutes();
    for (std::size_t x = 0; x < count; x += kBlock) {
        const std::size_t n = count - x < kBlock ? count - x : kBlock;
        // Masked loads and stores touch nothing past the row's end.
        const Offsets o =
            OffsetsOf(cb + x / 2, cr + x / 2, static_cast<__mmask32>(FirstBytes(n / 2)));
        ConvertRow(y0 + x, o, out0 + 3 * x, n, permutes);
        ConvertRow(y1 + x, o, out1 + 3 * x, n, permutes);
    }
    return true;
}

}  // namespace kiv::media::detail
