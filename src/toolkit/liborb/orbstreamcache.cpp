// The cache follows its stream: reading, it hands OrbReadAhead's questions on and takes the
// answers; writing, frames go to the stream while it has few pending and queue here otherwise.

#include "liborb/orbstreamcache.h"

#include "liborb/orbreadahead.h"
#include "liborb/orbstream.h"

#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <optional>

namespace {

constexpr int writesInFlight = 8;
constexpr int maxWaitingToBeWritten = 1024;

/// While reads fail one after the other: no more tries than frames would be played.
constexpr int triesApartMs = 40;

constexpr int lastFrame = std::numeric_limits<int>::max(); ///< to begin at

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
    explicit Private(OrbStreamCache *cache)
        : q(cache), ahead([this](int frame, quintptr number) {
              stream->read(frame, reinterpret_cast<void *>(number));
          })
    {
    }

    OrbStreamCache *q;
    QPointer<OrbStream> stream;
    quint64 openSerial = 0; ///< of the open that the contents belong to, 0 when not open
    std::optional<int> begin; ///< sought before the stream was open
    bool isReadyPosted = false;

    OrbReadAhead ahead;
    QTimer retryTimer;

    std::deque<OrbFrame> waiting; ///< to be written
    int written = 0;

    bool isReading() const { return openSerial != 0 && stream->isReadable(); }
    bool isWriting() const { return openSerial != 0 && stream->isWritable(); }
    void followStream();
    void empty();
    void forgetBegin();
    void moveTo(int frame);
    void frameRead(int frame, const OrbFrame &data, const OrbError &error, quintptr number);
    void announce();
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
        _d->ahead.askAgain();
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
    connect(stream, &OrbStream::lengthChanged, this, [this](int frames) {
        _d->followStream();
        _d->ahead.grow(frames);
    });
    connect(stream, &OrbStream::aboutToClose, this, [this] {
        pushCachedToPending(std::numeric_limits<int>::max());
        _d->begin.reset();
    });
    connect(stream, &OrbStream::readIsDone, this,
            [this](int frame, const OrbFrame &data, const OrbError &outcome, void *context) {
                _d->followStream();
                _d->frameRead(frame, data, outcome, reinterpret_cast<quintptr>(context));
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
    _d->ahead.setSize(frames);
}

/// Every call begins here: the stream may have been opened or closed since the last one, and
/// whoever heard of it first may already ask.
void OrbStreamCache::Private::followStream()
{
    const quint64 serial = stream && stream->isOpen() ? stream->openSerial() : 0;
    if (serial == openSerial)
        return;
    openSerial = serial;
    empty();
    if (!isReading())
        return;
    ahead.reset(stream->info().length());
    const int start = begin.value_or(0);
    moveTo(start == lastFrame ? ahead.lastReadable() : start);
    begin.reset();
}

void OrbStreamCache::Private::empty()
{
    ahead.reset(0);
    retryTimer.stop();
    waiting.clear();
    written = 0;
}

/// An open that failed, or was for writing, took no notice of where reading was to begin.
void OrbStreamCache::Private::forgetBegin()
{
    if (!stream || !stream->isOpening())
        begin.reset();
}

// Reading ---------------------------------------------------------------------------------------

void OrbStreamCache::seek(int frame)
{
    _d->followStream();
    if (!_d->isReading()) {
        _d->begin = frame;
        return;
    }
    _d->ahead.forgetFailures();
    _d->moveTo(frame);
}

void OrbStreamCache::seekToFirstFrame()
{
    _d->followStream();
    if (_d->isReading())
        _d->moveTo(_d->ahead.firstReadable());
    else
        _d->begin = 0;
}

void OrbStreamCache::seekToLastFrame()
{
    _d->followStream();
    if (_d->isReading())
        _d->moveTo(_d->ahead.lastReadable());
    else
        _d->begin = lastFrame;
}

void OrbStreamCache::Private::moveTo(int frame)
{
    retryTimer.stop();
    ahead.moveTo(frame);
    if (ahead.framesReady() > 0)
        announce();
}

void OrbStreamCache::setSpeed(double speed)
{
    _d->followStream();
    if (speed != _d->ahead.order().speed())
        _d->ahead.setSpeed(speed);
}

double OrbStreamCache::speed() const
{
    return _d->ahead.order().speed();
}

int OrbStreamCache::position() const
{
    _d->followStream();
    return _d->isWriting() ? _d->written : _d->ahead.order().position();
}

bool OrbStreamCache::atStartOfStream() const
{
    _d->followStream();
    return _d->isReading() && _d->ahead.order().isBeforeStart();
}

bool OrbStreamCache::atEndOfStream() const
{
    _d->followStream();
    return _d->isReading() && _d->ahead.order().isBehindEnd();
}

int OrbStreamCache::framesInCache() const
{
    _d->followStream();
    return _d->isWriting() ? int(_d->waiting.size()) : _d->ahead.framesReady();
}

OrbFrame OrbStreamCache::peek() const
{
    _d->followStream();
    return _d->ahead.peek();
}

OrbFrame OrbStreamCache::read()
{
    _d->followStream();
    return _d->ahead.take();
}

void OrbStreamCache::Private::frameRead(int frame, const OrbFrame &data, const OrbError &error,
                                        quintptr number)
{
    const OrbReadAhead::News news = ahead.answer(number, error.isError() ? OrbFrame() : data);
    if (news.areFramesThere)
        announce();
    if (ahead.isFailing() && !retryTimer.isActive())
        retryTimer.start();
    if (news.failedFrame)
        emit q->error(frame, error.isError() ? error : OrbError(EIO));
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

// Writing ---------------------------------------------------------------------------------------

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
