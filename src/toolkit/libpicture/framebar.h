#pragma once

#include "libpicture/picture.h"

#include <cstdint>
#include <optional>

namespace picture {

/// The frame-number bar: a strip of black and white cells across the top of the picture that
/// carries a 32-bit frame number with a 16-bit checksum, large enough to survive 8-bit MPEG-2,
/// H.264, ProRes and a half-size preview. Both fields of an interlaced frame carry the same number.
constexpr int frameBarHeight = 32; ///< lines, from the top

/// Draws the bar; pictures narrower than 128 samples or lower than the bar are left alone.
void writeFrameNumber(const View &view, std::uint32_t number);

/// Reads the bar back. Nothing when there is no bar or its checksum fails.
std::optional<std::uint32_t> readFrameNumber(const View &view);

} // namespace picture
