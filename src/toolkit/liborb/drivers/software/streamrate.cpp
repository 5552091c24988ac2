#include "liborb/drivers/software/streamrate.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace ferin {

namespace {

constexpr OrbVideoRate rates[] = {
    {24000, 1001}, {24, 1}, {25, 1},       {30000, 1001}, {30, 1},
    {48000, 1001}, {48, 1}, {50, 1},       {60000, 1001}, {60, 1},
};

constexpr double nearEnough = 0.004; ///< relative; containers with millisecond stamps round this much

double framesPerSecond(const OrbVideoRate &rate)
{
    return static_cast<double>(rate.num()) / rate.den();
}

double periodNs(const OrbVideoRate &rate)
{
    return 1e9 / framesPerSecond(rate);
}

OrbVideoRate nearest(double fps)
{
    const OrbVideoRate *best = std::ranges::min_element(
        rates, {}, [fps](const OrbVideoRate &rate) { return std::abs(framesPerSecond(rate) - fps); });
    return std::abs(framesPerSecond(*best) / fps - 1) <= nearEnough ? *best : OrbVideoRate();
}

} // namespace

OrbVideoRate snapRate(std::int64_t num, std::int64_t den)
{
    if (num <= 0 || den <= 0)
        return OrbVideoRate();
    return nearest(static_cast<double>(num) / static_cast<double>(den));
}

void RateWatch::restart(const OrbVideoRate &rate, std::int64_t tickNs)
{
    *this = RateWatch();
    _rate = rate;
    _tickNs = tickNs;
}

std::optional<OrbVideoRate> RateWatch::next(std::int64_t stampNs)
{
    const std::int64_t step = stampNs - _last;
    _last = stampNs;
    if (_count == 0) {
        _first = stampNs;
        _count = 1;
        return std::nullopt;
    }
    _shortest = _count == 1 ? step : std::min(_shortest, step);
    _longest = _count == 1 ? step : std::max(_longest, step);
    ++_count;
    // Only an unbroken run of even steps tells a rate; anything else begins a new run here.
    if (_shortest <= 0 || _longest - _shortest > 2 * _tickNs + _shortest / 10) {
        _first = stampNs;
        _count = 1;
        return std::nullopt;
    }
    if (_count <= window)
        return std::nullopt;
    const double mean = static_cast<double>(_last - _first) / window;
    _first = stampNs;
    _count = 1;
    const OrbVideoRate rate = nearest(1e9 / mean);
    if (!rate.isValid() || rate == _rate)
        return std::nullopt;
    const double doubt = 2.0 * static_cast<double>(_tickNs) / window;
    if (_rate.isValid() && std::abs(mean - periodNs(_rate)) <= std::abs(mean - periodNs(rate)) + doubt)
        return std::nullopt;
    return rate;
}

} // namespace ferin
