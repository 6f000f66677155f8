// 512-bit row-pair kernel, compiled for AVX-512 (BW, VL, VBMI) and only called
// on CPUs that have them. 128 pixels per row and block, whose 64 chroma
// pairs are looked up at once; a row's last, shorter block is loaded and
// stored under masks, so every width from 2 up is handled here.
#include <immintrin.h>

#include "media/YuvToBgr.h"

namespace kiv::media::detail {

namespace {

constexpr std::size_t kBlock = 64;

// Per chroma value (0..255, the clamp included): the red and blue terms
// split into their positive and negative parts, so that saturating byte
// arithmetic clamps the sums, and the two signed halves of the green term.
struct ChromaTables {
    alignas(64) std::uint8_t redUp[256];
    alignas(64) std::uint8_t redDown[256];
    alignas(64) std::uint8_t blueUp[256];
    alignas(64) std::uint8_t blueDown[256];
    alignas(64) std::int8_t greenOfCb[256];
    alignas(64) std::int8_t greenOfCr[256];
};

constexpr std::uint8_t Up(int t) {
    return static_cast<std::uint8_t>(t > 0 ? t : 0);
}
constexpr std::uint8_t Down(int t) {
    return static_cast<std::uint8_t>(t < 0 ? -t : 0);
}

constexpr ChromaTables MakeChromaTables() {
    ChromaTables t{};
    for (int c = 0; c < 256; ++c) {
        // A neutral partner isolates each sample's share of the terms.
        const ChromaTerms ofCb = ChromaTermsOf(c, 128);
        const ChromaTerms ofCr = ChromaTermsOf(128, c);
        t.redUp[c] = Up(ofCr.red);
        t.redDown[c] = Down(ofCr.red);
        t.blueUp[c] = Up(ofCb.blue);
        t.blueDown[c] = Down(ofCb.blue);
        t.greenOfCb[c] = static_cast<std::int8_t>(ofCb.green);
        t.greenOfCr[c] = static_cast<std::int8_t>(ofCr.green);
    }
    return t;
}

constexpr ChromaTables kChroma = MakeChromaTables();

// Output byte n of a block (0..191) is channel n % 3 of pixel n / 3. Each
// 64-byte piece takes blue and green with one two-table permute (bit 6 of
// an index picks green) and red with a masked one-table permute.
struct Permutes {
    alignas(64) std::uint8_t blueGreen[3][64];
    alignas(64) std::uint8_t red[3][64];
    alignas(64) std::uint8_t pairOf[2][64];  // byte j of half h takes sample 32h + j / 2
    std::uint64_t redBytes[3];
};

constexpr Permutes MakePermutes() {
    Permutes p{};
    for (int piece = 0; piece < 3; ++piece) {
        for (int j = 0; j < 64; ++j) {
            const int n = 64 * piece + j;
            const int pixel = n / 3;
            p.blueGreen[piece][j] = static_cast<std::uint8_t>(n % 3 == 1 ? 64 + pixel : pixel);
            p.red[piece][j] = static_cast<std::uint8_t>(pixel);
            if (n % 3 == 2) {
                p.redBytes[piece] |= std::uint64_t{1} << j;
            }
        }
    }
    for (int j = 0; j < 64; ++j) {
        p.pairOf[0][j] = static_cast<std::uint8_t>(j / 2);
        p.pairOf[1][j] = static_cast<std::uint8_t>(32 + j / 2);
    }
    return p;
}

constexpr Permutes kPermutes = MakePermutes();

__m512i Load(const void* p) {
    return _mm512_load_si512(p);
}

// table[index] for 64 byte indexes: two two-table permutes cover the lower
// and upper 128 entries, bit 7 of the index picks between them.
__m512i Lookup(const void* table, __m512i index, __mmask64 upper) {
    const auto* t = static_cast<const std::uint8_t*>(table);
    const __m512i low = _mm512_permutex2var_epi8(Load(t), index, Load(t + 64));
    const __m512i high = _mm512_permutex2var_epi8(Load(t + 128), index, Load(t + 192));
    return _mm512_mask_blend_epi8(upper, low, high);
}

struct Offsets {
    __m512i redUp, redDown, greenUp, greenDown, blueUp, blueDown;
};

__mmask64 FirstBytes(std::size_t n) {
    return n >= 64 ? ~__mmask64{0} : (__mmask64{1} << n) - 1;
}

// The terms of up to 64 chroma pairs, looked up once per pair and then
// spread to one byte per pixel: half[0] for the first 64 pixels, half[1]
// for the next 64.
struct BlockOffsets {
    Offsets half[2];
};

BlockOffsets OffsetsOf(const std::uint8_t* cb, const std::uint8_t* cr, std::size_t samples) {
    const __mmask64 present = FirstBytes(samples);
    const __m512i cbs = _mm512_maskz_loadu_epi8(present, cb);
    const __m512i crs = _mm512_maskz_loadu_epi8(present, cr);
    const __mmask64 cbHigh = _mm512_movepi8_mask(cbs);
    const __mmask64 crHigh = _mm512_movepi8_mask(crs);
    Offsets pairs;
    pairs.redUp = Lookup(kChroma.redUp, crs, crHigh);
    pairs.redDown = Lookup(kChroma.redDown, crs, crHigh);
    pairs.blueUp = Lookup(kChroma.blueUp, cbs, cbHigh);
    pairs.blueDown = Lookup(kChroma.blueDown, cbs, cbHigh);
    // The halves of green sum to at most 116 in size: no byte overflow.
    const __m512i green = _mm512_add_epi8(Lookup(kChroma.greenOfCb, cbs, cbHigh),
                                          Lookup(kChroma.greenOfCr, crs, crHigh));
    const __m512i zero = _mm512_setzero_si512();
    pairs.greenUp = _mm512_max_epi8(green, zero);
    pairs.greenDown = _mm512_max_epi8(_mm512_sub_epi8(zero, green), zero);

    // The zero-masking form with every lane kept is the plain permute; the
    // plain intrinsic trips GCC's uninitialised-value warning.
    const __mmask64 all = ~__mmask64{0};
    BlockOffsets o;
    for (int h = 0; h < 2; ++h) {
        const __m512i spread = Load(kPermutes.pairOf[h]);
        o.half[h].redUp = _mm512_maskz_permutexvar_epi8(all, spread, pairs.redUp);
        o.half[h].redDown = _mm512_maskz_permutexvar_epi8(all, spread, pairs.redDown);
        o.half[h].greenUp = _mm512_maskz_permutexvar_epi8(all, spread, pairs.greenUp);
        o.half[h].greenDown = _mm512_maskz_permutexvar_epi8(all, spread, pairs.greenDown);
        o.half[h].blueUp = _mm512_maskz_permutexvar_epi8(all, spread, pairs.blueUp);
        o.half[h].blueDown = _mm512_maskz_permutexvar_epi8(all, spread, pairs.blueDown);
    }
    return o;
}

__m512i Channel(__m512i y, __m512i up, __m512i down) {
    return _mm512_subs_epu8(_mm512_adds_epu8(y, up), down);
}

void ConvertRow(const std::uint8_t* y, const Offsets& o, std::uint8_t* out, std::size_t count) {
    const __m512i raw = _mm512_maskz_loadu_epi8(FirstBytes(count), y);
    const __m512i luma = _mm512_min_epu8(_mm512_max_epu8(raw, _mm512_set1_epi8(16)),
                                         _mm512_set1_epi8(static_cast<char>(235)));
    const __m512i b = Channel(luma, o.blueUp, o.blueDown);
    const __m512i g = Channel(luma, o.greenUp, o.greenDown);
    const __m512i r = Channel(luma, o.redUp, o.redDown);
    const std::size_t bytes = 3 * count;
    for (std::size_t k = 0; k < 3; ++k) {
        const __m512i bg = _mm512_permutex2var_epi8(b, Load(kPermutes.blueGreen[k]), g);
        const __m512i piece =
            _mm512_mask_permutexvar_epi8(bg, kPermutes.redBytes[k], Load(kPermutes.red[k]), r);
        if (bytes >= 64 * (k + 1)) {
            _mm512_storeu_si512(out + 64 * k, piece);
        } else if (bytes > 64 * k) {
            _mm512_mask_storeu_epi8(out + 64 * k, FirstBytes(bytes - 64 * k), piece);
        }
    }
}

// Two 64-pixel halves of a row share one lookup of their chroma.
void ConvertRowBlock(const std::uint8_t* y, const BlockOffsets& o, std::uint8_t* out,
                     std::size_t count) {
    ConvertRow(y, o.half[0], out, count < 64 ? count : 64);
    if (count > 64) {
        ConvertRow(y + 64, o.half[1], out + 192, count - 64);
    }
}

}  // namespace

bool ConvertRowPairAvx512(const std::uint8_t* y0, const std::uint8_t* y1, const std::uint8_t* cb,
                          const std::uint8_t* cr, std::uint8_t* out0, std::uint8_t* out1,
                          std::size_t count) {
    for (std::size_t x = 0; x < count; x += 2 * kBlock) {
        const std::size_t n = count - x < 2 * kBlock ? count - x : 2 * kBlock;
        // Masked loads and stores touch nothing past the row's end.
        const BlockOffsets o = OffsetsOf(cb + x / 2, cr + x / 2, n / 2);
        ConvertRowBlock(y0 + x, o, out0 + 3 * x, n);
        ConvertRowBlock(y1 + x, o, out1 + 3 * x, n);
    }
    return true;
}

}  // namespace kiv::media::detail
