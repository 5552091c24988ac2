#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

// The code family, and which code follows what. Every code is "a number with its leading 1, preceded by
// zeros", so a value and a length say it.

namespace prores {

/// A hybrid of \a unary + 1 Rice codes and an exponential Golomb code: below the threshold
/// (unary + 1) << rice a Rice code, from there on Golomb.
struct Code {
    int unary;
    int rice;
    int golomb;

    constexpr std::uint32_t threshold() const { return static_cast<std::uint32_t>((unary + 1) << rice); }
    constexpr bool operator==(const Code &) const = default;
};

constexpr Code golomb(int order) { return {0, order, order + 1}; }

/// After a run of so many zeros (all above 15 as 15).
constexpr std::array<Code, 16> runCodes = {
    Code {2, 0, 1}, {2, 0, 1}, {1, 0, 1}, {1, 0, 1}, golomb(0), {1, 1, 2}, {1, 1, 2}, {1, 1, 2}, {1, 1, 2},
    golomb(1), golomb(1), golomb(1), golomb(1), golomb(1), golomb(1), golomb(2)};

/// After a level of this magnitude (all above 9 as 9; there is no 0).
constexpr std::array<Code, 10> levelCodes = {
    Code {2, 0, 2}, {2, 0, 2}, {1, 0, 1}, {2, 0, 1}, golomb(0), golomb(1), golomb(1), golomb(1), golomb(1),
    golomb(2)};

constexpr Code firstDcCode = golomb(5);
/// After a DC difference of this magnitude (all above 3 as 3).
constexpr std::array<Code, 4> dcCodes = {golomb(0), golomb(1), {1, 2, 3}, golomb(3)};

struct Codeword {
    std::uint32_t value;
    int length;
};

constexpr Codeword codeword(Code code, std::uint32_t value)
{
    if (value < code.threshold()) {
        const std::uint32_t one = 1u << code.rice;
        return {one | (value & (one - 1)), static_cast<int>(value >> code.rice) + 1 + code.rice};
    }
    const std::uint32_t number = value - code.threshold() + (1u << code.golomb);
    return {number, 2 * static_cast<int>(std::bit_width(number)) - code.golomb + code.unary};
}

/// The codewords of a plane's DC levels, one after the other. The sign of each difference is told
/// relative to the one before.
class DcCoder
{
public:
    constexpr Codeword first(int level)
    {
        _level = level;
        return codeword(firstDcCode, folded(level));
    }

    constexpr Codeword next(int level)
    {
        const int difference = level - _level;
        _level = level;
        const Codeword word = codeword(dcCodes[_context], folded(_wasNegative ? -difference : difference));
        _wasNegative = difference < 0;
        _context = static_cast<unsigned>(std::min(difference < 0 ? -difference : difference, 3));
        return word;
    }

private:
    static constexpr std::uint32_t folded(int value)
    {
        return static_cast<std::uint32_t>(value < 0 ? -2 * value - 1 : 2 * value);
    }

    int _level = 0;
    bool _wasNegative = false;
    unsigned _context = 3;
};

} // namespace prores
