#pragma once

#include "libpicture/picture.h"

#include <cstdint>
#include <vector>

namespace picture {

void drawBlack(const View &view);
/// 100/0/75/0 colour bars, BT.709 levels above 576 lines, BT.601 otherwise.
void drawBars(const View &view);
/// A horizontal luma ramp over the code values 4..1019, chroma neutral.
void drawRamp(const View &view);

/// The moving test pattern: a still natural-looking background with a stripe that moves a fixed
/// step each frame, the frame-number bar at the top and the frame number in figures. Built once for
/// a raster; draw() costs one copy of the background and little more.
class MovingPattern
{
public:
    MovingPattern(int width, int height);
    /// Draws frame \a number into \a view, which has the size given at construction.
    void draw(const View &view, std::uint32_t number) const;
    int width() const { return _width; }
    int height() const { return _height; }

private:
    int _width;
    int _height;
    std::vector<std::uint16_t> _background;
};

/// Picture \a number of a zoom into what a camera may see: detail of every size, edges and grain. Takes seconds.
void drawNatural(const View &view, std::uint32_t number);

/// A window on one such picture, in four places in turn, with the frame-number bar: as hard to code as a camera's
/// picture. Built once for a raster, in seconds. draw() costs one copy, and next to nothing in memory that still has
/// the picture of four frames ago, as a bus has: a capture card takes no processor time either.
class NaturalPattern
{
public:
    NaturalPattern(int width, int height);
    /// Draws frame \a number into \a view, which has the size given at construction.
    void draw(const View &view, std::uint32_t number);

private:
    int _width;
    int _height;
    std::vector<std::uint16_t> _samples;
};

/// Draws text in a plain bitmap font, white on a dark box; what does not fit is cut off.
/// \a scale is the size of one font pixel in samples.
void drawText(const View &view, int x, int y, int scale, const char *text);

} // namespace picture
