#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace prores {

inline std::uint64_t loadBig64(const std::uint8_t *from)
{
    std::uint64_t value = 0;
    std::memcpy(&value, from, sizeof value);
    if constexpr (std::endian::native == std::endian::little) {
        value = (value & 0x00000000ffffffff) << 32 | (value >> 32 & 0x00000000ffffffff);
        value = (value & 0x0000ffff0000ffff) << 16 | (value >> 16 & 0x0000ffff0000ffff);
        value = (value & 0x00ff00ff00ff00ff) << 8 | (value >> 8 & 0x00ff00ff00ff00ff);
    }
    return value;
}

/// Bits in memory, the most significant first; reads nothing beyond them. Lives in registers: keep it local.
struct BitReader {
    const std::uint8_t *next = nullptr;
    const std::uint8_t *end = nullptr;
    std::uint64_t bits = 0; ///< the next ones at the top, zeros behind the last
    int count = 0;          ///< that are in \a bits; below 0 when more were taken than there were

    /// Eight more bytes are there.
    bool isFar() const { return end - next >= 8; }

    /// While far from the end: at least 56 bits are at hand then.
    void refillFar()
    {
        bits |= loadBig64(next) >> count;
        next += (63 - count) >> 3;
        count |= 56;
    }

    /// At least 56 bits are at hand then, or all that are left.
    void refill()
    {
        if (count < 0)
            return;
        if (isFar()) {
            refillFar();
            return;
        }
        for (; count <= 56 && next != end; count += 8)
            bits |= static_cast<std::uint64_t>(*next++) << (56 - count);
    }

    void take(int length)
    {
        bits <<= length;
        count -= length;
    }

    /// The next \a length bits, 1 to 32.
    std::uint32_t read(int length)
    {
        refill();
        const auto value = static_cast<std::uint32_t>(bits >> (64 - length));
        take(length);
        return value;
    }
};

} // namespace prores
