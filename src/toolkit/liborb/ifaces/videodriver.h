#pragma once

#include "liborb/orbalarm.h"
#include "liborb/orberror.h"
#include "liborb/orbframe.h"
#include "liborb/orbmetadata.h"
#include "liborb/orbvbiinfo.h"
#include "liborb/orbvideodevicesetup.h"
#include "liborb/orbvideostate.h"

#include <QString>
#include <QVariant>

/// How well a device keeps up with what it captures.
struct OrbCaptureFigures {
    int waitingFrames = 0;          ///< captured and not yet released by whoever has them
    double medianCodingMs = 0.0;    ///< from the request for a frame's bytes to the bytes, over the last seconds
    double worstCodingMs = 0.0;
    quint64 lateFrames = 0;         ///< since the device was opened: begun late, or left out
};

/// What a video driver tells the device in front of it. Every call is made on the event-loop thread.
class OrbVideoDriverHost
{
public:
    virtual ~OrbVideoDriverHost() = default;
    virtual void driverVbi(const OrbVbiInfo &info) = 0;
    virtual void driverSetupIsDone(const OrbError &error) = 0;
    virtual void driverPlayedKeyFrame(const OrbMetadataHash &meta) = 0;
    virtual void driverFrameDropped() = 0;
    virtual void driverReadFailed(const OrbError &error) = 0;
    virtual void driverWriteFailed(const OrbError &error, const OrbFrame &frame) = 0;
    virtual void driverHardwareStarted() = 0;
    virtual void driverFlushed(const OrbMetadataHash &meta) = 0;
    virtual void driverInputChanged(int input, const OrbVideoState &state) = 0;
    virtual void driverFirmwareLoading(const QString &id, bool done) = 0;
    virtual void driverRaiseVfrAlarm(bool active) = 0;
    virtual void driverInputAncDataChanged(const OrbMetadataHash &data) = 0;
    virtual void driverAlarm(const OrbAlarm &alarm) = 0;
};

/// What a video driver must do. The device calls it on the event-loop thread; no call waits for hardware,
/// a codec or a medium. A driver that works on threads of its own posts its answers to the host.
class OrbVideoDriver
{
public:
    virtual ~OrbVideoDriver() = default; ///< stops all threads; the host is not called any more

    // Answers at once
    virtual bool open(const QString &name, OrbVideoDriverHost *host) = 0;
    virtual void close() = 0;
    virtual void setProperty(const OrbId &id, const QVariant &value) = 0;
    virtual int framesReadable() const = 0;
    virtual int framesWritable() const = 0;
    virtual OrbError readFrame(OrbFrame &frame) = 0; ///< EAGAIN when none waits
    virtual OrbError writeFrame(const OrbFrame &frame) = 0; ///< EAGAIN when the queue is full
    virtual OrbMetadataHash currentFrameMetadata() const = 0;
    virtual OrbVideoRefState refInputState(int index) const = 0;
    virtual QString stateAsString() const = 0;
    virtual OrbCaptureFigures captureFigures() const { return OrbCaptureFigures(); }

    // Starts and completes by a call of the host
    /// Completes by driverSetupIsDone(). An error answered here means refused, nothing started.
    virtual OrbError setup(const OrbVideoDeviceSetup &setup) = 0;
    /// Drops the frames queued for output; the picture on output stays until the next one is written.
    /// Completes by driverFlushed() with the metadata of the frame at which output stopped.
    virtual void flush() = 0;
};
