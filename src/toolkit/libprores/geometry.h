#pragma once

#include "libprores/format.h"

#include <algorithm>
#include <array>
#include <bit>

namespace prores {

constexpr int widestSlice = 8; ///< macroblocks

/// Where one slice lies in its picture, in macroblocks.
struct SlicePlace {
    int column = 0;
    int row = 0;
    int width = 0; ///< 8, 4, 2 or 1
};

/// How one picture, a frame or a field, is cut into macroblocks and slices.
struct Geometry {
    int width = 0;  ///< samples
    int height = 0; ///< lines of this picture
    int columns = 0;
    int rows = 0;
    int slicesPerRow = 0;

    Geometry() = default;
    Geometry(int samples, int lines)
        : width(samples), height(lines), columns((samples + 15) / 16), rows((lines + 15) / 16),
          slicesPerRow(columns / widestSlice + std::popcount(static_cast<unsigned>(columns) % widestSlice))
    {
    }

    int slices() const { return rows * slicesPerRow; }

    /// Slices are 8 wide from the left; what remains is cut into 4, 2 and 1.
    SlicePlace slice(int index) const
    {
        const int inRow = index % slicesPerRow;
        SlicePlace place {0, index / slicesPerRow, widestSlice};
        place.column = std::min(inRow, columns / widestSlice) * widestSlice;
        if (inRow < columns / widestSlice)
            return place;
        int left = columns % widestSlice;
        for (int i = columns / widestSlice; ; ++i) {
            place.width = static_cast<int>(std::bit_floor(static_cast<unsigned>(left)));
            if (i == inRow)
                return place;
            place.column += place.width;
            left -= place.width;
        }
    }
};

/// The frame's first line that belongs to the picture coded as number \a index.
constexpr int firstLineOf(Scan scan, int index)
{
    return scan != Scan::Progressive && (index == 0) != (scan == Scan::TopFirst) ? 1 : 0;
}

inline int picturesIn(const Format &format) { return format.isInterlaced() ? 2 : 1; }

/// The picture coded as number \a index of a frame. Field pictures have as many rows each, which
/// only differs from what their lines need when the height is odd; decoders count so.
inline Geometry pictureGeometry(const Format &format, int index)
{
    if (!format.isInterlaced())
        return {format.width, format.height};
    Geometry geometry(format.width, (format.height + 1 - firstLineOf(format.scan, index)) / 2);
    geometry.rows = (format.height + 31) / 32;
    return geometry;
}

inline std::size_t macroblocksIn(const Format &format)
{
    std::size_t macroblocks = 0;
    for (int i = 0; i < picturesIn(format); ++i) {
        const Geometry geometry = pictureGeometry(format, i);
        macroblocks += static_cast<std::size_t>(geometry.rows) * static_cast<std::size_t>(geometry.columns);
    }
    return macroblocks;
}

} // namespace prores
