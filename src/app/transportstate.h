#pragma once

#include <optional>

/// The published transport state of a speed in Play: 3 to 7 forward, 15 still, 9 to 13 reverse. Normal play
/// (1.0) is 3 and normal reverse (-1.0) is 9, deliberately. Nothing for a speed that is not a number.
constexpr std::optional<int> transportStateOfSpeed(double s)
{
    // clang-format off
    if (s >= 16)   return 7;
    if (s >= 8)    return 6;
    if (s >= 4)    return 5;
    if (s > 1)     return 4;
    if (s > 0)     return 3;
    if (s == 0)    return 15;
    if (s <= -16)  return 13;
    if (s <= -8)   return 12;
    if (s <= -4)   return 11;
    if (s < -1)    return 10;
    if (s < 0)     return 9;
    // clang-format on
    return std::nullopt;
}
