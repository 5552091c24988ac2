#pragma once

#include <cstddef>
#include <span>

namespace clip {

/// How a clip's file holds one sample of one channel: signed whole numbers.
struct PcmFormat
{
    int bytes = 0;           ///< 2, 3 or 4; 0 is no known format
    bool isBigEndian = false;
};

/// Turns \a in into little-endian 24-bit samples, dropping what is finer and filling up with zeros
/// what is coarser. Sample i goes to sample i * \a stride of \a out; stops at the end of either.
void toLittle24(const PcmFormat &format, std::span<const std::byte> in, std::span<std::byte> out,
                std::size_t stride = 1);

} // namespace clip
