#pragma once

#include "liborb/drivers/software/frameschedule.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace ferin {

/// One beat of the frame clock.
struct Beat {
    std::int64_t frame = 0; ///< counts on over changes of the rate
    std::int64_t dueNs = 0; ///< CLOCK_MONOTONIC
    int skipped = 0;        ///< frames just before this one that the machine was too late for
};

/// How well the clock is kept, since it was made.
struct ClockStats {
    std::uint64_t late = 0;    ///< beats that began more than a quarter of a frame late
    std::uint64_t skipped = 0; ///< frames that had no beat at all
    std::int64_t worstNs = 0;  ///< the latest beat
};

/// The thread that everything frame by frame runs on. It beats at absolute deadlines; between beats
/// it does what call() hands it, in order.
class FrameClock
{
public:
    explicit FrameClock(std::function<void(const Beat &)> onBeat);
    ~FrameClock(); ///< waits for the beat under way; work not begun is dropped

    // From any thread
    void call(std::function<void()> work);
    ClockStats stats() const;

    // On the clock's own thread only, from work or a beat
    /// Beats at \a num / \a den from now on; at the rate it has already the beat goes on, without
    /// what this piece of work has missed.
    void run(int num, int den);
    /// Moves the following beats by \a ns.
    void shift(std::int64_t ns) { _schedule.shift(ns); }
    std::int64_t periodNs() const { return _schedule.periodNs(); }

    static std::int64_t nowNs();

private:
    void loop();
    void beat();

    std::function<void(const Beat &)> _onBeat;
    mutable std::mutex _mutex;
    std::condition_variable _wake;
    std::vector<std::function<void()>> _work; // guarded
    ClockStats _stats;                        // guarded
    bool _ending = false;                     // guarded
    FrameSchedule _schedule;
    std::int64_t _next = 0;  // the beat to come, in the schedule
    std::int64_t _count = 0; // the beat to come, since the clock was made
    std::thread _thread;     // last: everything above is there when it starts
};

} // namespace ferin
