#pragma once

#include "libprores/codetables.h"

#include <algorithm>
#include <bit>
#include <cstdint>

// Codes by the bits they begin with. Most levels take few bits with the run before them: one look-up by the contexts
// and the next bits tells both at once, how long they are, and the contexts of what follows.

namespace prores {

constexpr int longestCode = 31; ///< bits; longer ones are damage

struct Number {
    std::uint32_t value = 0;
    int length = 0; ///< 0: not a code
};

/// The code at the top of \a bits.
constexpr Number numberAt(std::uint64_t bits, Code code)
{
    const int zeros = std::countl_zero(bits);
    if (zeros > code.unary) {
        const int length = 2 * zeros + code.golomb - code.unary;
        if (length > longestCode)
            return {};
        return {static_cast<std::uint32_t>(bits >> (64 - length)) - (1u << code.golomb) + code.threshold(), length};
    }
    const int length = zeros + 1 + code.rice;
    const auto all = static_cast<std::uint32_t>(bits >> (64 - length));
    return {(static_cast<std::uint32_t>(zeros) << code.rice) + (all & ((1u << code.rice) - 1)), length};
}

constexpr unsigned classesEach = 6; ///< of run codes, and of level codes

/// What the next level's code follows from: the classes of the run and of the level before.
constexpr unsigned contextOf(std::uint32_t run, std::uint32_t magnitude)
{
    return runClasses.of[std::min<std::uint32_t>(run, 15)] * classesEach
        + levelClasses.of[std::min<std::uint32_t>(magnitude, 15)];
}

constexpr unsigned firstContext = contextOf(4, 2);
constexpr unsigned levelPending = classesEach * classesEach; ///< added to a context when its run was read

/// A run, a level and its sign, by contexts and bits; where all three are too long, the run alone, and the level by
/// one more look-up in contexts of its own. Of an entry, from below: 8 bits of length (0: not here), 8 of the contexts
/// that follow, 8 of the positions to go on, 8 of the level (0: not yet).
struct LevelTable {
    static constexpr int bits = 11;
    static constexpr int mostRun = 62;
    std::uint32_t at[2 * levelPending << bits];

    LevelTable();
};

/// A difference of DC levels, by context and bits: 4 bits of length (0: not here), 2 of the context that follows, and
/// the folded value.
struct DcTable {
    static constexpr int bits = 10;
    std::uint16_t at[4 << bits];

    DcTable();
};

constexpr unsigned dcContextOf(std::uint32_t magnitude)
{
    return std::min<std::uint32_t>(magnitude, 3);
}

struct LevelTables {
    LevelTable levels;
    DcTable dc;
};

/// Made when first asked for, some milliseconds of work. Any thread.
const LevelTables &levelTables();

} // namespace prores
