#pragma once

#include "libprores/format.h"
#include "libprores/geometry.h"
#include "libprores/kernels.h"
#include "libprores/v210.h"

#include <array>
#include <vector>

namespace prores {

/// The quantisers of one index.
struct Quantisers {
    Quantiser luma;
    Quantiser chroma;
};

/// The lines of one picture to code: a frame, or one field of it.
struct Lines {
    Lines(const Format &format, const Picture &picture, int index);

    Geometry geometry;
    const std::uint16_t *plane[4];
    std::ptrdiff_t stride[4];
    const std::uint8_t *v210;
    std::ptrdiff_t v210Stride;
};

/// Samples that padded lines have more than a slice is wide: v210 comes in groups.
constexpr int paddedSlack = 32;

/// One thread's memory for the slice in work.
struct SliceScratch {
    Coefficients coefficients[3];
    Levels levels[3];
    alignas(64) std::uint16_t padded[4][16 * (16 * widestSlice + paddedSlack)];
    std::uint16_t alpha[16 * 16 * widestSlice];
    bool isChromaJoined = false;  ///< Cb and Cr are the two tiles of coefficients[1]
    std::size_t alphaBytes = 0;   ///< coded so far
    bool withoutDetail = false;   ///< codes DC only: the last resort against noise at a low rate
};

/// The samples of the slice after, by plane in 4:4:4; else Cb and Cr are one.
struct SliceAhead {
    Ahead luma = nothing();
    Ahead chroma = nothing();
    Ahead other = nothing();

    /// Something that is near anyway.
    static Ahead nothing();
};

/// Codes slices of one stream. Holds tables only: any number of threads may use it, each with scratch
/// of its own.
class SliceCoder
{
public:
    SliceCoder(const Format &format, const Kernels &kernels);

    /// Levels of the slice at \a place, quantised with \a index, in \a scratch: Y, Cb, Cr.
    void quantise(const Lines &lines, SlicePlace place, int index, SliceScratch &scratch) const;

    /// The whole slice, header included, to \a to, which has room for largestSliceBytes(); its end.
    std::uint8_t *code(const Lines &lines, SlicePlace place, int index, SliceScratch &scratch,
                       std::uint8_t *to) const;

    /// The samples at \a place, to be fetched while something else is in work. It may lie beyond the picture.
    SliceAhead ahead(const Lines &lines, SlicePlace place) const;
    /// The three steps of code(), one by one.
    void transform(const Lines &lines, SlicePlace place, SliceScratch &scratch) const;
    void quantiseTransformed(SlicePlace place, int index, SliceScratch &scratch, const SliceAhead &ahead) const;
    std::uint8_t *codeQuantised(const Lines &lines, SlicePlace place, int index, SliceScratch &scratch,
                                std::uint8_t *to) const;

    /// How many bits the levels in \a scratch will take, about, beyond what all slices do.
    std::uint32_t estimatedBits(const SliceScratch &scratch) const;

    static constexpr std::size_t largestSliceBytes()
    {
        return 8 + 3 * largestPlaneBytes + 16 * 16 * widestSlice * 3 + codingSlack;
    }

private:
    Tiles tiles(const Lines &lines, SlicePlace place, int plane, SliceScratch &scratch) const;
    void unpack(const Lines &lines, SlicePlace place, SliceScratch &scratch) const;
    std::uint8_t *codeAlpha(const Lines &lines, SlicePlace place, SliceScratch &scratch,
                            std::uint8_t *to) const;

    Format _format;
    const Kernels &_kernels;
    const UnpackV210 _unpack;
    const std::array<std::uint8_t, 64> &_positions;
    std::vector<Quantisers> _quantisers; // by index - 1
};

} // namespace prores
