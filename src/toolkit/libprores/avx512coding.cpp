#include "libprores/kernels.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include "libprores/avx512coding.h"
#include "libprores/codetables.h"
#include "libprores/scalarcoding.h"

// Sixteen levels at a time: an encoder knows all levels, so no context waits for the one before. Codewords are
// joined in pairs, fours and eights while they fit the writer, which is the slow part.

namespace prores {

namespace {

// A code's five numbers for each of sixteen contexts.
struct Lookup {
    __m512i threshold;
    __m512i add;
    __m512i length;
    __m512i rice;
    __m512i one;
};

RV_AVX512_INLINE Lookup lookupOf(const CodeTable<16> &table)
{
    return {_mm512_load_si512(table.threshold), _mm512_load_si512(table.add), _mm512_load_si512(table.length),
            _mm512_load_si512(table.rice), _mm512_load_si512(table.one)};
}

struct Words {
    __m512i value;
    __m512i length;
};

RV_AVX512_INLINE Words wordsFor(__m512i values, __m512i contexts, const Lookup &table)
{
    const __m512i one = _mm512_permutexvar_epi32(contexts, table.one); // 1 << rice
    const __m512i rice = _mm512_permutexvar_epi32(contexts, table.rice);
    const __mmask16 isRice = _mm512_cmplt_epu32_mask(values, _mm512_permutexvar_epi32(contexts, table.threshold));
    // one | (values & (one - 1))
    const __m512i below = _mm512_ternarylogic_epi32(
        one, values, _mm512_sub_epi32(one, _mm512_set1_epi32(1)), 0xf8);
    const __m512i belowLength = _mm512_add_epi32(_mm512_srlv_epi32(values, rice),
                                                 _mm512_add_epi32(rice, _mm512_set1_epi32(1)));
    const __m512i number = _mm512_add_epi32(values, _mm512_permutexvar_epi32(contexts, table.add));
    const __m512i zeros = _mm512_lzcnt_epi32(number);
    const __m512i beyondLength = _mm512_sub_epi32(_mm512_permutexvar_epi32(contexts, table.length),
                                                  _mm512_add_epi32(zeros, zeros));
    return {_mm512_mask_mov_epi32(number, isRice, below), _mm512_mask_mov_epi32(beyondLength, isRice, belowLength)};
}

RV_AVX512_INLINE Words joined(__m512i first, __m512i firstLength, __m512i second, __m512i secondLength)
{
    return {_mm512_or_si512(_mm512_sllv_epi64(first, secondLength), second),
            _mm512_add_epi64(firstLength, secondLength)};
}

template <int Step>
RV_AVX512_INLINE void putEach(BitWriter &writer, const Words &words)
{
    alignas(64) std::uint64_t values[8];
    alignas(64) std::int64_t lengths[8];
    _mm512_store_si512(values, words.value);
    _mm512_store_si512(lengths, words.length);
    for (int i = 0; i < 8; i += Step)
        writer.put(values[i], static_cast<int>(lengths[i]));
}

// Sixteen codewords of up to 32 bits. False, and nothing written, when two together have more than 56.
RV_AVX512_INLINE bool put(BitWriter &writer, const Words &words)
{
    const __m512i most = _mm512_set1_epi64(56);
    const __m512i low = _mm512_set1_epi64(0xffffffff);
    const Words two = joined(_mm512_and_si512(words.value, low), _mm512_and_si512(words.length, low),
                             _mm512_srli_epi64(words.value, 32), _mm512_srli_epi64(words.length, 32));
    const Words four = joined(two.value, two.length, _mm512_shuffle_epi32(two.value, _MM_PERM_BADC),
                              _mm512_shuffle_epi32(two.length, _MM_PERM_BADC));
    if (_mm512_cmpgt_epi64_mask(four.length, most) != 0) {
        if (_mm512_cmpgt_epi64_mask(two.length, most) != 0)
            return false;
        putEach<1>(writer, two);
        return true;
    }
    const Words eight = joined(four.value, four.length, _mm512_shuffle_i64x2(four.value, four.value, 0xb1),
                               _mm512_shuffle_i64x2(four.length, four.length, 0xb1));
    if (_mm512_cmpgt_epi64_mask(eight.length, most) != 0)
        putEach<2>(writer, four);
    else
        putEach<4>(writer, eight);
    return true;
}

RV_AVX512_INLINE __m512i wide(__m256i values)
{
    return _mm512_cvtepu16_epi32(values);
}

RV_AVX512_INLINE __m256i load(const std::uint16_t *from)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from));
}

