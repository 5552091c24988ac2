#pragma once

#include "liborb/drivers/clip/clipsink.h"
#include "liborb/drivers/clip/ioworker.h"

#include <QString>

#include <chrono>
#include <memory>

/// What one clip of a recording tells its driver. On the event-loop thread.
class ClipLegHost
{
public:
    virtual ~ClipLegHost() = default;
    virtual void legOpened(const OrbError &error) = 0;
    /// One answer a frame, in order; \a number counts the frames of the stream.
    virtual void legTook(qint64 number, const OrbError &error) = 0;
    virtual void legFlushed() = 0;
    virtual void legCommitted() = 0;
    /// The medium failed; comes before the answers of the frames that it did not take.
    virtual void legFailed(const OrbError &error) = 0;
    virtual void legClosed(const OrbError &error) = 0;
};

/// One clip of a recording: a part of the frames of one stream, on one medium, written by one I/O
/// thread. All calls on the event-loop thread; none waits but the destructor.
class ClipLeg
{
public:
    /// \a first is the number in the stream of the clip's first frame.
    ClipLeg(ClipLegHost *host, const QString &path, qint64 first);
    /// Nothing is told any more. Waits at most as long as patience says, then leaves what is still
    /// to be written to the thread.
    ~ClipLeg();

    void open(const OrbStreamInfo &info);
    void write(const OrbFrame &frame);
    /// In the place of a frame: answered in its turn, with \a error.
    void refuse(const OrbError &error);
    void flush();
    void close();
    /// Nothing is told any more, frames that wait are dropped, and the clip is closed as far as its
    /// medium lets it be.
    void abandon();
    void setPatience(std::chrono::milliseconds patience) { _patience = patience; }

    QString path() const { return _path; }
    /// The number in the stream of the first frame that a loss of power would take.
    qint64 firstUncommitted() const { return _first + _sink->framesCommitted(); }
    /// How long the medium has not answered; zero when nobody asks it.
    std::chrono::milliseconds waitingForMedium() const { return _sink->waitingForMedium(); }
    /// Grows as long as the medium answers.
    quint64 jobsDone() const { return _worker.jobsDone(); }
    /// All that was asked is done.
    bool isOver() const { return _worker.isOver(); }

private:
    class Frames;
    void answerTaken(const OrbError &error);

    ClipLegHost *_host;
    QString _path;
    qint64 _first;
    qint64 _answered = 0;
    AnswerBox _answers;
    std::shared_ptr<Frames> _frames;  ///< for the worker; dropped from here when the worker hangs
    std::shared_ptr<ClipSink> _sink;  ///< used and destroyed on the worker's thread
    IoWorker _worker;
    std::chrono::milliseconds _patience{2000};
};
