#pragma once

#include "libprores/avx512coding.h"

// What the transforms of both directions need. The file that includes this is the AVX-512 path's.

namespace prores {

/// Eight registers: in each 128-bit part, word i of register k becomes word k of register i.
RV_AVX512_INLINE void transpose(__m512i *r)
{
    __m512i a[8];
    for (int i = 0; i < 4; ++i) {
        a[2 * i] = _mm512_unpacklo_epi16(r[2 * i], r[2 * i + 1]);
        a[2 * i + 1] = _mm512_unpackhi_epi16(r[2 * i], r[2 * i + 1]);
    }
    __m512i b[8];
    for (int i = 0; i < 2; ++i) {
        b[4 * i] = _mm512_unpacklo_epi32(a[4 * i], a[4 * i + 2]);
        b[4 * i + 1] = _mm512_unpackhi_epi32(a[4 * i], a[4 * i + 2]);
        b[4 * i + 2] = _mm512_unpacklo_epi32(a[4 * i + 1], a[4 * i + 3]);
        b[4 * i + 3] = _mm512_unpackhi_epi32(a[4 * i + 1], a[4 * i + 3]);
    }
    for (int i = 0; i < 4; ++i) {
        r[2 * i] = _mm512_unpacklo_epi64(b[i], b[i + 4]);
        r[2 * i + 1] = _mm512_unpackhi_epi64(b[i], b[i + 4]);
    }
}

/// Two weights for products with pairs of 16-bit words.
RV_AVX512_INLINE __m512i weights(short low, short high)
{
    return _mm512_set1_epi32(static_cast<int>(static_cast<unsigned>(static_cast<unsigned short>(high)) << 16
                                              | static_cast<unsigned short>(low)));
}

} // namespace prores
