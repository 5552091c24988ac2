// What the engine watches besides frames: the picture that stands in for a lost input, and the
// reference.

#include "transport/vtrobject.h"

#include "liborb/orbalarmcontroller.h"
#include "liborb/orblog.h"
#include "liborb/orbvideodevice.h"
#include "libvanta/lossofvideoclips.h"
#include "transport/lossofvideo.h"

void VtrObject::raiseAlarm(const OrbId &id, int level, const QString &text, int line)
{
    emit alarmTriggered(OrbAlarm(id, level, text, QString::fromLatin1(logFile), line));
}

/// Loads the picture for the setup just sent; the loader completes by itself, and is empty until
/// then.
void VtrObject::updateLossOfVideoFrame()
{
    const OrbImageDesc desc = _lastSetup.imageDesc();
    const QString file = findLossOfVideoFile(desc);
    if (file.isEmpty()) {
        logText(1, QStringLiteral("Failed to find loss of video file for %1").arg(desc.toString()));
        _lossOfVideoFrame.clear();
        return;
    }
    const QString path =
        QStringLiteral("%1/%2").arg(QString::fromLatin1(lossOfVideoDirectory), file);
    logText(3, QStringLiteral("Loss of video clip: %1").arg(path));
    _lossOfVideoFrame.load(0, path);
}

void VtrObject::checkForAlarms()
{
    checkRefInputAlarm();
}

/// Sets both alarms every time; what a repeated report means is the alarm controller's to say.
void VtrObject::checkRefInputAlarm()
{
    if (!_vdev)
        return;
    const OrbVideoRefState reference = _vdev->refInputState(0);
    if (reference.locked()) {
        setReferenceAlarm(OrbIdAlarmRefUnlocked, false);
        setReferenceAlarm(OrbIdAlarmRefMissing, false);
    } else if (reference.present()) {
        setReferenceAlarm(OrbIdAlarmRefMissing, false);
        setReferenceAlarm(OrbIdAlarmRefUnlocked, true);
    } else {
        setReferenceAlarm(OrbIdAlarmRefUnlocked, false);
        setReferenceAlarm(OrbIdAlarmRefMissing, true);
    }
}

void VtrObject::setReferenceAlarm(const OrbId &id, bool on, int line)
{
    _alarmctl->setAlarm(OrbAlarm(id, on ? OrbAlarm::Error : OrbAlarm::Clear, QString(),
                                 QString::fromLatin1(logFile), line));
}
