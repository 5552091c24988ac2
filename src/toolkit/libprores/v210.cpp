#include "libprores/v210.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace prores {

namespace {

std::uint32_t little32(const std::uint8_t *from)
{
    return from[0] | std::uint32_t {from[1]} << 8 | std::uint32_t {from[2]} << 16 | std::uint32_t {from[3]} << 24;
}

std::uint16_t sample(std::uint32_t word, int place)
{
    return static_cast<std::uint16_t>(word >> (10 * place) & 1023);
}

#if defined(__x86_64__) && defined(__GNUC__)

// Two groups at a time, one in each half. The low and the middle sample of each word stand side by side in 16 bits
// each; the high ones apart. Each store writes more than it brings, which the next one puts right.
__attribute__((target("avx2"))) void unpackAvx2(const std::uint8_t *from, int groups, std::uint16_t *luma,
                                                std::uint16_t *cb, std::uint16_t *cr)
{
    constexpr char none = -1;
    const __m256i lowMask = _mm256_set1_epi32(1023);
    const __m256i middleMask = _mm256_set1_epi32(1023 << 16);
    const __m256i lumaOfPairs = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(2, 3, 4, 5, none, none, 10, 11, 12, 13, none, none, none, none, none, none));
    const __m256i lumaOfHighs = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(none, none, none, none, 4, 5, none, none, none, none, 12, 13, none, none, none, none));
    const __m256i chromaOfPairs = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 1, 6, 7, none, none, none, none, none, none, 8, 9, 14, 15, none, none));
    const __m256i chromaOfHighs = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(none, none, none, none, 8, 9, none, none, 0, 1, none, none, none, none, none, none));
    int i = 0;
    for (; i + 2 <= groups; i += 2, from += 2 * v210Bytes, luma += 12, cb += 6, cr += 6) {
        const __m256i words = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from));
        const __m256i pairs = _mm256_or_si256(_mm256_and_si256(words, lowMask),
                                              _mm256_and_si256(_mm256_slli_epi32(words, 6), middleMask));
        const __m256i highs = _mm256_and_si256(_mm256_srli_epi32(words, 20), lowMask);
        const __m256i y = _mm256_or_si256(_mm256_shuffle_epi8(pairs, lumaOfPairs),
                                          _mm256_shuffle_epi8(highs, lumaOfHighs));
        const __m256i c = _mm256_or_si256(_mm256_shuffle_epi8(pairs, chromaOfPairs),
                                          _mm256_shuffle_epi8(highs, chromaOfHighs));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(luma), _mm256_castsi256_si128(y));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(luma + 6), _mm256_extracti128_si256(y, 1));
        const __m128i first = _mm256_castsi256_si128(c);
        const __m128i second = _mm256_extracti128_si256(c, 1);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(cb), first);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(cb + 3), second);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(cr), _mm_unpackhi_epi64(first, first));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(cr + 3), _mm_unpackhi_epi64(second, second));
    }
    if (i < groups)
        unpackV210Portable(from, 1, luma, cb, cr);
}

#endif

} // namespace

void unpackV210Portable(const std::uint8_t *from, int groups, std::uint16_t *luma, std::uint16_t *cb,
                        std::uint16_t *cr)
{
    for (int i = 0; i < groups; ++i, from += v210Bytes, luma += v210Samples, cb += 3, cr += 3) {
        const std::uint32_t word[4] = {little32(from), little32(from + 4), little32(from + 8), little32(from + 12)};
        luma[0] = sample(word[0], 1);
        luma[1] = sample(word[1], 0);
        luma[2] = sample(word[1], 2);
        luma[3] = sample(word[2], 1);
        luma[4] = sample(word[3], 0);
        luma[5] = sample(word[3], 2);
        cb[0] = sample(word[0], 0);
        cb[1] = sample(word[1], 1);
        cb[2] = sample(word[2], 2);
        cr[0] = sample(word[0], 2);
        cr[1] = sample(word[2], 0);
        cr[2] = sample(word[3], 1);
    }
}

UnpackV210 unpackV210Avx2()
{
#if defined(__x86_64__) && defined(__GNUC__)
    if (__builtin_cpu_supports("avx2"))
        return unpackAvx2;
#endif
    return nullptr;
}

} // namespace prores
