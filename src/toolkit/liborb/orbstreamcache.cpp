// Reading ahead. The order (OrbReadOrder) says which frames are wanted next; for as many of them as the
// cache holds there is a slot, first wanted first, that waits for its frame or has it. Whatever changes the
// order lays the slots out anew and keeps the frames, and the reads under way, that are still wanted. Every
// read carries a number of its own, so an answer that nobody waits for any more is known for what it is.
//
// Writing. Frames go to the stream while it has few pending and queue here otherwise.

#include "liborb/orbstreamcache.h"

#include "liborb/orbreadorder.h"
#include "liborb/orbstream.h"

#include <QHash>
#include <QPointer>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <optional>

namespace {

constexpr int readsInFlight = 8;      ///< of frames that are wanted
constexpr int readsInFlightAtAll = 16; ///< with those that a seek left behind
constexpr int writesInFlight = 8;
constexpr int maxWaitingToBeWritten = 1024;
constexpr int fewFrames = 8; ///< the engine is told of frames that come on top of fewer than these

/// After this many failures in a row frames are tried one at a time, as fast as they would be played.
constexpr int failuresInARow = 8;
constexpr int triesApartMs = 40;
constexpr int maxFramesKnownToFail = 4096;

constexpr int lastFrame = std::numeric_limits<int>::max(); ///< to begin at

struct Slot
{
    int frame = 0;
    quintptr request = 0; ///< 0 while none is under way
    OrbFrame data;        ///< null until it is there

    bool isReady() const { return !data.isNull(); }
};

void requestBuffers(const OrbFrame &frame)
{
    for (const OrbImage &image : frame.vids())
        for (const OrbBuffer &plane : image.planes())
            plane.request();
    for (const OrbAudio &sound : frame.auds())
        for (const OrbBuffer &samples : sound.buffers())
            samples.request();
}

} // namespace

struct OrbStreamCache::Private
{
    explicit Private(OrbStreamCache *cache) : q(cache) {}

    OrbStreamCache *q;
    QPointer<OrbStream> stream;
    int size = 45;
    quint64 openSerial = 0; ///< of the open that the contents belong to, 0 when the stream is not open
    std::optional<int> begin; ///< sought before the stream was open
    bool isReadyPosted = false;

    OrbReadOrder order;
    std::deque<Slot> ahead;
    QHash<quintptr, int> inFlight; ///< frame by number of the read
    quintptr lastRequest = 0;
    QSet<int> failed;
    int failures = 0; ///< in a row
    QTimer retryTimer;

    std::deque<OrbFrame> waiting; ///< to be written
    int written = 0;

    // State
    bool isReading() const { return openSerial != 0 && stream->isReadable(); }
    bool isWriting() const { return openSerial != 0 && stream->isWritable(); }
    void followStream();
    void empty();
    void forgetBegin();

    // Reading
    void moveTo(int frame);
    int firstReadable() const;
    int lastReadable() const;
    void skipFailed();
    void layOut();
    void extend();
    quintptr requestOf(int frame) const;
    void request();
    bool mayRequest() const;
    void frameRead(const OrbFrame &data, const OrbError &error, quintptr request);
    void readFailed(std::deque<Slot>::iterator slot, const OrbError &error);
    int framesReady() const;
    void announce();
    OrbFrame head() const;
    OrbFrame marked(OrbFrame frame, int number) const;

    // Writing
    void pass(int count);
    void passWhileFewPending();
};

OrbStreamCache::OrbStreamCache(QObject *parent)
    : QObject(parent), _d(std::make_unique<Private>(this))
{
    _d->retryTimer.setSingleShot(true);
    _d->retryTimer.setTimerType(Qt::PreciseTimer);
    _d->retryTimer.setInterval(triesApartMs);
    connect(&_d->retryTimer, &QTimer::timeout, this, [this] {
        _d->followStream();
        _d->request();
    });
}

OrbStreamCache::~OrbStreamCache() = default;

void OrbStreamCache::setStream(OrbStream *stream)
{
    if (_d->stream)
        disconnect(_d->stream, nullptr, this, nullptr);
    _d->stream = stream;
    _d->openSerial = 0;
    _d->begin.reset();
    _d->empty();
    if (!stream)
        return;
    connect(stream, &OrbStream::openIsDone, this, [this] {
        _d->followStream();
        _d->forgetBegin();
    });
    connect(stream, &OrbStream::closeIsDone, this, [this] { _d->followStream(); });
    connect(stream, &OrbStream::aboutToClose, this, [this] {
        pushCachedToPending(std::numeric_limits<int>::max());
        _d->begin.reset();
    });
    connect(stream, &OrbStream::readIsDone, this,
            [this](int, const OrbFrame &frame, const OrbError &error, void *context) {
                _d->followStream();
                _d->frameRead(frame, error, reinterpret_cast<quintptr>(context));
            });
    connect(stream, &OrbStream::frameWritten, this, [this](int number, const OrbError &outcome) {
        _d->followStream();
        _d->passWhileFewPending();
        if (outcome.isError())
            emit error(number, outcome);
    });
    _d->followStream();
}

