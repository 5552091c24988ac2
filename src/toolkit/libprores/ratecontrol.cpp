#include "libprores/ratecontrol.h"

#include "libprores/fixedlog.h"
#include "libprores/tables.h"

#include <algorithm>
#include <cmath>

namespace prores {

namespace {

constexpr std::int64_t coarsest = 9 * fixedOne; // 512

std::int64_t ratio(std::size_t bytes, std::size_t to)
{
    return fixedLog2(std::max<std::size_t>(bytes, 1)) - fixedLog2(std::max<std::size_t>(to, 1));
}

} // namespace

int RateControl::index(int slice) const
{
    const auto scale = static_cast<std::uint32_t>(fixedExp2(_logScale));
    std::uint32_t below = scale >> 16;
    std::uint32_t fraction = scale & 0xffff;
    if (below >= 128) {
        const std::uint32_t beyond = (scale - (128u << 16)) / 4;
        below = 128 + (beyond >> 16);
        fraction = beyond & 0xffff;
    }
    // Multiples of the golden ratio fill the unit evenly, whatever the number of slices.
    const std::uint32_t pattern = static_cast<std::uint32_t>(slice) * 40503u & 0xffff;
    return std::min(static_cast<int>(below) + (pattern < fraction ? 1 : 0), largestIndex);
}

bool RateControl::moveTo(std::int64_t logScale)
{
    const std::int64_t before = _logScale;
    _logScale = std::clamp<std::int64_t>(logScale, 0, coarsest);
    return _logScale != before;
}

bool RateControl::isOff(std::size_t predictedBytes) const
{
    constexpr std::int64_t tenPercent = 9011;
    const std::int64_t off = ratio(predictedBytes, _wanted) + _bias;
    return off > tenPercent || (off < -tenPercent && _logScale > 0);
}

// Bytes fall with about the power -0.7 of the scale on natural pictures, -0.35 on drawn ones; a few rounds come
// close on both. The aim is a little low, as predictions miss by some percent and largest is near.
bool RateControl::aim(std::size_t predictedBytes)
{
    constexpr std::int64_t onePercent = 940;
    const std::int64_t off = ratio(predictedBytes, _wanted) + onePercent;
    if (off < 2 * onePercent && off > -2 * onePercent)
        return false;
    return moveTo(_logScale + off * 3 / 2);
}

bool RateControl::tighten(std::size_t bytes, std::size_t largest)
{
    constexpr std::int64_t margin = 2048;
    return moveTo(_logScale + ratio(bytes, largest) * 20 / 13 + margin);
}

void RateControl::coded(std::size_t bytes, std::size_t predictedBytes)
{
    _bias = ratio(bytes, predictedBytes);
    moveTo(_logScale + ratio(bytes, _wanted) * 5 / 4);
}

double RateControl::scale() const
{
    return std::exp2(static_cast<double>(_logScale) / static_cast<double>(fixedOne));
}

} // namespace prores
