#include "libprores/inverse.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include "libprores/avx2lanes.h"

// A register holds one coefficient, later one sample, of the 16 blocks of a tile. Coefficients that are not all 0
// get their lanes in such an order that a transposition in each half leaves registers of two neighbouring blocks:
// lane half * 8 + register then has block column register % 4 * 2 + half, upper line for registers 0 to 3.

namespace prores {

namespace {

// Two inputs side by side, of the lower and the upper lanes of each half.
struct Pair {
    __m256i low, high;
};

RV_AVX2_INLINE Pair pair(__m256i a, __m256i b)
{
    return {_mm256_unpacklo_epi16(a, b), _mm256_unpackhi_epi16(a, b)};
}

RV_AVX2_INLINE Pair products(const Pair &a, const Pair &b, const short *w)
{
    const __m256i wa = weights(w[0], w[1]);
    const __m256i wb = weights(w[2], w[3]);
    return {_mm256_add_epi32(_mm256_madd_epi16(a.low, wa), _mm256_madd_epi16(b.low, wb)),
            _mm256_add_epi32(_mm256_madd_epi16(a.high, wa), _mm256_madd_epi16(b.high, wb))};
}

// The same where only the first two inputs are not 0.
RV_AVX2_INLINE Pair products(const Pair &a, const short *w)
{
    const __m256i wa = weights(w[0], w[1]);
    return {_mm256_madd_epi16(a.low, wa), _mm256_madd_epi16(a.high, wa)};
}

template <int Rounding>
RV_AVX2_INLINE Pair rounded(const Pair &sum)
{
    if constexpr (Rounding == 0)
        return sum;
    const __m256i rounding = _mm256_set1_epi32(Rounding);
    return {_mm256_add_epi32(sum.low, rounding), _mm256_add_epi32(sum.high, rounding)};
}

template <int Shift>
RV_AVX2_INLINE __m256i shifted(__m256i low, __m256i high)
{
    return _mm256_packs_epi32(_mm256_srai_epi32(low, Shift), _mm256_srai_epi32(high, Shift));
}

template <int Rounding, int Shift, int Inputs>
RV_AVX2_INLINE void inverseOf(__m256i *r)
{
    const Pair x02 = pair(r[0], r[2]);
    const Pair x13 = pair(r[1], r[3]);
    Pair x46 {};
    Pair x57 {};
    if constexpr (Inputs > 4) {
        x46 = pair(r[4], r[6]);
        x57 = pair(r[5], r[7]);
    }
    for (int k = 0; k < 4; ++k) {
        const Pair even = rounded<Rounding>(Inputs > 4 ? products(x02, x46, inverseEven[k])
                                                       : products(x02, inverseEven[k]));
        const Pair odd = Inputs > 4 ? products(x13, x57, inverseOdd[k]) : products(x13, inverseOdd[k]);
        r[k] = shifted<Shift>(_mm256_add_epi32(even.low, odd.low), _mm256_add_epi32(even.high, odd.high));
        r[7 - k] = shifted<Shift>(_mm256_sub_epi32(even.low, odd.low), _mm256_sub_epi32(even.high, odd.high));
    }
}

// Where not more than the first \a inputs are other than 0.
template <int Rounding, int Shift>
RV_AVX2_INLINE void inverseEight(__m256i *r, int inputs)
{
    if (inputs > 4)
        inverseOf<Rounding, Shift, 8>(r);
    else
        inverseOf<Rounding, Shift, 4>(r);
}

template <int Rounding, int Shift>
RV_AVX2_INLINE void inverseFour(__m256i *r)
{
    const Pair x01 = pair(r[0], r[1]);
    const Pair x23 = pair(r[2], r[3]);
    for (int k = 0; k < 4; ++k) {
        const Pair sum = rounded<Rounding>(products(x01, x23, inverseEven[k]));
        r[k] = shifted<Shift>(sum.low, sum.high);
    }
}

// How the blocks of a tile in coding order get to their lanes: first in each half, then across.
RV_AVX2_INLINE __m256i withinHalves(Order order)
{
    return order == Order::Lines
        ? _mm256_setr_epi8(0, 1, 8, 9, 4, 5, 12, 13, 2, 3, 10, 11, 6, 7, 14, 15, 0, 1, 8, 9, 4, 5, 12, 13, 2, 3, 10,
                           11, 6, 7, 14, 15)
        : _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15, 0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12,
                           13, 6, 7, 14, 15);
}

RV_AVX2_INLINE __m256i placed(__m256i blocks, __m256i within)
{
    const __m256i halves = _mm256_shuffle_epi8(blocks, within);
    return _mm256_permutevar8x32_epi32(halves, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// One row of coefficients; how many of them, from the first, may not be 0: none, 4 or all.
template <int Size>
RV_AVX2_INLINE int dequantise(const LevelTiles &from, int tile, const Dequantiser &dequantiser,
                               const std::uint8_t *positions, __m256i within, __m256i *to)
{
    __m256i any[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()}; // of the first four, and of the others
    for (int u = 0; u < Size; ++u) {
        const int k = positions[u];
        to[u] = _mm256_setzero_si256();
        if (k >= from.positions)
            continue;
        const __m256i levels
            = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from.tile[tile] + k * from.stride));
        any[u / 4] = _mm256_or_si256(any[u / 4], levels);
        to[u] = placed(_mm256_mullo_epi16(levels, _mm256_set1_epi16(dequantiser.scale[k])), within);
    }
    if (_mm256_testz_si256(any[1], any[1]) == 0)
        return Size;
    return _mm256_testz_si256(any[0], any[0]) == 0 ? 4 : 0;
}

RV_AVX2_INLINE __m256i clamped(__m256i samples)
{
    return _mm256_min_epi16(_mm256_max_epi16(samples, _mm256_set1_epi16(leastSample)),
                            _mm256_set1_epi16(largestSample));
}

RV_AVX2 void full(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions,
                  Order order, const SampleTiles &to)
{
    const __m256i within = withinHalves(order);
    for (int tile = 0; tile < 2; ++tile) {
        __m256i half[64];
        int rows = 0; // up to the last that is not 0
        for (int y = 0; y < 8; ++y) {
            __m256i r[8];
            const std::uint8_t *row = &positions[static_cast<std::size_t>(y * 8)];
            if (const int inputs = dequantise<8>(from, tile, dequantiser, row, within, r); inputs > 0) {
                inverseEight<inverseRowRounding, inverseRowShift>(r, inputs);
                rows = y + 1;
            }
            for (int x = 0; x < 8; ++x)
                half[y * 8 + x] = r[x];
        }
        for (int x = 0; x < 8; ++x) {
            __m256i r[8];
            for (int y = 0; y < 8; ++y)
                r[y] = half[y * 8 + x];
            r[0] = _mm256_add_epi16(r[0], _mm256_set1_epi16(inverseMiddle));
            inverseEight<0, inverseColumnShift>(r, rows);
            for (int y = 0; y < 8; ++y)
                half[y * 8 + x] = clamped(r[y]);
        }
        for (int y = 0; y < 8; ++y) {
            __m256i *r = half + y * 8;
            transpose(r);
            for (int i = 0; i < 8; ++i) {
                auto *at = reinterpret_cast<__m256i *>(to.tile[tile] + (y + i / 4 * 8) * to.stride + i % 4 * 16);
                if (to.isStreamed)
                    _mm256_stream_si256(at, r[i]);
                else
                    _mm256_storeu_si256(at, r[i]);
            }
        }
    }
}

// Two lines of each block at a time: a transposition leaves the four samples of one beside those of the other.
RV_AVX2 void half(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions,
                  Order order, const SampleTiles &to)
{
    const __m256i within = withinHalves(order);
    for (int tile = 0; tile < 2; ++tile) {
        __m256i rows[16];
        for (int y = 0; y < 4; ++y) {
            __m256i *r = rows + y * 4;
            if (dequantise<4>(from, tile, dequantiser, &positions[static_cast<std::size_t>(y * 8)], within, r))
                inverseFour<inverseRowRounding, inverseRowShift>(r);
        }
        for (int x = 0; x < 4; ++x) {
            __m256i r[4];
            for (int y = 0; y < 4; ++y)
                r[y] = rows[y * 4 + x];
            r[0] = _mm256_add_epi16(r[0], _mm256_set1_epi16(inverseMiddle));
            inverseFour<0, inverseColumnShift>(r);
            for (int y = 0; y < 4; ++y)
                rows[y * 4 + x] = clamped(r[y]);
        }
        for (int y = 0; y < 4; y += 2) {
            __m256i *r = rows + y * 4;
            transpose(r);
            for (int i = 0; i < 8; ++i) {
                const __m256i both = _mm256_permute4x64_epi64(r[i], 0xd8); // the upper line below
                std::uint16_t *at = to.tile[tile] + (y + i / 4 * 4) * to.stride + i % 4 * 8;
                _mm_storeu_si128(reinterpret_cast<__m128i *>(at), _mm256_castsi256_si128(both));
                _mm_storeu_si128(reinterpret_cast<__m128i *>(at + to.stride), _mm256_extracti128_si256(both, 1));
            }
        }
    }
}

void publish()
{
    _mm_sfence();
}

} // namespace

const InverseKernels *avx2Inverse()
{
    static const InverseKernels kernels = {
        "avx2", true, full, half, portableInverse().quarter, portableInverse().eighth, publish};
    return avx2Kernels() != nullptr ? &kernels : nullptr;
}

} // namespace prores

#else

namespace prores {

const InverseKernels *avx2Inverse()
{
    return nullptr;
}

} // namespace prores

#endif
