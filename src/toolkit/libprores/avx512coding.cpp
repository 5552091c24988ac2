#include "libprores/kernels.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include "libprores/avx512coding.h"
#include "libprores/codetables.h"
#include "libprores/scalarcoding.h"

// Thirty-two levels at a time in lanes of 16 bits: an encoder knows all levels, so no context waits for the one
// before. Codewords of a level's run and of the level itself are joined to 32 bits, then with those of its
// neighbours in pairs, fours and eights while they fit the writer, which is the slow part.

namespace prores {

namespace {

// A code's four numbers for each of sixteen contexts. The lengths count on the leading zeros of 32 bits; here they
// are those of 16.
struct Lookup {
    __m512i threshold;
    __m512i add;
    __m512i length;
    __m512i rice;
};

RV_AVX512_INLINE Lookup lookupOf(const NarrowCodeTable &table)
{
    return {_mm512_load_si512(table.threshold), _mm512_load_si512(table.add),
            _mm512_sub_epi16(_mm512_load_si512(table.length), _mm512_set1_epi16(2 * 16)),
            _mm512_load_si512(table.rice)};
}

struct Words {
    __m512i value;
    __m512i length;
};

RV_AVX512_INLINE Words wordsFor(__m512i values, __m512i contexts, const Lookup &table)
{
    const __m512i one = _mm512_set1_epi16(1);
    const __m512i rice = _mm512_permutexvar_epi16(contexts, table.rice);
    const __mmask32 isRice = _mm512_cmplt_epu16_mask(values, _mm512_permutexvar_epi16(contexts, table.threshold));
    const __m512i riceOne = _mm512_sllv_epi16(one, rice);
    // riceOne | (values & (riceOne - 1))
    const __m512i below = _mm512_ternarylogic_epi32(riceOne, values, _mm512_sub_epi16(riceOne, one), 0xf8);
    const __m512i belowLength
        = _mm512_add_epi16(_mm512_srlv_epi16(values, rice), _mm512_add_epi16(rice, one));
    const __m512i number = _mm512_add_epi16(values, _mm512_permutexvar_epi16(contexts, table.add));
    // No number beyond the threshold is 0, so the zeros of an odd one end before the even one below it.
    const __m512i evenZeros = _mm512_lzcnt_epi32(_mm512_slli_epi32(number, 16));
    const __m512i oddZeros = _mm512_slli_epi32(_mm512_lzcnt_epi32(number), 16);
    const __m512i zeros = _mm512_mask_mov_epi16(evenZeros, 0xaaaaaaaa, oddZeros);
    const __m512i beyondLength = _mm512_sub_epi16(_mm512_permutexvar_epi16(contexts, table.length),
                                                  _mm512_add_epi16(zeros, zeros));
    return {_mm512_mask_mov_epi16(number, isRice, below), _mm512_mask_mov_epi16(beyondLength, isRice, belowLength)};
}

RV_AVX512_INLINE __m512i joined(__m512i first, __m512i second, __m512i secondLength)
{
    return _mm512_or_si512(_mm512_sllv_epi64(first, secondLength), second);
}

// Pairs of 32-bit words, the earlier ones in the low halves.
RV_AVX512_INLINE __m512i paired(__m512i words, __m512i secondLength)
{
    return joined(_mm512_maskz_mov_epi32(0x5555, words), _mm512_srli_epi64(words, 32), secondLength);
}

RV_AVX512_INLINE void putPairs(BitWriter &writer, __m512i low, __m512i high, __m512i lengths)
{
    alignas(64) std::uint64_t values[2][8];
    alignas(64) std::int32_t length[16];
    _mm512_store_si512(values[0], low);
    _mm512_store_si512(values[1], high);
    _mm512_store_si512(length, lengths);
    for (int i = 0; i < 16; ++i)
        writer.put(values[i / 2 % 2][i / 4 * 2 + i % 2], length[i]);
}

template <int Step>
RV_AVX512_INLINE void putEach(BitWriter &writer, __m512i words, __m512i lengths)
{
    alignas(64) std::uint64_t values[8];
    alignas(64) std::uint64_t length[8];
    _mm512_store_si512(values, _mm512_sllv_epi64(words, _mm512_sub_epi64(_mm512_set1_epi64(64), lengths)));
    _mm512_store_si512(length, lengths);
    asm("" : "+m"(values), "+m"(length)); // else each number is shuffled out of its register, which takes longer
    for (int i = 0; i < 8; i += Step)
        writer.putTop(values[i], length[i]);
}

// Thirty-two codewords of up to 32 bits: \a low has those of the even fours, \a high of the odd ones. False, and
// nothing written, when two together have more than 56.
RV_AVX512_INLINE bool put(BitWriter &writer, __m512i low, __m512i high, __m512i lengths)
{
    const __m512i zero = _mm512_setzero_si512();
    const __m512i most = _mm512_set1_epi64(56);
    const __m512i pairLengths = _mm512_madd_epi16(lengths, _mm512_set1_epi16(1)); // of 32 bits
    if (_mm512_cmpgt_epi32_mask(pairLengths, _mm512_set1_epi32(56)) != 0)
        return false;
    const __m512i seconds = _mm512_srli_epi32(lengths, 16);
    const __m512i lowPairs = paired(low, _mm512_unpacklo_epi32(seconds, zero));
    const __m512i highPairs = paired(high, _mm512_unpackhi_epi32(seconds, zero));
    const __m512i secondPairLengths = _mm512_srli_epi64(pairLengths, 32);
    const __m512i four = joined(_mm512_unpacklo_epi64(lowPairs, highPairs),
                                _mm512_unpackhi_epi64(lowPairs, highPairs), secondPairLengths);
    const __m512i fourLengths
        = _mm512_add_epi64(_mm512_maskz_mov_epi32(0x5555, pairLengths), secondPairLengths);
    if (_mm512_cmpgt_epi64_mask(fourLengths, most) != 0) {
        putPairs(writer, lowPairs, highPairs, pairLengths);
        return true;
    }
    const __m512i otherLengths = _mm512_shuffle_epi32(fourLengths, _MM_PERM_BADC);
    const __m512i eightLengths = _mm512_add_epi64(fourLengths, otherLengths);
    if (_mm512_cmpgt_epi64_mask(eightLengths, most) != 0)
        putEach<1>(writer, four, fourLengths);
    else
        putEach<2>(writer, joined(four, _mm512_shuffle_epi32(four, _MM_PERM_BADC), otherLengths), eightLengths);
    return true;
}

RV_AVX512_INLINE __m512i load(const void *from)
{
    return _mm512_loadu_si512(from);
}

RV_AVX512_INLINE __mmask32 firstOf(int count)
{
    return count >= 32 ? 0xffffffffu : (1u << count) - 1;
}

alignas(64) constexpr auto laneBefore = [] {
    std::array<std::uint16_t, 32> lanes {};
    for (std::size_t i = 1; i < lanes.size(); ++i)
        lanes[i] = static_cast<std::uint16_t>(i - 1);
    return lanes;
}();

// DC levels have up to 14 bits and a sign, their differences fit 16 bits.
RV_AVX512_INLINE void putDc(BitWriter &writer, const Levels &levels)
{
    DcCoder scalar;
    const Codeword begin = scalar.first(levels.dc[0]);
    writer.put(begin.value, begin.length);
    if (levels.blocks == 1)
        return;
    const __m512i zero = _mm512_setzero_si512();
    const __mmask32 valid = firstOf(levels.blocks - 1);
    const __m512i difference = _mm512_sub_epi16(load(levels.dc + 1), load(levels.dc));
    // The difference before it, which for the first is as its code wants.
    const __m512i before
        = _mm512_mask_permutexvar_epi16(_mm512_set1_epi16(3), ~1u, load(laneBefore.data()), difference);
    const __m512i told = _mm512_mask_sub_epi16(difference, _mm512_movepi16_mask(before), zero, difference);
    const __m512i folded = _mm512_xor_si512(_mm512_add_epi16(told, told), _mm512_srai_epi16(told, 15));
    const __m512i contexts = _mm512_min_epu16(_mm512_abs_epi16(before), _mm512_set1_epi16(3));
    Words words = wordsFor(folded, contexts, lookupOf(narrowDcTable));
    words.value = _mm512_maskz_mov_epi16(valid, words.value);
    words.length = _mm512_maskz_mov_epi16(valid, words.length);
    if (put(writer, _mm512_unpacklo_epi16(words.value, zero), _mm512_unpackhi_epi16(words.value, zero), words.length))
        return;
    alignas(64) std::uint16_t values[32];
    alignas(64) std::uint16_t lengths[32];
    _mm512_store_si512(values, words.value);
    _mm512_store_si512(lengths, words.length);
    for (int i = 0; i < levels.blocks - 1; ++i)
        writer.put(values[i], lengths[i]);
}

// The run's codeword before the level's, whose length is given.
RV_AVX512_INLINE __m512i behind(__m512i levelAndRun, __m512i levelLength)
{
    return _mm512_ternarylogic_epi32(_mm512_sllv_epi32(_mm512_srli_epi32(levelAndRun, 16), levelLength), levelAndRun,
                                     _mm512_set1_epi32(0xffff), 0xf8);
}

struct Lookups {
    Lookup run;
    Lookup level;
};

// Up to thirty-two levels' codewords of 32 bits, those of the even fours in \a low, those of the odd ones in \a high.
struct Group {
    __m512i low;
    __m512i high;
    __m512i lengths;
};

RV_AVX512_INLINE Group groupAt(const Levels &levels, int i, int end, const Lookups &lookups)
{
    const __m512i zero = _mm512_setzero_si512();
    const __m512i one = _mm512_set1_epi16(1);
    const __m512i most = _mm512_set1_epi16(15);
    const __m512i last = load(levels.position + i - 1);
    const __m512i runs = _mm512_sub_epi16(_mm512_sub_epi16(load(levels.position + i), last), one);
    const __m512i lastRuns = _mm512_sub_epi16(_mm512_sub_epi16(last, load(levels.position + i - 2)), one);
    const __m512i given = load(levels.level + i);
    const __m512i lastMagnitudes = _mm512_srli_epi16(load(levels.level + i - 1), 1);
    const Words run = wordsFor(runs, _mm512_min_epu16(lastRuns, most), lookups.run);
    const Words level = wordsFor(_mm512_sub_epi16(_mm512_srli_epi16(given, 1), one),
                                 _mm512_min_epu16(lastMagnitudes, most), lookups.level);
    const __mmask32 valid = firstOf(end - i);
    const __m512i levelLengths = _mm512_add_epi16(level.length, one);
    // (level.value << 1) | (sign & 1)
    const __m512i signedLevel
        = _mm512_ternarylogic_epi32(_mm512_add_epi16(level.value, level.value), given, one, 0xf8);
    const __m512i levelWords16 = _mm512_maskz_mov_epi16(valid, signedLevel);
    const __m512i runWords16 = _mm512_maskz_mov_epi16(valid, run.value);
    return {behind(_mm512_unpacklo_epi16(levelWords16, runWords16), _mm512_unpacklo_epi16(levelLengths, zero)),
            behind(_mm512_unpackhi_epi16(levelWords16, runWords16), _mm512_unpackhi_epi16(levelLengths, zero)),
            _mm512_maskz_add_epi16(valid, run.length, levelLengths)};
}

} // namespace

// While one group is written the next one is worked out already: how the writer branches is hard to foresee, and
// without that all of its work would begin when the branch is known.
RV_AVX512 std::uint8_t *codeAvx512(const Levels &levels, std::uint8_t *to)
{
    BitWriter writer(to);
    const Lookups lookups = {lookupOf(narrowRunTable), lookupOf(narrowLevelTable)};
    const int end = Levels::lead + levels.count;
    Group next = groupAt(levels, Levels::lead, end, lookups);
    putDc(writer, levels);
    for (int i = Levels::lead; i < end; i += 32) {
        const Group group = next;
        if (i + 32 < end)
            next = groupAt(levels, i + 32, end, lookups);
        if (_mm512_cmpgt_epu16_mask(group.lengths, _mm512_set1_epi16(32)) == 0
            && put(writer, group.low, group.high, group.lengths))
            continue;
        for (int k = i; k < end && k < i + 32; ++k)
            codeLevel(writer, levels, k);
    }
    return writer.end();
}

} // namespace prores

#endif
