#include "media/mediamanager.h"

#include "liborb/orblog.h"
#include "media/freespace.h"

#include <QTimerEvent>

namespace {

constexpr const char *logFile = "mediamanager.cpp";
constexpr int checkPeriodMs = 500;

enum Inhibit {
    RolloverPossible = 0,
    NotEnabled = 1,
    InProgress = 2,
    NotMeasured = 3,
    NoPath = 4,
    NotMounted = 5,
    NotEnoughRoom = 6
};

} // namespace

MediaManager::MediaManager(QObject *parent) : QObject(parent)
{
    _timerId = startTimer(checkPeriodMs, Qt::PreciseTimer);
}

bool MediaManager::getPathInfo(const QString &path, PathInfo &info)
{
    if (path.isEmpty())
        return false;
    FileSystemUse root;
    FileSystemUse medium;
    if (!queryFileSystem(QStringLiteral("/"), root) || !queryFileSystem(path, medium))
        return false;
    info.path = path;
    applyUse(root, medium, info);
    return true;
}

bool MediaManager::getActivePathInfo(PathInfo &info) const
{
    return getPathInfo(_activePath, info);
}

bool MediaManager::getRolloverPathInfo(PathInfo &info) const
{
    return getPathInfo(_rolloverPath, info);
}

int MediaManager::getRolloverInhibit() const
{
    PathInfo info;
    if (!getPathInfo(_rolloverPath, info))
        return NotMeasured;
    return getRolloverInhibit(info);
}

int MediaManager::getRolloverInhibit(const PathInfo &info) const
{
    if (!_rolloverEnabled)
        return NotEnabled;
    if (_rolloverInProgress)
        return InProgress;
    if (_rolloverPath.isEmpty())
        return NoPath;
    if (!info.mounted)
        return NotMounted;
    if (info.atTargetMinimum)
        return NotEnoughRoom;
    return RolloverPossible;
}

void MediaManager::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == _timerId)
        checkActivePath();
}

/// Emits on every tick for as long as the condition holds; whether anything records is the receiver's
/// business.
void MediaManager::checkActivePath()
{
    PathInfo info;
    if (!getPathInfo(_activePath, info))
        return;
    if (_activeInfo.path != _activePath) {
        _activeInfo = info;
        return;
    }
    if (!_rolloverEnabled) {
        if (info.atRolloverLevel)
            emit stopRecordNow();
    } else if (info.atStopLevel) {
        emit stopRecordNow();
    } else if (!_rolloverInProgress && info.atRolloverLevel &&
               getRolloverInhibit() == RolloverPossible) {
        emit shouldRolloverNow();
    }
    _activeInfo = info;
}

void MediaManager::setActivePath(const QString &path)
{
    if (path == _activePath)
        return;
    _activePath = path;
    OrbLogStream(logFile, __LINE__, 3, OrbLog::defaultLog())
        << QStringLiteral("Active Media Path: %1").arg(path);
    if (!path.isEmpty() && !getPathInfo(path, _activeInfo))
        orbLogOutput(1, logFile, __LINE__, "getPathInfo failed for %s\n", qPrintable(path));
}

void MediaManager::setRolloverPath(const QString &path)
{
    if (path == _rolloverPath)
        return;
    _rolloverPath = path;
    OrbLogStream(logFile, __LINE__, 3, OrbLog::defaultLog())
        << QStringLiteral("Rollover Media Path: %1").arg(path);
}

void MediaManager::setRolloverEnabled(bool val)
{
    if (val == _rolloverEnabled)
        return;
    orbLogOutput(3, logFile, __LINE__, "Rollover %s\n", val ? "Enabled" : "Disabled");
    _rolloverEnabled = val;
}

void MediaManager::setStorageInUse(bool inUse)
{
    if (inUse == _storageInUse)
        return;
    if (_rolloverInProgress) {
        orbLogOutput(3, logFile, __LINE__, "Rollover in progress, ignoring setStorageInUse(%s)\n",
                     inUse ? "true" : "false");
        return;
    }
    _storageInUse = inUse;
    emit storageInUse(inUse);
}

bool MediaManager::markRolloverInProgress()
{
    const int reason = getRolloverInhibit();
    if (reason != RolloverPossible) {
        orbLogOutput(1, logFile, __LINE__,
                     "Can't mark rollover in progress, rollover is inhibited (%d)\n", reason);
        return false;
    }
    OrbLogStream(logFile, __LINE__, 3, OrbLog::defaultLog())
        << QStringLiteral("Rollover from %1 to %2 has started").arg(_activePath, _rolloverPath);
    _rolloverInProgress = true;
    emit rolloverStarted(_activePath, _rolloverPath);
    return true;
}

void MediaManager::markWentOver()
{
    _rolloverInProgress = true;
    markRolloverComplete(true);
}

void MediaManager::markRolloverComplete(bool success)
{
    if (!_rolloverInProgress) {
        orbLogOutput(1, logFile, __LINE__,
                     "Can't mark rollover complete, since no rollover is in progress\n");
        return;
    }
    _rolloverInProgress = false;
    const QString from = _activePath;
    const QString to = _rolloverPath;
    if (success) {
        _activePath = _rolloverPath;
        _rolloverPath.clear();
        getPathInfo(_activePath, _activeInfo);
    }
    emit rolloverCompleted(success, from, to);
    OrbLogStream(logFile, __LINE__, success ? 3 : 1, OrbLog::defaultLog())
        << (success ? QStringLiteral("Rollover from %1 to %2 has completed.")
                    : QStringLiteral("Rollover from %1 to %2 has failed."))
               .arg(from, to);
}
