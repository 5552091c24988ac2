#pragma once

#include "libprores/bitwriter.h"
#include "libprores/codewords.h"
#include "libprores/kernels.h"

#include <algorithm>

namespace prores {

/// The codewords of small values, by context and value.
template <std::size_t Contexts>
struct ShortWords {
    static constexpr std::uint32_t values = 16;
    std::array<std::array<Codeword, values>, Contexts> words;
    std::array<Code, Contexts> codes;

    explicit constexpr ShortWords(const std::array<Code, Contexts> &of) : words(), codes(of)
    {
        for (std::size_t context = 0; context < Contexts; ++context) {
            for (std::uint32_t value = 0; value < values; ++value)
                words[context][value] = codeword(codes[context], value);
        }
    }

    Codeword operator()(std::uint32_t context, std::uint32_t value) const
    {
        return value < values ? words[context][value] : codeword(codes[context], value);
    }
};

inline constexpr ShortWords runWords(runCodes);
inline constexpr ShortWords levelWords(levelCodes);

/// One AC level, number \a i of the arrays: its run and its magnitude in the codes that the level before
/// asks for. Nothing is carried along, as all is found in the arrays. Runs are below 2048 and magnitudes below
/// 16384, so that both codewords together have 53 bits at most.
inline void codeLevel(BitWriter &writer, const Levels &levels, int i)
{
    const auto runBefore = [&levels](int at) {
        return static_cast<std::uint32_t>((levels.position[at] - levels.position[at - 1] - 1) & 0xffff);
    };
    const Codeword run = runWords(std::min(runBefore(i - 1), 15u), runBefore(i));
    const Codeword level = levelWords(std::min(levels.level[i - 1] >> 1, 9), (levels.level[i] >> 1) - 1u);
    const std::uint64_t signedLevel = std::uint64_t {level.value} << 1 | (levels.level[i] & 1u);
    writer.put(std::uint64_t {run.value} << (level.length + 1) | signedLevel, run.length + level.length + 1);
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
