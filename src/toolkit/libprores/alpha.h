#pragma once

#include <cstddef>
#include <cstdint>

namespace prores {

/// Writes the 16-bit alpha samples of a slice, without loss, padded to a whole byte; its end. There must be
/// room for 3 bytes a sample and 8 more.
std::uint8_t *codeAlpha(const std::uint16_t *samples, std::size_t count, std::uint8_t *to);

} // namespace prores
