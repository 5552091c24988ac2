#include "transport/vtrstate.h"

#include <iterator>

namespace {

/// By mode number.
constexpr const char *modeNames[] = {"Startup", "Shutdown", "Standby Off",
                                     "Standby", "Play",     "Record"};
static_assert(std::size(modeNames) == VtrState::Record + 1);

} // namespace

void VtrStateData::setSpeed(double speed)
{
    _speed = speed;
    _speedFlags = VtrSpeedFlags::fromSpeed(speed);
}

bool VtrStateData::operator==(const VtrStateData &other) const
{
    return mode == other.mode
        && audioChans == other.audioChans
        && recordInterval == other.recordInterval
        && recordIntervalTime == other.recordIntervalTime
        && intervalRecordEnable == other.intervalRecordEnable
        && isLooping == other.isLooping
        && _speed == other._speed
        && encodeFormat == other.encodeFormat
        && videoOutputType == other.videoOutputType
        && videoInputSource == other.videoInputSource
        && audioInputSource == other.audioInputSource
        && audioInputLevel == other.audioInputLevel
        && syncSource == other.syncSource
        && cameraInput == other.cameraInput
        && videoSignalGenMode == other.videoSignalGenMode
        && audioSignalGenMode == other.audioSignalGenMode
        && videoSignalGenFormat == other.videoSignalGenFormat
        && inputLut == other.inputLut
        && outputLut == other.outputLut
        && videoInConvert == other.videoInConvert
        && videoOutConvert == other.videoOutConvert
        && superOut == other.superOut
        && videoOutputRoute == other.videoOutputRoute
        && forcePSFOutput == other.forcePSFOutput
        && forcePSFEncode == other.forcePSFEncode
        && vfrEnable == other.vfrEnable
        && stopOnFrameDrop == other.stopOnFrameDrop;
}

QString VtrStateData::toString() const
{
    return QString::asprintf("%.3lf ", _speed)
        + QStringLiteral("%1 ").arg(VtrState::modeName(mode));
}

VtrState::VtrState() : _d(new VtrStateData) {}
VtrState::VtrState(const VtrState &) = default;
VtrState::VtrState(VtrState &&) noexcept = default;
VtrState &VtrState::operator=(const VtrState &) = default;
VtrState &VtrState::operator=(VtrState &&) noexcept = default;
VtrState::~VtrState() = default;

QString VtrState::modeName() const
{
    return modeName(mode());
}

QString VtrState::modeName(Mode mode)
{
    const auto number = static_cast<int>(mode);
    if (number < 0 || number >= static_cast<int>(std::size(modeNames)))
        return QStringLiteral("Mode %1").arg(number);
    return QLatin1String(modeNames[number]);
}

bool VtrState::operator==(const VtrState &other) const
{
    return _d == other._d || *_d == *other._d;
}

QString VtrState::toString() const
{
    return _d->toString();
}

