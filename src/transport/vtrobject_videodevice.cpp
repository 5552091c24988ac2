// The video device: its setups, its resets, and what it reports.
//
// One setup is in flight at most. A setting or an input that changes schedules a reset instead of
// sending a setup, so a burst of changes is one setup; a reset that finds the device busy comes
// back every 10 ms.

#include "transport/vtrobject.h"

#include "liborb/orblog.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"
#include "transport/droppedframes.h"
#include "transport/playbackdecisions.h"
#include "transport/setups.h"

#include <QTimer>

namespace {

constexpr char deviceName[] = "ferin";
constexpr int resetAfterInputChangeMs = 500;
constexpr int resetRetryMs = 10;

} // namespace

void VtrObject::videoDeviceOpen()
{
    if (_vdev->isOpen()) {
        orbLogOutput(1, logFile, __LINE__,
                     "Attempting to open the video device after it has already been opened\n");
        return;
    }
    const QString name = QString::fromLatin1(deviceName);
    if (!_vdev->open(name))
        logText(1, QStringLiteral("Failed to open video device '%1'").arg(name));
}

void VtrObject::videoDeviceClose()
{
    if (_vdev->isOpen())
        _vdev->close();
}

void VtrObject::videoDeviceFlush()
{
    if (_vdev->isOpen() && !_vdev->isFlushing())
        _vdev->flush();
}

void VtrObject::logStats()
{
    logText(3, QStringLiteral("STM: %1, CACHE: %2, RDEV: %3, WDEV: %4")
                   .arg(_stm->pending())
                   .arg(_cache->framesInCache())
                   .arg(_vdev->framesReadable())
                   .arg(_vdev->framesWritable()));
}

// Setups ------------------------------------------------------------------------------------------

OrbVideoDeviceSetup VtrObject::createVideoDeviceDefaultSetupObject() const
{
    return defaultSetup({_state, _tcgSource, _actualInputState});
}

OrbVideoDeviceSetup VtrObject::createVideoDevicePlaybackSetupObject(const OrbFrame &frame) const
{
    return playbackSetup({_state, _tcgSource, _actualInputState}, frame);
}

OrbVideoDeviceSetup VtrObject::createVideoDeviceRecordSetupObject() const
{
    return recordSetup({_state, _tcgSource, _actualInputState});
}

void VtrObject::setupVideoDeviceForRecord()
{
    orbLogOutput(3, logFile, __LINE__, "VIDEO DEVICE: Setup for record\n");
    if (!setupVideoDevice(createVideoDeviceRecordSetupObject()))
        orbLogOutput(1, logFile, __LINE__, "Video device failed to setup.\n");
}

/// A reset left over from Standby Off may come before playback has seen a frame: nothing is wanted
/// then.
void VtrObject::setupVideoDeviceForPlayback()
{
    orbLogOutput(3, logFile, __LINE__, "VIDEO DEVICE: Setup for playback\n");
    if (_playbackSetup != OrbVideoDeviceSetup())
        setupVideoDevice(_playbackSetup);
}

void VtrObject::setupVideoDeviceForShutdown()
{
    orbLogOutput(3, logFile, __LINE__, "VIDEO DEVICE: Setup for shutdown\n");
    setupVideoDevice(shutdownSetup({_state, _tcgSource, _actualInputState}));
}

bool VtrObject::setupVideoDevice(const OrbVideoDeviceSetup &setup)
{
    if (_vdev->isInSetup()) {
        orbLogOutput(2, logFile, __LINE__, "VIDEO DEVICE: Device is already in setup\n");
        return false;
    }
    if (!_forceSetup && setup == _vdev->currentSetup()) {
        orbLogOutput(3, logFile, __LINE__,
                     "VIDEO DEVICE: Setup is current, no need to change it\n");
        return true;
    }
    _forceSetup = false;
    _lastSetup = setup;
    orbLogOutput(3, logFile, __LINE__, "VIDEO DEVICE: Setup Started\n");
    const OrbError error = _vdev->setup(setup);
    if (error.isError()) {
        logText(1, QStringLiteral("VIDEO DEVICE: Initial Setup Error %1").arg(error.value()));
        standbyOff();
        return false;
    }
    emit videoDeviceSetupChanged(setup);
    updateLossOfVideoFrame();
    return true;
}

void VtrObject::videoDeviceSetupIsDone(const OrbError &error)
{
    if (error.isError()) {
        logText(1, QStringLiteral("VIDEO DEVICE: Setup Error %1").arg(error.value()));
        setupVideoDevice(createVideoDeviceDefaultSetupObject());
        return;
    }
    jamTCG();
    orbLogOutput(3, logFile, __LINE__, "VIDEO DEVICE: Setup is Done\n");
}

// Resets ------------------------------------------------------------------------------------------

