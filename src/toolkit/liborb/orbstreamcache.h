#pragma once

#include "liborb/orberror.h"
#include "liborb/orbframe.h"

#include <QObject>

#include <deque>
#include <memory>

class OrbStream;

/// Frames between a stream and the engine. On a stream open for reading it reads ahead from its position,
/// at the speed and in the direction set; on one open for writing it queues frames for writing.
/// Every frame handed out carries its number (1), whether it is the first (9) or last (10) of the stream.
/// All calls and signals on the event-loop thread.
class OrbStreamCache : public QObject
{
    Q_OBJECT
public:
    explicit OrbStreamCache(QObject *parent = nullptr);
    ~OrbStreamCache() override;

    void setStream(OrbStream *stream);
    void setCacheSize(int frames);

    // Reading
    /// Refills from \a frame; ready() when frames are there. A frame before the start or behind the end puts
    /// the cache at that end, empty: atStartOfStream() or atEndOfStream() then hold.
    void seek(int frame);
    void seekToFirstFrame();
    void seekToLastFrame();
    /// Frames to move on with every read(): 1.0 forward, negative backward, 0.0 as 1.0 without moving on.
    /// A change keeps the frames read ahead that the new order still wants.
    void setSpeed(double speed);
    double speed() const;
    int position() const;        ///< of the next frame, truncated toward zero; frames written when writing
    OrbFrame read();             ///< takes the next frame; a null frame when the cache is empty
    OrbFrame peek() const;       ///< the next frame without taking it
    int framesInCache() const;   ///< frames ready to be taken, or waiting to be written
    bool atStartOfStream() const; ///< moved backward past the first frame
    bool atEndOfStream() const;   ///< moved forward past the last frame

    // Writing
    void write(const OrbFrame &frame);
    /// Hands up to \a count waiting frames to the stream whatever it has pending already.
    void pushCachedToPending(int count);

signals:
    void ready();
    void error(int frame, const OrbError &error);

private:
    struct Private;
    std::unique_ptr<Private> _d;
};