VtrState::Mode VtrState::mode() const { return _d->mode; }
double VtrState::speed() const { return _d->speed(); }
VtrSpeedFlags VtrState::speedFlags() const { return _d->speedFlags(); }
bool VtrState::isLooping() const { return _d->isLooping; }
bool VtrState::intervalRecordEnable() const { return _d->intervalRecordEnable; }
int VtrState::recordInterval() const { return _d->recordInterval; }
int VtrState::recordIntervalTime() const { return _d->recordIntervalTime; }
int VtrState::audioChans() const { return _d->audioChans; }
OrbId VtrState::encodeFormat() const { return _d->encodeFormat; }
OrbId VtrState::videoOutputType() const { return _d->videoOutputType; }
OrbId VtrState::videoInputSource() const { return _d->videoInputSource; }
OrbId VtrState::audioInputSource() const { return _d->audioInputSource; }
OrbId VtrState::audioInputLevel() const { return _d->audioInputLevel; }
OrbId VtrState::syncSource() const { return _d->syncSource; }
OrbId VtrState::cameraInput() const { return _d->cameraInput; }
OrbId VtrState::videoSignalGenMode() const { return _d->videoSignalGenMode; }
OrbId VtrState::audioSignalGenMode() const { return _d->audioSignalGenMode; }
OrbId VtrState::videoInConvert() const { return _d->videoInConvert; }
OrbId VtrState::videoOutConvert() const { return _d->videoOutConvert; }
OrbId VtrState::superOut() const { return _d->superOut; }
OrbId VtrState::videoOutputRoute() const { return _d->videoOutputRoute; }
OrbImageDesc VtrState::videoSignalGenFormat() const { return _d->videoSignalGenFormat; }
OrbImageLut VtrState::inputLut() const { return _d->inputLut; }
OrbImageLut VtrState::outputLut() const { return _d->outputLut; }
bool VtrState::forcePSFOutput() const { return _d->forcePSFOutput; }
bool VtrState::forcePSFEncode() const { return _d->forcePSFEncode; }
bool VtrState::vfrEnable() const { return _d->vfrEnable; }
bool VtrState::stopOnFrameDrop() const { return _d->stopOnFrameDrop; }
bool VtrState::stopOnLossOfVideo() const { return _d->stopOnLossOfVideo; }

void VtrState::setMode(Mode mode) { _d->mode = mode; }
void VtrState::setSpeed(double speed) { _d->setSpeed(speed); }
void VtrState::setLooping(bool on) { _d->isLooping = on; }
void VtrState::setIntervalRecordEnable(bool on) { _d->intervalRecordEnable = on; }
void VtrState::setRecordInterval(int frames) { _d->recordInterval = frames; }
void VtrState::setRecordIntervalTime(int period) { _d->recordIntervalTime = period; }
void VtrState::setAudioChans(int count) { _d->audioChans = count; }
void VtrState::setEncodeFormat(const OrbId &id) { _d->encodeFormat = id; }
void VtrState::setVideoOutputType(const OrbId &id) { _d->videoOutputType = id; }
void VtrState::setVideoInputSource(const OrbId &id) { _d->videoInputSource = id; }
void VtrState::setAudioInputSource(const OrbId &id) { _d->audioInputSource = id; }
void VtrState::setAudioInputLevel(const OrbId &id) { _d->audioInputLevel = id; }
void VtrState::setSyncSource(const OrbId &id) { _d->syncSource = id; }
void VtrState::setCameraInput(const OrbId &id) { _d->cameraInput = id; }
void VtrState::setVideoSignalGenMode(const OrbId &id) { _d->videoSignalGenMode = id; }
void VtrState::setAudioSignalGenMode(const OrbId &id) { _d->audioSignalGenMode = id; }
void VtrState::setVideoInConvert(const OrbId &id) { _d->videoInConvert = id; }
void VtrState::setVideoOutConvert(const OrbId &id) { _d->videoOutConvert = id; }
void VtrState::setSuperOut(const OrbId &id) { _d->superOut = id; }
void VtrState::setVideoOutputRoute(const OrbId &id) { _d->videoOutputRoute = id; }
void VtrState::setVideoSignalGenFormat(const OrbImageDesc &d) { _d->videoSignalGenFormat = d; }
void VtrState::setInputLut(const OrbImageLut &lut) { _d->inputLut = lut; }
void VtrState::setOutputLut(const OrbImageLut &lut) { _d->outputLut = lut; }
void VtrState::setForcePSFOutput(bool on) { _d->forcePSFOutput = on; }
void VtrState::setForcePSFEncode(bool on) { _d->forcePSFEncode = on; }
void VtrState::setVFREnabled(bool on) { _d->vfrEnable = on; }
void VtrState::setStopOnFrameDrop(bool on) { _d->stopOnFrameDrop = on; }
void VtrState::setStopOnLossOfVideo(bool on) { _d->stopOnLossOfVideo = on; }
