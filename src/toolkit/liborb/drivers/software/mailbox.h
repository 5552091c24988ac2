#pragma once

#include <QObject>

#include <atomic>
#include <functional>
#include <memory>

namespace ferin {

/// Carries answers from the device's threads to the event loop it was made on. Nothing arrives
/// after it is destroyed; the threads that post must have ended by then.
class Mailbox
{
public:
    Mailbox() : _waiting(std::make_shared<std::atomic<int>>(0)) {}

    /// Runs \a answer on the event loop, in the order of the calls. From any thread.
    void post(std::function<void()> answer);
    /// The same for what comes with every frame: nothing when an event loop that does not turn has
    /// let many answers pile up.
    void postIfRoom(std::function<void()> answer);

private:
    std::shared_ptr<std::atomic<int>> _waiting;
    QObject _target;
};

} // namespace ferin
