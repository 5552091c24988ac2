#include "aux/timecodetrigger.h"

TimecodeTrigger::TimecodeTrigger(QObject *parent) : QObject(parent) {}

void TimecodeTrigger::setDelay(int frames)
{
    _delay = frames;
}

void TimecodeTrigger::setTimecode(const OrbTimecode &tc)
{
    const OrbTimecode next = tc; // a receiver may change what the caller's reference names
    if (next.isValid() && !_repeatSeen && next.timecodeMatches(_lastTimecode)) {
        _repeatSeen = true;
        return;
    }
    _repeatSeen = false;
    processTimecode(next);
    _lastTimecode = next;
}

void TimecodeTrigger::processTimecode(const OrbTimecode &tc)
{
    if (!_lastTimecode.isValid())
        return;
    const bool isStopped = !tc.isValid() || tc.timecodeMatches(_lastTimecode);
    const State observed = isStopped ? Stopped : Running;
    if (observed == _state)
        return; // deliberately leaves a change that is being counted alone
    _count = observed == _candidate ? _count + 1 : 0;
    _candidate = observed;
    if (_count <= _delay)
        return;
    _state = observed;
    _count = 0;
    if (observed == Stopped)
        emit timecodeHasStopped();
    else
        emit timecodeHasStarted();
}
