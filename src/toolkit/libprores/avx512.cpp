#include "libprores/kernels.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include "libprores/avx512coding.h"
#include "libprores/avx512lanes.h"
#include "libprores/dct.h"

// A register holds one sample, later one coefficient, of 32 blocks. Loading a line of them and the line eight
// below, and transposing in each 128-bit part, puts them there: lane part * 8 + register then has block column
// register % 4 / 2 * 8 + register % 2 * 4 + part, upper line for registers 0 to 3. Only levels that are
// not zero are put into coding order.

namespace prores {

namespace {

// Sums, or differences, of opposite samples, paired for the products.
struct Pairs {
    __m512i low01, high01, low23, high23;
};

template <int Row>
RV_AVX512_INLINE __m512i output(const Pairs &pairs)
{
    const __m512i w01 = weights(dctWeights[Row][0], dctWeights[Row][1]);
    const __m512i w23 = weights(dctWeights[Row][2], dctWeights[Row][3]);
    const __m512i rounding = _mm512_set1_epi32(dctRounding);
    const __m512i low = _mm512_dpwssd_epi32(_mm512_dpwssd_epi32(rounding, pairs.low01, w01), pairs.low23, w23);
    const __m512i high = _mm512_dpwssd_epi32(_mm512_dpwssd_epi32(rounding, pairs.high01, w01), pairs.high23, w23);
    return _mm512_packs_epi32(_mm512_srai_epi32(low, dctShift), _mm512_srai_epi32(high, dctShift));
}

RV_AVX512_INLINE Pairs pair(__m512i a, __m512i b, __m512i c, __m512i d)
{
    return {_mm512_unpacklo_epi16(a, b), _mm512_unpackhi_epi16(a, b), _mm512_unpacklo_epi16(c, d),
            _mm512_unpackhi_epi16(c, d)};
}

RV_AVX512_INLINE void transformEight(__m512i *r)
{
    const Pairs sums = pair(_mm512_add_epi16(r[0], r[7]), _mm512_add_epi16(r[1], r[6]),
                            _mm512_add_epi16(r[2], r[5]), _mm512_add_epi16(r[3], r[4]));
    const Pairs differences = pair(_mm512_sub_epi16(r[0], r[7]), _mm512_sub_epi16(r[1], r[6]),
                                   _mm512_sub_epi16(r[2], r[5]), _mm512_sub_epi16(r[3], r[4]));
    r[0] = output<0>(sums);
    r[1] = output<1>(differences);
    r[2] = output<2>(sums);
    r[3] = output<3>(differences);
    r[4] = output<4>(sums);
    r[5] = output<5>(differences);
    r[6] = output<6>(sums);
    r[7] = output<7>(differences);
}

RV_AVX512 void transform(const Tiles &tiles, int depthShift, const std::array<std::uint8_t, 64> &positions,
                         Coefficients &to)
{
    const __m512i largest = _mm512_set1_epi16(static_cast<short>((8192 >> depthShift) - 1));
    const __m512i middle = _mm512_set1_epi16(4096);
    const __m128i shift = _mm_cvtsi32_si128(depthShift);
    __m512i half[64];
    for (int y = 0; y < 8; ++y) {
        __m512i r[8];
        for (int i = 0; i < 8; ++i) {
            const std::uint16_t *from = tiles.tile[i / 2 % 2] + (y + i / 4 * 8) * tiles.stride + i % 2 * 32;
            const __m512i samples = _mm512_min_epu16(_mm512_loadu_si512(from), largest);
            r[i] = _mm512_sub_epi16(_mm512_sll_epi16(samples, shift), middle);
        }
        transpose(r);
        transformEight(r);
        for (int i = 0; i < 8; ++i)
            half[y * 8 + i] = r[i];
    }
    for (int x = 0; x < 8; ++x) {
        __m512i r[8];
        for (int i = 0; i < 8; ++i)
            r[i] = half[i * 8 + x];
        transformEight(r);
        for (int i = 0; i < 8; ++i)
            _mm512_store_si512(to.at[positions[static_cast<std::size_t>(i * 8 + x)]], r[i]);
    }
}

// The lane that holds each block in coding order.
constexpr std::array<std::uint16_t, mostBlocks> lanesOf(Order order)
{
    std::array<std::uint16_t, mostBlocks> lanes {};
    for (unsigned i = 0; i < mostBlocks; ++i) {
        const unsigned column = order == Order::Columns ? i / 2 : i / 4 * 2 + i % 2;
        const unsigned row = order == Order::Columns ? i % 2 : i / 2 % 2;
        lanes[i] = static_cast<std::uint16_t>(column % 4 * 8 + row * 4 + column / 8 * 2 + column / 4 % 2);
    }
    return lanes;
}

alignas(64) constexpr auto lineLanes = lanesOf(Order::Lines);
alignas(64) constexpr auto columnLanes = lanesOf(Order::Columns);

// Where the next level of a plane goes.
struct Appender {
    std::uint16_t *level;
    std::uint16_t *position;

