// A recording may have several legs, each one a clip on a medium of its own. Frames are kept until
// the leg has committed them; when its medium fails, the next leg begins with those that are left.
// What is told to the host is one stream: each frame is answered once, whichever leg took it.
//
// How long a medium may hang follows from what the device can keep: six seconds of captured frames.
// A frame is committed within 1.3 s of its capture, a hang is known after 3.4 s more, and the next
// medium needs a moment to take the frames that wait.

#include "liborb/drivers/clip/writedriver.h"

#include "liborb/orblog.h"

#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

using std::chrono::milliseconds;

constexpr const char *logFile = "writedriver.cpp";
constexpr int maxWaiting = 2048; ///< frames; the device has far fewer
/// Frames that wait to be committed on a medium that answers, but not fast enough.
constexpr double mostSecondsHeld = 5.0;
constexpr milliseconds stillAtClose(30'000);
constexpr int mostNamesTried = 20;

} // namespace

WriteDriver::WriteDriver(OrbMediaDriverHost *host, const Patience &patience)
    : _host(host), _patience(patience)
{
    _watchTimer.setTimerType(Qt::PreciseTimer);
    _watchTimer.setInterval(_patience.tick);
    QObject::connect(&_watchTimer, &QTimer::timeout, [this] { watch(); });
}

WriteDriver::~WriteDriver()
{
    if (_leg && _ticksStill * _patience.tick >= stillAtClose)
        _leg->setPatience(milliseconds(0));
    for (const auto &leg : _retired) {
        if (leg->waitingForMedium() >= _patience.mayHangAfter)
            leg->setPatience(milliseconds(0));
    }
}

void WriteDriver::open(const QString &path, const OrbStreamInfo &info)
{
    _info = info;
    begin(path);
    _watchTimer.start();
}

void WriteDriver::begin(const QString &path)
{
    ClipLegHost *self = this;
    _leg = std::make_unique<ClipLeg>(self, path, _firstHeld);
    _isFlushing = false;
    _ticksOfLeg = 0;
    _tickOfNextAsking = 0;
    _leg->open(_info);
    for (const OrbFrame &frame : _held)
        _leg->write(frame);
    _closesAsked = 0;
    if (_isClosing)
        closeLeg();
}

void WriteDriver::closeLeg()
{
    ++_closesAsked;
    _leg->close();
}

void WriteDriver::legOpened(const OrbError &error)
{
    if (_failedPath.isEmpty()) {
        if (!_isClosing)
            _host->driverOpened(error, error.isError() ? OrbStreamInfo() : _info);
        return;
    }
    if (error.isError()) {
        legFailed(error);
        return;
    }
    orbLogOutput(2, logFile, __LINE__, "Going on in %s from frame %d on: error %d of %s\n",
                 qUtf8Printable(_leg->path()), _firstHeld, _failure.value(), qUtf8Printable(_failedPath));
    const QString from = std::exchange(_failedPath, QString());
    tellSlow(false);
    _host->driverWentOver(from, _leg->path(), _failure);
}

void WriteDriver::write(const OrbFrame &frame)
{
    const bool isTooMuch = _accepted - _answered >= maxWaiting;
    ++_accepted;
    if (isTooMuch) {
        _isOver = true;
        _leg->refuse(OrbError(ENOBUFS));
        return;
    }
    if (!_isOver)
        _held.push_back(frame);
    _leg->write(frame);
}

/// A later leg takes frames that were answered before.
void WriteDriver::legTook(qint64 number, const OrbError &error)
{
    if (number < _answered)
        return;
    // Frames behind one that cannot be written are not waited for.
    if (error.isError()) {
        _isFrameAtFault = _isFrameAtFault || !_isGivingUp;
        _isOver = true;
        _held.clear();
    } else {
        ++_taken;
    }
    _host->driverFrameWritten(_answered++, error);
}

void WriteDriver::legCommitted()
{
    releaseCommitted();
}

void WriteDriver::releaseCommitted()
{
    const qint64 first = _leg->firstUncommitted();
    for (; _firstHeld < first; ++_firstHeld) {
        if (!_held.empty())
            _held.pop_front();
    }
}

/// One at a time: a medium that is slow to sync is not asked again before it has.
void WriteDriver::flush()
{
    if (!std::exchange(_isFlushing, true))
        _leg->flush();
}

void WriteDriver::legFlushed()
{
    _isFlushing = false;
}

void WriteDriver::close()
{
    if (std::exchange(_isClosing, true))
        return;
    _ticksStill = 0;
    closeLeg();
}

void WriteDriver::legClosed(const OrbError &error)
{
    --_closesAsked;
    releaseCommitted();
    const bool hasLost = error.isError() && framesLost() > 0;
    if (!_isOver && !_isGivingUp && hasLost && goOver(error))
        return;
    if (!_isFrameAtFault && (error.isError() || _isGivingUp))
        tellFailed(error.isError() ? error : _failure);
    if (_isClosing && _closesAsked == 0)
        answerClose(error);
}

