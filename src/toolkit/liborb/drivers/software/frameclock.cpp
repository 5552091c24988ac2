#include "liborb/drivers/software/frameclock.h"

#include "liborb/orbthread.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace ferin {

namespace {

constexpr std::int64_t mostCaughtUp = 5; // beats; a longer gap is skipped, not run through

} // namespace

FrameClock::FrameClock(std::function<void(const Beat &)> onBeat)
    : _onBeat(std::move(onBeat)), _thread([this] {
          orbNameThread("frameclock");
          orbRaiseThread();
          loop();
      })
{
}

FrameClock::~FrameClock()
{
    {
        const std::lock_guard lock(_mutex);
        _ending = true;
    }
    _wake.notify_one();
    _thread.join();
}

std::int64_t FrameClock::nowNs()
{
    // The steady clock of this platform is CLOCK_MONOTONIC, which the buses stamp their frames
    // with.
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void FrameClock::call(std::function<void()> work)
{
    {
        const std::lock_guard lock(_mutex);
        _work.push_back(std::move(work));
    }
    _wake.notify_one();
}

ClockStats FrameClock::stats() const
{
    const std::lock_guard lock(_mutex);
    return _stats;
}

void FrameClock::run(int num, int den)
{
    if (_schedule.isValid() && _schedule.num() == num && _schedule.den() == den) {
        // Beats that fell into the work just done are neither made up for nor counted as lost.
        if (nowNs() >= _schedule.dueNs(_next))
            _next += _schedule.overdue(_next, nowNs()) + 1;
        return;
    }
    _schedule = FrameSchedule(num, den, nowNs());
    _next = 0;
}

void FrameClock::loop()
{
    std::unique_lock lock(_mutex);
    while (!_ending) {
        if (!_work.empty()) {
            const std::vector<std::function<void()>> work = std::exchange(_work, {});
            lock.unlock();
            for (const std::function<void()> &item : work)
                item();
            lock.lock();
            continue;
        }
        if (!_schedule.isValid()) {
            _wake.wait(lock);
            continue;
        }
        const std::chrono::steady_clock::time_point due {
            std::chrono::nanoseconds(_schedule.dueNs(_next))};
        if (std::chrono::steady_clock::now() < due) {
            _wake.wait_until(lock, due);
            continue;
        }
        lock.unlock();
        beat();
        lock.lock();
    }
}

void FrameClock::beat()
{
    const std::int64_t now = nowNs();
    const std::int64_t lateNs = now - _schedule.dueNs(_next);
    std::int64_t skipped = _schedule.overdue(_next, now);
    if (skipped <= mostCaughtUp)
        skipped = 0;
    _next += skipped;
    _count += skipped;
    {
        const std::lock_guard lock(_mutex);
        _stats.late += lateNs > _schedule.periodNs() / 4 ? 1 : 0;
        _stats.skipped += static_cast<std::uint64_t>(skipped);
        _stats.worstNs = std::max(_stats.worstNs, lateNs);
    }
    const Beat current {_count, _schedule.dueNs(_next), static_cast<int>(skipped)};
    ++_next;
    ++_count;
    _onBeat(current);
}

} // namespace ferin
