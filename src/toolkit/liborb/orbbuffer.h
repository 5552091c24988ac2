#pragma once

#include <QExplicitlySharedDataPointer>
#include <QtGlobal>

#include <functional>
#include <memory>

class OrbBufferData;
class OrbBuffer;

/// Work that fills a buffer when somebody wants its bytes, such as coding a captured picture.
/// Destroyed unstarted when nobody does.
class OrbBufferPromise
{
public:
    virtual ~OrbBufferPromise() = default;
    /// Starts the work and returns at once; it ends with buffer.fulfil() or buffer.fail(), on any
    /// thread. Called at most once. The promise lives until then.
    virtual void start(const OrbBuffer &buffer) = 0;
};

/// A block of memory, explicitly shared: every copy sees every write. A buffer may be a promise whose
/// bytes come later, on request; that is how a frame that nobody records costs no coding.
/// request(), fulfil(), fail() and wait() may be called from any thread.
class OrbBuffer
{
public:
    OrbBuffer();
    /// \a size bytes aligned to \a alignment (a power of two; 0 for any). Invalid when there is no memory.
    OrbBuffer(quint32 size, quint32 alignment);
    explicit OrbBuffer(std::shared_ptr<OrbBufferPromise> promise);
    OrbBuffer(const OrbBuffer &);
    OrbBuffer &operator=(const OrbBuffer &);
    ~OrbBuffer();

    /// Memory was obtained, or is promised and the promise has not failed.
    bool isValid() const;
    /// The bytes are there.
    bool isReady() const;
    quint32 size() const;         ///< bytes; 0 until the buffer is ready
    uchar *data();                ///< null until the buffer is ready
    const uchar *data() const;
    /// Makes the buffer shorter without moving it (a longer size is ignored).
    void truncate(quint32 size);

    /// Starts a promise; nothing for an ordinary, started or finished buffer.
    void request() const;
    /// Waits until a promise is kept; starts it if need be. False when it failed. Never on the event loop.
    bool wait() const;
    /// Ends a promise with \a size bytes at \a bytes; \a release is called when the last copy goes.
    void fulfil(uchar *bytes, quint32 size, std::function<void()> release) const;
    void fail() const;
    /// Called when the last copy of the buffer goes: how a device counts the frames still in use.
    void setReleaseHook(std::function<void()> hook);

    /// The same memory.
    bool operator==(const OrbBuffer &other) const;

private:
    QExplicitlySharedDataPointer<OrbBufferData> _d;
};
