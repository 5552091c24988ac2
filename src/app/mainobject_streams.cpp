#include "app/mainobject.h"

#include "app/formatmap.h"
#include "app/mainobject_log.h"
#include "config/configinterface.h"
#include "libconfig/paramdescriptor.h"
#include "libvanta/clipfinder.h"
#include "media/mediamanager.h"
#include "transport/vtrobject.h"

// The life of a stream descriptor. Before it opens a stream the engine asks where; the answer is a path or a
// play list, or nothing, which the engine takes as its failure to open. A rollover is a recording whose stream
// the engine closes and opens again while the answer comes from the next medium: over when both the close of
// the old clip and the open of the new one have been seen, in either order.

namespace {

constexpr quint32 eightChannels = 1;
constexpr quint32 inputWithoutEightChannels = 2;
constexpr quint32 storageAfterRollover = 3;

} // namespace

int MainObject::findInitialFrame()
{
    const int frame = _initialFrame == -1 ? 0 : _initialFrame;
    _initialFrame = -1;
    return frame;
}

void MainObject::generateRecordStreamDesc(QVariant &streamDesc)
{
    if (_mediaManager->isRolloverInProgress())
        generateRolloverRecordStreamDesc(streamDesc);
    else
        generateNormalRecordStreamDesc(streamDesc);
}

void MainObject::generateNormalRecordStreamDesc(QVariant &desc)
{
    const QString path = _mediaManager->activePath();
    if (!_clipFinder) {
        orbLogOutput(1, logFile, __LINE__,
                     "Generate record stream desc failed: _clipFinder is NULL\n");
        return;
    }
    if (path.isEmpty()) {
        orbLogOutput(1, logFile, __LINE__,
                     "Generate record stream desc failed: Storage path is empty\n");
        return;
    }
    std::string built;
    const int result = _clipFinder->buildClipName(built, _allClips);
    const QString name = QString::fromStdString(built);
    if (result == -1) {
        reportAlarm(OrbIdAlarmClipExists, OrbAlarm::Error,
                    QStringLiteral("Clip %1 already exists").arg(name));
        orbLogOutput(1, logFile, __LINE__,
                     "Generate record stream desc failed: '%s' is in use\n", built.c_str());
        return;
    }
    reportAlarm(OrbIdAlarmClipExists, OrbAlarm::Clear, QString());
    _clipFinder->incrementTakeIfAppropriate();
    setCurrentClip(name);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    _config->set(eParamRecordClipName, dot == -1 ? name : name.left(dot));
    desc = QStringLiteral("%1/%2").arg(path, name);
}

/// Neither moves the clip counter on nor publishes the record clip name, deliberately.
void MainObject::generateRolloverRecordStreamDesc(QVariant &desc)
{
    const QString path = _mediaManager->rolloverPath();
    if (path.isEmpty()) {
        orbLogOutput(1, logFile, __LINE__, "Rollover path is empty!\n");
        return;
    }
    const QString current = currentClip();
    std::string built;
    if (_clipFinder->getClipNameWithIncrementedRolloverIndex(current.toStdString(), built) != 0) {
        reportAlarm(OrbIdAlarmClipExists, OrbAlarm::Error,
                    QStringLiteral("Clip %1 already exists").arg(QString::fromStdString(built)));
        logText(1, QStringLiteral("Failed to build rollover clip name for '%1'").arg(current));
        return;
    }
    reportAlarm(OrbIdAlarmClipExists, OrbAlarm::Clear, QString());
    const QString next = QString::fromStdString(built);
    setCurrentClip(next);
    desc = QStringLiteral("%1/%2").arg(path, next);
}

void MainObject::generatePlaybackStreamDesc(QVariant &streamDesc, int &fnum)
{
    const QString path = _mediaManager->activePath();
    const QString clip = currentClip();
    if (path.isEmpty()) {
        orbLogOutput(1, logFile, __LINE__,
                     "Generate playback stream desc failed: Storage path is empty\n");
        return;
    }
    switch (_playMedia) {
    case 0:
        if (clip.isEmpty()) {
            orbLogOutput(1, logFile, __LINE__,
                         "Generate playback stream desc failed: Current clip is empty\n");
            return;
        }
        streamDesc = QStringLiteral("%1/%2").arg(path, clip);
        fnum = 0;
        logText(3, QStringLiteral("Playback Stream Desc: %1 at frame %2")
                       .arg(streamDesc.toString(), QString::number(fnum)));
        return;
    case 1:
        if (_allClipsPlayList.isEmpty()) {
            orbLogOutput(1, logFile, __LINE__,
                         "Generate playback stream desc failed: All clips is empty\n");
            return;
        }
        streamDesc = QVariant::fromValue(_allClipsPlayList);
        fnum = findInitialFrame();
        orbLogOutput(3, logFile, __LINE__, "Playback Stream Desc: All Clips at frame %d\n", fnum);
        return;
    case 2:
        if (_playList.isEmpty()) {
            orbLogOutput(1, logFile, __LINE__,
                         "Generage playback stream desc failed: Play List is empty\n");
            return;
        }
        streamDesc = QVariant::fromValue(_playList);
        fnum = findInitialFrame();
        orbLogOutput(3, logFile, __LINE__, "Playback Stream Desc: Play List at frame %d\n", fnum);
        return;
    default:
        fnum = 0;
        orbLogOutput(1, logFile, __LINE__,
                     "Generate playback stream desc failed: Unhandled value %d\n", _playMedia);
    }
}

