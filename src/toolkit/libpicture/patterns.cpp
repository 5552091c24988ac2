#include "libpicture/patterns.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace picture {

namespace {

constexpr std::uint16_t black = 64;
constexpr std::uint16_t neutral = 512;

struct Sample {
    std::uint16_t y, cb, cr;
};

/// The 10-bit video-range sample of a gamma-corrected colour, each component 0..1.
Sample sampleOf(double red, double green, double blue, bool highDefinition)
{
    const double kr = highDefinition ? 0.2126 : 0.299;
    const double kb = highDefinition ? 0.0722 : 0.114;
    const double luma = kr * red + (1.0 - kr - kb) * green + kb * blue;
    const double cb = (blue - luma) / (2.0 * (1.0 - kb));
    const double cr = (red - luma) / (2.0 * (1.0 - kr));
    return {static_cast<std::uint16_t>(std::lround(64.0 + 876.0 * luma)),
            static_cast<std::uint16_t>(std::lround(512.0 + 896.0 * cb)),
            static_cast<std::uint16_t>(std::lround(512.0 + 896.0 * cr))};
}

/// Copies line 0 of every plane to all the others.
void repeatFirstLine(const View &view)
{
    for (int p = 0; p < 3; ++p) {
        const int samples = p == 0 ? view.width : view.width / 2;
        for (int y = 1; y < view.height; ++y)
            std::copy_n(view.line(p, 0), samples, view.line(p, y));
    }
}

} // namespace

void drawBlack(const View &view)
{
    if (!view.isValid())
        return;
    for (int p = 0; p < 3; ++p) {
        const int samples = p == 0 ? view.width : view.width / 2;
        for (int y = 0; y < view.height; ++y)
            std::fill_n(view.line(p, y), samples, p == 0 ? black : neutral);
    }
}

void drawBars(const View &view)
{
    struct Colour {
        double red, green, blue;
    };
    static constexpr std::array<Colour, 8> colours = {{
        {1.00, 1.00, 1.00}, // white
        {0.75, 0.75, 0.00}, // yellow
        {0.00, 0.75, 0.75}, // cyan
        {0.00, 0.75, 0.00}, // green
        {0.75, 0.00, 0.75}, // magenta
        {0.75, 0.00, 0.00}, // red
        {0.00, 0.00, 0.75}, // blue
        {0.00, 0.00, 0.00}, // black
    }};

    if (!view.isValid())
        return;
    const int chromaWidth = view.width / 2;
    for (std::size_t i = 0; i < colours.size(); ++i) {
        const Colour &colour = colours[i];
        const Sample sample = sampleOf(colour.red, colour.green, colour.blue, view.height > 576);
        // Bars begin on a chroma sample, so that no chroma sample is shared by two of them.
        const int from = chromaWidth * static_cast<int>(i) / 8;
        const int to = chromaWidth * static_cast<int>(i + 1) / 8;
        std::fill(view.line(0, 0) + from * 2, view.line(0, 0) + to * 2, sample.y);
        std::fill(view.line(1, 0) + from, view.line(1, 0) + to, sample.cb);
        std::fill(view.line(2, 0) + from, view.line(2, 0) + to, sample.cr);
    }
    repeatFirstLine(view);
}

void drawRamp(const View &view)
{
    constexpr int lowest = 4;
    constexpr int highest = 1019;

    if (!view.isValid())
        return;
    const int span = std::max(1, view.width - 1);
    for (int x = 0; x < view.width; ++x)
        view.line(0, 0)[x] = static_cast<std::uint16_t>(lowest + (highest - lowest) * x / span);
    for (int p = 1; p < 3; ++p)
        std::fill_n(view.line(p, 0), view.width / 2, neutral);
    repeatFirstLine(view);
}

} // namespace picture
