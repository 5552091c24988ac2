#include "libprores/kernels.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include "libprores/avx2coding.h"
#include "libprores/avx2lanes.h"
#include "libprores/dct.h"

// A register holds one sample, later one coefficient, of the 16 blocks of a tile. Loading a line of them and the
// line eight below, and transposing in each half, puts them there: lane half * 8 + register then has block column
// register % 4 * 2 + half, upper line for registers 0 to 3.

namespace prores {

namespace {

// Sums, or differences, of opposite samples, paired for the products.
struct Pairs {
    __m256i low01, high01, low23, high23;
};

template <int Row>
RV_AVX2_INLINE __m256i output(const Pairs &pairs)
{
    const __m256i w01 = weights(dctWeights[Row][0], dctWeights[Row][1]);
    const __m256i w23 = weights(dctWeights[Row][2], dctWeights[Row][3]);
    const __m256i rounding = _mm256_set1_epi32(dctRounding);
    const __m256i low = _mm256_add_epi32(
        _mm256_add_epi32(_mm256_madd_epi16(pairs.low01, w01), _mm256_madd_epi16(pairs.low23, w23)), rounding);
    const __m256i high = _mm256_add_epi32(
        _mm256_add_epi32(_mm256_madd_epi16(pairs.high01, w01), _mm256_madd_epi16(pairs.high23, w23)), rounding);
    return _mm256_packs_epi32(_mm256_srai_epi32(low, dctShift), _mm256_srai_epi32(high, dctShift));
}

RV_AVX2_INLINE Pairs pair(__m256i a, __m256i b, __m256i c, __m256i d)
{
    return {_mm256_unpacklo_epi16(a, b), _mm256_unpackhi_epi16(a, b), _mm256_unpacklo_epi16(c, d),
            _mm256_unpackhi_epi16(c, d)};
}

RV_AVX2_INLINE void transformEight(__m256i *r)
{
    const Pairs sums = pair(_mm256_add_epi16(r[0], r[7]), _mm256_add_epi16(r[1], r[6]),
                            _mm256_add_epi16(r[2], r[5]), _mm256_add_epi16(r[3], r[4]));
    const Pairs differences = pair(_mm256_sub_epi16(r[0], r[7]), _mm256_sub_epi16(r[1], r[6]),
                                   _mm256_sub_epi16(r[2], r[5]), _mm256_sub_epi16(r[3], r[4]));
    r[0] = output<0>(sums);
    r[1] = output<1>(differences);
    r[2] = output<2>(sums);
    r[3] = output<3>(differences);
    r[4] = output<4>(sums);
    r[5] = output<5>(differences);
    r[6] = output<6>(sums);
    r[7] = output<7>(differences);
}

RV_AVX2_INLINE __m256i load(const void *from)
{
    return _mm256_loadu_si256(static_cast<const __m256i *>(from));
}

RV_AVX2_INLINE void store(void *to, __m256i value)
{
    _mm256_storeu_si256(static_cast<__m256i *>(to), value);
}

RV_AVX2_INLINE void transformTile(const std::uint16_t *from, std::ptrdiff_t stride, int depthShift,
                                  const std::array<std::uint8_t, 64> &positions, Coefficients &to, int firstLane)
{
    const __m256i largest = _mm256_set1_epi16(static_cast<short>((8192 >> depthShift) - 1));
    const __m256i middle = _mm256_set1_epi16(4096);
    const __m128i shift = _mm_cvtsi32_si128(depthShift);
    __m256i half[64];
    for (int y = 0; y < 8; ++y) {
        __m256i r[8];
        for (int i = 0; i < 8; ++i) {
            const __m256i samples = load(from + (y + i / 4 * 8) * stride + i % 4 * 16);
            r[i] = _mm256_sub_epi16(_mm256_sll_epi16(_mm256_min_epu16(samples, largest), shift), middle);
        }
        transpose(r);
        transformEight(r);
        for (int i = 0; i < 8; ++i)
            half[y * 8 + i] = r[i];
    }
    for (int x = 0; x < 8; ++x) {
        __m256i r[8];
        for (int i = 0; i < 8; ++i)
            r[i] = half[i * 8 + x];
        transformEight(r);
        for (int i = 0; i < 8; ++i)
            store(to.at[positions[static_cast<std::size_t>(i * 8 + x)]] + firstLane, r[i]);
    }
}

RV_AVX2 void transform(const Tiles &tiles, int depthShift, const std::array<std::uint8_t, 64> &positions,
                       Coefficients &to)
{
    transformTile(tiles.tile[0], tiles.stride, depthShift, positions, to, 0);
    transformTile(tiles.tile[1], tiles.stride, depthShift, positions, to, tileBlocks);
}

// For each set of eight lanes: how to move them to the front, as bytes, and their numbers.
struct Compaction {
    alignas(16) std::array<std::array<std::uint8_t, 16>, 256> bytes;
    alignas(8) std::array<std::array<std::uint8_t, 8>, 256> numbers;
};

constexpr Compaction compactionTable()
{
    Compaction table {};
    for (unsigned mask = 0; mask < 256; ++mask) {
        std::size_t count = 0;
        for (std::uint8_t lane = 0; lane < 8; ++lane) {
            if ((mask >> lane & 1) == 0)
                continue;
            table.bytes[mask][2 * count] = static_cast<std::uint8_t>(2 * lane);
            table.bytes[mask][2 * count + 1] = static_cast<std::uint8_t>(2 * lane + 1);
            table.numbers[mask][count++] = lane;
        }
    }
    return table;
}

constexpr Compaction compaction = compactionTable();

// Where the next level of a plane goes.
struct Appender {
    std::uint16_t *level;
    std::uint16_t *position;

