#include "liborb/orbreadahead.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int readsInFlight = 8;       ///< of frames that are wanted
constexpr int readsInFlightAtAll = 16; ///< with those that a seek left behind
constexpr int fewFrames = 8;
constexpr int failuresUntilFailing = 8;
constexpr int maxFramesKnownToFail = 4096;

} // namespace

void OrbReadAhead::reset(int length)
{
    _order.reset(length);
    _slots.clear();
    _inFlight.clear();
    _failed.clear();
    _failuresInARow = 0;
}

void OrbReadAhead::grow(int length)
{
    _order.grow(length);
    // What was the last frame is one like the others now.
    for (Slot &slot : _slots) {
        if (slot.isReady())
            slot.data = marked(slot.data, slot.frame);
    }
    extend();
    askForMissing();
}

void OrbReadAhead::setSize(int frames)
{
    _size = std::max(frames, 1);
    layOut();
}

void OrbReadAhead::setSpeed(double speed)
{
    _order.setSpeed(speed);
    layOut();
}

void OrbReadAhead::moveTo(int frame)
{
    _order.moveTo(frame);
    _failuresInARow = 0;
    layOut();
}

int OrbReadAhead::firstReadable() const
{
    int frame = 0;
    while (frame < _order.length() && _failed.contains(frame))
        ++frame;
    return frame;
}

int OrbReadAhead::lastReadable() const
{
    int frame = _order.length() - 1;
    while (frame >= 0 && _failed.contains(frame))
        --frame;
    return frame;
}

int OrbReadAhead::framesReady() const
{
    const auto missing = std::ranges::find_if_not(_slots, &Slot::isReady);
    return int(missing - _slots.begin());
}

OrbFrame OrbReadAhead::peek() const
{
    if (_slots.empty() || !_slots.front().isReady())
        return OrbFrame();
    // Which frame is the first or the last that can be read may have shown since it came.
    const Slot &first = _slots.front();
    return _failed.isEmpty() ? first.data : marked(first.data, first.frame);
}

OrbFrame OrbReadAhead::take()
{
    const OrbFrame frame = peek();
    if (frame.isNull())
        return frame;
    _order.advance();
    if (_order.isInside() && _order.position() == _slots.front().frame)
        return frame;
    _slots.pop_front();
    skipFailed();
    extend();
    askForMissing();
    return frame;
}

OrbFrame OrbReadAhead::marked(OrbFrame frame, int number) const
{
    frame.meta().insert(OrbId(OrbIdFrameNumber), number);
    frame.meta().insert(OrbId(OrbIdStartOfStream), number == firstReadable());
    frame.meta().insert(OrbId(OrbIdEndOfStream), number == lastReadable());
    return frame;
}

void OrbReadAhead::skipFailed()
{
    while (_order.isInside() && _failed.contains(_order.position()))
        _order.skipFrame();
}

/// The slots that the order wants now, filled from those there were.
void OrbReadAhead::layOut()
{
    std::deque<Slot> old = std::exchange(_slots, {});
    skipFailed();
    extend();
    for (Slot &slot : _slots) {
        const auto held = std::ranges::find(old, slot.frame, &Slot::frame);
        if (held != old.end())
            slot = std::move(*held);
    }
    askForMissing();
}

/// Adds slots behind the last one while there is room. A read that was not wanted any more may be
/// wanted again.
void OrbReadAhead::extend()
{
    OrbReadOrder next = _order;
    for (size_t held = 0; held < _slots.size() && next.isInside(); next.skipFrame())
        held += next.position() == _slots[held].frame ? 1 : 0;
    for (; int(_slots.size()) < _size && next.isInside(); next.skipFrame()) {
        const int frame = next.position();
        if (!_failed.contains(frame))
            _slots.push_back({frame, _inFlight.key(frame, 0), OrbFrame()});
    }
}

bool OrbReadAhead::isFailing() const
{
    return _failuresInARow >= failuresUntilFailing;
}

bool OrbReadAhead::mayAsk() const
{
    if (isFailing())
        return _mayTry && _inFlight.isEmpty();
    return std::ranges::count_if(_slots, &Slot::isAwaited) < readsInFlight
        && _inFlight.size() < readsInFlightAtAll;
}

/// An answer may come before the question has returned, so every turn looks afresh.
void OrbReadAhead::askForMissing()
{
    while (mayAsk()) {
        const auto next = std::ranges::find_if(_slots, &Slot::isMissing);
        if (next == _slots.end())
            return;
        _mayTry = false;
        const int frame = next->frame;
        next->request = ++_lastNumber;
        _inFlight.insert(_lastNumber, frame);
        _ask(frame, _lastNumber);
    }
}

void OrbReadAhead::askAgain()
{
    _mayTry = true;
    askForMissing();
}

OrbReadAhead::News OrbReadAhead::answer(quintptr number, const OrbFrame &data)
{
    News news;
    if (_inFlight.remove(number) == 0)
        return news;
    if (!data.isNull())
        _failuresInARow = 0;
    const int before = framesReady();
    const auto slot = std::ranges::find(_slots, number, &Slot::request);
    if (slot != _slots.end() && data.isNull()) {
        news.failedFrame = slot->frame;
        fail(slot);
    } else if (slot != _slots.end()) {
        slot->request = 0;
        slot->data = marked(data, slot->frame);
    }
    askForMissing();
    // A position that failures drove off an end is news too: somebody has to turn it round.
    news.areFramesThere = (before < fewFrames && framesReady() > before)
        || (news.failedFrame && !_order.isInside());
    return news;
}

/// The next frame wanted takes the place of the one that failed.
void OrbReadAhead::fail(std::deque<Slot>::iterator slot)
{
    if (_failed.size() >= maxFramesKnownToFail)
        _failed.clear();
    _failed.insert(slot->frame);
    ++_failuresInARow;
    _mayTry = false;
    _slots.erase(slot);
    skipFailed();
    extend();
}
