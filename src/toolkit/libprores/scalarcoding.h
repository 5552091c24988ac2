#pragma once

#include "libprores/bitwriter.h"
#include "libprores/codewords.h"
#include "libprores/kernels.h"

#include <algorithm>

namespace prores {

/// One AC level, number \a i of the arrays: its run and its magnitude in the codes that the level before
/// asks for. Nothing is carried along, as all is found in the arrays.
inline void codeLevel(BitWriter &writer, const Levels &levels, int i)
{
    const auto between = [&levels](int at) {
        return static_cast<std::uint32_t>((levels.position[at] - levels.position[at - 1] - 1) & 0xffff);
    };
    const Codeword run = codeword(runCodes[std::min(between(i - 1), 15u)], between(i));
    writer.put(run.value, run.length);
    const Codeword level = codeword(levelCodes[std::min(levels.level[i - 1] >> 1, 9)], (levels.level[i] >> 1) - 1u);
    writer.put(std::uint64_t {level.value} << 1 | (levels.level[i] & 1u), level.length + 1);
}

/// DC levels, all of them.
inline void codeDc(BitWriter &writer, const Levels &levels)
{
    DcCoder coder;
    Codeword word = coder.first(levels.dc[0]);
    writer.put(word.value, word.length);
    for (int i = 1; i < levels.blocks; ++i) {
        word = coder.next(levels.dc[i]);
        writer.put(word.value, word.length);
    }
}

} // namespace prores
