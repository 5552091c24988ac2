#pragma once

#include "liborb/drivers/software/input.h"
#include "libpicture/framebar.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QThread>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace inputtest {

constexpr int patienceMs = 30'000; ///< far beyond what anything here takes: only a hang comes to it

/// Everything an input says about its status, in order. Thread-safe.
class StatusLog
{
public:
    ferin::Input::StatusHandler handler()
    {
        return [this](const ferin::InputStatus &status) {
            const std::lock_guard lock(_mutex);
            _all.push_back(status);
        };
    }
    std::vector<ferin::InputStatus> all() const
    {
        const std::lock_guard lock(_mutex);
        return _all;
    }
    ferin::InputStatus last() const
    {
        const std::lock_guard lock(_mutex);
        return _all.empty() ? ferin::InputStatus() : _all.back();
    }

private:
    mutable std::mutex _mutex;
    std::vector<ferin::InputStatus> _all;
};

/// Lets the input's thread work until \a isDone; false when that never happens.
inline bool waitFor(const std::function<bool()> &isDone)
{
    QElapsedTimer timer;
    timer.start();
    while (!isDone()) {
        if (timer.hasExpired(patienceMs))
            return false;
        QThread::usleep(500);
    }
    return true;
}

/// A frame whose picture has gone back after its frame bar was read: pictures are few.
struct Taken {
    ferin::InputFrame frame;
    std::int64_t bar = -1; ///< -1: none
};

/// Takes \a count frames as they come; fewer when they never do.
inline std::vector<Taken> takeFrames(ferin::Input &input, int count)
{
    std::vector<Taken> frames;
    waitFor([&] {
        Taken taken;
        while (static_cast<int>(frames.size()) < count && input.take(taken.frame)) {
            const auto bar = taken.frame.picture ? picture::readFrameNumber(taken.frame.picture->view)
                                                 : std::nullopt;
            taken.bar = bar ? std::int64_t {*bar} : -1;
            taken.frame.picture.reset();
            frames.push_back(std::move(taken));
        }
        return static_cast<int>(frames.size()) == count;
    });
    return frames;
}

} // namespace inputtest
