#pragma once

#include "libprores/codewords.h"

#include <cstddef>

namespace prores {

/// The codes of \a Size contexts, as the vector paths look them up. Below the threshold: a codeword of
/// 1 << rice and the low bits. Beyond: number = value + add, as long as \a length - 2 * its leading zeros.
template <std::size_t Size>
struct CodeTable {
    alignas(64) std::uint32_t threshold[Size];
    alignas(64) std::uint32_t add[Size];
    alignas(64) std::int32_t length[Size];
    alignas(64) std::int32_t rice[Size];
    alignas(64) std::uint32_t one[Size];
};

/// The last code given stands for all contexts above.
template <std::size_t Size, std::size_t Given>
constexpr CodeTable<Size> codeTable(const std::array<Code, Given> &codes)
{
    CodeTable<Size> table {};
    for (std::size_t i = 0; i < Size; ++i) {
        const Code code = codes[std::min(i, Given - 1)];
        table.threshold[i] = code.threshold();
        table.add[i] = (1u << code.golomb) - code.threshold();
        table.length[i] = 64 - code.golomb + code.unary;
        table.rice[i] = code.rice;
        table.one[i] = 1u << code.rice;
    }
    return table;
}

/// Sixteen contexts by classes of the same code, of which there are six at most; lengths are told as
/// \a length + 2 * the exponent field of the number as a float.
struct CodeClasses {
    std::array<std::uint8_t, 16> of; ///< by context
    std::array<Code, 8> code;        ///< by class
    CodeTable<8> codes;              ///< by class
};

template <std::size_t Given>
constexpr CodeClasses codeClasses(const std::array<Code, Given> &codes)
{
    CodeClasses classes {};
    std::size_t count = 0;
    for (std::size_t i = 0; i < 16; ++i) {
        const Code code = codes[std::min(i, Given - 1)];
        std::size_t at = 0;
        while (at < count && !(classes.code[at] == code))
            ++at;
        if (at == count)
            classes.code[count++] = code;
        classes.of[i] = static_cast<std::uint8_t>(at);
    }
    classes.codes = codeTable<8>(classes.code);
    for (std::size_t i = 0; i < 8; ++i)
        classes.codes.length[i] += 2 - 64 - 2 * 127;
    return classes;
}

inline constexpr CodeClasses runClasses = codeClasses(runCodes);
inline constexpr CodeClasses levelClasses = codeClasses(levelCodes);
inline constexpr CodeTable<8> dcClasses = codeClasses(dcCodes).codes;
static_assert(codeClasses(dcCodes).of[2] == 2 && codeClasses(dcCodes).of[3] == 3); // contexts are classes

/// The same in 16 bits, twice over: all numbers fit, runs being below 2048 and magnitudes below 16384.
struct NarrowCodeTable {
    alignas(64) std::uint16_t threshold[32];
    alignas(64) std::uint16_t add[32];
    alignas(64) std::uint16_t length[32];
    alignas(64) std::uint16_t rice[32];
};

template <std::size_t Given>
constexpr NarrowCodeTable narrowCodeTable(const std::array<Code, Given> &codes)
{
    const CodeTable<16> wide = codeTable<16>(codes);
    NarrowCodeTable table {};
    for (std::size_t i = 0; i < 32; ++i) {
        table.threshold[i] = static_cast<std::uint16_t>(wide.threshold[i % 16]);
        table.add[i] = static_cast<std::uint16_t>(wide.add[i % 16]);
        table.length[i] = static_cast<std::uint16_t>(wide.length[i % 16]);
        table.rice[i] = static_cast<std::uint16_t>(wide.rice[i % 16]);
    }
    return table;
}

inline constexpr auto narrowRunTable = narrowCodeTable(runCodes);
inline constexpr auto narrowLevelTable = narrowCodeTable(levelCodes);
inline constexpr auto narrowDcTable = narrowCodeTable(dcCodes);

} // namespace prores
