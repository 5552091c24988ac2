#include "libprores/kernels.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include "libprores/avx2coding.h"
#include "libprores/codetables.h"
#include "libprores/scalarcoding.h"

// Eight levels at a time. There are eight contexts to look up in, so the contexts are first reduced to their
// six classes; floor(log2) comes from the exponent of a number made float.

namespace prores {

namespace {

struct Lookup {
    __m256i threshold;
    __m256i add;
    __m256i length;
    __m256i rice;
    __m256i one;
};

RV_AVX2_INLINE __m256i load(const void *from)
{
    return _mm256_loadu_si256(static_cast<const __m256i *>(from));
}

RV_AVX2_INLINE Lookup lookupOf(const CodeTable<8> &table)
{
    return {load(table.threshold), load(table.add), load(table.length), load(table.rice), load(table.one)};
}

struct Words {
    __m256i value;
    __m256i length;
};

RV_AVX2_INLINE __m256i lookedUp(__m256i table, __m256i contexts)
{
    return _mm256_permutevar8x32_epi32(table, contexts);
}

RV_AVX2_INLINE Words wordsFor(__m256i values, __m256i contexts, const Lookup &table)
{
    const __m256i one = lookedUp(table.one, contexts); // 1 << rice
    const __m256i rice = lookedUp(table.rice, contexts);
    const __m256i isRice = _mm256_cmpgt_epi32(lookedUp(table.threshold, contexts), values);
    const __m256i unit = _mm256_set1_epi32(1);
    const __m256i below = _mm256_or_si256(one, _mm256_and_si256(values, _mm256_sub_epi32(one, unit)));
    const __m256i belowLength = _mm256_add_epi32(_mm256_srlv_epi32(values, rice), _mm256_add_epi32(rice, unit));
    const __m256i number = _mm256_add_epi32(values, lookedUp(table.add, contexts));
    // Exact: numbers have 17 bits at most. Below the threshold they may be 0 or less; nobody looks then.
    const __m256i exponent = _mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(number)), 23);
    const __m256i beyondLength = _mm256_add_epi32(lookedUp(table.length, contexts),
                                                  _mm256_add_epi32(exponent, exponent));
    return {_mm256_blendv_epi8(number, below, isRice), _mm256_blendv_epi8(beyondLength, belowLength, isRice)};
}

RV_AVX2_INLINE Words joined(__m256i first, __m256i firstLength, __m256i second, __m256i secondLength)
{
    return {_mm256_or_si256(_mm256_sllv_epi64(first, secondLength), second),
            _mm256_add_epi64(firstLength, secondLength)};
}

RV_AVX2_INLINE bool isLong(const Words &words)
{
    const __m256i beyond = _mm256_cmpgt_epi64(words.length, _mm256_set1_epi64x(56));
    return !_mm256_testz_si256(beyond, beyond);
}

template <int Step>
RV_AVX2_INLINE void putEach(BitWriter &writer, const Words &words)
{
    alignas(32) std::uint64_t values[4];
    alignas(32) std::int64_t lengths[4];
    _mm256_store_si256(reinterpret_cast<__m256i *>(values), words.value);
    _mm256_store_si256(reinterpret_cast<__m256i *>(lengths), words.length);
    for (int i = 0; i < 4; i += Step)
        writer.put(values[i], static_cast<int>(lengths[i]));
}

// Eight codewords of up to 32 bits. False, and nothing written, when two together have more than 56.
RV_AVX2_INLINE bool put(BitWriter &writer, const Words &words)
{
    const __m256i low = _mm256_set1_epi64x(0xffffffff);
    const Words two = joined(_mm256_and_si256(words.value, low), _mm256_and_si256(words.length, low),
                             _mm256_srli_epi64(words.value, 32), _mm256_srli_epi64(words.length, 32));
    const Words four = joined(two.value, two.length, _mm256_shuffle_epi32(two.value, 0x4e),
                              _mm256_shuffle_epi32(two.length, 0x4e));
    if (!isLong(four)) {
        putEach<2>(writer, four);
        return true;
    }
    if (isLong(two))
        return false;
    putEach<1>(writer, two);
    return true;
}

RV_AVX2_INLINE __m128i load8(const std::uint16_t *from)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}

RV_AVX2_INLINE __m256i firstOf(int count)
{
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}