void MainObject::shouldInhibitRecord(OrbId &reason)
{
    MediaManager::PathInfo info;
    const bool measured = _mediaManager->isRolloverInProgress()
                              ? _mediaManager->getRolloverPathInfo(info)
                              : _mediaManager->getActivePathInfo(info);
    if (!measured || !info.mounted)
        reason = OrbId(OrbIdInhibitNoMedia);
    else if (info.atRolloverLevel)
        reason = OrbId(OrbIdInhibitMediaFull);
}

void MainObject::startRollover()
{
    if (!_vtr || !_vtr->state().isInModeRecord())
        return;
    _rolloverClosed = false;
    _rolloverOpen = false;
    if (!_mediaManager->markRolloverInProgress()) {
        orbLogOutput(1, logFile, __LINE__,
                     "Failed to mark rollover in progress.  Aborting rollover\n");
        _vtr->standbyOff();
        return;
    }
    if (!_vtr->reopenRecordStream()) {
        orbLogOutput(1, logFile, __LINE__, "Aborting rollover, reopen record stream failed\n");
        _mediaManager->markRolloverComplete(false);
        _vtr->standbyOff();
    }
}

void MainObject::vtrStreamIsClosed()
{
    if (!_mediaManager->isRolloverInProgress())
        return;
    if (_rolloverClosed) {
        orbLogOutput(1, logFile, __LINE__,
                     "In rollover, got close after clip 1 is already closed!\n");
        return;
    }
    orbLogOutput(3, logFile, __LINE__, "Rollover clip 1 is closed\n");
    _rolloverClosed = true;
    checkForRolloverComplete();
}

/// A failed open counts as the open event too, deliberately.
void MainObject::vtrStreamIsOpen(const OrbError &err, const OrbStreamInfo &)
{
    if (!_mediaManager->isRolloverInProgress())
        return;
    if (_rolloverOpen) {
        orbLogOutput(1, logFile, __LINE__,
                     "In rollover, got open after clip 2 is already opened!\n");
        return;
    }
    if (err.isError())
        orbLogOutput(2, logFile, __LINE__, "Rollover clip 2 open failed\n");
    else
        orbLogOutput(3, logFile, __LINE__, "Rollover clip 2 opened\n");
    _rolloverOpen = true;
    checkForRolloverComplete();
    if (err.isError())
        QMetaObject::invokeMethod(this, &MainObject::recoverFromRollover, Qt::QueuedConnection);
}

/// A rollover whose new clip could not be opened counts as completed, although nothing is recorded where it went to.
/// What the store says of the media is right, and what it says of them later is followed as ever. When there was no
/// open that could fail, there is no close to tell that the storage is free. Runs once the engine has done with the
/// open, and so is in Standby Off.
void MainObject::recoverFromRollover()
{
    if (_mediaManager->isRolloverInProgress() || !_vtr || !_vtr->state().isInModeStandbyOff())
        return;
    const QString path = _config->getString(eParamActivePath);
    if (path != _mediaManager->activePath())
        activePathChanged(path);
    _mediaManager->setRolloverPath(_config->getString(eParamRolloverPath));
    _mediaManager->setStorageInUse(false);
}

void MainObject::checkForRolloverComplete()
{
    if (_mediaManager->isRolloverInProgress() && _rolloverClosed && _rolloverOpen)
        _mediaManager->markRolloverComplete(true);
}

void MainObject::finishRollover(bool success, const QString &, const QString &)
{
    if (!success)
        return;
    _config->set(eParamStorageInUse, storageAfterRollover);
    if (!_vtr || !_vtr->state().isInModeRecord())
        _mediaManager->setStorageInUse(false);
}

void MainObject::vtrVideoDeviceSetupChanged(const OrbVideoDeviceSetup &val)
{
    const OrbImageDesc desc = val.imageDesc();
    const int media = imageDescToMediaFormat(desc);
    const int decode = imageDataTypeToDecodeType(desc.dataType());
    logText(3, QStringLiteral("Media changed: %1 -- %2/%3")
                   .arg(desc.toString())
                   .arg(media)
                   .arg(decode));
    _config->set(eParamMediaFormat, static_cast<quint32>(media));
    _config->set(eParamDecodeType, static_cast<quint32>(decode));
}

void MainObject::validateAudioChannels()
{
    const quint32 input = _config->getUInt32(eParamAudioInput);
    const quint32 channels = _config->getUInt32(eParamAudioChannels);
    const bool isImpossible = input == inputWithoutEightChannels && channels == eightChannels;
    reportAlarm(OrbIdAlarmAudioChannels, isImpossible ? OrbAlarm::Error : OrbAlarm::Clear,
                QString());
}
