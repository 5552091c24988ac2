#pragma once

#include <bit>
#include <cstdint>

// Logarithms in integers: the same on every machine, unlike those of a mathematics library.

namespace prores {

constexpr std::int64_t fixedOne = 65536;

/// 65536 * log2(value), of a value of 1 or more.
constexpr std::int64_t fixedLog2(std::uint64_t value)
{
    const int whole = std::bit_width(value) - 1;
    std::uint64_t mantissa = whole > 31 ? value >> (whole - 31) : value << (31 - whole); // 1.31
    std::int64_t result = whole;
    for (int i = 0; i < 16; ++i) {
        mantissa = mantissa * mantissa >> 31;
        result <<= 1;
        if (mantissa >> 32 != 0) {
            mantissa >>= 1;
            ++result;
        }
    }
    return result;
}

/// 2^(exponent / 65536), times 65536; for exponents from 0 up to 16 * 65536.
constexpr std::uint64_t fixedExp2(std::int64_t exponent)
{
    // 2^(1/2), 2^(1/4) ... in 2.30
    constexpr std::uint64_t roots[16] = {
        1518500250, 1276901417, 1170923762, 1121280436, 1097253708, 1085434106, 1079572136, 1076653033,
        1075196443, 1074468888, 1074105294, 1073923544, 1073832680, 1073787251, 1073764537, 1073753181};
    std::uint64_t result = std::uint64_t {1} << 30;
    for (int i = 0; i < 16; ++i) {
        if ((exponent >> (15 - i) & 1) != 0)
            result = result * roots[i] >> 30;
    }
    const int shift = static_cast<int>(exponent >> 16) - 14;
    return shift >= 0 ? result << shift : result >> -shift;
}

static_assert(fixedLog2(1) == 0 && fixedLog2(8) == 3 * fixedOne && fixedLog2(3) == 103872);
static_assert(fixedExp2(0) == 65536 && fixedExp2(3 * fixedOne) == 8 * 65536);

} // namespace prores
