#include "liborb/drivers/software/inputpace.h"

#include "liborb/drivers/software/inputqueue.h"

#include <algorithm>

namespace ferin {

namespace {

constexpr double smoothing = 1.0 / 16.0; // a jitter of one frame more or less must not be followed
constexpr double mostAbove = 2.5;        // frames: a burst is taken by the next beats and not followed either

} // namespace

std::int64_t PhaseFollower::correction(int level, std::int64_t periodNs)
{
    _level += (std::clamp<double>(level, 0.0, _target + mostAbove) - _level) * smoothing;
    const double error = std::clamp((_level - _target) / 0.5, -1.0, 1.0);
    return -static_cast<std::int64_t>(error * largestShare * static_cast<double>(periodNs));
}

int framesHeldOfNetwork(int num, int den)
{
    constexpr std::int64_t milliseconds = 80;
    const std::int64_t frames = (milliseconds * num + 500 * std::int64_t {den}) / (1000 * std::int64_t {den});
    return static_cast<int>(std::clamp<std::int64_t>(frames, 2, InputQueue::capacity / 2));
}

int InputPace::framesDue(int waiting, int held, std::int64_t periodNs, std::int64_t &shiftNs)
{
    shiftNs = 0;
    if (!_primed && waiting < held)
        return 0;
    if (!_primed)
        _follower = PhaseFollower(held);
    _primed = waiting > 0;
    if (!_primed)
        return 0;
    shiftNs = _follower.correction(waiting, periodNs);
    return std::clamp(waiting - held, 1, mostDue);
}

} // namespace ferin