/// All frames are answered by now. The first of those that are lost although they were answered as
/// written is answered once more.
void WriteDriver::answerClose(const OrbError &error)
{
    if (std::exchange(_isClosed, true))
        return;
    _watchTimer.stop();
    tellSlow(false);
    if (error.isError())
        orbLogOutput(1, logFile, __LINE__, "Clip was not completed: error %d\n", error.value());
    const auto first = int(_leg->firstUncommitted());
    if (error.isError() && first < _taken)
        _host->driverFrameWritten(first, error);
    _host->driverClosed();
}

// A medium that fails -----------------------------------------------------------------------------

void WriteDriver::legFailed(const OrbError &error)
{
    if (!_isOver && !_isGivingUp && !goOver(error))
        giveUp(error);
}

bool WriteDriver::goOver(const OrbError &error)
{
    const QString spare = findSpare(error);
    if (spare.isEmpty())
        return false;
    _namesTried = error == OrbError(EEXIST) ? _namesTried + 1 : 0;
    if (_failedPath.isEmpty()) {
        _failedPath = _leg->path();
        _failure = error;
    }
    retire();
    begin(spare);
    return true;
}

/// A name that is taken is no failure of its medium: the next one is asked for.
QString WriteDriver::findSpare(const OrbError &error)
{
    const QString failed = _leg->path();
    const bool isNameTaken =
        !_failedPath.isEmpty() && error == OrbError(EEXIST) && _namesTried < mostNamesTried;
    if (!isNameTaken)
        _failedFolders.insert(QFileInfo(failed).path());
    const QString spare = _host->driverSpareDesc(failed, error).toString();
    const bool isNew = !spare.isEmpty() && !_failedFolders.contains(QFileInfo(spare).path());
    return isNew ? spare : QString();
}

/// What the leg has committed stays; the rest is the next one's.
void WriteDriver::retire()
{
    releaseCommitted();
    if (_leg->waitingForMedium() >= _patience.mayHangAfter) {
        _leg->setPatience(milliseconds(0));
        _leg->abandon();
        _leg.reset();
        orbLogOutput(1, logFile, __LINE__, "%d threads hang in media that do not answer\n",
                     IoWorker::leftBehind());
        return;
    }
    _leg->abandon();
    _retired.push_back(std::move(_leg));
}

/// The clip is closed as far as its medium lets it be, which tells what is lost.
void WriteDriver::giveUp(const OrbError &error)
{
    _isGivingUp = true;
    _failure = error;
    if (!_isClosing)
        closeLeg();
}

int WriteDriver::framesLost() const
{
    return std::max(_accepted - int(_leg->firstUncommitted()), 0);
}

/// Once, and as soon as it is known how much is lost.
void WriteDriver::tellFailed(const OrbError &error)
{
    if (std::exchange(_isLossTold, true))
        return;
    const int lost = framesLost();
    if (lost > 0) {
        orbLogOutput(1, logFile, __LINE__, "Clip has lost %d frames from frame %d on: error %d\n", lost,
                     _accepted - lost, error.value());
    }
    _isOver = true;
    _held.clear();
    const QString failed = _failedPath.isEmpty() ? _leg->path() : _failedPath;
    _host->driverMediumFailed(failed, error, lost);
}

// A medium that does not answer -------------------------------------------------------------------

void WriteDriver::watch()
{
    std::erase_if(_retired, [](const auto &leg) { return leg->isOver(); });
    watchMedium();
    if (_isClosing && !_isClosed)
        watchClose();
}

void WriteDriver::watchMedium()
{
    const milliseconds waiting = _held.empty() ? milliseconds(0) : _leg->waitingForMedium();
    watchSpeed(waiting);
    ++_ticksOfLeg;
    if (_isOver || _isGivingUp || _ticksOfLeg < _tickOfNextAsking)
        return;
    if (waiting < _patience.hangsAfter && !isTooSlow())
        return;
    // It may come back, or another one come.
    if (!goOver(OrbError(ETIMEDOUT)))
        _tickOfNextAsking = _ticksOfLeg + int(_patience.toCatchUp / _patience.tick);
}

/// A medium that is slow now and then is one warning, not many.
void WriteDriver::watchSpeed(milliseconds waiting)
{
    if (waiting >= _patience.slowAfter) {
        _ticksQuick = 0;
        tellSlow(true);
    } else if (_isSlow && ++_ticksQuick * _patience.tick >= _patience.quickAfter) {
        tellSlow(false);
    }
}

bool WriteDriver::isTooSlow() const
{
    if (_ticksOfLeg * _patience.tick < _patience.toCatchUp || _info.vids().isEmpty())
        return false;
    return double(_held.size()) > mostSecondsHeld * _info.vids().first().frameRate().toDouble();
}

void WriteDriver::tellSlow(bool isSlow)
{
    if (std::exchange(_isSlow, isSlow) != isSlow)
        _host->driverMediumSlow(isSlow);
}

void WriteDriver::watchClose()
{
    const quint64 done = _leg->jobsDone();
    _ticksStill = done == _jobsDone ? _ticksStill + 1 : 0;
    _jobsDone = done;
    if (_ticksStill * _patience.tick < stillAtClose)
        return;
    const OrbError error(ETIMEDOUT);
    tellFailed(error);
    while (_answered < _accepted)
        _host->driverFrameWritten(_answered++, error);
    answerClose(error);
}