    // Those of eight levels that \a mask names; \a first is the place of the first of the eight.
    RV_AVX2_INLINE void append(__m128i values, unsigned mask, int first)
    {
        const __m128i move = _mm_load_si128(reinterpret_cast<const __m128i *>(compaction.bytes[mask].data()));
        const __m128i numbers = _mm_cvtepu8_epi16(
            _mm_loadl_epi64(reinterpret_cast<const __m128i *>(compaction.numbers[mask].data())));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(level), _mm_shuffle_epi8(values, move));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(position),
                         _mm_add_epi16(numbers, _mm_set1_epi16(static_cast<short>(first))));
        const int count = __builtin_popcount(mask);
        level += count;
        position += count;
    }
};

RV_AVX2_INLINE Appender appenderTo(Levels &levels)
{
    return {levels.level + Levels::lead, levels.position + Levels::lead};
}

// Sixteen lanes in coding order.
RV_AVX2_INLINE __m256i ordered(__m256i lanes, Order order)
{
    const __m256i within = _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15, 0, 1, 8, 9, 2, 3,
                                            10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
    const __m256i halves = _mm256_shuffle_epi8(lanes, within);
    const __m128i low = _mm256_castsi256_si128(halves);
    const __m128i high = _mm256_extracti128_si256(halves, 1);
    if (order == Order::Lines)
        return _mm256_set_m128i(_mm_unpackhi_epi16(low, high), _mm_unpacklo_epi16(low, high));
    return _mm256_set_m128i(_mm_unpackhi_epi32(low, high), _mm_unpacklo_epi32(low, high));
}

RV_AVX2_INLINE __m256i levelsOf(__m256i coefficients, __m256i offset, __m256i reciprocal)
{
    return _mm256_mulhi_epu16(_mm256_add_epi16(_mm256_abs_epi16(coefficients), offset), reciprocal);
}

