// The settings: one setter each, one pattern for all. A value that is the stored one changes
// nothing; another one is stored and logged, and what the device must apply schedules a reset,
// which only Standby Off carries out: elsewhere the device gets the value with the next setup that
// is sent. The setters that differ from the pattern are written out below.

#include "transport/vtrobject.h"

#include "liborb/orblog.h"
#include "liborb/orbvideodevice.h"

namespace {

constexpr int resetAfterSettingMs = 500;

QString enabledText(bool on)
{
    return on ? QStringLiteral("Enabled") : QStringLiteral("Disabled");
}

} // namespace

void VtrObject::settingChanged()
{
    scheduleVideoDeviceReset(resetAfterSettingMs, false);
}

void VtrObject::setIdSetting(OrbId (VtrState::*value)() const,
                             void (VtrState::*store)(const OrbId &), const OrbId &id,
                             const char *name, int line)
{
    if ((_state.*value)() == id)
        return;
    (_state.*store)(id);
    logText(3, QStringLiteral("Set %1: %2").arg(QLatin1String(name), id.name()), line);
    settingChanged();
}

bool VtrObject::isIdSettingValid(const OrbId &id, const char *name, int line) const
{
    if (!id.isValid())
        orbLogOutput(1, logFile, line, "%s is invalid\n", name);
    return id.isValid();
}

/// True when the value changed.
bool VtrObject::setFlagSetting(bool (VtrState::*value)() const, void (VtrState::*store)(bool),
                               bool on, const char *name, int line)
{
    if ((_state.*value)() == on)
        return false;
    (_state.*store)(on);
    orbLogOutput(3, logFile, line, "Set %s: %s\n", name, qPrintable(enabledText(on)));
    return true;
}

// Sources and formats that must be valid ----------------------------------------------------------

void VtrObject::setEncodeFormat(const OrbId &format)
{
    if (isIdSettingValid(format, "Encode format"))
        setIdSetting(&VtrState::encodeFormat, &VtrState::setEncodeFormat, format, "Encode Format");
}

void VtrObject::setVideoInputSource(const OrbId &source)
{
    if (isIdSettingValid(source, "Video input source"))
        setIdSetting(&VtrState::videoInputSource, &VtrState::setVideoInputSource, source,
                     "Video Input Source");
}

void VtrObject::setAudioInputSource(const OrbId &source)
{
    if (isIdSettingValid(source, "Audio input source"))
        setIdSetting(&VtrState::audioInputSource, &VtrState::setAudioInputSource, source,
                     "Audio Input Source");
}

void VtrObject::setAudioInputLevel(const OrbId &level)
{
    if (isIdSettingValid(level, "Audio input level"))
        setIdSetting(&VtrState::audioInputLevel, &VtrState::setAudioInputLevel, level,
                     "Audio Input Level");
}

void VtrObject::setSyncSource(const OrbId &source)
{
    if (isIdSettingValid(source, "Sync source"))
        setIdSetting(&VtrState::syncSource, &VtrState::setSyncSource, source, "Sync Source");
}

// Any identifier, invalid ones included -----------------------------------------------------------

void VtrObject::setAudioSignalGenMode(const OrbId &mode)
{
    setIdSetting(&VtrState::audioSignalGenMode, &VtrState::setAudioSignalGenMode, mode, "ASG Mode");
}

void VtrObject::setCameraInput(const OrbId &input)
{
    setIdSetting(&VtrState::cameraInput, &VtrState::setCameraInput, input, "Camera Input");
}

void VtrObject::setVideoInConvert(const OrbId &convert)
{
    setIdSetting(&VtrState::videoInConvert, &VtrState::setVideoInConvert, convert,
                 "Video In Convert");
}

void VtrObject::setVideoOutConvert(const OrbId &convert)
{
    setIdSetting(&VtrState::videoOutConvert, &VtrState::setVideoOutConvert, convert,
                 "Video Out Convert");
}

void VtrObject::setVideoOutputType(const OrbId &type)
{
    setIdSetting(&VtrState::videoOutputType, &VtrState::setVideoOutputType, type,
                 "Video Output Type");
}

void VtrObject::setVideoOutputRoute(const OrbId &route)
{
    setIdSetting(&VtrState::videoOutputRoute, &VtrState::setVideoOutputRoute, route,
                 "Video Output Route");
}

void VtrObject::setSuperOut(const OrbId &super)
{
    setIdSetting(&VtrState::superOut, &VtrState::setSuperOut, super, "Super Out");
}

void VtrObject::setTCGSource(const OrbId &source)
{
    if (_tcgSource == source)
        return;
    _tcgSource = source;
    logText(3, QStringLiteral("Set TCG Source: %1").arg(source.name()));
    settingChanged();
}

// Flags -------------------------------------------------------------------------------------------

void VtrObject::setForcePSFOutput(bool on)
{
    if (setFlagSetting(&VtrState::forcePSFOutput, &VtrState::setForcePSFOutput, on,
                       "Force PSF Output"))
        settingChanged();
}

