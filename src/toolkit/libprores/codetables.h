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

inline constexpr auto runTable = codeTable<16>(runCodes);
inline constexpr auto levelTable = codeTable<16>(levelCodes);
inline constexpr auto dcTable = codeTable<16>(dcCodes);

} // namespace prores
