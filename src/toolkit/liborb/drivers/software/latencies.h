#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <deque>
#include <vector>

namespace ferin {

/// How long things took, over the last seconds. Not thread-safe.
class Latencies
{
public:
    using Clock = std::chrono::steady_clock;

    void add(Clock::time_point now, Clock::duration took)
    {
        _rows.push_back({now, took});
        if (_rows.size() > mostRows)
            _rows.pop_front();
    }

    /// Median and worst of those that ended in the last five seconds; 0 when none did.
    void read(Clock::time_point now, double &medianMs, double &worstMs) const
    {
        std::vector<Clock::duration> times;
        for (const Row &row : _rows) {
            if (now - row.ended <= span)
                times.push_back(row.took);
        }
        medianMs = worstMs = 0.0;
        if (times.empty())
            return;
        std::ranges::sort(times);
        medianMs = milliseconds(times[times.size() / 2]);
        worstMs = milliseconds(times.back());
    }

private:
    struct Row {
        Clock::time_point ended;
        Clock::duration took;
    };
    static double milliseconds(Clock::duration time)
    {
        return std::chrono::duration<double, std::milli>(time).count();
    }

    static constexpr std::chrono::seconds span {5};
    static constexpr std::size_t mostRows = 600; ///< five seconds of the fastest input
    std::deque<Row> _rows;
};

} // namespace ferin
