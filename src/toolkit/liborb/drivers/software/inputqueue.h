#pragma once

#include "liborb/drivers/software/input.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace ferin {

/// The frames that wait between an input's thread and the frame clock: usually a few, and as many as it may be late by.
/// The oldest goes when there are more. Thread-safe.
class InputQueue
{
public:
    static constexpr int capacity = 20; ///< a third of a second at 60 frames a second

    void push(InputFrame &&frame);
    bool take(InputFrame &frame);
    int waiting() const;
    /// Frames that went because nobody took them, or that were dropped before they came here.
    quint64 overruns() const { return _overruns; }
    void countDropped() { ++_overruns; }

private:
    mutable std::mutex _mutex;
    std::deque<InputFrame> _frames; // guarded
    std::atomic<quint64> _overruns = 0;
};

/// Tells the input's thread to end, and lets it sleep until then.
class StopFlag
{
public:
    void stop();
    bool isStopping() const { return _stopping; }
    /// Sleeps for \a ns unless it is told to stop; true when it is.
    bool sleep(std::int64_t ns);

private:
    std::atomic<bool> _stopping = false;
    std::mutex _mutex;
    std::condition_variable _wake;
};

/// Reports a status to the handler when it differs from the one before. Used on the input's thread.
class StatusReporter
{
public:
    void setHandler(const Input::StatusHandler &handler) { _handler = handler; }
    void report(const InputStatus &status);
    const InputStatus &status() const { return _status; }

private:
    Input::StatusHandler _handler;
    InputStatus _status;
};

} // namespace ferin
