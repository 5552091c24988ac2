#include "liborb/orbbuffer.h"

#include <QSharedData>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace {

enum class State {
    Empty,    ///< no memory and none to come
    Promised, ///< bytes on request
    Started,  ///< the promise is at work
    Ready,
    Failed,
};

/// Aligned memory; null for an alignment that is no power of two and when there is not enough.
uchar *allocate(quint32 size, quint32 alignment)
{
    if (size == 0 || (alignment & (alignment - 1)) != 0)
        return nullptr;
    const size_t atLeast = std::max<size_t>(alignment, alignof(std::max_align_t));
    void *memory = nullptr;
    if (posix_memalign(&memory, atLeast, size) != 0)
        return nullptr;
    return static_cast<uchar *>(memory);
}

} // namespace

class OrbBufferData : public QSharedData
{
public:
    OrbBufferData() = default;
    OrbBufferData(const OrbBufferData &) = delete;
    OrbBufferData &operator=(const OrbBufferData &) = delete;
    ~OrbBufferData()
    {
        promise.reset();
        if (release)
            release();
        if (hook)
            hook();
    }

    std::mutex mutex;
    std::condition_variable settled;
    State state = State::Empty;
    uchar *bytes = nullptr;
    quint32 size = 0;
    std::function<void()> release;
    std::function<void()> hook;
    std::shared_ptr<OrbBufferPromise> promise;
};

OrbBuffer::OrbBuffer() = default;
OrbBuffer::OrbBuffer(const OrbBuffer &) = default;
OrbBuffer &OrbBuffer::operator=(const OrbBuffer &) = default;
OrbBuffer::~OrbBuffer() = default;

OrbBuffer::OrbBuffer(quint32 size, quint32 alignment) : _d(new OrbBufferData)
{
    uchar *bytes = allocate(size, alignment);
    if (bytes == nullptr)
        return;
    _d->bytes = bytes;
    _d->size = size;
    _d->release = [bytes] { std::free(bytes); };
    _d->state = State::Ready;
}

OrbBuffer::OrbBuffer(std::shared_ptr<OrbBufferPromise> promise) : _d(new OrbBufferData)
{
    if (!promise)
        return;
    _d->promise = std::move(promise);
    _d->state = State::Promised;
}

bool OrbBuffer::isValid() const
{
    if (!_d)
        return false;
    const std::lock_guard lock(_d->mutex);
    return _d->state != State::Empty && _d->state != State::Failed;
}

bool OrbBuffer::isReady() const
{
    if (!_d)
        return false;
    const std::lock_guard lock(_d->mutex);
    return _d->state == State::Ready;
}

quint32 OrbBuffer::size() const
{
    if (!_d)
        return 0;
    const std::lock_guard lock(_d->mutex);
    return _d->size;
}

uchar *OrbBuffer::data()
{
    return const_cast<uchar *>(std::as_const(*this).data());
}

const uchar *OrbBuffer::data() const
{
    if (!_d)
        return nullptr;
    const std::lock_guard lock(_d->mutex);
    return _d->bytes;
}

void OrbBuffer::truncate(quint32 size)
{
    if (!_d)
        return;
    const std::lock_guard lock(_d->mutex);
    _d->size = std::min(_d->size, size);
}

void OrbBuffer::request() const
{
    if (!_d)
        return;
    std::shared_ptr<OrbBufferPromise> promise;
    {
        const std::lock_guard lock(_d->mutex);
        if (_d->state != State::Promised)
            return;
        _d->state = State::Started;
        promise = _d->promise;
    }
    // Outside the lock: the work may end at once, on this very thread.
    promise->start(*this);
}

bool OrbBuffer::wait() const
{
    if (!_d)
        return false;
    request();
    std::unique_lock lock(_d->mutex);
    _d->settled.wait(lock, [this] {
        return _d->state != State::Promised && _d->state != State::Started;
    });
    return _d->state == State::Ready;
}

void OrbBuffer::fulfil(uchar *bytes, quint32 size, std::function<void()> release) const
{
    std::shared_ptr<OrbBufferPromise> kept; // goes after the lock, for it may hold this buffer
    bool accepted = false;
    if (_d) {
        const std::lock_guard lock(_d->mutex);
        accepted = bytes != nullptr
                   && (_d->state == State::Promised || _d->state == State::Started);
        if (accepted) {
            kept.swap(_d->promise);
            _d->bytes = bytes;
            _d->size = size;
            _d->release = std::move(release);
            _d->state = State::Ready;
            _d->settled.notify_all();
        }
    }
    if (accepted)
        return;
    if (bytes == nullptr)
        fail();
    if (release) // nobody will ever see these bytes
        release();
}

void OrbBuffer::fail() const
{
    if (!_d)
        return;
    std::shared_ptr<OrbBufferPromise> broken;
    const std::lock_guard lock(_d->mutex);
    if (_d->state != State::Promised && _d->state != State::Started)
        return;
    broken.swap(_d->promise);
    _d->state = State::Failed;
    _d->settled.notify_all();
}

void OrbBuffer::setReleaseHook(std::function<void()> hook)
{
    if (!_d) // a buffer without memory is counted like any other
        _d = new OrbBufferData;
    const std::lock_guard lock(_d->mutex);
    _d->hook = std::move(hook);
}

bool OrbBuffer::operator==(const OrbBuffer &other) const
{
    return _d == other._d;
}
