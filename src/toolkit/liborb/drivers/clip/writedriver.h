#pragma once

#include "liborb/drivers/clip/ioworker.h"
#include "liborb/ifaces/mediadriver.h"

#include <QTimer>

#include <memory>

class ClipSink;

/// Writes a clip file on an I/O thread of its own. close() is answered when all is written; on a
/// medium that has not moved for a long time what is left is given up with ETIMEDOUT. When frames are
/// lost that were answered as written, the log has their number, and before the close is answered the
/// first of them is answered again, with the error.
class WriteDriver
{
public:
    explicit WriteDriver(OrbMediaDriverHost *host);
    /// Waits briefly for what is still to be written, then leaves it to the thread.
    ~WriteDriver();

    void open(const QString &path, const OrbStreamInfo &info);
    void write(const OrbFrame &frame);
    void flush();
    void close();

private:
    void answerOpen(const OrbError &error, const OrbStreamInfo &info);
    void answerWrite(const OrbError &error);
    void answerFlush();
    /// The last frames of a clip, which it does not have after an error.
    struct Lost
    {
        qint64 first = 0;
        qint64 count = 0;
    };
    void logLost(const OrbError &error, const Lost &lost);
    void checkProgress();
    void answerClose(const OrbError &error, const Lost &lost);

    OrbMediaDriverHost *_host;
    std::shared_ptr<ClipSink> _sink; ///< used and destroyed on the worker's thread
    AnswerBox _answers;
    IoWorker _worker;
    int _accepted = 0;
    int _answered = 0;
    bool _isFlushing = false;
    bool _isClosing = false;
    bool _isLossLogged = false;
    QTimer _progressTimer;
    quint64 _jobsDone = 0;
    int _secondsStill = 0;
};
