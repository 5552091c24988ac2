#include "liborb/drivers/clip/writedriver.h"

#include "liborb/drivers/clip/clipsink.h"
#include "liborb/orblog.h"

#include <cerrno>
#include <utility>

namespace {

constexpr const char *logFile = "writedriver.cpp";
constexpr int maxWaiting = 2048; ///< frames; the device has far fewer
constexpr int secondsStillAtClose = 30;
constexpr std::chrono::seconds patienceAtEnd(2);

} // namespace

WriteDriver::WriteDriver(OrbMediaDriverHost *host)
    : _host(host), _sink(std::make_shared<ClipSink>())
{
    _progressTimer.setTimerType(Qt::PreciseTimer);
    _progressTimer.setInterval(std::chrono::seconds(1));
    QObject::connect(&_progressTimer, &QTimer::timeout, [this] { checkProgress(); });
}

WriteDriver::~WriteDriver()
{
    _answers.close();
    _worker.post([sink = std::move(_sink)] { });
    const bool isGivenUp = _secondsStill >= secondsStillAtClose;
    _worker.finish(isGivenUp ? std::chrono::seconds(0) : patienceAtEnd);
}

void WriteDriver::open(const QString &path, const OrbStreamInfo &info)
{
    if (!_worker.start()) {
        _answers.post([this] { answerOpen(OrbError(EAGAIN), OrbStreamInfo()); });
        return;
    }
    _worker.post([this, path, info, sink = _sink, answers = _answers] {
        const OrbError error = sink->open(path, info);
        answers.post([this, error, info] { answerOpen(error, info); });
    });
}

void WriteDriver::answerOpen(const OrbError &error, const OrbStreamInfo &info)
{
    if (!_isClosing)
        _host->driverOpened(error, info);
}

void WriteDriver::write(const OrbFrame &frame)
{
    const bool isTooMuch = _accepted - _answered >= maxWaiting;
    ++_accepted;
    if (isTooMuch) {
        _worker.post([this, answers = _answers] {
            answers.post([this] { answerWrite(OrbError(ENOBUFS)); });
        });
        return;
    }
    _worker.post([this, frame, sink = _sink, answers = _answers] {
        const OrbError error = sink->write(frame);
        const Lost lost{sink->framesTaken() - sink->framesLost(), sink->framesLost()};
        answers.post([this, error, lost] {
            answerWrite(error);
            logLost(error, lost);
        });
    });
}

void WriteDriver::answerWrite(const OrbError &error)
{
    _host->driverFrameWritten(_answered++, error);
}

/// One at a time: a medium that is slow to sync is not asked again before it has.
void WriteDriver::flush()
{
    if (std::exchange(_isFlushing, true))
        return;
    _worker.post([this, sink = _sink, answers = _answers] {
        (void)sink->flush();
        answers.post([this] { answerFlush(); });
    });
}

void WriteDriver::answerFlush()
{
    _isFlushing = false;
}

void WriteDriver::close()
{
    if (std::exchange(_isClosing, true))
        return;
    _worker.post([this, sink = _sink, answers = _answers] {
        const OrbError error = sink->close();
        const Lost lost{sink->framesTaken() - sink->framesLost(), sink->framesLost()};
        answers.post([this, error, lost] { answerClose(error, lost); });
    });
    _progressTimer.start();
}

void WriteDriver::checkProgress()
{
    const quint64 done = _worker.jobsDone();
    _secondsStill = done == _jobsDone ? _secondsStill + 1 : 0;
    _jobsDone = done;
    if (_secondsStill < secondsStillAtClose)
        return;
    while (_answered < _accepted)
        answerWrite(OrbError(ETIMEDOUT));
    answerClose(OrbError(ETIMEDOUT), {});
}

/// The log has the loss as soon as it is known, and once.
void WriteDriver::logLost(const OrbError &error, const Lost &lost)
{
    if (!error.isError() || lost.count == 0 || std::exchange(_isLossLogged, true))
        return;
    orbLogOutput(1, logFile, __LINE__, "Clip has lost %lld frames from frame %lld on: error %d\n",
                 static_cast<long long>(lost.count), static_cast<long long>(lost.first), error.value());
}

/// All frames are answered by now. The first of those that are lost although they were answered as
/// written is answered once more.
void WriteDriver::answerClose(const OrbError &error, const Lost &lost)
{
    if (!_progressTimer.isActive())
        return;
    _progressTimer.stop();
    if (error.isError())
        orbLogOutput(1, logFile, __LINE__, "Clip was not completed: error %d\n", error.value());
    logLost(error, lost);
    if (error.isError() && lost.count > 0)
        _host->driverFrameWritten(int(lost.first), error);
    _host->driverClosed();
}