void VtrObject::setForcePSFEncode(bool on)
{
    if (setFlagSetting(&VtrState::forcePSFEncode, &VtrState::setForcePSFEncode, on,
                       "Force PSF Encode"))
        settingChanged();
}

void VtrObject::setVFREnable(bool on)
{
    if (setFlagSetting(&VtrState::vfrEnable, &VtrState::setVFREnabled, on, "VFR"))
        settingChanged();
}

void VtrObject::setIntervalRecordEnable(bool on)
{
    setFlagSetting(&VtrState::intervalRecordEnable, &VtrState::setIntervalRecordEnable, on,
                   "Interval Record");
}

void VtrObject::setStopOnFrameDrop(bool on)
{
    setFlagSetting(&VtrState::stopOnFrameDrop, &VtrState::setStopOnFrameDrop, on,
                   "Stop On Frame Drop");
}

void VtrObject::setStopOnLossOfVideo(bool on)
{
    setFlagSetting(&VtrState::stopOnLossOfVideo, &VtrState::setStopOnLossOfVideo, on,
                   "Stop On Loss Of Video");
}

void VtrObject::setRecordOnRunningTimecode(bool on)
{
    if (_recordOnRunningTimecode == on)
        return;
    _recordOnRunningTimecode = on;
    orbLogOutput(3, logFile, __LINE__, "Record on Running Timecode: %s\n",
                 qPrintable(enabledText(on)));
}

// Those with a way of their own -------------------------------------------------------------------

/// A refused count deliberately goes the way of an accepted one, but for being stored.
void VtrObject::setAudioChans(int count)
{
    if (_state.audioChans() == count)
        return;
    if (count == 2 || count == 8)
        _state.setAudioChans(count);
    else
        orbLogOutput(2, logFile, __LINE__,
                     "Failed to set audio channels to %d.  Unsupported number of channels\n",
                     count);
    orbLogOutput(3, logFile, __LINE__, "Set Audio Channels: %d\n", count);
    settingChanged();
}

void VtrObject::setVideoSignalGenFormat(const OrbImageDesc &format)
{
    if (_state.videoSignalGenFormat() == format)
        return;
    _state.setVideoSignalGenFormat(format);
    logText(3, QStringLiteral("Set VSG Format: %1").arg(format.toString()));
    settingChanged();
    if (_state.videoSignalGenMode().isValid())
        updateVTSGPseudoInput(true);
}

/// An invalid mode turns the generator off.
void VtrObject::setVideoSignalGenMode(const OrbId &mode)
{
    if (_state.videoSignalGenMode() == mode)
        return;
    setIdSetting(&VtrState::videoSignalGenMode, &VtrState::setVideoSignalGenMode, mode, "VSG Mode");
    updateVTSGPseudoInput(mode.isValid());
}

void VtrObject::setLuts(const OrbImageLut &inputLut, const OrbImageLut &outputLut)
{
    if (_state.inputLut() == inputLut && _state.outputLut() == outputLut)
        return;
    _state.setInputLut(inputLut);
    _state.setOutputLut(outputLut);
    settingChanged();
}

void VtrObject::setRecordInterval(int frames)
{
    if (_state.recordInterval() == frames)
        return;
    _state.setRecordInterval(frames);
    logText(3, QStringLiteral("Set Record Interval: %1").arg(frames));
}

void VtrObject::setRecordIntervalTime(int period)
{
    if (_state.recordIntervalTime() == period)
        return;
    _state.setRecordIntervalTime(period);
    logText(3, QStringLiteral("Set Record Interval Time: %1").arg(period));
}

/// The same value again deliberately loads the generator again. Rate and drop-frame flag stay.
void VtrObject::setTimecodeValue(const OrbTimecode &tc)
{
    _tcgValue.setHour(tc.hour());
    _tcgValue.setMin(tc.min());
    _tcgValue.setSec(tc.sec());
    _tcgValue.setFrame(tc.frame());
    _tcgValue.setValid(true);
    logText(3, QStringLiteral("Set TC value: %1").arg(_tcgValue.toString()));
    jamTCG();
}

void VtrObject::setTimecodeDropFrame(bool on)
{
    _tcgValue.setDropFrame(on);
    orbLogOutput(3, logFile, __LINE__, "Set TC Drop Frame: %s\n", qPrintable(enabledText(on)));
    jamTCG();
}

void VtrObject::setReelName(const QString &reelName)
{
    if (_reelName == reelName)
        return;
    _reelName = reelName;
    logText(3, QStringLiteral("Reel Name: %1").arg(reelName));
    if (_vdev)
        _vdev->setProperty(OrbId(OrbIdPropReelName), reelName);
}

void VtrObject::setCurrentClipName(const QString &value)
{
    if (_vdev)
        _vdev->setProperty(OrbId(OrbIdPropClipName), value);
}
