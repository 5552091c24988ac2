#pragma once

#include "libprores/format.h"

#include <cstddef>
#include <cstdint>

namespace prores {

constexpr std::size_t frameHeaderBytes = 8 + 148; ///< the frame box and the header with both matrices
constexpr std::size_t pictureHeaderBytes = 8;

inline void writeBig16(std::uint8_t *to, std::size_t value)
{
    to[0] = static_cast<std::uint8_t>(value >> 8);
    to[1] = static_cast<std::uint8_t>(value);
}

inline void writeBig32(std::uint8_t *to, std::size_t value)
{
    writeBig16(to, value >> 16);
    writeBig16(to + 2, value);
}

/// Frame box and frame header; \a frameBytes is the size of all.
void writeFrameHeader(const Format &format, std::size_t frameBytes, std::uint8_t *to);

/// \a pictureBytes counts this header, the slice table and the slices.
void writePictureHeader(int slices, std::size_t pictureBytes, std::uint8_t *to);

} // namespace prores
