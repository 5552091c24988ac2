#pragma once

#include "liborb/orberror.h"
#include "liborb/orbframe.h"

#include <QObject>

#include <deque>
#include <memory>

class OrbStream;

/// Frames between a stream and the engine. On a stream open for reading it reads ahead from its
/// position, at the speed and in the direction set; on one open for writing it queues frames for
/// writing. Every frame handed out carries its number (1), whether it is the first (9) or last (10)
/// of the stream. A frame that cannot be read is reported once by error() and left out; the first
/// and the last frame are then the first and last that can be read. When many in a row fail, no
/// more are tried than would be played in the same time. A stream that grows is read on where it
/// ended. All calls and signals on the event-loop thread.
class OrbStreamCache : public QObject
{
    Q_OBJECT
public:
    explicit OrbStreamCache(QObject *parent = nullptr);
    ~OrbStreamCache() override;

    void setStream(OrbStream *stream);
    void setCacheSize(int frames);

    // Reading
    /// Refills from \a frame; ready() when frames are there. A frame before the start or behind the
    /// end puts the cache at that end, empty: atStartOfStream() or atEndOfStream() then hold. On a
    /// stream that is not open for reading yet it is where reading begins when it is. Frames that
    /// failed are tried anew.
    void seek(int frame);
    void seekToFirstFrame();
    void seekToLastFrame();
    /// Frames to move on with every read(): 1.0 forward, negative backward, 0.0 as 1.0 without
    /// moving on. A change keeps the frames read ahead that the new order still wants.
    void setSpeed(double speed);
    double speed() const;
    /// Of the next frame, truncated toward zero; when writing, the frames written since the open.
    int position() const;
    OrbFrame read();             ///< takes the next frame; a null frame when the cache is empty
    OrbFrame peek() const;       ///< the next frame without taking it
    int framesInCache() const;   ///< frames ready to be taken, or waiting to be written
    bool atStartOfStream() const; ///< moved backward past the first frame
    bool atEndOfStream() const;   ///< moved forward past the last frame

    // Writing
    /// Has the frame's promised buffers filled and passes it on when the stream has few pending,
    /// else keeps it in order. error() with EBADF when the stream is not open for writing, ENOBUFS
    /// when too many frames wait; the frame is dropped then. Frames that wait when the stream is
    /// closed are written.
    void write(const OrbFrame &frame);
    /// Hands up to \a count waiting frames to the stream whatever it has pending already.
    void pushCachedToPending(int count);

signals:
    /// Frames came where none or few were; at most once a turn of the event loop.
    void ready();
    void error(int frame, const OrbError &error);

private:
    struct Private;
    std::unique_ptr<Private> _d;
};
