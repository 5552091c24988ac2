#include "liborb/drivers/software/frameschedule.h"

#include <algorithm>

namespace ferin {

namespace {

constexpr std::int64_t secondNs = 1'000'000'000;
constexpr double smoothing = 1.0 / 16.0; // a jitter of one frame more or less must not be followed

} // namespace

std::int64_t FrameSchedule::dueNs(std::int64_t frame) const
{
    // frame = whole * num + rest: no product below leaves 64 bits however long the clock runs.
    std::int64_t whole = frame / _num;
    std::int64_t rest = frame % _num;
    if (rest < 0) {
        rest += _num;
        --whole;
    }
    const std::int64_t ticks = rest * _den; // seconds in units of 1 / num
    const std::int64_t seconds = whole * _den + ticks / _num;
    return _startNs + seconds * secondNs + ticks % _num * secondNs / _num;
}

std::int64_t FrameSchedule::periodNs() const
{
    return secondNs * _den / _num;
}

std::int64_t FrameSchedule::overdue(std::int64_t frame, std::int64_t nowNs) const
{
    const std::int64_t late = nowNs - dueNs(frame);
    if (late <= 0)
        return 0;
    // The division is only a guess, because periods are rounded; the schedule itself decides.
    std::int64_t count = std::max<std::int64_t>(late / (periodNs() + 1) - 1, 0);
    while (dueNs(frame + count + 1) <= nowNs)
        ++count;
    return count;
}

std::int64_t PhaseFollower::correction(int level, std::int64_t periodNs)
{
    _level += (std::clamp(level, 0, 4) - _level) * smoothing;
    const double error = std::clamp((_level - target) / 0.5, -1.0, 1.0);
    return -static_cast<std::int64_t>(error * largestShare * static_cast<double>(periodNs));
}

} // namespace ferin
