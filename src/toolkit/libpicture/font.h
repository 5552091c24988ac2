#pragma once

#include <cstdint>

namespace picture {

constexpr int glyphWidth = 5;
constexpr int glyphHeight = 8; ///< seven rows and one for descenders

/// One character: five columns from the left, the lowest bit on top.
struct Glyph {
    char character;
    std::uint8_t column[glyphWidth];
};

/// The glyph of an ASCII character; a hollow box for anything that the font does not have.
const Glyph &glyphOf(char character);

} // namespace picture
