#pragma once

#include "libprores/format.h"

#include <array>
#include <cstdint>

namespace prores {

using Matrix = std::array<std::uint8_t, 64>; ///< by raster index, row * 8 + column

const Matrix &lumaMatrix(Profile profile);
const Matrix &chromaMatrix(Profile profile);

/// The raster index at each scan position.
const std::array<std::uint8_t, 64> &scanOrder(bool interlaced);
/// The scan position of each raster index.
const std::array<std::uint8_t, 64> &scanPositions(bool interlaced);

constexpr int largestIndex = 224; ///< of quantisation; the smallest is 1

/// What an index multiplies the matrix with: 1..128, then on in steps of 4 up to 512.
constexpr int scaleOf(int index) { return index <= 128 ? index : 128 + 4 * (index - 128); }

} // namespace prores
