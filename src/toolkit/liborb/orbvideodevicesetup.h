#pragma once

#include "liborb/orbaudiodesc.h"
#include "liborb/orbid.h"
#include "liborb/orbimagedesc.h"
#include "liborb/orbimagelut.h"

#include <QMetaType>
#include <QSharedDataPointer>

class OrbVideoDeviceSetupData;

/// The complete configuration handed to a video device in one piece. Implicitly shared.
class OrbVideoDeviceSetup
{
public:
    enum Mode { None = 0, Playback = 1, Capture = 2 };

    OrbVideoDeviceSetup();
    OrbVideoDeviceSetup(const OrbVideoDeviceSetup &);
    OrbVideoDeviceSetup(OrbVideoDeviceSetup &&) noexcept;
    OrbVideoDeviceSetup &operator=(const OrbVideoDeviceSetup &);
    OrbVideoDeviceSetup &operator=(OrbVideoDeviceSetup &&) noexcept;
    ~OrbVideoDeviceSetup();

    bool isInCapture() const { return mode() == Capture; }

    OrbImageDesc imageDesc() const;
    OrbAudioDesc audioDesc() const;
    OrbImageLut inputLut() const;
    OrbImageLut outputLut() const;
    OrbId inputRefSource() const;
    OrbId videoOutputType() const;
    OrbId videoInputSource() const;
    OrbId audioInputSource() const;
    OrbId audioInputLevel() const;
    OrbId videoSignalGenMode() const;
    OrbId videoSignalGenColorSpace() const;
    OrbId audioSignalGenMode() const;
    OrbId cameraInput() const;
    OrbId videoInConvert() const;
    OrbId videoOutConvert() const;
    OrbId superOut() const;
    OrbId videoOutRoute() const;
    OrbId timecodeInputSource() const;
    bool forcePSFOutput() const;
    bool forcePSFEncode() const;
    bool forceVFRRecord() const;
    Mode mode() const;
    int imageCount() const;
    int maxBuffers() const; ///< frames that may be captured and not yet released; 40 by default
    bool blackingEnabled() const;

    void setImageDesc(const OrbImageDesc &desc);
    void setAudioDesc(const OrbAudioDesc &desc);
    void setInputLut(const OrbImageLut &lut);
    void setOutputLut(const OrbImageLut &lut);
    void setInputRefSource(const OrbId &id);
    void setVideoOutputType(const OrbId &id);
    void setVideoInputSource(const OrbId &id);
    void setAudioInputSource(const OrbId &id);
    void setAudioInputLevel(const OrbId &id);
    void setVideoSignalGenMode(const OrbId &id);
    void setVideoSignalGenColorSpace(const OrbId &id);
    void setAudioSignalGenMode(const OrbId &id);
    void setCameraInput(const OrbId &id);
    void setVideoInConvert(const OrbId &id);
    void setVideoOutConvert(const OrbId &id);
    void setSuperOut(const OrbId &id);
    void setVideoOutRoute(const OrbId &id);
    void setTimecodeInputSource(const OrbId &id);
    void setForcePSFOutput(bool on);
    void setForcePSFEncode(bool on);
    void setForceVFRRecord(bool on);
    void setMode(Mode mode);
    void setMode(int mode) { setMode(static_cast<Mode>(mode)); }
    void setImageCount(int count);
    void setMaxBuffers(int count);
    void setBlackingEnabled(bool on);

    /// Every field is equal.
    bool operator==(const OrbVideoDeviceSetup &other) const;
    bool operator!=(const OrbVideoDeviceSetup &other) const { return !(*this == other); }

private:
    QSharedDataPointer<OrbVideoDeviceSetupData> _d;
};

Q_DECLARE_METATYPE(OrbVideoDeviceSetup)
