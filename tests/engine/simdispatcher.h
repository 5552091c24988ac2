#pragma once

#include <QAbstractEventDispatcher>

#include <functional>
#include <map>

/// An event dispatcher whose clock is virtual: when nothing is left to do now, it goes on to the
/// next timer at once. An hour of timers takes milliseconds and is the same every time. One thread,
/// no sockets.
///
/// Install it with QCoreApplication::setEventDispatcher() before the application is made.
class SimDispatcher : public QAbstractEventDispatcher
{
    Q_OBJECT
public:
    explicit SimDispatcher(QObject *parent = nullptr);

    static SimDispatcher *instance(); ///< that of this thread; null when it has another kind
    qint64 nowMs() const { return _nowUs / 1000; } ///< since the dispatcher was made

    /// Runs the event loop for \a ms virtual milliseconds.
    static void runFor(int ms);
    /// Runs the event loop until \a condition holds, at most \a limitMs; answers whether it does.
    static bool runUntil(const std::function<bool()> &condition, int limitMs);

    bool processEvents(QEventLoop::ProcessEventsFlags flags) override;
    void registerSocketNotifier(QSocketNotifier *) override {}
    void unregisterSocketNotifier(QSocketNotifier *) override {}
    void registerTimer(int id, qint64 ms, Qt::TimerType type, QObject *object) override;
    bool unregisterTimer(int id) override;
    bool unregisterTimers(QObject *object) override;
    QList<TimerInfo> registeredTimers(QObject *object) const override;
    int remainingTime(int id) override;
    void wakeUp() override { _isWokenUp = true; }
    void interrupt() override;

private:
    /// Earlier deadlines first, then those armed first.
    using Place = std::pair<qint64, quint64>;
    struct Timer {
        int id;
        qint64 ms;
        Qt::TimerType type;
        QObject *object;
        bool isFiring = false; ///< its slot may run a loop of its own: it does not fire again then
    };
    using Queue = std::map<Place, Timer>;

    Queue::iterator find(int id);
    Queue::iterator nextToFire();
    bool fireDue();
    void fire(Queue::iterator timer);

    Queue _queue;
    qint64 _nowUs = 0;
    quint64 _armed = 0;
    bool _isWokenUp = false;
    bool _isInterrupted = false;
};