RV_AVX2_INLINE void putDc(BitWriter &writer, const Levels &levels)
{
    DcCoder scalar;
    const Codeword begin = scalar.first(levels.dc[0]);
    writer.put(begin.value, begin.length);
    const Lookup table = lookupOf(dcClasses);
    __m256i before = _mm256_set1_epi32(3); // as the first code wants
    for (int i = 1; i < levels.blocks; i += 8) {
        const auto *from = reinterpret_cast<const __m128i *>(levels.dc + i);
        const auto *fromLast = reinterpret_cast<const __m128i *>(levels.dc + i - 1);
        const __m256i difference = _mm256_sub_epi32(_mm256_cvtepi16_epi32(_mm_loadu_si128(from)),
                                                    _mm256_cvtepi16_epi32(_mm_loadu_si128(fromLast)));
        const __m256i last = _mm256_alignr_epi8(difference, _mm256_permute2x128_si256(before, difference, 0x21), 12);
        before = difference;
        const __m256i isFlipped = _mm256_srai_epi32(last, 31);
        const __m256i told = _mm256_sub_epi32(_mm256_xor_si256(difference, isFlipped), isFlipped);
        const __m256i folded = _mm256_xor_si256(_mm256_add_epi32(told, told), _mm256_srai_epi32(told, 31));
        const __m256i contexts = _mm256_min_epu32(_mm256_abs_epi32(last), _mm256_set1_epi32(3));
        const __m256i valid = firstOf(levels.blocks - i);
        Words words = wordsFor(folded, contexts, table);
        words.value = _mm256_and_si256(valid, words.value);
        words.length = _mm256_and_si256(valid, words.length);
        if (put(writer, words))
            continue;
        alignas(32) std::uint32_t values[8];
        alignas(32) std::int32_t lengths[8];
        _mm256_store_si256(reinterpret_cast<__m256i *>(values), words.value);
        _mm256_store_si256(reinterpret_cast<__m256i *>(lengths), words.length);
        for (int k = 0; k < 8; ++k)
            writer.put(values[k], lengths[k]);
    }
}

// The class of each of eight contexts, 15 at most, in \a classes by context.
RV_AVX2_INLINE __m256i classesOf(__m128i contexts, __m128i classes)
{
    const __m128i bytes = _mm_packus_epi16(_mm_min_epu16(contexts, _mm_set1_epi16(15)), contexts);
    return _mm256_cvtepu8_epi32(_mm_shuffle_epi8(classes, bytes));
}

} // namespace

RV_AVX2 std::uint8_t *codeAvx2(const Levels &levels, std::uint8_t *to)
{
    BitWriter writer(to);
    putDc(writer, levels);
    const Lookup runLookup = lookupOf(runClasses.codes);
    const Lookup levelLookup = lookupOf(levelClasses.codes);
    const __m128i runClass = _mm_loadu_si128(reinterpret_cast<const __m128i *>(runClasses.of.data()));
    const __m128i levelClass = _mm_loadu_si128(reinterpret_cast<const __m128i *>(levelClasses.of.data()));
    const __m128i one = _mm_set1_epi16(1);
    const __m256i one32 = _mm256_set1_epi32(1);
    const int end = Levels::lead + levels.count;
    for (int i = Levels::lead; i < end; i += 8) {
        const __m128i last = load8(levels.position + i - 1);
        const __m128i runs = _mm_sub_epi16(_mm_sub_epi16(load8(levels.position + i), last), one);
        const __m128i lastRuns = _mm_sub_epi16(_mm_sub_epi16(last, load8(levels.position + i - 2)), one);
        const __m128i lastMagnitudes = _mm_srli_epi16(load8(levels.level + i - 1), 1);
        const Words run = wordsFor(_mm256_cvtepu16_epi32(runs), classesOf(lastRuns, runClass), runLookup);
        const __m256i given = _mm256_cvtepu16_epi32(load8(levels.level + i));
        const Words level = wordsFor(_mm256_sub_epi32(_mm256_srli_epi32(given, 1), one32),
                                     classesOf(lastMagnitudes, levelClass), levelLookup);
        const __m256i levelLength = _mm256_add_epi32(level.length, one32);
        const __m256i signedLevel = _mm256_or_si256(_mm256_add_epi32(level.value, level.value),
                                                    _mm256_and_si256(given, one32));
        const __m256i valid = firstOf(end - i);
        const __m256i length = _mm256_and_si256(valid, _mm256_add_epi32(run.length, levelLength));
        const __m256i value = _mm256_and_si256(
            valid, _mm256_or_si256(_mm256_sllv_epi32(run.value, levelLength), signedLevel));
        const __m256i beyond = _mm256_cmpgt_epi32(length, _mm256_set1_epi32(32));
        if (_mm256_testz_si256(beyond, beyond) && put(writer, {value, length}))
            continue;
        for (int k = i; k < end && k < i + 8; ++k)
            codeLevel(writer, levels, k);
    }
    return writer.end();
}

} // namespace prores

#endif
