#include "libprores/format.h"

#include "libprores/geometry.h"

#include <algorithm>

namespace prores {

namespace {

/// Bits a macroblock, for frames of up to so many macroblocks.
struct Ceiling {
    int macroblocks;
    int bits[5]; // by profile
};

constexpr Ceiling ceilings[] = {
    // up to    Proxy   LT   422    HQ  4444
    {1620,     {300,   720, 1050, 1566, 2350}}, // 720x576
    {2700,     {242,   560,  808, 1216, 1828}}, // 960x720
    {6075,     {220,   490,  710, 1070, 1600}}, // 1280x720, 1440x1080
    {1 << 30,  {194,   440,  632,  950, 1425}},
};

// From here on (well above 2048x1080) the usual rate comes closer to the ceiling.
constexpr int largeRaster = 16000;

} // namespace

bool isValid(const Format &format)
{
    if (format.width < 1 || format.height < 1 || format.width > 65534 || format.height > 65535)
        return false;
    if (!format.is444() && format.width % 2 != 0)
        return false;
    if (format.isInterlaced() && format.height < 2)
        return false;
    if ((format.hasAlpha || format.isChromaHalf) && !format.is444())
        return false;
    if (format.isChromaHalf && format.width % 2 != 0)
        return false;
    if (format.rateNumerator < 0 || format.rateDenominator < 1)
        return false;
    return format.bitDepth == 10 || format.bitDepth == 12;
}

std::size_t largestFrameBytes(const Format &format)
{
    const std::size_t macroblocks = macroblocksIn(format);
    const auto row = std::ranges::find_if(ceilings, [macroblocks](const Ceiling &ceiling) {
        return macroblocks <= static_cast<std::size_t>(ceiling.macroblocks);
    });
    const auto bits = static_cast<std::size_t>(row->bits[static_cast<int>(format.profile)]);
    // Rasters of a few macroblocks: the headers alone must fit.
    return std::max<std::size_t>(macroblocks * bits / 8, 512 + macroblocks * 8);
}

std::size_t usualFrameBytes(const Format &format)
{
    const std::size_t largest = largestFrameBytes(format);
    return macroblocksIn(format) > largeRaster ? largest / 25 * 24 : largest / 20 * 19;
}

std::uint32_t fourCharacters(Profile profile)
{
    constexpr std::uint32_t names[] = {0x6170636f, 0x61706373, 0x6170636e, 0x61706368, 0x61703468};
    return names[static_cast<int>(profile)];
}

} // namespace prores
