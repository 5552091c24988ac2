#include "services/rvcam/frameclock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>

namespace cam {

namespace {

constexpr std::int64_t second = 1'000'000'000;

std::atomic<bool> ending = false;
std::atomic<bool> toggled = false;
static_assert(std::atomic<bool>::is_always_lock_free, "signal handlers set these");

std::int64_t nowNs()
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * second + now.tv_nsec;
}

void onEnd(int)
{
    ending = true;
}

void onToggle(int)
{
    toggled = !toggled;
}

} // namespace

FrameClock::FrameClock(int rateNum, int rateDen)
    : _rateNum(rateNum)
    , _rateDen(rateDen)
{
}

void FrameClock::start()
{
    _startNs = nowNs();
}

std::int64_t FrameClock::dueNs(std::int64_t frame) const
{
    const std::int64_t whole = frame / _rateNum;
    const std::int64_t rest = frame % _rateNum;
    return _startNs + whole * _rateDen * second + rest * _rateDen * second / _rateNum;
}

bool FrameClock::waitFor(std::int64_t frame)
{
    const std::int64_t late = nowNs() - dueNs(frame);
    if (late > second) {
        std::fprintf(stderr, "rvcam: frame %lld is %.1f s late, the clock goes on from it\n",
                     static_cast<long long>(frame), static_cast<double>(late) / second);
        _startNs += late;
    }

    // Frames that are late follow each other at twice the rate: a bus holds few, and its readers need their time.
    const std::int64_t soonest = _lastNs + second * _rateDen / _rateNum / 2;
    const std::int64_t due = std::max(dueNs(frame), soonest);
    const timespec until = {static_cast<std::time_t>(due / second),
                            static_cast<long>(due % second)};
    while (!ending && clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
    _lastNs = nowNs();
    return !ending;
}

void installSignals()
{
    struct sigaction action {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = onEnd;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = onToggle;
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

bool isEnding()
{
    return ending;
}

bool isToggled()
{
    return toggled;
}

} // namespace cam
