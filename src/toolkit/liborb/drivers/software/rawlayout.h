#pragma once

#include "libpicture/picture.h"

#include <cstddef>
#include <cstdint>

namespace ferin {

/// How a raw picture lies in memory: whole macroblocks, lines that begin on 64-byte borders and room
/// behind the last one, so that a decoder can write right into it. A pure value.
struct RawLayout {
    int width = 0;
    int height = 0;
    int lines = 0;                     ///< of each plane, with those below the picture
    int stride[3] = {0, 0, 0};         ///< samples
    std::size_t offset[3] = {0, 0, 0}; ///< bytes
    std::size_t bytes = 0;

    static constexpr std::size_t alignment = 64; ///< bytes

    /// Nothing (0 bytes) for a raster that no raw picture can have: odd widths, empty or huge ones.
    static RawLayout of(int width, int height);
    picture::View viewOf(std::uint8_t *memory) const;
};

} // namespace ferin
