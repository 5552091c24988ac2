#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace picture {

/// A borrowed view of one raw picture: planar 4:2:2, one 10-bit sample (0..1023, video range) in
/// each host-order 16-bit word. Both fields of an interlaced picture are interleaved line by line.
/// Chroma planes are width/2 wide; width is even. The view owns nothing.
struct View {
    int width = 0;              ///< luma samples
    int height = 0;             ///< lines, both fields
    std::uint16_t *plane[3] = {nullptr, nullptr, nullptr}; ///< Y, Cb, Cr
    int stride[3] = {0, 0, 0};  ///< samples from line to line

    bool isValid() const { return width > 0 && height > 0 && plane[0] != nullptr; }
    std::uint16_t *line(int p, int y) const
    {
        return plane[p] + static_cast<std::ptrdiff_t>(stride[p]) * y;
    }
};

/// Bytes that one tightly packed picture takes: 4 bytes a luma sample.
constexpr std::size_t bytesFor(int width, int height)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
}

/// A view over tightly packed memory: Y, then Cb, then Cr, strides equal to the widths.
/// \a memory is at least bytesFor(width, height) long and aligned for 16-bit words.
View viewOf(void *memory, int width, int height);

/// Copies the samples of \a from into \a to; both have the same size.
void copy(const View &from, const View &to);

/// The same, past the caches where the machine can: for memory that this process will not look at again soon.
void copyOut(const View &from, const View &to);

} // namespace picture
