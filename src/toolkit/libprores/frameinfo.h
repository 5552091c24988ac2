#pragma once

#include "libprores/format.h"
#include "libprores/tables.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace prores {

/// How much smaller than coded a picture is wanted: each step halves width and height.
enum class Reduction { None, Half, Quarter, Eighth };

/// What a frame says about itself before its pictures begin.
struct FrameInfo {
    int width = 0;  ///< luma samples
    int height = 0; ///< lines, both fields
    bool is444 = false;
    Scan scan = Scan::Progressive;
    int alphaBits = 0; ///< 0, 8 or 16
    std::uint8_t aspect = 0;
    std::uint8_t rate = 0; ///< the frame rate's code
    std::uint8_t primaries = 0;
    std::uint8_t transfer = 0;
    std::uint8_t matrix = 0;

    bool isInterlaced() const { return scan != Scan::Progressive; }
    int pictures() const { return isInterlaced() ? 2 : 1; }
    /// Samples in a line of plane \a p (0 Y, 1 Cb, 2 Cr, 3 alpha) of a picture decoded at \a reduction.
    int planeWidth(int p, Reduction reduction = Reduction::None) const;
    /// Lines of a picture decoded at \a reduction; each field is reduced by itself.
    int planeHeight(Reduction reduction = Reduction::None) const;
    /// Lines of the picture coded as number \a index.
    int pictureHeight(int index) const;
};

/// A frame's head, as its decoder needs it.
struct FrameHead {
    FrameInfo info;
    Matrix luma;
    Matrix chroma;
    std::size_t bytes = 0; ///< up to the first picture
};

/// Nothing when \a size bytes at \a frame do not begin a frame that can be decoded.
std::optional<FrameHead> readFrameHead(const std::uint8_t *frame, std::size_t size);
/// The same, of what a frame is only.
std::optional<FrameInfo> readFrameInfo(const std::uint8_t *frame, std::size_t size);

/// What the head of a picture, a frame or a field, says.
struct PictureHead {
    std::size_t headerBytes = 0; ///< up to the slice table
    std::size_t bytes = 0;       ///< of the whole picture
    int sliceWidth = 0;          ///< macroblocks in the widest slice: 1, 2, 4 or 8
};

/// Nothing when \a size bytes at \a picture do not begin a picture.
std::optional<PictureHead> readPictureHead(const std::uint8_t *picture, std::size_t size);

inline std::size_t readBig16(const std::uint8_t *from)
{
    return static_cast<std::size_t>(from[0]) << 8 | from[1];
}

inline std::size_t readBig32(const std::uint8_t *from)
{
    return readBig16(from) << 16 | readBig16(from + 2);
}

} // namespace prores
