#pragma once

#include "libprores/kernels.h"

#include <cstddef>
#include <cstdint>

namespace prores {

/// The levels of one plane in one slice as they stand in the stream: scan position by scan position, and in each
/// the blocks in coding order, so that level k * blocks + b is that of block b at scan position k.
struct ReadLevels {
    static constexpr int slack = 512; ///< levels that reading may write, and transforms read, beyond the last

    alignas(64) std::int16_t at[64 * mostBlocks + slack] = {};
    int blocks = 0;
    int positions = 0; ///< in scan order, of which some level may not be 0; all others are

    /// Forgets all levels.
    void clear();
};

/// The bits of one plane in one slice.
struct PlaneBits {
    const std::uint8_t *begin = nullptr;
    std::size_t bytes = 0;
};

struct PlaneToRead {
    PlaneBits bits;
    int blocks = 0;
    ReadLevels *to = nullptr; ///< holds zeros
};

constexpr int mostPlanesAtOnce = 6;

/// Makes the tables that reading needs, some milliseconds of work, unless they are there already.
void prepareLevelReading();

/// Reads some planes, some of them side by side, up to scan position  positions (64: all). A bit for each that is
/// damaged: a code of more than 31 bits, levels beyond the last, or a plane that ends in the middle of a code. Reads
/// nothing beyond the planes.
unsigned readLevels(const PlaneToRead *planes, int count, int positions);

} // namespace prores
