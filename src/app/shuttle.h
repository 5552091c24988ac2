#pragma once

#include <optional>

/// The next speed of the shuttle ladder 2, 4, 8, 16 for fast forward (\a sign 1) and rewind (-1); nothing at
/// its top. Only speeds of the ladder's own direction count, compared exactly; any other starts at 2.
constexpr std::optional<double> nextShuttleSpeed(double speed, int sign)
{
    if (speed == 16.0 * sign)
        return std::nullopt;
    for (const double rung : {2.0, 4.0, 8.0}) {
        if (speed == rung * sign)
            return rung * 2.0 * sign;
    }
    return 2.0 * sign;
}