// The levels of one tile at scan position \a k, of which \a wanted has a bit each; \a first is the place
// of the tile's first.
RV_AVX2_INLINE void quantiseTile(__m256i coefficients, __m256i magnitudes, Order order, unsigned wanted, int first,
                                 Appender &to)
{
    const __m256i values = ordered(_mm256_add_epi16(_mm256_add_epi16(magnitudes, magnitudes),
                                                    _mm256_srli_epi16(coefficients, 15)), order);
    const __m128i low = _mm256_castsi256_si128(values);
    const __m128i high = _mm256_extracti128_si256(values, 1);
    const __m128i isZero = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_srli_epi16(low, 1), _mm_setzero_si128()),
                                           _mm_cmpeq_epi16(_mm_srli_epi16(high, 1), _mm_setzero_si128()));
    const unsigned mask = ~static_cast<unsigned>(_mm_movemask_epi8(isZero)) & wanted;
    to.append(low, mask & 255, first);
    to.append(high, mask >> 8, first + 8);
}

RV_AVX2_INLINE void quantiseDc(const std::int16_t *from, const Quantiser &quantiser, Order order, std::int16_t *to)
{
    const __m256i dc = load(from);
    const __m256i levels = levelsOf(dc, _mm256_set1_epi16(static_cast<short>(quantiser.offset[0])),
                                    _mm256_set1_epi16(static_cast<short>(quantiser.reciprocal[0])));
    const __m256i sign = _mm256_srai_epi16(dc, 15);
    store(to, ordered(_mm256_sub_epi16(_mm256_xor_si256(levels, sign), sign), order));
}

RV_AVX2 void quantise(const Coefficients &from, const Quantiser &quantiser, Order order, int blocks, Levels &first,
                      Levels *second, const Ahead &ahead)
{
    const Ahead wantedSoon = ahead; // in registers
    wantedSoon.fetch(0);
    first.begin(blocks);
    quantiseDc(from.at[0], quantiser, order, first.dc);
    if (second != nullptr)
        second->begin(blocks);
    quantiseDc(from.at[0] + tileBlocks, quantiser, order, second != nullptr ? second->dc : first.dc + tileBlocks);
    Appender toFirst = appenderTo(first);
    Appender toSecond = second != nullptr ? appenderTo(*second) : toFirst;
    const unsigned wanted = blocks >= tileBlocks ? 0xffffu : (1u << blocks) - 1;
    const bool isSecondWanted = second != nullptr || blocks > tileBlocks;
    for (int k = 1; k < 64; ++k) {
        wantedSoon.fetch(k);
        const __m256i offset = _mm256_set1_epi16(static_cast<short>(quantiser.offset[k]));
        const __m256i reciprocal = _mm256_set1_epi16(static_cast<short>(quantiser.reciprocal[k]));
        const __m256i left = load(from.at[k]);
        const __m256i right = load(from.at[k] + tileBlocks);
        const __m256i leftLevels = levelsOf(left, offset, reciprocal);
        const __m256i rightLevels = levelsOf(right, offset, reciprocal);
        if (!_mm256_testz_si256(leftLevels, leftLevels))
            quantiseTile(left, leftLevels, order, wanted, k * blocks, toFirst);
        if (!isSecondWanted || _mm256_testz_si256(rightLevels, rightLevels))
            continue;
        if (second != nullptr)
            quantiseTile(right, rightLevels, order, wanted, k * blocks, toSecond);
        else
            quantiseTile(right, rightLevels, order, wanted, k * blocks + tileBlocks, toFirst);
    }
    first.count = static_cast<int>(toFirst.level - first.level) - Levels::lead;
    if (second != nullptr)
        second->count = static_cast<int>(toSecond.level - second->level) - Levels::lead;
}

constexpr Kernels avx2 = {"avx2", transform, quantise, codeAvx2};

} // namespace

const Kernels *avx2Kernels()
{
    static const bool isThere = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2")
        && __builtin_cpu_supports("popcnt");
    return isThere ? &avx2 : nullptr;
}

} // namespace prores

#else

namespace prores {

const Kernels *avx2Kernels()
{
    return nullptr;
}

} // namespace prores

#endif
