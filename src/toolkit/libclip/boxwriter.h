#pragma once

#include "libclip/fourcc.h"

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace clip {

/// Appends big-endian numbers and nested boxes to a byte vector. Every number of a movie file is
/// big-endian, whatever the machine.
class BoxWriter
{
public:
    using Bytes = std::vector<std::byte>;

    std::size_t size() const { return _bytes.size(); }
    const Bytes &bytes() const { return _bytes; }
    Bytes take() { return std::move(_bytes); }

    BoxWriter &u8(std::uint32_t value)
    {
        _bytes.push_back(std::byte(value & 0xff));
        return *this;
    }
    BoxWriter &u16(std::uint32_t value) { return u8(value >> 8).u8(value); }
    BoxWriter &u32(std::uint32_t value) { return u16(value >> 16).u16(value); }
    BoxWriter &u64(std::uint64_t value)
    {
        return u32(std::uint32_t(value >> 32)).u32(std::uint32_t(value));
    }
    BoxWriter &code(const char (&text)[5]) { return u32(fourcc(text)); }
    BoxWriter &zeros(std::size_t count)
    {
        _bytes.insert(_bytes.end(), count, std::byte(0));
        return *this;
    }
    BoxWriter &text(std::string_view text)
    {
        for (const char letter : text) {
            u8(static_cast<unsigned char>(letter));
        }
        return *this;
    }
    /// A string behind its length, in one byte; longer ones are cut.
    BoxWriter &pascal(std::string_view string)
    {
        const std::string_view cut = string.substr(0, 255);
        return u8(std::uint32_t(cut.size())).text(cut);
    }
    BoxWriter &append(std::span<const std::byte> bytes)
    {
        _bytes.insert(_bytes.end(), bytes.begin(), bytes.end());
        return *this;
    }

    /// A box around what \a fill writes.
    template<typename Fill>
    BoxWriter &box(std::uint32_t type, Fill fill)
    {
        const std::size_t start = size();
        u32(0).u32(type);
        fill();
        patch32(start, std::uint32_t(size() - start));
        return *this;
    }
    template<typename Fill>
    BoxWriter &box(const char (&type)[5], Fill fill)
    {
        return box(fourcc(type), fill);
    }
    /// A box that begins with a version and 24 bits of flags.
    template<typename Fill>
    BoxWriter &full(const char (&type)[5], std::uint32_t version, std::uint32_t flags, Fill fill)
    {
        return box(type, [&] {
            u32(version << 24 | flags);
            fill();
        });
    }

private:
    void patch32(std::size_t at, std::uint32_t value)
    {
        for (int i = 0; i < 4; ++i) {
            _bytes[at + std::size_t(i)] = std::byte(value >> (24 - 8 * i) & 0xff);
        }
    }

    Bytes _bytes;
};

} // namespace clip