    RV_AVX512_INLINE void append(__m256i values, __m256i positions, __mmask16 mask)
    {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(level), _mm256_maskz_compress_epi16(mask, values));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(position), _mm256_maskz_compress_epi16(mask, positions));
        advance(__builtin_popcount(mask));
    }

    RV_AVX512_INLINE void append(__m512i values, __m512i positions, __mmask32 mask)
    {
        _mm512_storeu_si512(level, _mm512_maskz_compress_epi16(mask, values));
        _mm512_storeu_si512(position, _mm512_maskz_compress_epi16(mask, positions));
        advance(__builtin_popcount(mask));
    }

    RV_AVX512_INLINE void advance(int count)
    {
        level += count;
        position += count;
    }
};

RV_AVX512_INLINE Appender appenderTo(Levels &levels)
{
    return {levels.level + Levels::lead, levels.position + Levels::lead};
}

RV_AVX512_INLINE __m512i ascending()
{
    alignas(64) static constexpr auto numbers = [] {
        std::array<std::uint16_t, mostBlocks> table {};
        for (unsigned i = 0; i < mostBlocks; ++i)
            table[i] = static_cast<std::uint16_t>(i);
        return table;
    }();
    return _mm512_load_si512(numbers.data());
}

RV_AVX512_INLINE __m512i levelsOf(__m512i coefficients, const Quantiser &quantiser, int k)
{
    const __m512i magnitude = _mm512_add_epi16(_mm512_abs_epi16(coefficients),
                                               _mm512_set1_epi16(static_cast<short>(quantiser.offset[k])));
    return _mm512_mulhi_epu16(magnitude, _mm512_set1_epi16(static_cast<short>(quantiser.reciprocal[k])));
}

RV_AVX512 void quantise(const Coefficients &from, const Quantiser &quantiser, Order order, int blocks,
                        Levels &first, Levels *second, const Ahead &ahead)
{
    const Ahead wantedSoon = ahead; // in registers
    wantedSoon.fetch(0);
    const __m512i lanes = _mm512_load_si512((order == Order::Lines ? lineLanes : columnLanes).data());
    first.begin(blocks);
    const __m512i dc = _mm512_load_si512(from.at[0]);
    const __m512i sign = _mm512_srai_epi16(dc, 15);
    const __m512i levels = _mm512_sub_epi16(_mm512_xor_si512(levelsOf(dc, quantiser, 0), sign), sign);
    const __m512i ordered = _mm512_permutexvar_epi16(lanes, levels);
    _mm512_store_si512(first.dc, ordered);
    if (second != nullptr) {
        second->begin(blocks);
        _mm256_store_si256(reinterpret_cast<__m256i *>(second->dc), _mm512_extracti64x4_epi64(ordered, 1));
    }
    const __mmask32 wanted = blocks == mostBlocks ? ~0u : (1u << blocks) - 1;
    const __m512i one = _mm512_set1_epi16(1);
    Appender toFirst = appenderTo(first);
    Appender toSecond = second != nullptr ? appenderTo(*second) : toFirst;
    for (int k = 1; k < 64; ++k) {
        wantedSoon.fetch(k);
        const __m512i coefficients = _mm512_load_si512(from.at[k]);
        const __m512i magnitudes = levelsOf(coefficients, quantiser, k);
        if (_mm512_test_epi16_mask(magnitudes, magnitudes) == 0)
            continue;
        const __m512i values = _mm512_permutexvar_epi16(
            lanes, _mm512_add_epi16(_mm512_add_epi16(magnitudes, magnitudes), _mm512_srli_epi16(coefficients, 15)));
        const __mmask32 mask = _mm512_cmpgt_epu16_mask(values, one);
        const __m512i positions = _mm512_add_epi16(ascending(), _mm512_set1_epi16(static_cast<short>(k * blocks)));
        if (second == nullptr) {
            toFirst.append(values, positions, mask & wanted);
            continue;
        }
        const __m256i low = _mm512_castsi512_si256(positions);
        toFirst.append(_mm512_castsi512_si256(values), low, static_cast<__mmask16>(mask & wanted));
        toSecond.append(_mm512_extracti64x4_epi64(values, 1), low, static_cast<__mmask16>(mask >> 16 & wanted));
    }
    first.count = static_cast<int>(toFirst.level - first.level) - Levels::lead;
    if (second != nullptr)
        second->count = static_cast<int>(toSecond.level - second->level) - Levels::lead;
}

constexpr Kernels avx512 = {"avx512", transform, quantise, codeAvx512};

} // namespace

const Kernels *avx512Kernels()
{
    static const bool isThere = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")
        && __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq")
        && __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512vbmi2")
        && __builtin_cpu_supports("avx512vnni") && __builtin_cpu_supports("bmi2");
    return isThere ? &avx512 : nullptr;
}

} // namespace prores

#else

namespace prores {

const Kernels *avx512Kernels()
{
    return nullptr;
}

} // namespace prores

#endif
