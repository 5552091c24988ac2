#include "liborb/orbreadorder.h"

#include <algorithm>
#include <cmath>

void OrbReadOrder::reset(int length)
{
    _length = std::max(length, 0);
    moveTo(0);
}

void OrbReadOrder::grow(int length)
{
    setSpeed(_speed); // where it stands is settled before the end moves away
    _length = std::max(length, _length);
}

void OrbReadOrder::moveTo(int frame)
{
    _base = std::clamp(frame, -1, _length);
    _steps = 0.0;
}

void OrbReadOrder::setSpeed(double speed)
{
    _base = exactPosition();
    _steps = 0.0;
    _speed = std::isfinite(speed) ? speed : 0.0;
}

double OrbReadOrder::exactPosition() const
{
    // A sum of fractions that misses a whole frame by a rounding error is that frame.
    constexpr double noise = 1e-6;
    const double exact = std::clamp(_base + _steps * _speed, -1.0, double(_length));
    const double whole = std::round(exact);
    return std::abs(exact - whole) < noise ? whole : exact;
}

int OrbReadOrder::position() const
{
    return int(exactPosition());
}

bool OrbReadOrder::isBeforeStart() const
{
    return exactPosition() < 0.0;
}

bool OrbReadOrder::isBehindEnd() const
{
    return exactPosition() >= double(_length);
}

void OrbReadOrder::advance()
{
    if (_speed != 0.0)
        _steps += 1.0;
}

void OrbReadOrder::skipFrame()
{
    if (std::abs(_speed) >= 1.0) {
        advance();
        return;
    }
    // Slower than one frame a step, no frame is left out. Backward the position enters the frame
    // before from behind, short of its upper edge.
    const int frame = position();
    constexpr double leastStep = -0.001;
    _base = _speed < 0.0 ? frame + std::min(_speed, leastStep) : frame + 1.0;
    _steps = 0.0;
}
