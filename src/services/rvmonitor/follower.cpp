#include "services/rvmonitor/follower.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>

namespace monitor {

namespace {

constexpr int stepMs = 100; ///< how soon a signal is heeded

std::atomic<bool> ending = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

} // namespace

Follower::Follower(const std::string &name)
    : _name(name)
{
}

bool Follower::next(bus::Frame &frame, int timeoutMs)
{
    const std::int64_t deadline = nowMs() + timeoutMs;
    while (!ending) {
        const auto left = static_cast<int>(std::clamp<std::int64_t>(deadline - nowMs(), 0, stepMs));
        if (!_reader.isOpen() && !_reader.open(_name)) {
            const timespec pause = {0, std::min(left, 10) * 1'000'000L};
            nanosleep(&pause, nullptr);
            if (nowMs() >= deadline)
                break;
            continue;
        }
        if (_reader.next(frame, left))
            return true;
        if (nowMs() >= deadline)
            break;
    }
    return false;
}

void installSignals()
{
    struct sigaction action {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = [](int) { ending = true; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool isEnding()
{
    return ending;
}

std::int64_t nowNs()
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

std::int64_t nowMs()
{
    return nowNs() / 1'000'000;
}

} // namespace monitor
