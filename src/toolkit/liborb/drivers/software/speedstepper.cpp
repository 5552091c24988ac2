#include "liborb/drivers/software/speedstepper.h"

#include <algorithm>
#include <cmath>

namespace ferin {

namespace {

constexpr int fewestSlots = 8;
constexpr int mostSlots = 64;
constexpr double fastest = 20.0;

} // namespace

void SpeedStepper::setSpeed(double speed)
{
    const double wanted = std::isfinite(speed) ? std::clamp(speed, -fastest, fastest) : 0.0;
    if (wanted == _speed)
        return;
    _speed = wanted;
    _beats = 0; // the frame on output stays where it is; only the fraction begins anew
}

void SpeedStepper::restart()
{
    _first = true;
    _beats = 0;
}

int SpeedStepper::next() const
{
    if (_first || _speed <= 0.0)
        return 1;
    const double from = std::floor(static_cast<double>(_beats) * _speed);
    const double to = std::floor(static_cast<double>(_beats + 1) * _speed);
    return static_cast<int>(to - from);
}

void SpeedStepper::advance()
{
    if (_first)
        _first = false;
    else
        ++_beats;
}

int SpeedStepper::slotsFor(double speed)
{
    if (!(speed > 1.0))
        return fewestSlots;
    const int perBeat = static_cast<int>(std::ceil(std::min(speed, fastest)));
    return std::clamp(3 * perBeat, fewestSlots, mostSlots);
}

} // namespace ferin
