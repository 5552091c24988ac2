#pragma once

#include "libprores/levelreader.h"

namespace prores {

/// Reads \a count alpha samples of \a codedBits (8 or 16) bits into 10-bit ones. Where the bits end too early, as
/// zeros would have followed: false then.
bool readAlpha(const PlaneBits &bits, int codedBits, std::uint16_t *to, std::size_t count);

} // namespace prores
