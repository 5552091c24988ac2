#pragma once

#include "libprores/kernels.h"

#include <immintrin.h>

// The AVX-512 path's own words: which instructions it may use, and its coder.

#define RV_AVX512 \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512cd,avx512vbmi2,avx512vnni,bmi2")))
#define RV_AVX512_INLINE __attribute__((always_inline)) RV_AVX512 inline

namespace prores {

std::uint8_t *codeAvx512(const Levels &levels, std::uint8_t *to);

} // namespace prores
