#include "liborb/drivers/software/speedstepper.h"

#include <algorithm>
#include <cmath>

namespace ferin {

namespace {

constexpr int fewestSlots = 8;
constexpr int mostSlots = 64;
constexpr double fastest = 20.0;

/// Frames that the output stands on after \a beats. A speed written in decimals has no exact
/// binary value: a product that misses a whole frame by no more than that is that frame.
double framesAfter(std::int64_t beats, double speed)
{
    constexpr double noise = 1e-6;
    return std::floor(static_cast<double>(beats) * speed + noise);
}

} // namespace

double SpeedStepper::usable(double speed)
{
    return std::isfinite(speed) ? std::clamp(speed, -fastest, fastest) : 0.0;
}

void SpeedStepper::setSpeed(double speed)
{
    const double wanted = usable(speed);
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
    return static_cast<int>(framesAfter(_beats + 1, _speed) - framesAfter(_beats, _speed));
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
