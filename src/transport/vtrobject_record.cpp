// The life of a recorded frame.
//
// Every captured frame passes here, in Standby Off as in Record, so that a camera's start and stop
// flags are seen in both. In Standby Off that is all. In Record the first good frame says what the
// clip will hold: it is held back while the stream opens (and the passes wait), and is then the
// first one written. A frame without a picture before that is skipped; later it either ends the
// recording or gets the picture of the loss-of-video clip. Interval recording drops what falls
// between. Whatever goes wrong ends in Standby Off.

#include "transport/vtrobject.h"

#include "liborb/orblog.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"

#include <algorithm>
#include <cerrno>

bool VtrObject::inputVideoIsValid() const
{
    return _state.videoSignalGenMode().isValid() || _actualInputState.isValid();
}

OrbId VtrObject::recordInhibitedReason()
{
    OrbId reason;
    emit requestRecordInhibit(reason);
    if (reason.isValid())
        return reason;
    if (_state.videoSignalGenMode().isValid())
        return OrbId();
    if (!_actualInputState.isValid())
        return OrbId(OrbIdInhibitNoInput);
    return _actualInputState.recInhibit();
}

void VtrObject::record()
{
    if (!allowModeChange(VtrState::Record) || _state.isInModeRecord())
        return;
    OrbId reason = recordInhibitedReason();
    if (reason.isValid()) {
        logText(2, QStringLiteral("Record Inhibited: %1").arg(reason.name()));
        emit recordFailedToStart(reason);
        return;
    }
    setNewMode(VtrState::Record);
    process();
}

void VtrObject::timecodeTriggerHasStarted()
{
    if (_recordOnRunningTimecode)
        record();
}

void VtrObject::timecodeTriggerHasStopped()
{
    if (_recordOnRunningTimecode)
        standbyOff();
}

void VtrObject::beginModeRecord()
{
    orbLogOutput(3, logFile, __LINE__, "Begin Mode Record\n");
    if (_state.intervalRecordEnable()) {
        const RecordInterval::Findings findings = _interval.start(
            _state.recordInterval(), _state.recordIntervalTime(), currentTimecodeFrameRate());
        if (findings.totalIsZero)
            orbLogOutput(2, logFile, __LINE__, "Record interval total is zero!\n");
        if (findings.isLessThanOne)
            orbLogOutput(2, logFile, __LINE__, "Interval total is less than 1\n");
        orbLogOutput(3, logFile, __LINE__, "Interval Record.  Interval %d, Time %d, Every %.3f\n",
                     _state.recordInterval(), _state.recordIntervalTime(),
                     static_cast<double>(_interval.every));
    } else {
        _interval.startOff();
    }
    setupVideoDeviceForRecord();
    setSpeed(1.0);
    _vdev->setProperty(OrbId(OrbIdPropPlayMode), int(OrbIdPlayModeRecord));
    jamTCG();
}

void VtrObject::processModeRecord()
{
    while (_heldRecordFrameValid || _vdev->framesReadable() > 0) {
        OrbFrame frame;
        const Pass pass = _heldRecordFrameValid ? takeHeldFrame(frame) : readRecordFrame(frame);
        if (pass == Pass::Ends)
            return;
        if (_state.isInModeRecord() && processRecordFrame(frame) == Pass::Ends)
            return;
    }
}

VtrObject::Pass VtrObject::readRecordFrame(OrbFrame &frame)
{
    const OrbError error = _vdev->readFrame(frame);
    if (error.isError()) {
        logText(1, QStringLiteral("VIDEO DEVICE: Read Error %1").arg(error.value()));
        standbyOff();
        return Pass::Ends;
    }
    if (_debugMetadata.isValid())
        frame.meta().insert(_debugMetadata);
    return checkForCameraTrigger(frame) ? followCameraTrigger(frame) : Pass::GoesOn;
}

bool VtrObject::checkForCameraTrigger(const OrbFrame &frame) const
{
    if (!_state.cameraInput().isValid())
        return false;
    const QVariant flag = frame.meta().valueFor(OrbId(OrbIdCameraRecordFlag));
    if (!flag.isValid())
        return false;
    return flag.toBool() ? _state.isInModeStandbyOff() : _state.isInModeRecord();
}

/// The pass ends here whatever the trigger does.
VtrObject::Pass VtrObject::followCameraTrigger(const OrbFrame &frame)
{
    switch (_state.mode()) {
    case VtrState::StandbyOff:
        if (recordInhibitedReason().isValid())
            break;
        orbLogOutput(3, logFile, __LINE__, "Camera has started record.\n");
        if (validateFrameForRecord(frame)) {
            _heldRecordFrame = frame;
            _heldRecordFrameValid = true;
        }
        record();
        break;
    case VtrState::Record:
        orbLogOutput(3, logFile, __LINE__, "Camera has stopped record.\n");
        standbyOff();
        break;
    default:
        logText(1, QStringLiteral("Unhandled camera trigger in mode %1").arg(_state.modeName()));
        dropHeldFrame();
        break;
    }
    return Pass::Ends;
}

/// A held frame that is no good any more is dropped: held on to, it would hold up every frame
/// behind it.
VtrObject::Pass VtrObject::takeHeldFrame(OrbFrame &frame)
{
    frame = _heldRecordFrame;
    dropHeldFrame();
    if (validateFrameForRecord(frame))
        return Pass::GoesOn;
    orbLogOutput(2, logFile, __LINE__, "Pending frame isn't valid!\n");
    return Pass::Ends;
}

void VtrObject::dropHeldFrame()
{
    _heldRecordFrameValid = false;
    _heldRecordFrame = OrbFrame();
}

