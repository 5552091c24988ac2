#pragma once

#include "libprores/kernels.h"

#include <cstddef>
#include <cstdint>

// v210, as capture cards deliver pictures: 4:2:2 of 10 bit, six samples of luma and three of each chroma in four
// little-endian 32-bit words, three samples a word from the lowest bits on, the two highest unused:
// Cb0 Y0 Cr0, Y1 Cb1 Y2, Cr1 Y3 Cb2, Y4 Cr2 Y5.

namespace prores {

constexpr int v210Samples = 6; ///< of luma in a group
constexpr int v210Bytes = 16;  ///< of a group
constexpr int v210Slack = 8;   ///< samples that an unpacker may write beyond those of its groups

constexpr int v210Groups(int width) { return (width + v210Samples - 1) / v210Samples; }
/// Bytes from line to line where lines are padded as usual, to 48 samples.
constexpr std::ptrdiff_t v210Stride(int width) { return (width + 47) / 48 * std::ptrdiff_t {128}; }

using UnpackV210 = void (*)(const std::uint8_t *from, int groups, std::uint16_t *luma, std::uint16_t *cb,
                            std::uint16_t *cr);

void unpackV210Portable(const std::uint8_t *from, int groups, std::uint16_t *luma, std::uint16_t *cb,
                        std::uint16_t *cr);
/// Null when the processor, or the compiler's target, does not have it.
UnpackV210 unpackV210Avx2();

} // namespace prores
