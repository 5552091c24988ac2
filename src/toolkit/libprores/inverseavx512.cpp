#include "libprores/inverse.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include "libprores/avx512lanes.h"

// A register holds one coefficient, later one sample, of 32 blocks. Coefficients that are not all 0 get their
// lanes in such an order that a transposition in each 128-bit part leaves registers of four neighbouring blocks:
// lane part * 8 + register then has block column register % 4 * 4 + part, upper line for registers 0 to 3.

namespace prores {

namespace {

constexpr std::array<std::uint16_t, mostBlocks> lanesOf(Order order)
{
    std::array<std::uint16_t, mostBlocks> blocks {};
    for (unsigned lane = 0; lane < mostBlocks; ++lane) {
        const unsigned column = lane % 4 * 4 + lane / 8;
        const unsigned row = lane / 4 % 2;
        blocks[lane] = static_cast<std::uint16_t>(order == Order::Columns ? column * 2 + row
                                                                          : column / 2 * 4 + row * 2 + column % 2);
    }
    return blocks;
}

alignas(64) constexpr auto lineBlocks = lanesOf(Order::Lines);
alignas(64) constexpr auto columnBlocks = lanesOf(Order::Columns);

// Two inputs side by side, of the lower and the upper lanes of each part.
struct Pair {
    __m512i low, high;
};

RV_AVX512_INLINE Pair pair(__m512i a, __m512i b)
{
    return {_mm512_unpacklo_epi16(a, b), _mm512_unpackhi_epi16(a, b)};
}

RV_AVX512_INLINE Pair products(Pair sum, const Pair &a, const Pair &b, const short *w)
{
    const __m512i wa = weights(w[0], w[1]);
    const __m512i wb = weights(w[2], w[3]);
    return {_mm512_dpwssd_epi32(_mm512_dpwssd_epi32(sum.low, a.low, wa), b.low, wb),
            _mm512_dpwssd_epi32(_mm512_dpwssd_epi32(sum.high, a.high, wa), b.high, wb)};
}

// The same where only the first two inputs are not 0.
RV_AVX512_INLINE Pair products(Pair sum, const Pair &a, const short *w)
{
    const __m512i wa = weights(w[0], w[1]);
    return {_mm512_dpwssd_epi32(sum.low, a.low, wa), _mm512_dpwssd_epi32(sum.high, a.high, wa)};
}

template <int Shift>
RV_AVX512_INLINE __m512i shifted(__m512i low, __m512i high)
{
    return _mm512_packs_epi32(_mm512_srai_epi32(low, Shift), _mm512_srai_epi32(high, Shift));
}

template <int Rounding, int Shift, int Inputs>
RV_AVX512_INLINE void inverseOf(__m512i *r)
{
    const Pair x02 = pair(r[0], r[2]);
    const Pair x13 = pair(r[1], r[3]);
    Pair x46 {};
    Pair x57 {};
    if constexpr (Inputs > 4) {
        x46 = pair(r[4], r[6]);
        x57 = pair(r[5], r[7]);
    }
    const __m512i rounding = _mm512_set1_epi32(Rounding);
    const __m512i zero = _mm512_setzero_si512();
    for (int k = 0; k < 4; ++k) {
        const Pair even = Inputs > 4 ? products({rounding, rounding}, x02, x46, inverseEven[k])
                                     : products({rounding, rounding}, x02, inverseEven[k]);
        const Pair odd = Inputs > 4 ? products({zero, zero}, x13, x57, inverseOdd[k])
                                    : products({zero, zero}, x13, inverseOdd[k]);
        r[k] = shifted<Shift>(_mm512_add_epi32(even.low, odd.low), _mm512_add_epi32(even.high, odd.high));
        r[7 - k] = shifted<Shift>(_mm512_sub_epi32(even.low, odd.low), _mm512_sub_epi32(even.high, odd.high));
    }
}

// Where not more than the first \a inputs are other than 0.
template <int Rounding, int Shift>
RV_AVX512_INLINE void inverseEight(__m512i *r, int inputs)
{
    if (inputs > 4)
        inverseOf<Rounding, Shift, 8>(r);
    else
        inverseOf<Rounding, Shift, 4>(r);
}

template <int Rounding, int Shift>
RV_AVX512_INLINE void inverseFour(__m512i *r)
{
    const Pair x01 = pair(r[0], r[1]);
    const Pair x23 = pair(r[2], r[3]);
    const __m512i rounding = _mm512_set1_epi32(Rounding);
    for (int k = 0; k < 4; ++k) {
        const Pair sum = products({rounding, rounding}, x01, x23, inverseEven[k]);
        r[k] = shifted<Shift>(sum.low, sum.high);
    }
}

// One row of coefficients; how many of them, from the first, may not be 0: none, 4 or all.
template <int Size>
RV_AVX512_INLINE int dequantise(const LevelTiles &from, const Dequantiser &dequantiser,
                                 const std::uint8_t *positions, __m512i order, __m512i *to)
{
    __m512i any[2] = {_mm512_setzero_si512(), _mm512_setzero_si512()}; // of the first four, and of the others
    for (int u = 0; u < Size; ++u) {
        const int k = positions[u];
        to[u] = _mm512_setzero_si512();
        if (k >= from.positions)
            continue;
        const auto *first = reinterpret_cast<const __m256i *>(from.tile[0] + k * from.stride);
        const auto *second = reinterpret_cast<const __m256i *>(from.tile[1] + k * from.stride);
        const __m512i levels = _mm512_inserti64x4(_mm512_castsi256_si512(_mm256_loadu_si256(first)),
                                                  _mm256_loadu_si256(second), 1);
        any[u / 4] = _mm512_or_si512(any[u / 4], levels);
        to[u] = _mm512_permutexvar_epi16(
            order, _mm512_mullo_epi16(levels, _mm512_set1_epi16(dequantiser.scale[k])));
    }
    if (_mm512_test_epi16_mask(any[1], any[1]) != 0)
        return Size;
    return _mm512_test_epi16_mask(any[0], any[0]) != 0 ? 4 : 0;
}

RV_AVX512_INLINE __m512i lanes(Order order)
{
    return _mm512_load_si512(order == Order::Lines ? lineBlocks.data() : columnBlocks.data());
}

RV_AVX512_INLINE __m512i clamped(__m512i samples)
{
    return _mm512_min_epi16(_mm512_max_epi16(samples, _mm512_set1_epi16(leastSample)),
                            _mm512_set1_epi16(largestSample));
}

RV_AVX512 void full(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions,
                    Order order, const SampleTiles &to)
{
    const __m512i blocks = lanes(order);
    __m512i half[64];
    int rows = 0; // up to the last that is not 0
    for (int y = 0; y < 8; ++y) {
        __m512i r[8];
        const std::uint8_t *row = &positions[static_cast<std::size_t>(y * 8)];
        if (const int inputs = dequantise<8>(from, dequantiser, row, blocks, r); inputs > 0) {
            inverseEight<inverseRowRounding, inverseRowShift>(r, inputs);
            rows = y + 1;
        }
        for (int x = 0; x < 8; ++x)
            half[y * 8 + x] = r[x];
    }
    for (int x = 0; x < 8; ++x) {
        __m512i r[8];
        for (int y = 0; y < 8; ++y)
            r[y] = half[y * 8 + x];
        r[0] = _mm512_add_epi16(r[0], _mm512_set1_epi16(inverseMiddle));
        inverseEight<0, inverseColumnShift>(r, rows);
        for (int y = 0; y < 8; ++y)
            half[y * 8 + x] = clamped(r[y]);
    }
    for (int y = 0; y < 8; ++y) {
        __m512i *r = half + y * 8;
        transpose(r);
        for (int i = 0; i < 8; ++i) {
            std::uint16_t *at = to.tile[i / 2 % 2] + (y + i / 4 * 8) * to.stride + i % 2 * 32;
            if (to.isStreamed)
                _mm512_stream_si512(reinterpret_cast<__m512i *>(at), r[i]);
            else
                _mm512_storeu_si512(at, r[i]);
        }
    }
}

// Two lines of each block at a time: a transposition leaves the four samples of one beside those of the other.
RV_AVX512 void half(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions,
                    Order order, const SampleTiles &to)
{
    const __m512i blocks = lanes(order);
    __m512i rows[16];
    for (int y = 0; y < 4; ++y) {
        __m512i *r = rows + y * 4;
        if (dequantise<4>(from, dequantiser, &positions[static_cast<std::size_t>(y * 8)], blocks, r))
            inverseFour<inverseRowRounding, inverseRowShift>(r);
    }
    for (int x = 0; x < 4; ++x) {
        __m512i r[4];
        for (int y = 0; y < 4; ++y)
            r[y] = rows[y * 4 + x];
        r[0] = _mm512_add_epi16(r[0], _mm512_set1_epi16(inverseMiddle));
        inverseFour<0, inverseColumnShift>(r);
        for (int y = 0; y < 4; ++y)
            rows[y * 4 + x] = clamped(r[y]);
    }
    // 64-bit words 0, 2, 4, 6 of a register are the upper line, the others the lower one.
    const __m512i lines = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    for (int y = 0; y < 4; y += 2) {
        __m512i *r = rows + y * 4;
        transpose(r);
        for (int i = 0; i < 8; ++i) {
            const __m512i both = _mm512_permutexvar_epi64(lines, r[i]);
            std::uint16_t *at = to.tile[i / 2 % 2] + (y + i / 4 * 4) * to.stride + i % 2 * 16;
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(at), _mm512_castsi512_si256(both));
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(at + to.stride), _mm512_extracti64x4_epi64(both, 1));
        }
    }
}

void publish()
{
    _mm_sfence();
}

} // namespace

const InverseKernels *avx512Inverse()
{
    static const InverseKernels kernels = {
        "avx512", true, full, half, portableInverse().quarter, portableInverse().eighth, publish};
    return avx512Kernels() != nullptr ? &kernels : nullptr;
}

} // namespace prores

#else

namespace prores {

const InverseKernels *avx512Inverse()
{
    return nullptr;
}

} // namespace prores

#endif
