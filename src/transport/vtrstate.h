#pragma once

#include "liborb/orbid.h"
#include "liborb/orbimagedesc.h"
#include "liborb/orbimagelut.h"
#include "transport/vtrspeedflags.h"

#include <QMetaType>
#include <QSharedData>
#include <QSharedDataPointer>
#include <QString>

class VtrStateData;

/// What the transport is doing and how it is set up. Implicitly shared: a copy never sees a change
/// made to another copy. Registered with the meta-type system as "VtrState".
class VtrState
{
public:
    /// The numbers travel in signals and are published.
    enum Mode : qint32 {
        Startup = 0,
        Shutdown = 1,
        StandbyOff = 2, ///< input to output, no stream open
        Standby = 3,    ///< stopped, stream open
        Play = 4,
        Record = 5
    };

    /// Startup, speed 0, 2 audio channels, record interval 1; every flag off but stop on loss of
    /// video.
    VtrState();
    VtrState(const VtrState &);
    VtrState(VtrState &&) noexcept;
    VtrState &operator=(const VtrState &);
    VtrState &operator=(VtrState &&) noexcept;
    ~VtrState();

    Mode mode() const;
    QString modeName() const;
    /// "Standby Off"; "Mode 9" for a number that is no mode.
    static QString modeName(Mode mode);
    bool isInModePlay() const { return mode() == Play; }
    bool isInModeRecord() const { return mode() == Record; }
    bool isInModeStandbyOff() const { return mode() == StandbyOff; }
    double speed() const; ///< 1.0 is normal forward, negative is reverse
    VtrSpeedFlags speedFlags() const; ///< always those of speed()
    bool isLooping() const;

    bool intervalRecordEnable() const;
    int recordInterval() const;     ///< frames to record in a period
    int recordIntervalTime() const; ///< the period: 0 a second, 1 a minute, 2 an hour
    int audioChans() const;

    OrbId encodeFormat() const;
    OrbId videoOutputType() const;
    OrbId videoInputSource() const;
    OrbId audioInputSource() const;
    OrbId audioInputLevel() const;
    OrbId syncSource() const;
    OrbId cameraInput() const;
    OrbId videoSignalGenMode() const;
    OrbId audioSignalGenMode() const;
    OrbId videoInConvert() const;
    OrbId videoOutConvert() const;
    OrbId superOut() const;
    OrbId videoOutputRoute() const;
    OrbImageDesc videoSignalGenFormat() const;
    OrbImageLut inputLut() const;
    OrbImageLut outputLut() const;
    bool forcePSFOutput() const;
    bool forcePSFEncode() const;
    bool vfrEnable() const;
    bool stopOnFrameDrop() const;
    bool stopOnLossOfVideo() const;

    void setMode(Mode mode);
    void setSpeed(double speed);
    void setLooping(bool on);
    void setIntervalRecordEnable(bool on);
    void setRecordInterval(int frames);
    void setRecordIntervalTime(int period);
    void setAudioChans(int count);
    void setEncodeFormat(const OrbId &id);
    void setVideoOutputType(const OrbId &id);
    void setVideoInputSource(const OrbId &id);
    void setAudioInputSource(const OrbId &id);
    void setAudioInputLevel(const OrbId &id);
    void setSyncSource(const OrbId &id);
    void setCameraInput(const OrbId &id);
    void setVideoSignalGenMode(const OrbId &id);
    void setAudioSignalGenMode(const OrbId &id);
    void setVideoInConvert(const OrbId &id);
    void setVideoOutConvert(const OrbId &id);
    void setSuperOut(const OrbId &id);
    void setVideoOutputRoute(const OrbId &id);
    void setVideoSignalGenFormat(const OrbImageDesc &desc);
    void setInputLut(const OrbImageLut &lut);
    void setOutputLut(const OrbImageLut &lut);
    void setForcePSFOutput(bool on);
    void setForcePSFEncode(bool on);
    void setVFREnabled(bool on);
    void setStopOnFrameDrop(bool on);
    void setStopOnLossOfVideo(bool on);

    /// As VtrStateData compares.
    bool operator==(const VtrState &other) const;
    bool operator!=(const VtrState &other) const { return !(*this == other); }
    /// "1.000 Play ": speed and mode, each followed by a blank.
    QString toString() const;

private:
    QSharedDataPointer<VtrStateData> _d;
};

Q_DECLARE_METATYPE(VtrState)
Q_DECLARE_METATYPE(VtrState::Mode)

/// The record behind a VtrState.
class VtrStateData : public QSharedData
{
public:
    VtrState::Mode mode = VtrState::Startup;
    qint32 audioChans = 2;
    qint32 recordInterval = 1;
    qint32 recordIntervalTime = 0;
    bool intervalRecordEnable = false;
    bool isLooping = false;

private:
    double _speed = 0.0;
    VtrSpeedFlags _speedFlags = VtrSpeedFlags::fromSpeed(0.0);

public:
    OrbId encodeFormat;
    OrbId videoOutputType;
    OrbId videoInputSource;
    OrbId audioInputSource;
    OrbId audioInputLevel;
    OrbId syncSource;
    OrbId cameraInput;
    OrbId videoSignalGenMode;
    OrbId audioSignalGenMode;
    OrbId videoInConvert;
    OrbId videoOutConvert;
    OrbId superOut;
    OrbId videoOutputRoute;
    bool forcePSFOutput = false;
    bool forcePSFEncode = false;
    bool vfrEnable = false;
    OrbImageDesc videoSignalGenFormat;
    OrbImageLut inputLut;
    OrbImageLut outputLut;
    bool stopOnFrameDrop = false;
    bool stopOnLossOfVideo = true; ///< the one flag that starts on, deliberately

    double speed() const { return _speed; }
    VtrSpeedFlags speedFlags() const { return _speedFlags; }
    /// The only way to change the speed, so that the flags always follow it.
    void setSpeed(double speed);

    /// Every field but two: the speed flags follow from the speed, and stopOnLossOfVideo is
    /// deliberately left out, so that changing it alone publishes no change of state.
    bool operator==(const VtrStateData &other) const;
    bool operator!=(const VtrStateData &other) const { return !(*this == other); }
    QString toString() const;
};
