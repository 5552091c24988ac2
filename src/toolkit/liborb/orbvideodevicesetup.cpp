#include "liborb/orbvideodevicesetup.h"

namespace {

struct Fields {
    OrbImageDesc imageDesc;
    OrbAudioDesc audioDesc;
    OrbImageLut inputLut;
    OrbImageLut outputLut;
    OrbId inputRefSource;
    OrbId videoOutputType;
    OrbId videoInputSource;
    OrbId audioInputSource;
    OrbId audioInputLevel;
    OrbId videoSignalGenMode;
    OrbId videoSignalGenColorSpace;
    OrbId audioSignalGenMode;
    OrbId cameraInput;
    OrbId videoInConvert;
    OrbId videoOutConvert;
    OrbId superOut;
    OrbId videoOutRoute;
    OrbId timecodeInputSource;
    bool forcePSFOutput = false;
    bool forcePSFEncode = false;
    bool forceVFRRecord = false;
    OrbVideoDeviceSetup::Mode mode = OrbVideoDeviceSetup::None;
    qint32 imageCount = 0;
    // Four fields that nothing sets: they travel unchanged and take part in every comparison.
    qint32 reservedCount = 0;
    bool reservedOn = true;
    bool reservedOff = false;
    qint32 reservedIndex = -1;
    qint32 maxBuffers = 40;
    bool blackingEnabled = false;

    bool operator==(const Fields &) const = default;
};

} // namespace

class OrbVideoDeviceSetupData : public QSharedData
{
public:
    Fields f;
};

OrbVideoDeviceSetup::OrbVideoDeviceSetup() : _d(new OrbVideoDeviceSetupData) {}
OrbVideoDeviceSetup::OrbVideoDeviceSetup(const OrbVideoDeviceSetup &) = default;
OrbVideoDeviceSetup::OrbVideoDeviceSetup(OrbVideoDeviceSetup &&) noexcept = default;
OrbVideoDeviceSetup &OrbVideoDeviceSetup::operator=(const OrbVideoDeviceSetup &) = default;
OrbVideoDeviceSetup &OrbVideoDeviceSetup::operator=(OrbVideoDeviceSetup &&) noexcept = default;
OrbVideoDeviceSetup::~OrbVideoDeviceSetup() = default;

OrbImageDesc OrbVideoDeviceSetup::imageDesc() const { return _d->f.imageDesc; }
OrbAudioDesc OrbVideoDeviceSetup::audioDesc() const { return _d->f.audioDesc; }
OrbImageLut OrbVideoDeviceSetup::inputLut() const { return _d->f.inputLut; }
OrbImageLut OrbVideoDeviceSetup::outputLut() const { return _d->f.outputLut; }
OrbId OrbVideoDeviceSetup::inputRefSource() const { return _d->f.inputRefSource; }
OrbId OrbVideoDeviceSetup::videoOutputType() const { return _d->f.videoOutputType; }
OrbId OrbVideoDeviceSetup::videoInputSource() const { return _d->f.videoInputSource; }
OrbId OrbVideoDeviceSetup::audioInputSource() const { return _d->f.audioInputSource; }
OrbId OrbVideoDeviceSetup::audioInputLevel() const { return _d->f.audioInputLevel; }
OrbId OrbVideoDeviceSetup::videoSignalGenMode() const { return _d->f.videoSignalGenMode; }
OrbId OrbVideoDeviceSetup::videoSignalGenColorSpace() const
{
    return _d->f.videoSignalGenColorSpace;
}
OrbId OrbVideoDeviceSetup::audioSignalGenMode() const { return _d->f.audioSignalGenMode; }
OrbId OrbVideoDeviceSetup::cameraInput() const { return _d->f.cameraInput; }
OrbId OrbVideoDeviceSetup::videoInConvert() const { return _d->f.videoInConvert; }
OrbId OrbVideoDeviceSetup::videoOutConvert() const { return _d->f.videoOutConvert; }
OrbId OrbVideoDeviceSetup::superOut() const { return _d->f.superOut; }
OrbId OrbVideoDeviceSetup::videoOutRoute() const { return _d->f.videoOutRoute; }
OrbId OrbVideoDeviceSetup::timecodeInputSource() const { return _d->f.timecodeInputSource; }
bool OrbVideoDeviceSetup::forcePSFOutput() const { return _d->f.forcePSFOutput; }
bool OrbVideoDeviceSetup::forcePSFEncode() const { return _d->f.forcePSFEncode; }
bool OrbVideoDeviceSetup::forceVFRRecord() const { return _d->f.forceVFRRecord; }
OrbVideoDeviceSetup::Mode OrbVideoDeviceSetup::mode() const { return _d->f.mode; }
int OrbVideoDeviceSetup::imageCount() const { return _d->f.imageCount; }
int OrbVideoDeviceSetup::maxBuffers() const { return _d->f.maxBuffers; }
bool OrbVideoDeviceSetup::blackingEnabled() const { return _d->f.blackingEnabled; }

