#include "libpicture/framebar.h"
#include "libpicture/patterns.h"

#include <algorithm>
#include <cmath>

namespace picture {

// Fractal clouds, whose detail falls with its size as in nature, cut by edges, with grain over all. The sizes count
// samples, so that 2160p is as hard to code as 1080p.

namespace {

/// The window goes from place to place over the picture, by an even step across, so that chroma keeps its place.
constexpr std::uint32_t places = 4;
constexpr int stepAcross = 32;
constexpr int stepDown = 16;
constexpr int roomAcross = stepAcross * (places - 1);
constexpr int roomDown = stepDown * (places - 1);

std::uint32_t hash(std::uint32_t x, std::uint32_t y, std::uint32_t seed)
{
    std::uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ seed * 0xcb1ab31fu;
    h = (h ^ h >> 15) * 0x2c1b3c6du;
    h = (h ^ h >> 12) * 0x297a2d39u;
    return h ^ h >> 15;
}

float lattice(int x, int y, std::uint32_t seed)
{
    return static_cast<float>(hash(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), seed) & 0xffff)
        / 32768.0f - 1.0f;
}

float smooth(float x, float y, std::uint32_t seed)
{
    const float left = std::floor(x);
    const float top = std::floor(y);
    const int ix = static_cast<int>(left);
    const int iy = static_cast<int>(top);
    float fx = x - left;
    float fy = y - top;
    fx = fx * fx * (3 - 2 * fx);
    fy = fy * fy * (3 - 2 * fy);
    const float upper = lattice(ix, iy, seed) + fx * (lattice(ix + 1, iy, seed) - lattice(ix, iy, seed));
    const float lower = lattice(ix, iy + 1, seed) + fx * (lattice(ix + 1, iy + 1, seed) - lattice(ix, iy + 1, seed));
    return upper + fy * (lower - upper);
}

void drawPlane(const View &view, int p, double zoom, std::uint32_t seed)
{
    const int width = p == 0 ? view.width : view.width / 2;
    const auto across = static_cast<float>(zoom * (p == 0 ? 1.0 : 2.0));
    const auto kind = static_cast<std::uint32_t>(p);
    for (int y = 0; y < view.height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float at = static_cast<float>(x) * across;
            const float down = static_cast<float>(y) * static_cast<float>(zoom);
            float value = 0;
            float strength = p == 0 ? 190.0f : 70.0f;
            for (float size = 256; size >= 2; size /= 2, strength *= 0.6f)
                value += strength * smooth(at / size, down / size, kind * 16 + static_cast<std::uint32_t>(size));
            if (p == 0 && smooth(at / 90, down / 90, 77) > 0.25f)
                value += 130;
            const std::uint32_t h = hash(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), seed + 99);
            const float grain = static_cast<float>((h & 255) + (h >> 8 & 255) + (h >> 16 & 255)) / 255.0f - 1.5f;
            value += 512 + grain * (p == 0 ? 14.0f : 8.0f);
            view.line(p, y)[x] = static_cast<std::uint16_t>(std::clamp(value, 64.0f, 940.0f));
        }
    }
}

/// The middle line tells: both were drawn whole, or not at all.
bool isShown(const View &window, const View &view)
{
    const std::uint16_t *line = window.line(0, window.height / 2);
    return std::equal(line, line + window.width, view.line(0, view.height / 2));
}

} // namespace

void drawNatural(const View &view, std::uint32_t number)
{
    for (int p = 0; p < 3; ++p)
        drawPlane(view, p, std::pow(0.97, number), number * 3 + static_cast<std::uint32_t>(p));
}

NaturalPattern::NaturalPattern(int width, int height)
    : _width(width)
    , _height(height)
    , _samples(bytesFor(width + roomAcross, height + roomDown) / sizeof(std::uint16_t))
{
    drawNatural(viewOf(_samples.data(), width + roomAcross, height + roomDown), 0);
}

void NaturalPattern::draw(const View &view, std::uint32_t number)
{
    if (view.width != _width || view.height != _height)
        return;
    View window = viewOf(_samples.data(), _width + roomAcross, _height + roomDown);
    const auto place = static_cast<int>(number % places);
    const int x = place * stepAcross;
    const int y = place * stepDown;
    for (int p = 0; p < 3; ++p)
        window.plane[p] = window.line(p, y) + (p == 0 ? x : x / 2);
    window.width = _width;
    window.height = _height;
    if (!isShown(window, view))
        copyOut(window, view);
    writeFrameNumber(view, number);
}

} // namespace picture
