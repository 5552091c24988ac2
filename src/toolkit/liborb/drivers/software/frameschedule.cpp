#include "liborb/drivers/software/frameschedule.h"

#include <algorithm>

namespace ferin {

namespace {

constexpr std::int64_t secondNs = 1'000'000'000;

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

} // namespace ferin
