#pragma once

#include <algorithm>
#include <cstdio>
#include <vector>

/// Prints the line that bench.py reads: how many, their median, 99th percentile and worst. False,
/// and nothing printed, when there are none.
inline bool printFigures(const char *topic, const char *what, std::vector<double> values,
                         const char *unit, int decimals)
{
    if (values.empty())
        return false;
    std::ranges::sort(values);
    std::printf("%s, %zu %s: median %.*f %s, 99 %% %.*f %s, worst %.*f %s\n", topic, values.size(),
                what, decimals, values[values.size() / 2], unit, decimals,
                values[values.size() * 99 / 100], unit, decimals, values.back(), unit);
    std::fflush(stdout);
    return true;
}