void OrbVideoDeviceSetup::setImageDesc(const OrbImageDesc &desc) { _d->f.imageDesc = desc; }
void OrbVideoDeviceSetup::setAudioDesc(const OrbAudioDesc &desc) { _d->f.audioDesc = desc; }
void OrbVideoDeviceSetup::setInputLut(const OrbImageLut &lut) { _d->f.inputLut = lut; }
void OrbVideoDeviceSetup::setOutputLut(const OrbImageLut &lut) { _d->f.outputLut = lut; }
void OrbVideoDeviceSetup::setInputRefSource(const OrbId &id) { _d->f.inputRefSource = id; }
void OrbVideoDeviceSetup::setVideoOutputType(const OrbId &id) { _d->f.videoOutputType = id; }
void OrbVideoDeviceSetup::setVideoInputSource(const OrbId &id) { _d->f.videoInputSource = id; }
void OrbVideoDeviceSetup::setAudioInputSource(const OrbId &id) { _d->f.audioInputSource = id; }
void OrbVideoDeviceSetup::setAudioInputLevel(const OrbId &id) { _d->f.audioInputLevel = id; }
void OrbVideoDeviceSetup::setVideoSignalGenMode(const OrbId &id) { _d->f.videoSignalGenMode = id; }
void OrbVideoDeviceSetup::setVideoSignalGenColorSpace(const OrbId &id)
{
    _d->f.videoSignalGenColorSpace = id;
}
void OrbVideoDeviceSetup::setAudioSignalGenMode(const OrbId &id) { _d->f.audioSignalGenMode = id; }
void OrbVideoDeviceSetup::setCameraInput(const OrbId &id) { _d->f.cameraInput = id; }
void OrbVideoDeviceSetup::setVideoInConvert(const OrbId &id) { _d->f.videoInConvert = id; }
void OrbVideoDeviceSetup::setVideoOutConvert(const OrbId &id) { _d->f.videoOutConvert = id; }
void OrbVideoDeviceSetup::setSuperOut(const OrbId &id) { _d->f.superOut = id; }
void OrbVideoDeviceSetup::setVideoOutRoute(const OrbId &id) { _d->f.videoOutRoute = id; }
void OrbVideoDeviceSetup::setTimecodeInputSource(const OrbId &id)
{
    _d->f.timecodeInputSource = id;
}
void OrbVideoDeviceSetup::setForcePSFOutput(bool on) { _d->f.forcePSFOutput = on; }
void OrbVideoDeviceSetup::setForcePSFEncode(bool on) { _d->f.forcePSFEncode = on; }
void OrbVideoDeviceSetup::setForceVFRRecord(bool on) { _d->f.forceVFRRecord = on; }
void OrbVideoDeviceSetup::setMode(Mode mode) { _d->f.mode = mode; }
void OrbVideoDeviceSetup::setImageCount(int count) { _d->f.imageCount = count; }
void OrbVideoDeviceSetup::setMaxBuffers(int count) { _d->f.maxBuffers = count; }
void OrbVideoDeviceSetup::setBlackingEnabled(bool on) { _d->f.blackingEnabled = on; }

bool OrbVideoDeviceSetup::operator==(const OrbVideoDeviceSetup &other) const
{
    return _d == other._d || _d->f == other._d->f;
}
