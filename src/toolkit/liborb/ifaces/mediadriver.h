#pragma once

#include "liborb/orberror.h"
#include "liborb/orbframe.h"
#include "liborb/orbid.h"
#include "liborb/orbstreaminfo.h"

#include <QVariant>

/// How a stream is opened.
enum class OrbAccess { None = 0, Read = 1, Write = 2 };

/// What a media driver tells its stream. Every call is made on the event-loop thread, in the order of the
/// requests.
class OrbMediaDriverHost
{
public:
    virtual ~OrbMediaDriverHost() = default;
    virtual void driverOpened(const OrbError &error, const OrbStreamInfo &info) = 0;
    /// More frames of a stream that is open for reading can be read, or it grows no more.
    virtual void driverGrew(const OrbStreamInfo &) {}
    virtual void driverClosed() = 0;
    virtual void driverFrameRead(int frame, const OrbFrame &data, const OrbError &error,
                                 void *context) = 0;
    /// \a frame counts the frames written from 0. One that was answered, and that closing the stream loses,
    /// is answered again before driverClosed().
    virtual void driverFrameWritten(int frame, const OrbError &error) = 0;

    /// The medium of the clip \a failed does not take what is written. The answer names another clip that
    /// the stream can go on in, on another medium; an invalid one says that there is none.
    virtual QVariant driverSpareDesc(const QVariant &failed, const OrbError &error)
    {
        Q_UNUSED(failed)
        Q_UNUSED(error)
        return QVariant();
    }
    /// The stream goes on in \a desc, which begins with the first frame that is not safe in \a failed.
    virtual void driverWentOver(const QVariant &failed, const QVariant &desc, const OrbError &error)
    {
        Q_UNUSED(failed)
        Q_UNUSED(desc)
        Q_UNUSED(error)
    }
    /// The medium of \a failed takes no more and there is none to go on: the stream has lost its last
    /// \a framesLost frames, and takes no further ones.
    virtual void driverMediumFailed(const QVariant &failed, const OrbError &error, int framesLost)
    {
        Q_UNUSED(failed)
        Q_UNUSED(error)
        Q_UNUSED(framesLost)
    }
    /// The medium keeps frames waiting for longer than it should, or no longer does.
    virtual void driverMediumSlow(bool isSlow) { Q_UNUSED(isSlow) }
};

/// What a media driver must do for one open stream. The stream calls it on the event-loop thread; no call
/// waits for the medium. Requests are carried out in order; close() comes last, after all frames written
/// before it are on the medium, and is answered by driverClosed() also when the open failed.
class OrbMediaDriver
{
public:
    virtual ~OrbMediaDriver() = default; ///< the host is not called any more; may leave a hung medium behind

    virtual void open(const QVariant &desc, OrbAccess access, const OrbStreamInfo &info) = 0;
    virtual void read(int frame, void *context) = 0;
    virtual void write(const OrbFrame &frame) = 0;
    virtual void flush() = 0;
    virtual void close() = 0;
};
