#pragma once

#include <cstdint>

namespace prores {

/// Writes bits, the most significant first, eight bytes at a time into memory that must have room for
/// eight bytes beyond the last. Lives in registers: keep it local.
class BitWriter
{
public:
    explicit BitWriter(std::uint8_t *to) : _to(to) {}

    /// The low \a length bits of \a value, at most 56; the bits above must be 0.
    void put(std::uint64_t value, int length)
    {
        putTop(value << ((64 - length) & 63), static_cast<unsigned>(length));
    }

    /// The top \a length bits of \a value, at most 56; the bits below must be 0.
    void putTop(std::uint64_t value, std::uint64_t length)
    {
        _bits |= value >> _used;
        for (int i = 0; i < 8; ++i)
            _to[i] = static_cast<std::uint8_t>(_bits >> (56 - 8 * i));
        _used += length;
        _to += _used >> 3;
        _bits <<= _used & 56;
        _used &= 7;
    }

    /// Pads the last byte with zeros; where the next one goes.
    std::uint8_t *end() { return _used > 0 ? _to + 1 : _to; }

private:
    std::uint8_t *_to;
    std::uint64_t _bits = 0; // the next ones, from the top
    std::uint64_t _used = 0; // of _bits, 0 to 7 between calls
};

} // namespace prores
