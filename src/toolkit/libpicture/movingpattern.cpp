#include "libpicture/framebar.h"
#include "libpicture/patterns.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace picture {

// The background is made once: a sky that brightens towards a horizon, hills in front of it and a
// ground with some texture. Smooth parts and parts with detail, as in camera pictures, so that a
// codec's bit rate on it says something, and no part of it so busy that the codec runs out of bits.

namespace {

constexpr int tileSize = 256;

/// A square of smooth random values 0..255 that joins itself at the edges; the same on every
/// machine.
class Noise
{
public:
    Noise()
    {
        std::uint32_t state = 0x2545f491;
        for (auto &value : _tile) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            value = static_cast<std::uint8_t>(state >> 24);
        }
    }

    /// The value at a point in 1/256 tile cells, interpolated between the four cells around it.
    int at(std::uint32_t x, std::uint32_t y) const
    {
        const std::uint32_t cellX = x >> 8;
        const std::uint32_t cellY = y >> 8;
        const int fx = static_cast<int>(x & 255U);
        const int fy = static_cast<int>(y & 255U);
        const int top = cell(cellX, cellY) * (256 - fx) + cell(cellX + 1, cellY) * fx;
        const int bottom = cell(cellX, cellY + 1) * (256 - fx) + cell(cellX + 1, cellY + 1) * fx;
        return (top * (256 - fy) + bottom * fy) >> 16;
    }

private:
    int cell(std::uint32_t x, std::uint32_t y) const
    {
        return _tile[(y % tileSize) * tileSize + x % tileSize];
    }

    std::array<std::uint8_t, tileSize * tileSize> _tile;
};

struct Sample {
    int y, cb, cr;
};

/// One sample of the landscape; x and y run over a picture of 4096 by 4096 units.
Sample landscape(const Noise &noise, int x, int y, int hill)
{
    const auto ux = static_cast<std::uint32_t>(x);
    const auto uy = static_cast<std::uint32_t>(y);
    if (y < hill) { // sky, with soft clouds
        const int cloud = std::max(0, noise.at(ux / 2, uy) + noise.at(ux * 2, uy * 4) / 2 - 200);
        return {380 + y / 12 + cloud, 590 - y / 60 - cloud / 4, 470 + cloud / 4};
    }
    const int depth = y - hill;
    const int coarse = noise.at(ux * 4, uy * 4) - 128;
    const int fine = noise.at(ux * 24, uy * 24) - 128;
    return {std::max(96, 330 - depth / 24 + coarse / 3 + fine / 8), 480 + coarse / 16,
            500 + depth / 100 - coarse / 12};
}

int evenAtLeast(int value, int least)
{
    return std::max(least, value) & ~1;
}

/// Luma across the stripe: black edges, white core.
std::uint16_t stripeLuma(int x, int width)
{
    const int edge = std::max(1, width / 6);
    return x < edge || x >= width - edge ? 64 : 900;
}

void drawStripe(const View &view, std::uint32_t number)
{
    const int stripe = std::min(evenAtLeast(view.width / 24, 4), view.width);
    const int step = evenAtLeast(view.width / 120, 2);
    const int top = std::min(frameBarHeight, view.height);
    const int left = static_cast<int>(static_cast<std::uint64_t>(number)
                                      * static_cast<std::uint64_t>(step)
                                      % static_cast<std::uint64_t>(view.width)) & ~1;

    // The first line is drawn sample by sample, wrapping at the right edge; the others copy its
    // pieces.
    const int head = std::min(stripe, view.width - left);
    const int tail = stripe - head;
    std::array<std::uint16_t, 512> luma {};
    const int drawn = std::min<int>(stripe, static_cast<int>(luma.size()));
    for (int x = 0; x < drawn; ++x)
        luma[static_cast<std::size_t>(x)] = stripeLuma(x, drawn);
    const int headDrawn = std::min(head, drawn);
    const int tailDrawn = std::min(tail, drawn - headDrawn);
    for (int y = top; y < view.height; ++y) {
        std::copy_n(luma.data(), headDrawn, view.line(0, y) + left);
        std::copy_n(luma.data() + headDrawn, tailDrawn, view.line(0, y));
        for (int p = 1; p < 3; ++p) {
            std::fill_n(view.line(p, y) + left / 2, headDrawn / 2, std::uint16_t {512});
            std::fill_n(view.line(p, y), tailDrawn / 2, std::uint16_t {512});
        }
    }
}

} // namespace

MovingPattern::MovingPattern(int width, int height)
    : _width(std::max(width, 0))
    , _height(std::max(height, 0))
{
    if (_width < 2 || _height < 1)
        return;

    _background.resize(bytesFor(_width, _height) / sizeof(std::uint16_t));
    const View view = viewOf(_background.data(), _width, _height);
    const Noise noise;
    const int scaleX = 4096 * 256 / _width;
    const int scaleY = 4096 * 256 / _height;
    std::vector<int> hills(static_cast<std::size_t>(_width));
    for (int x = 0; x < _width; ++x) {
        const auto unit = static_cast<std::uint32_t>((static_cast<std::int64_t>(x) * scaleX) >> 8);
        hills[static_cast<std::size_t>(x)] =
            1500 + noise.at(unit, 4096) * 4 + noise.at(unit * 4, 9000);
    }
    for (int y = 0; y < _height; ++y) {
        const int unitY = static_cast<int>((static_cast<std::int64_t>(y) * scaleY) >> 8);
        std::uint16_t *luma = view.line(0, y);
        std::uint16_t *cb = view.line(1, y);
        std::uint16_t *cr = view.line(2, y);
        for (int x = 0; x < _width; ++x) {
            const int unitX = static_cast<int>((static_cast<std::int64_t>(x) * scaleX) >> 8);
            const int hill = hills[static_cast<std::size_t>(x)];
            const Sample sample = landscape(noise, unitX, unitY, hill);
            luma[x] = static_cast<std::uint16_t>(std::clamp(sample.y, 64, 940));
            if ((x & 1) == 0 && x / 2 < _width / 2) {
                cb[x / 2] = static_cast<std::uint16_t>(std::clamp(sample.cb, 64, 960));
                cr[x / 2] = static_cast<std::uint16_t>(std::clamp(sample.cr, 64, 960));
            }
        }
    }
}

void MovingPattern::draw(const View &view, std::uint32_t number) const
{
    if (!view.isValid() || view.width != _width || view.height != _height || _background.empty())
        return;

    // viewOf() does not write: the background is only read through it.
    copy(viewOf(const_cast<std::uint16_t *>(_background.data()), _width, _height), view);
    drawStripe(view, number);
    writeFrameNumber(view, number);

    char figures[16];
    std::snprintf(figures, sizeof figures, "%08u", static_cast<unsigned>(number));
    const int scale = std::max(1, _height / 120);
    drawText(view, _width / 16, _height - 14 * scale, scale, figures);
}

} // namespace picture
