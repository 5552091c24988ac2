#pragma once

#include "libprores/kernels.h"

#include <immintrin.h>

// The AVX2 path's own words: which instructions it may use, and its coder.

#define RV_AVX2 __attribute__((target("avx2,bmi2,popcnt")))
#define RV_AVX2_INLINE __attribute__((always_inline)) RV_AVX2 inline

namespace prores {

std::uint8_t *codeAvx2(const Levels &levels, std::uint8_t *to);

} // namespace prores
