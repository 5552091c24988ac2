#include "liborb/drivers/software/inputqueue.h"

#include <chrono>
#include <utility>

namespace ferin {

void InputQueue::push(InputFrame &&frame)
{
    InputFrame oldest; // goes outside the lock
    const std::lock_guard lock(_mutex);
    if (_frames.size() >= capacity) {
        oldest = std::move(_frames.front());
        _frames.pop_front();
        ++_overruns;
    }
    _frames.push_back(std::move(frame));
}

bool InputQueue::take(InputFrame &frame)
{
    const std::lock_guard lock(_mutex);
    if (_frames.empty())
        return false;
    frame = std::move(_frames.front());
    _frames.pop_front();
    return true;
}

int InputQueue::waiting() const
{
    const std::lock_guard lock(_mutex);
    return static_cast<int>(_frames.size());
}

void StopFlag::stop()
{
    {
        const std::lock_guard lock(_mutex);
        _stopping = true;
    }
    _wake.notify_all();
}

bool StopFlag::sleep(std::int64_t ns)
{
    std::unique_lock lock(_mutex);
    _wake.wait_for(lock, std::chrono::nanoseconds(ns), [this] { return _stopping.load(); });
    return _stopping;
}

void StatusReporter::report(const InputStatus &status)
{
    const bool isSame = status.present == _status.present && status.valid == _status.valid
                        && status.problem == _status.problem && status.format == _status.format;
    if (isSame)
        return;
    _status = status;
    if (_handler)
        _handler(status);
}

} // namespace ferin
