#pragma once

#include "libclip/fourcc.h"

#include <cstddef>
#include <optional>
#include <span>

namespace clip {

/// Reads big-endian numbers and boxes from bytes that nobody vouches for. A read past the end gives
/// 0 and leaves the cursor failed for good; nothing outside the bytes is ever touched.
class BoxCursor
{
public:
    struct Box;

    BoxCursor() = default;
    explicit BoxCursor(std::span<const std::byte> bytes) : _bytes(bytes) { }

    bool failed() const { return _failed; }
    std::size_t left() const { return _bytes.size() - _at; }
    std::span<const std::byte> rest() const { return _bytes.subspan(_at); }

    std::uint32_t u8() { return std::uint32_t(number(1)); }
    std::uint32_t u16() { return std::uint32_t(number(2)); }
    std::uint32_t u32()
    {
        if (left() < 4) {
            skip(4);
            return 0;
        }
        // In one piece: an index is millions of them.
        const std::byte *bytes = &_bytes[_at];
        _at += 4;
        return std::to_integer<std::uint32_t>(bytes[0]) << 24 | std::to_integer<std::uint32_t>(bytes[1]) << 16
            | std::to_integer<std::uint32_t>(bytes[2]) << 8 | std::to_integer<std::uint32_t>(bytes[3]);
    }
    std::uint64_t u64() { return number(8); }
    /// 64 bits in version 1 of a box, 32 otherwise.
    std::uint64_t wide(bool is64) { return is64 ? u64() : u32(); }
    std::int64_t signedWide(bool is64)
    {
        return is64 ? std::int64_t(u64()) : std::int64_t(std::int32_t(u32()));
    }
    void skip(std::size_t count)
    {
        if (count > left()) {
            _failed = true;
            _at = _bytes.size();
            return;
        }
        _at += count;
    }

    /// The next box, or nothing at the end of the bytes or where no whole box stands.
    inline std::optional<Box> nextBox();
    /// The content of the first box of \a type from here on; an empty, failed cursor when there is
    /// none.
    inline BoxCursor find(const char (&type)[5]) const;

private:
    std::uint64_t number(std::size_t count)
    {
        if (count > left()) {
            skip(count);
            return 0;
        }
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            value = value << 8 | std::to_integer<std::uint64_t>(_bytes[_at++]);
        }
        return value;
    }

    std::span<const std::byte> _bytes;
    std::size_t _at = 0;
    bool _failed = false;
};

struct BoxCursor::Box
{
    std::uint32_t type = 0;
    BoxCursor content;
};

inline std::optional<BoxCursor::Box> BoxCursor::nextBox()
{
    if (_failed || left() < 8) {
        return std::nullopt;
    }
    std::uint64_t size = u32();
    const std::uint32_t type = u32();
    std::uint64_t head = 8;
    if (size == 1) {
        size = u64();
        head = 16;
    } else if (size == 0) {
        size = left() + head;
    }
    if (_failed || size < head || size - head > left()) {
        _failed = true;
        return std::nullopt;
    }
    const std::size_t length = std::size_t(size - head);
    Box box { type, BoxCursor(_bytes.subspan(_at, length)) };
    _at += length;
    return box;
}

inline BoxCursor BoxCursor::find(const char (&type)[5]) const
{
    BoxCursor walk = *this;
    while (const auto box = walk.nextBox()) {
        if (box->type == fourcc(type)) {
            return box->content;
        }
    }
    BoxCursor none;
    none._failed = true;
    return none;
}

} // namespace clip
