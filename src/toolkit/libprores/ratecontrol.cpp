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

int RateControl::index(int slice, std::int64_t extra) const
{
    const auto scale = static_cast<std::uint32_t>(fixedExp2(std::min(_logScale + extra, coarsest)));
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

bool RateControl::isOff(const Prediction &prediction) const
{
    constexpr std::int64_t tenPercent = 9011;
    const std::int64_t off = ratio(prediction.bytes, _wanted) + _bias;
    return off > tenPercent || (off < -tenPercent && _logScale > 0);
}

// How far the scale has to go for a frame that is off by this. Bytes fall with a power of the scale that
// depends on the picture: -0.3 on drawn ones, -0.7 on natural ones, below -1 on grain that is about to vanish.
// It is measured, not assumed.
std::int64_t RateControl::stepFor(std::int64_t off, const Prediction &prediction) const
{
    const std::int64_t fall = ratio(prediction.bytes, prediction.probedBytes);
    return off * probe / std::clamp<std::int64_t>(fall, probe * 3 / 8, probe * 3);
}

// A little low, as samples miss by some percent and the largest size is near. From far off the slope says
// little: no step is longer than two octaves, nor leads out of what is known.
bool RateControl::aim(const Prediction &prediction, Bracket &bracket)
{
    constexpr std::int64_t onePercent = 940;
    const std::int64_t off = ratio(prediction.bytes, _wanted) + onePercent;
    if (off < 2 * onePercent && off > -2 * onePercent)
        return false;
    (off > 0 ? bracket.low : bracket.high) = _logScale;
    std::int64_t next = _logScale + std::clamp(stepFor(off, prediction), -2 * fixedOne, 2 * fixedOne);
    if (next <= bracket.low || next >= bracket.high)
        next = (bracket.low + bracket.high) / 2;
    return moveTo(next);
}

bool RateControl::tighten(std::size_t bytes, const Prediction &prediction)
{
    constexpr std::int64_t margin = 2048;
    return moveTo(_logScale + std::max<std::int64_t>(stepFor(ratio(bytes, _wanted), prediction), 0) + margin);
}

void RateControl::coded(std::size_t bytes, const Prediction &prediction)
{
    _bias = ratio(bytes, prediction.bytes);
    moveTo(_logScale + stepFor(ratio(bytes, _wanted), prediction));
}

double RateControl::scale() const
{
    return std::exp2(static_cast<double>(_logScale) / static_cast<double>(fixedOne));
}

} // namespace prores