void OrbStreamCache::setCacheSize(int frames)
{
    _d->followStream();
    _d->size = std::max(frames, 1);
    if (_d->isReading())
        _d->layOut();
}

/// Every call begins here: the stream may have been opened or closed since the last one, and whoever heard
/// of it first may already ask.
void OrbStreamCache::Private::followStream()
{
    const quint64 serial = stream && stream->isOpen() ? stream->openSerial() : 0;
    if (serial == openSerial)
        return;
    openSerial = serial;
    empty();
    if (!isReading())
        return;
    order.reset(stream->info().length());
    const int start = begin.value_or(0);
    moveTo(start == lastFrame ? lastReadable() : start);
    begin.reset();
}

void OrbStreamCache::Private::empty()
{
    ahead.clear();
    inFlight.clear();
    failed.clear();
    failures = 0;
    retryTimer.stop();
    waiting.clear();
    written = 0;
    order.reset(0);
}

/// An open that failed, or was for writing, took no notice of where reading was to begin.
void OrbStreamCache::Private::forgetBegin()
{
    if (!stream || !stream->isOpening())
        begin.reset();
}

// Reading -----------------------------------------------------------------------------------------------

void OrbStreamCache::seek(int frame)
{
    _d->followStream();
    if (!_d->isReading()) {
        _d->begin = frame;
        return;
    }
    _d->failed.clear();
    _d->moveTo(frame);
}

void OrbStreamCache::seekToFirstFrame()
{
    _d->followStream();
    if (_d->isReading())
        _d->moveTo(_d->firstReadable());
    else
        _d->begin = 0;
}

void OrbStreamCache::seekToLastFrame()
{
    _d->followStream();
    if (_d->isReading())
        _d->moveTo(_d->lastReadable());
    else
        _d->begin = lastFrame;
}

void OrbStreamCache::Private::moveTo(int frame)
{
    order.moveTo(frame);
    failures = 0;
    retryTimer.stop();
    layOut();
    if (framesReady() > 0)
        announce();
}

/// The number of frames when none can be read.
int OrbStreamCache::Private::firstReadable() const
{
    int frame = 0;
    while (frame < order.length() && failed.contains(frame))
        ++frame;
    return frame;
}

/// -1 when none can be read.
int OrbStreamCache::Private::lastReadable() const
{
    int frame = order.length() - 1;
    while (frame >= 0 && failed.contains(frame))
        --frame;
    return frame;
}

void OrbStreamCache::setSpeed(double speed)
{
    _d->followStream();
    if (speed == _d->order.speed())
        return;
    _d->order.setSpeed(speed);
    if (_d->isReading())
        _d->layOut();
}

double OrbStreamCache::speed() const
{
    return _d->order.speed();
}

int OrbStreamCache::position() const
{
    _d->followStream();
    return _d->isWriting() ? _d->written : _d->order.position();
}

bool OrbStreamCache::atStartOfStream() const
{
    _d->followStream();
    return _d->isReading() && _d->order.isBeforeStart();
}

bool OrbStreamCache::atEndOfStream() const
{
    _d->followStream();
    return _d->isReading() && _d->order.isBehindEnd();
}

int OrbStreamCache::framesInCache() const
{
    _d->followStream();
    return _d->isWriting() ? int(_d->waiting.size()) : _d->framesReady();
}

OrbFrame OrbStreamCache::peek() const
{
    _d->followStream();
    return _d->head();
}

OrbFrame OrbStreamCache::read()
{
    _d->followStream();
    const OrbFrame frame = _d->head();
    if (frame.isNull())
        return frame;
    const int number = _d->ahead.front().frame;
    _d->order.advance();
    if (_d->order.isInside() && _d->order.position() == number)
        return frame;
    _d->ahead.pop_front();
    _d->skipFailed();
    _d->extend();
    _d->request();
    return frame;
}

OrbFrame OrbStreamCache::Private::head() const
{
    if (!isReading() || ahead.empty() || !ahead.front().isReady())
        return OrbFrame();
    const Slot &first = ahead.front();
    return failed.isEmpty() ? first.data : marked(first.data, first.frame);
}

OrbFrame OrbStreamCache::Private::marked(OrbFrame frame, int number) const
{
    frame.meta().insert(OrbId(OrbIdFrameNumber), number);
    frame.meta().insert(OrbId(OrbIdStartOfStream), number == firstReadable());
    frame.meta().insert(OrbId(OrbIdEndOfStream), number == lastReadable());
    return frame;
}

/// Frames that can be taken one after the other without waiting.
int OrbStreamCache::Private::framesReady() const
{
    const auto missing = std::ranges::find_if_not(ahead, &Slot::isReady);
    return int(missing - ahead.begin());
}

