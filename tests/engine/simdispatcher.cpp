#include "simdispatcher.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <QTimerEvent>

#include <algorithm>

namespace {

/// What a pass made of nothing but 0 ms timers costs, so that the clock goes on under them.
constexpr qint64 idlePassUs = 1;

} // namespace

SimDispatcher::SimDispatcher(QObject *parent) : QAbstractEventDispatcher(parent) {}

SimDispatcher *SimDispatcher::instance()
{
    return qobject_cast<SimDispatcher *>(QThread::currentThread()->eventDispatcher());
}

void SimDispatcher::runFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

bool SimDispatcher::runUntil(const std::function<bool()> &condition, int limitMs)
{
    const qint64 end = instance()->nowMs() + limitMs;
    while (!condition() && instance()->nowMs() < end)
        runFor(1);
    return condition();
}

bool SimDispatcher::processEvents(QEventLoop::ProcessEventsFlags flags)
{
    constexpr auto excludeTimers = QEventLoop::ProcessEventsFlag(0x08); // X11ExcludeTimers
    _isInterrupted = false;
    emit awake();
    _isWokenUp = false;
    QCoreApplication::sendPostedEvents();
    if (flags & excludeTimers)
        return _isWokenUp;
    const bool hasFired = fireDue();
    const bool mayWait = (flags & QEventLoop::WaitForMoreEvents) && !_isInterrupted;
    if (hasFired || _isWokenUp || !mayWait)
        return hasFired || _isWokenUp;
    emit aboutToBlock();
    const auto next = nextToFire();
    if (next == _queue.end())
        qFatal("nothing is left that could ever happen");
    _nowUs = std::max(_nowUs, next->first.first);
    return fireDue();
}

void SimDispatcher::interrupt()
{
    _isInterrupted = true;
    wakeUp();
}

/// Timers armed anew by this pass wait for the next one.
bool SimDispatcher::fireDue()
{
    const quint64 armedBefore = _armed;
    QList<int> due;
    bool onlyIdle = true;
    for (const auto &[place, timer] : _queue) {
        if (place.first > _nowUs)
            break;
        due << timer.id;
        onlyIdle = onlyIdle && timer.ms == 0;
    }
    bool hasFired = false;
    for (const int id : due) {
        const auto timer = find(id);
        if (timer == _queue.end() || timer->second.isFiring || timer->first.first > _nowUs
            || timer->first.second > armedBefore)
            continue;
        fire(timer);
        hasFired = true;
    }
    if (hasFired && onlyIdle)
        _nowUs += idlePassUs;
    return hasFired;
}

/// The next period keeps the phase; periods missed are left out.
void SimDispatcher::fire(Queue::iterator timer)
{
    Timer again = timer->second;
    const qint64 periodUs = again.ms * 1000;
    qint64 nextUs = timer->first.first + periodUs;
    if (periodUs > 0 && nextUs <= _nowUs)
        nextUs = _nowUs + periodUs - (_nowUs - nextUs) % periodUs;
    _queue.erase(timer);
    again.isFiring = true;
    const Place place(std::max(nextUs, _nowUs), ++_armed);
    _queue.emplace(place, again);
    QTimerEvent event(again.id);
    QCoreApplication::sendEvent(again.object, &event);
    const auto after = _queue.find(place);
    if (after != _queue.end())
        after->second.isFiring = false;
}

SimDispatcher::Queue::iterator SimDispatcher::find(int id)
{
    return std::ranges::find_if(_queue, [id](const auto &entry) { return entry.second.id == id; });
}

SimDispatcher::Queue::iterator SimDispatcher::nextToFire()
{
    return std::ranges::find_if(_queue, [](const auto &entry) { return !entry.second.isFiring; });
}

void SimDispatcher::registerTimer(int id, qint64 ms, Qt::TimerType type, QObject *object)
{
    _queue.emplace(Place(_nowUs + ms * 1000, ++_armed), Timer{id, ms, type, object});
}

bool SimDispatcher::unregisterTimer(int id)
{
    const auto timer = find(id);
    if (timer == _queue.end())
        return false;
    _queue.erase(timer);
    return true;
}

bool SimDispatcher::unregisterTimers(QObject *object)
{
    return std::erase_if(_queue, [object](const auto &e) { return e.second.object == object; }) > 0;
}

QList<QAbstractEventDispatcher::TimerInfo> SimDispatcher::registeredTimers(QObject *object) const
{
    QList<TimerInfo> list;
    for (const auto &[place, timer] : _queue)
        if (timer.object == object)
            list << TimerInfo(timer.id, int(timer.ms), timer.type);
    return list;
}

int SimDispatcher::remainingTime(int id)
{
    const auto timer = find(id);
    if (timer == _queue.end())
        return -1;
    return int((std::max<qint64>(timer->first.first - _nowUs, 0) + 999) / 1000);
}
