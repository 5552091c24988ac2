#pragma once

#include <cstdint>

namespace clip {

/// A four-character code as the big-endian number it is in the file.
constexpr std::uint32_t fourcc(const char (&text)[5])
{
    return std::uint32_t(static_cast<unsigned char>(text[0])) << 24
        | std::uint32_t(static_cast<unsigned char>(text[1])) << 16
        | std::uint32_t(static_cast<unsigned char>(text[2])) << 8
        | std::uint32_t(static_cast<unsigned char>(text[3]));
}

} // namespace clip