void OrbStreamCache::Private::skipFailed()
{
    while (order.isInside() && failed.contains(order.position()))
        order.skipFrame();
}

/// The slots that the order wants now, filled from those there were.
void OrbStreamCache::Private::layOut()
{
    std::deque<Slot> old = std::move(ahead);
    ahead.clear();
    skipFailed();
    extend();
    for (Slot &slot : ahead) {
        const auto held = std::ranges::find(old, slot.frame, &Slot::frame);
        if (held != old.end())
            slot = std::move(*held);
    }
    request();
}

/// Adds slots behind the last one while there is room.
void OrbStreamCache::Private::extend()
{
    OrbReadOrder next = order;
    for (size_t held = 0; held < ahead.size() && next.isInside();) {
        held += next.position() == ahead[held].frame ? 1 : 0;
        next.skipFrame();
    }
    for (; int(ahead.size()) < size && next.isInside(); next.skipFrame()) {
        const int frame = next.position();
        if (!failed.contains(frame))
            ahead.push_back({frame, requestOf(frame), OrbFrame()});
    }
}

/// A read under way that was not wanted any more may be wanted again.
quintptr OrbStreamCache::Private::requestOf(int frame) const
{
    return inFlight.key(frame, 0);
}

bool OrbStreamCache::Private::mayRequest() const
{
    if (failures >= failuresInARow)
        return inFlight.isEmpty() && !retryTimer.isActive();
    const auto wanted = std::ranges::count_if(
        ahead, [](const Slot &slot) { return slot.request != 0 && !slot.isReady(); });
    return wanted < readsInFlight && inFlight.size() < readsInFlightAtAll;
}

void OrbStreamCache::Private::request()
{
    while (isReading() && mayRequest()) {
        const auto next = std::ranges::find_if(
            ahead, [](const Slot &slot) { return slot.request == 0 && !slot.isReady(); });
        if (next == ahead.end())
            return;
        next->request = ++lastRequest;
        inFlight.insert(next->request, next->frame);
        stream->read(next->frame, reinterpret_cast<void *>(next->request));
    }
}

void OrbStreamCache::Private::frameRead(const OrbFrame &data, const OrbError &error,
                                        quintptr request)
{
    if (inFlight.remove(request) == 0)
        return;
    const auto slot = std::ranges::find(ahead, request, &Slot::request);
    const bool isGood = !error.isError() && !data.isNull();
    if (isGood)
        failures = 0;
    if (slot == ahead.end()) {
        this->request();
        return;
    }
    if (!isGood) {
        readFailed(slot, error.isError() ? error : OrbError(EIO));
        return;
    }
    const int before = framesReady();
    slot->request = 0;
    slot->data = marked(data, slot->frame);
    this->request();
    if (before < fewFrames && framesReady() > before)
        announce();
}

/// The next frame wanted takes the place of the one that failed.
void OrbStreamCache::Private::readFailed(std::deque<Slot>::iterator slot, const OrbError &error)
{
    const int frame = slot->frame;
    const int before = framesReady();
    if (failed.size() >= maxFramesKnownToFail)
        failed.clear();
    failed.insert(frame);
    ahead.erase(slot);
    skipFailed();
    extend();
    if (++failures >= failuresInARow)
        retryTimer.start();
    request();
    if (!order.isInside() || (before < fewFrames && framesReady() > before))
        announce();
    emit q->error(frame, error);
}

void OrbStreamCache::Private::announce()
{
    if (isReadyPosted)
        return;
    isReadyPosted = true;
    QMetaObject::invokeMethod(
        q,
        [this] {
            isReadyPosted = false;
            emit q->ready();
        },
        Qt::QueuedConnection);
}

// Writing -----------------------------------------------------------------------------------------------

void OrbStreamCache::write(const OrbFrame &frame)
{
    _d->followStream();
    if (!_d->isWriting()) {
        emit error(_d->written, OrbError(EBADF));
        return;
    }
    if (int(_d->waiting.size()) >= maxWaitingToBeWritten) {
        emit error(_d->written, OrbError(ENOBUFS));
        return;
    }
    requestBuffers(frame);
    ++_d->written;
    _d->waiting.push_back(frame);
    _d->passWhileFewPending();
}

void OrbStreamCache::pushCachedToPending(int count)
{
    _d->followStream();
    _d->pass(count);
}

void OrbStreamCache::Private::pass(int count)
{
    for (; count > 0 && isWriting() && !waiting.empty(); --count) {
        const OrbFrame frame = std::move(waiting.front());
        waiting.pop_front();
        stream->write(frame);
    }
}

void OrbStreamCache::Private::passWhileFewPending()
{
    while (isWriting() && !waiting.empty() && stream->pending() < writesInFlight)
        pass(1);
}
