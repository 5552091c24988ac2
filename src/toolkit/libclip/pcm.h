#pragma once

#include <cstddef>
#include <span>

namespace clip {

/// How a clip's file holds one sample of one channel: signed whole numbers, or fractions of full scale.
struct PcmFormat
{
    int bytes = 0;           ///< 2, 3 or 4, of fractions 4 or 8; 0 is no known format
    bool isBigEndian = false;
    bool isFloat = false;
};

/// Turns \a in into little-endian 24-bit samples, dropping what is finer and filling up with zeros
/// what is coarser; stops at the end of either.
void toLittle24(const PcmFormat &format, std::span<const std::byte> in, std::span<std::byte> out);

} // namespace clip