RV_AVX512_INLINE void putDc(BitWriter &writer, const Levels &levels)
{
    DcCoder scalar;
    const Codeword begin = scalar.first(levels.dc[0]);
    writer.put(begin.value, begin.length);
    const Lookup table = lookupOf(dcTable);
    const __m512i zero = _mm512_setzero_si512();
    __m512i before = _mm512_set1_epi32(3); // as the first code wants
    for (int i = 1; i < levels.blocks; i += 16) {
        const auto *from = levels.dc + i;
        const __m512i difference = _mm512_sub_epi32(
            _mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(from))),
            _mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(from - 1))));
        const __m512i last = _mm512_alignr_epi32(difference, before, 15);
        before = difference;
        const __m512i told = _mm512_mask_sub_epi32(difference, _mm512_cmplt_epi32_mask(last, zero), zero, difference);
        const __m512i folded = _mm512_xor_si512(_mm512_add_epi32(told, told), _mm512_srai_epi32(told, 31));
        const __m512i contexts = _mm512_min_epu32(_mm512_abs_epi32(last), _mm512_set1_epi32(3));
        const int left = levels.blocks - i;
        const auto valid = static_cast<__mmask16>(left >= 16 ? 0xffff : (1 << left) - 1);
        Words words = wordsFor(folded, contexts, table);
        words.value = _mm512_maskz_mov_epi32(valid, words.value);
        words.length = _mm512_maskz_mov_epi32(valid, words.length);
        if (put(writer, words))
            continue;
        alignas(64) std::uint32_t values[16];
        alignas(64) std::int32_t lengths[16];
        _mm512_store_si512(values, words.value);
        _mm512_store_si512(lengths, words.length);
        for (int k = 0; k < 16; ++k)
            writer.put(values[k], lengths[k]);
    }
}

} // namespace

RV_AVX512 std::uint8_t *codeAvx512(const Levels &levels, std::uint8_t *to)
{
    BitWriter writer(to);
    putDc(writer, levels);
    const Lookup runLookup = lookupOf(runTable);
    const Lookup levelLookup = lookupOf(levelTable);
    const __m256i one = _mm256_set1_epi16(1);
    const __m256i most = _mm256_set1_epi16(15);
    const int end = Levels::lead + levels.count;
    for (int i = Levels::lead; i < end; i += 16) {
        const __m256i last = load(levels.position + i - 1);
        const __m256i runs = _mm256_sub_epi16(_mm256_sub_epi16(load(levels.position + i), last), one);
        const __m256i lastRuns = _mm256_sub_epi16(_mm256_sub_epi16(last, load(levels.position + i - 2)), one);
        const __m256i given = load(levels.level + i);
        const __m256i lastMagnitudes = _mm256_srli_epi16(load(levels.level + i - 1), 1);
        const Words run = wordsFor(wide(runs), wide(_mm256_min_epu16(lastRuns, most)), runLookup);
        const __m512i levelAndSign = wide(given);
        const __m512i one32 = _mm512_set1_epi32(1);
        const Words level = wordsFor(_mm512_sub_epi32(_mm512_srli_epi32(levelAndSign, 1), one32),
                                     wide(_mm256_min_epu16(lastMagnitudes, most)), levelLookup);
        const __m512i levelLength = _mm512_add_epi32(level.length, one32);
        // (level.value << 1) | (sign & 1)
        const __m512i signedLevel = _mm512_ternarylogic_epi32(
            _mm512_add_epi32(level.value, level.value), levelAndSign, one32, 0xf8);
        const int left = end - i;
        const auto valid = static_cast<__mmask16>(left >= 16 ? 0xffff : (1 << left) - 1);
        const __m512i length = _mm512_maskz_add_epi32(valid, run.length, levelLength);
        const __m512i value = _mm512_maskz_or_epi32(valid, _mm512_sllv_epi32(run.value, levelLength), signedLevel);
        if (_mm512_cmpgt_epu32_mask(length, _mm512_set1_epi32(32)) == 0 && put(writer, {value, length}))
            continue;
        for (int k = i; k < end && k < i + 16; ++k)
            codeLevel(writer, levels, k);
    }
    return writer.end();
}

} // namespace prores

#endif
