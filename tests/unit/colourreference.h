#pragma once

#include "libpicture/colourtable.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

/// What a colour table must do, said once more in plain arithmetic.
namespace colourreference {

struct Pair {
    int left;
    int right;
    int cb;
    int cr;
};

/// \a planes holds red, green and blue with 1024 entries each.
inline Pair through(const Pair &pair, const std::vector<std::int16_t> &planes,
                    picture::ColourMatrix matrix)
{
    const double kr = matrix == picture::ColourMatrix::Bt709 ? 0.2126 : 0.299;
    const double kb = matrix == picture::ColourMatrix::Bt709 ? 0.0722 : 0.114;
    const double kg = 1 - kr - kb;
    const auto curve = [&](int plane, double code) {
        const double at = std::clamp(code, 0.0, 1023.0);
        return double(planes[std::size_t(plane * 1024 + int(std::lround(at)))]);
    };
    double newLuma[2];
    double cb = 0;
    double cr = 0;
    for (int i = 0; i < 2; ++i) {
        const double y = i == 0 ? pair.left : pair.right;
        const double blueLess = (pair.cb - 512) * 876.0 / 896.0; // (B - Y) / (2 (1 - Kb))
        const double redLess = (pair.cr - 512) * 876.0 / 896.0;
        const double r = y + 2 * (1 - kr) * redLess;
        const double b = y + 2 * (1 - kb) * blueLess;
        const double g = (y - kr * r - kb * b) / kg;
        const double newR = curve(0, r);
        const double newG = curve(1, g);
        const double newB = curve(2, b);
        newLuma[i] = kr * newR + kg * newG + kb * newB;
        cb += 512 + (newB - newLuma[i]) / (2 * (1 - kb)) * 896.0 / 876.0;
        cr += 512 + (newR - newLuma[i]) / (2 * (1 - kr)) * 896.0 / 876.0;
    }
    const auto code = [](double value) {
        return int(std::lround(std::clamp(value, 0.0, 1023.0)));
    };
    return {code(newLuma[0]), code(newLuma[1]), code(cb / 2), code(cr / 2)};
}

/// Every code into its opposite.
inline std::vector<std::int16_t> inverted()
{
    std::vector<std::int16_t> planes(3 * 1024);
    for (std::size_t i = 0; i < planes.size(); ++i)
        planes[i] = std::int16_t(1023 - i % 1024);
    return planes;
}

/// A curve of its own for each colour, none steeper than a code a code.
inline std::vector<std::int16_t> graded()
{
    std::vector<std::int16_t> planes(3 * 1024);
    for (int i = 0; i < 1024; ++i) {
        planes[std::size_t(i)] = std::int16_t(100 + i * 3 / 4);
        planes[std::size_t(1024 + i)] = std::int16_t(1000 - i * 7 / 8);
        planes[std::size_t(2048 + i)] = std::int16_t(512 + std::lround(400 * std::sin(i / 512.0)));
    }
    return planes;
}

} // namespace colourreference
