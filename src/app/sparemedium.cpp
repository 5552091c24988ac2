#include "app/sparemedium.h"

#include "app/mainobject.h"
#include "app/mainobject_log.h"
#include "config/configinterface.h"
#include "libconfig/paramdescriptor.h"
#include "libvanta/clipfinder.h"
#include "liborb/orbconnect.h"
#include "liborb/orbstream.h"
#include "media/mediamanager.h"
#include "transport/vtrobject.h"

#include <QFileInfo>

#include <string>

namespace
{

QString folderOf(const QVariant &desc)
{
    return QFileInfo(desc.toString()).path();
}

QString nameOf(const QVariant &desc)
{
    return QFileInfo(desc.toString()).fileName();
}

} // namespace

SpareMedium::SpareMedium(MainObject *main, ConfigInterface *config, VtrObject *vtr, MediaManager *media,
                         ClipFinder *clips)
    : QObject(vtr), _main(main), _config(config), _vtr(vtr), _media(media), _clips(clips)
{
    auto *stream = vtr->findChild<OrbStream *>(QString(), Qt::FindDirectChildrenOnly);
    if (!stream)
        return;
    stream->setSpareQuestion([this](const QVariant &desc, const OrbError &) { return spareFor(desc); });
    ORB_TESTED(connect(stream, &OrbStream::wentOver, this, &SpareMedium::wentOver));
    ORB_TESTED(connect(stream, &OrbStream::mediumFailed, this,
                       [this](const QVariant &desc, const OrbError &, int framesLost) { failed(desc, framesLost); }));
    ORB_TESTED(connect(stream, &OrbStream::mediumIsSlow, this,
                       [this, stream](bool isSlow) { slow(stream->desc(), isSlow); }));
    ORB_TESTED(connect(stream, &OrbStream::openIsDone, this, &SpareMedium::opened));
}

void SpareMedium::raise(int id, int level, const QString &text, int line)
{
    emit _main->alarmTriggered(OrbAlarm(OrbId(id), level, text, QString::fromLatin1(logFile), line));
}

/// The name follows from the clip that failed. A medium that cannot be measured in time may still take it.
QVariant SpareMedium::spareFor(const QVariant &failed)
{
    const QString path = _media->rolloverPath();
    if (path.isEmpty())
        return QVariant();
    MediaManager::PathInfo info;
    if (_media->getRolloverPathInfo(info) && (!info.mounted || info.atStopLevel)) {
        logText(1, QStringLiteral("%1 cannot take what %2 does not").arg(path, folderOf(failed)));
        return QVariant();
    }
    std::string next;
    if (_clips->getClipNameWithIncrementedRolloverIndex(nameOf(failed).toStdString(), next) != 0) {
        logText(1, QStringLiteral("Failed to build rollover clip name for '%1'").arg(nameOf(failed)));
        return QVariant();
    }
    return QStringLiteral("%1/%2").arg(path, QString::fromStdString(next));
}

/// The system may have dropped what it could not write, and takes the next clip as if nothing had been: it is the
/// media service that leaves the medium out until it is mounted anew.
void SpareMedium::tellSuspect(const QVariant &failed)
{
    _config->setString(eParamMediaRequest, QStringLiteral("rvd suspect ") + folderOf(failed));
}

/// While a rollover is in progress, what was left of the clip before it has gone to the medium that the
/// recording goes to anyway. When the recording has ended, only its last frames have: the clip that is looked
/// for is the one before them.
void SpareMedium::wentOver(const QVariant &failed, const QVariant &desc)
{
    tellSuspect(failed);
    if (_vtr->state().isInModeRecord()) {
        if (_main->currentClip() == nameOf(failed))
            _main->setCurrentClip(nameOf(desc));
        if (!_media->isRolloverInProgress() && _media->rolloverPath() == folderOf(desc))
            _media->markWentOver();
    }
    _isFailureRaised = true;
    raise(OrbIdAlarmMediaFailed, OrbAlarm::Error,
          QStringLiteral("Medium %1 failed, recording continued on %2").arg(folderOf(failed), folderOf(desc)));
}

/// A recorder that only seems to record is worse than one that has stopped.
void SpareMedium::failed(const QVariant &failed, int framesLost)
{
    tellSuspect(failed);
    _isFailureRaised = true;
    raise(OrbIdAlarmMediaFailed, OrbAlarm::Error,
          QStringLiteral("Medium %1 failed, %2 frames lost").arg(folderOf(failed)).arg(framesLost));
    _main->stopRecordNow();
}

void SpareMedium::slow(const QVariant &desc, bool isSlow)
{
    raise(OrbIdAlarmMediaSlow, isSlow ? OrbAlarm::Warning : OrbAlarm::Clear,
          isSlow ? QStringLiteral("Medium %1 is slow").arg(folderOf(desc)) : QString());
}

/// The failure is over with the next recording that has a medium.
void SpareMedium::opened(int access, const OrbError &error)
{
    constexpr int accessWrite = 2;
    if (access != accessWrite || error.isError() || _media->isRolloverInProgress() || !_isFailureRaised)
        return;
    _isFailureRaised = false;
    raise(OrbIdAlarmMediaFailed, OrbAlarm::Clear, QString());
}
