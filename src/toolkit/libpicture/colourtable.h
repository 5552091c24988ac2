#pragma once

#include "libpicture/picture.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace picture {

/// How R'G'B' becomes Y'CbCr.
enum class ColourMatrix { Bt601, Bt709 };

/// BT.709 above 576 lines, BT.601 otherwise.
constexpr ColourMatrix matrixOf(int height)
{
    return height > 576 ? ColourMatrix::Bt709 : ColourMatrix::Bt601;
}

/// A colour look-up table for raw pictures: red, green and blue each go through a curve of their own.
///
/// Each sample is turned into R'G'B' in the picture's own 10-bit code values (black 64, white 940), looked up
/// and turned back; footroom and headroom take part, so that a curve of a camera's code values finds them. The
/// two luma samples that share a chroma sample are coloured by it, and share the mean of their new chroma. What
/// lies outside of 0..1023 as R'G'B' takes the value at the end of its curve.
///
/// Immutable: any number of threads may apply it.
class ColourTable
{
public:
    /// Three consecutive planes of \a entries values 0..1023 each, red, green, blue; the entries are spread evenly
    /// over the codes 0..1023, with straight lines between them. Null when there is nothing to apply: no
    /// planes, fewer than two entries, or curves that leave every code as it is.
    static std::shared_ptr<const ColourTable> make(const std::int16_t *planes, int entries, ColourMatrix matrix);

    /// Writes \a from through the table into \a to, which has the same size or is the same picture. Only the
    /// lines [\a firstLine, \a endLine).
    void apply(const View &from, const View &to, int firstLine, int endLine) const;
    void apply(const View &from, const View &to) const { apply(from, to, 0, from.height); }

private:
    explicit ColourTable(ColourMatrix matrix);
    void fill(const std::vector<double> (&curves)[3]);
    void applyLine(const View &from, const View &to, int y) const;
    struct Block;
    void findRows(const std::uint16_t *cbs, const std::uint16_t *crs, Block &block) const;
    void lookUp(const std::uint16_t *luma, Block &block) const;

    struct Weights {
        double red;
        double green;
        double blue;
    };
    Weights _weights;
    std::int16_t _redOfCr; ///< R' - Y' for one step of Cr, and so on, as fixed-point numbers
    std::int16_t _greenOfCb;
    std::int16_t _greenOfCr;
    std::int16_t _blueOfCb;
    std::vector<std::uint64_t> _red; ///< see colourtable.cpp
    std::vector<std::uint64_t> _green;
    std::vector<std::uint64_t> _blue;
};

} // namespace picture
