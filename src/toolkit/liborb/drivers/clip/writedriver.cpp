#include "liborb/drivers/clip/writedriver.h"

#include "liborb/drivers/clip/clipsink.h"
#include "liborb/orblog.h"

#include <cerrno>
#include <utility>

namespace {

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
        answers.post([this, error] { answerWrite(error); });
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
        answers.post([this, error] { answerClose(error); });
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
    answerClose(OrbError(ETIMEDOUT));
}

/// The frames are answered by now, so what the end of a clip lost can only be told to the log.
void WriteDriver::answerClose(const OrbError &error)
{
    if (!_progressTimer.isActive())
        return;
    _progressTimer.stop();
    if (error.isError())
        orbLogOutput(1, "writedriver.cpp", __LINE__, "Clip was not completed: error %d\n",
                     error.value());
    _host->driverClosed();
}
