#pragma once

#include "libprores/avx2coding.h"

// What the transforms of both directions need. The file that includes this is the AVX2 path's.

namespace prores {

/// Eight registers: in each half, word i of register k becomes word k of register i.
RV_AVX2_INLINE void transpose(__m256i *r)
{
    __m256i a[8];
    for (int i = 0; i < 4; ++i) {
        a[2 * i] = _mm256_unpacklo_epi16(r[2 * i], r[2 * i + 1]);
        a[2 * i + 1] = _mm256_unpackhi_epi16(r[2 * i], r[2 * i + 1]);
    }
    __m256i b[8];
    for (int i = 0; i < 2; ++i) {
        b[4 * i] = _mm256_unpacklo_epi32(a[4 * i], a[4 * i + 2]);
        b[4 * i + 1] = _mm256_unpackhi_epi32(a[4 * i], a[4 * i + 2]);
        b[4 * i + 2] = _mm256_unpacklo_epi32(a[4 * i + 1], a[4 * i + 3]);
        b[4 * i + 3] = _mm256_unpackhi_epi32(a[4 * i + 1], a[4 * i + 3]);
    }
    for (int i = 0; i < 4; ++i) {
        r[2 * i] = _mm256_unpacklo_epi64(b[i], b[i + 4]);
        r[2 * i + 1] = _mm256_unpackhi_epi64(b[i], b[i + 4]);
    }
}

/// Two weights for products with pairs of 16-bit words.
RV_AVX2_INLINE __m256i weights(short low, short high)
{
    return _mm256_set1_epi32(static_cast<int>(static_cast<unsigned>(static_cast<unsigned short>(high)) << 16
                                              | static_cast<unsigned short>(low)));
}

} // namespace prores