VtrObject::Pass VtrObject::processRecordFrame(OrbFrame &frame)
{
    if (!validateFrameForRecord(frame)) {
        if (!_stm->isOpen() && !_stm->isOpening())
            return Pass::GoesOn;
        if (coverLossOfVideo(frame) == Pass::Ends)
            return Pass::Ends;
    }
    if (_stm->isOpen()) {
        writeRecordFrame(frame);
        return Pass::GoesOn;
    }
    openStreamForRecord(frame);
    return Pass::Ends;
}

bool VtrObject::validateFrameForRecord(const OrbFrame &frame) const
{
    const auto count = int(frame.vids().size());
    if (count != _lastSetup.imageCount()) {
        orbLogOutput(2, logFile, __LINE__, "Image count (%d) doesn't match the setup (%d)\n", count,
                     _lastSetup.imageCount());
        return false;
    }
    for (int i = 0; i < count; ++i) {
        const OrbImage &image = frame.vids().at(i);
        if (!image.isValid()) {
            orbLogOutput(2, logFile, __LINE__, "Image %d is invalid\n", i);
            return false;
        }
        if (!std::ranges::all_of(image.planes(), &OrbBuffer::isValid)) {
            orbLogOutput(2, logFile, __LINE__, "Image %d buffer is invalid\n", i);
            return false;
        }
    }
    return true;
}

VtrObject::Pass VtrObject::coverLossOfVideo(OrbFrame &frame)
{
    if (_state.stopOnLossOfVideo()) {
        orbLogOutput(2, logFile, __LINE__,
                     "Empty frame, stop on LoV is set.  Stopping record\n");
        raiseAlarm(OrbIdAlarmLossOfVideo, OrbAlarm::Error,
                   QStringLiteral("Recording stopped due to loss of video"));
        standbyOff();
        return Pass::Ends;
    }
    raiseAlarm(OrbIdAlarmLossOfVideo, OrbAlarm::Warning,
               QStringLiteral("Loss of video during record, recording continued"));
    const OrbFrame picture = _lossOfVideoFrame.frame();
    if (!picture.hasValidVideo()) {
        orbLogOutput(2, logFile, __LINE__, "Loss of Video image buffer is not valid.\n");
        raiseAlarm(OrbIdAlarmLossOfVideoImage, OrbAlarm::Error,
                   QStringLiteral("Invalid Loss Of Video image buffer"));
        standbyOff();
        return Pass::Ends;
    }
    frame.vids() = picture.vids();
    return Pass::GoesOn;
}

void VtrObject::writeRecordFrame(const OrbFrame &frame)
{
    if (_state.intervalRecordEnable() && !_interval.takesNext())
        return;
    const auto timecode = frame.meta().valueFor(OrbId(OrbIdTimecode)).value<OrbTimecode>();
    if (!timecode.isValid())
        orbLogOutput(1, logFile, __LINE__, "Frame has invalid timecode\n");
    else if (_tcgSource == OrbId(OrbIdTimecodePreset))
        _tcgValue = timecode;
    _cache->write(frame);
}

void VtrObject::openStreamForRecord(const OrbFrame &firstFrame)
{
    if (_heldRecordFrameValid)
        orbLogOutput(1, logFile, __LINE__, "Pending write when trying to open.  WTF?\n");
    if (streamOpenForWrite(firstFrame)) {
        _heldRecordFrame = firstFrame;
        _heldRecordFrameValid = true;
        return;
    }
    orbLogOutput(1, logFile, __LINE__, "Open Stream Failed\n");
    emit streamIsOpen(OrbError(EINVAL), OrbStreamInfo());
    standbyOff();
}

void VtrObject::cleanupModeRecord()
{
    if (_stm->isOpening())
        orbLogOutput(1, logFile, __LINE__, "Stream is still opening\n");
    if (_stm->isOpen())
        finishRecordCache();
    _stm->close();
}

void VtrObject::finishRecordCache()
{
    if (_heldRecordFrameValid) {
        orbLogOutput(3, logFile, __LINE__,
                     "Record finished with a pending frame.  Writing to cache\n");
        if (_heldRecordFrame.hasValidVideo())
            _cache->write(_heldRecordFrame);
        else
            orbLogOutput(1, logFile, __LINE__, "Pending frame isn't valid\n");
        dropHeldFrame();
    }
    if (_cache->position() == 0)
        orbLogOutput(1, logFile, __LINE__, "Cache didn't get any frames!\n");
    const int waiting = _cache->framesInCache();
    if (waiting == 0)
        return;
    orbLogOutput(3, logFile, __LINE__, "%d frames still in cache, scheduling them for write\n",
                 waiting);
    _cache->pushCachedToPending(waiting);
    const int left = _cache->framesInCache();
    if (left > 0)
        orbLogOutput(1, logFile, __LINE__, "There is still %d frames in the cache\n", left);
}

// The timecode generator --------------------------------------------------------------------------

int VtrObject::currentTimecodeFrameRate() const
{
    return _vdev->currentSetup().imageDesc().frameRate().timecodeRate();
}

OrbTimecode VtrObject::currentTimeOfDayTimecode() const
{
    return OrbTimecode::fromTimeOfDay(currentTimecodeFrameRate(), _tcgValue.dropFrameFlag());
}

/// A preset goes on from the last recorded frame, because writing a frame keeps it up to date.
void VtrObject::jamTCG()
{
    if (!_vdev)
        return;
    _tcgValue.setFPS(currentTimecodeFrameRate());
    OrbTimecode start;
    if (_tcgSource == OrbId(OrbIdTimecodePreset))
        start = _tcgValue;
    else if (_tcgSource == OrbId(OrbIdTimecodeTimeOfDay))
        start = currentTimeOfDayTimecode();
    if (start.isValid())
        _vdev->setProperty(OrbId(OrbIdPropTimecodePreset), QVariant::fromValue(start));
}