void VtrObject::scheduleVideoDeviceReset(int delayMs, bool force)
{
    if (!force && !_state.isInModeStandbyOff())
        return;
    _videoDeviceResetTimer->setSingleShot(true);
    _videoDeviceResetTimer->start(delayMs);
}

void VtrObject::videoDeviceReset()
{
    if (_vdev->isInSetup() || _vdev->isFlushing()) {
        logText(3, QStringLiteral("VIDEO DEVICE: Device is busy.  Defer reset in mode %1 - %2")
                       .arg(_state.modeName(), stateToString()));
        scheduleVideoDeviceReset(resetRetryMs, true);
        return;
    }
    logText(3, QStringLiteral("VIDEO DEVICE: Reset in mode %1").arg(_state.modeName()));
    if (_state.isInModePlay())
        setupVideoDeviceForPlayback();
    else if (_state.isInModeRecord() || _state.isInModeStandbyOff())
        setupVideoDeviceForRecord();
}

// What the device reports -------------------------------------------------------------------------

/// Means nothing until the mode asked for has begun.
void VtrObject::videoDeviceFrameDropped()
{
    if (!_isBeginDone || !canProcess())
        return;
    const DroppedFrameRule *rule = droppedFrameRule(_state);
    if (!rule)
        return;
    emit frameDropped();
    const auto log = [rule] { orbLogOutput(1, logFile, __LINE__, "%s\n", rule->text); };
    const auto raise = [this, rule] {
        raiseAlarm(OrbIdAlarmDroppedFrame, rule->alarmLevel, QString::fromLatin1(rule->text));
    };
    switch (rule->then) {
    case DroppedFrameRule::Then::GoOn:
        log();
        raise();
        break;
    case DroppedFrameRule::Then::Still:
        log();
        raise();
        still();
        break;
    case DroppedFrameRule::Then::StandbyOff:
        raise();
        log();
        standbyOff();
        break;
    }
}

void VtrObject::videoDeviceReadFromHardwareFailed(const OrbError &error)
{
    if (inputVideoIsValid()) // without an input it is expected
        orbLogOutput(1, logFile, __LINE__, "Read from hardware failed with %d\n", error.value());
}

void VtrObject::videoDeviceWriteToHardwareFailed(const OrbError &error, const OrbFrame &)
{
    orbLogOutput(1, logFile, __LINE__, "Write to hardware failed with %d\n", error.value());
}

void VtrObject::videoDeviceHardwareStarted() {}

void VtrObject::videoDeviceFlushed(const OrbMetadataHash &meta)
{
    if (_stm->isOpen() && _stm->isReadable()) {
        const int flushedAt = meta.valueFor(OrbId(OrbIdFrameNumber)).toInt();
        if (_pendingCue != -1)
            orbLogOutput(2, logFile, __LINE__, "Flushed at %d, but pending cue at %d\n", flushedAt,
                         _pendingCue);
        const int position = frameAfterFlush(flushedAt, _pendingCue, _stepOffset);
        _pendingCue = -1;
        _stepOffset = 0;
        _cache->seek(position);
    }
    orbLogOutput(3, logFile, __LINE__, "VIDEO DEVICE: Flush Complete\n");
}

void VtrObject::videoDeviceInputChanged(int inputNumber, const OrbVideoState &state)
{
    if (inputNumber != 0)
        return;
    if (state == _actualInputState || (!state.isValid() && !_actualInputState.isValid()))
        return;
    _actualInputState = state;
    if (_state.videoSignalGenMode().isValid())
        return;
    _reportedInputState = state;
    if (state.isValid() && (_state.isInModePlay() || _state.isInModeStandbyOff())) {
        _forceSetup = true;
        scheduleVideoDeviceReset(resetAfterInputChangeMs, false);
    }
    logText(3, QStringLiteral("Input %1 Changed to %2 while in %3")
                   .arg(QString::number(inputNumber), state.toString(), _state.modeName()));
    emit inputFormatChanged(inputNumber, state);
}

/// The generator is an input of its own while it stands in for the real one.
void VtrObject::updateVTSGPseudoInput(bool enabled)
{
    OrbVideoState pseudo = _actualInputState;
    if (enabled) {
        pseudo = OrbVideoState();
        pseudo.setValid(true);
        pseudo.setPresent(true);
        pseudo.setInputImageDesc(_state.videoSignalGenFormat());
        pseudo.setCaptureImageDesc(_state.videoSignalGenFormat());
    }
    if (pseudo == _reportedInputState)
        return;
    _reportedInputState = pseudo;
    emit inputFormatChanged(0, pseudo);
}

void VtrObject::videoDeviceInputAncDataChanged(const OrbMetadataHash &data)
{
    if (_state.isInModePlay() && _lastSetup.cameraInput().isValid()
        && data.valueFor(OrbId(OrbIdCameraRecordFlag)).toBool())
        standbyOff(); // so that the camera can be recorded
}

void VtrObject::debugFrameMetadata(const OrbMetadata &meta)
{
    _debugMetadata = meta;
}
