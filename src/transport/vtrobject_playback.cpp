// The life of a played frame.
//
// The stream reads frames ahead into the cache. A pass looks at the frame at the head of the cache:
// when the device is not set up for its format, playback asks for a reset and freezes until that is
// done. Otherwise the frame goes to the device, with its timecode, a mark that mutes sound at other
// speeds than normal, and a key-frame flag at the ends of the stream, where the device reports that
// it has shown it. Whether it also leaves the cache depends on speed, looping and the ends; a frame
// that stays is shown again.
//
// Speed has two carriers: the cache goes 1.0 forward or any speed backward, and the device is told
// the transport's speed, so that it carries out every forward one.

#include "transport/vtrobject.h"

#include "liborb/orblog.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"
#include "transport/playbackdecisions.h"

#include <QTimer>

#include <cmath>

namespace {

constexpr double rewindSpeed = -20.0;
constexpr double fastForwardSpeed = 20.0;
constexpr int resetFromCaptureMs = 0;
constexpr int resetFromPlaybackMs = 500; ///< the frames queued in the format before are shown first

} // namespace

void VtrObject::play(double speed)
{
    if (!allowModeChange(VtrState::Play))
        return;
    const bool wasInPlay = _state.isInModePlay();
    if (wasInPlay && _state.speed() == speed)
        return;
    if (std::isnan(speed)) {
        orbLogOutput(2, logFile, __LINE__, "Play speed is not a number\n");
        return;
    }
    orbLogOutput(3, logFile, __LINE__, "** PLAY %.3lf\n", speed);
    _vdev->setProperty(OrbId(OrbIdPropPlayMode), int(OrbIdPlayModePlay));
    setNewMode(VtrState::Play);
    setSpeed(speed);
    if (wasInPlay)
        videoDeviceFlush();
    process();
}

void VtrObject::play()
{
    play(1.0);
}

void VtrObject::still()
{
    play(0.0);
}

void VtrObject::rewind()
{
    play(rewindSpeed);
}

void VtrObject::fastfwd()
{
    play(fastForwardSpeed);
}

void VtrObject::stop()
{
    if (!allowModeChange(VtrState::Standby))
        return;
    orbLogOutput(3, logFile, __LINE__, "** STOP\n");
    setNewMode(VtrState::Standby);
    process();
}

void VtrObject::cue(int frameNumber)
{
    still();
    _pendingCue = frameNumber;
    _cache->seek(frameNumber);
    videoDeviceFlush();
}

void VtrObject::step(int ct)
{
    if (!_state.isInModePlay()) {
        still();
        return;
    }
    storeSpeed(0.0);
    _stepOffset += ct;
    const int frame = currentFrameNumber();
    orbLogOutput(3, logFile, __LINE__, "Step %d from %d\n", ct, frame);
    _cache->setSpeed(ct < 0 ? -1.0 : 1.0);
    _cache->seek(frame + ct);
    videoDeviceFlush();
}

void VtrObject::setLooping(bool on)
{
    if (_state.isLooping() != on)
        _state.setLooping(on);
}

void VtrObject::setSpeed(double speed)
{
    if (_state.speed() == speed)
        return;
    storeSpeed(speed);
    _cache->setSpeed(cacheSpeedFor(speed));
}

void VtrObject::storeSpeed(double speed)
{
    _state.setSpeed(speed);
    _vdev->setProperty(OrbId(OrbIdPropSpeed), speed);
}

void VtrObject::processModePlay()
{
    const OrbVideoDeviceSetup current = _vdev->currentSetup();
    if (!openStreamForPlay())
        return;
    _vdev->setProperty(OrbId(OrbIdPropPlayMode), int(playModeFor(_state.speedFlags())));
    if (_cache->atStartOfStream())
        _cache->seekToFirstFrame();
    if (_cache->atEndOfStream())
        _cache->seekToLastFrame();
    fillPlaybackQueue(current);
}

/// True when the stream is there to be read.
bool VtrObject::openStreamForPlay()
{
    if (!_stm->isClosed() && _stm->isReadable())
        return true;
    if (!streamOpenForRead()) {
        orbLogOutput(1, logFile, __LINE__, "Failed to open stream for read\n");
        standbyOff();
    }
    return false;
}

void VtrObject::fillPlaybackQueue(const OrbVideoDeviceSetup &current)
{
    const bool isInCapture = current.isInCapture();
    while ((isInCapture || _vdev->framesWritable() != 0) && _cache->framesInCache() > 0) {
        OrbFrame frame = _cache->peek();
        const OrbVideoDeviceSetup wanted = createVideoDevicePlaybackSetupObject(frame);
        if (wanted != current) {
            requirePlaybackSetup(wanted, frame, isInCapture);
            return;
        }
        const bool isFirst = frame.meta().valueFor(OrbId(OrbIdStartOfStream)).toBool();
        const bool isLast = frame.meta().valueFor(OrbId(OrbIdEndOfStream)).toBool();
        takePlayedFrame(isFirst, isLast);
        if (isFirst || isLast)
            frame.setKeyFrameFlag(true);
        frame.meta().insert(OrbId(OrbIdTrickPlay), !_state.speedFlags().isNormalForward());
        setPlayFrameTimecode(frame);
        if (_vdev->writeFrame(frame).isError())
            return;
    }
}

void VtrObject::requirePlaybackSetup(const OrbVideoDeviceSetup &wanted, const OrbFrame &frame,
                                     bool isInCapture)
{
    const QString format =
        frame.vids().isEmpty() ? OrbImageDesc().toString() : frame.vids().first().desc().toString();
    logText(3, QStringLiteral("Cache Level %1, Frame %2 (%3) Requires Video Reset")
                   .arg(QString::number(_cache->framesInCache()),
                        QString::number(_cache->position()), format));
    _playbackSetup = wanted;
    scheduleVideoDeviceReset(isInCapture ? resetFromCaptureMs : resetFromPlaybackMs, true);
}

void VtrObject::takePlayedFrame(bool isFirst, bool isLast)
{
    switch (headAction(_state.speedFlags(), _state.isLooping(), isFirst, isLast)) {
    case HeadAction::Hold: break;
    case HeadAction::Take: _cache->read(); break;
    case HeadAction::SeekToFirst: _cache->seekToFirstFrame(); break;
    case HeadAction::SeekToLast: _cache->seekToLastFrame(); break;
    }
}

void VtrObject::setPlayFrameTimecode(OrbFrame &frame) const
{
    const OrbFrame &asRead = frame;
    if (asRead.meta().valueFor(OrbId(OrbIdTimecode)).value<OrbTimecode>().isValid())
        return;
    const int number = asRead.meta().valueFor(OrbId(OrbIdFrameNumber)).toInt();
    const OrbTimecode timecode(qint64(number), currentTimecodeFrameRate(),
                               _tcgValue.dropFrameFlag());
    frame.meta().insert(OrbId(OrbIdTimecode), QVariant::fromValue(timecode));
}

/// A later Play opens the same material at the same place. A cue or a step that the flush has not
/// carried out by now belongs to the stream that goes. Without a stream there is no place to keep.
void VtrObject::cleanupModePlay()
{
    if (!_stm->isClosed()) {
        _savedPlaybackDesc = _stm->desc();
        _savedPlaybackPosition =
            _vdev->currentFrameMetadata().valueFor(OrbId(OrbIdFrameNumber)).toInt();
    }
    _pendingCue = -1;
    _stepOffset = 0;
    _stm->close();
}

void VtrObject::videoDevicePlayedKeyFrame(const OrbMetadataHash &meta)
{
    if (_state.isLooping())
        return;
    const VtrSpeedFlags flags = _state.speedFlags();
    if (flags.isForward() && meta.valueFor(OrbId(OrbIdEndOfStream)).toBool()) {
        orbLogOutput(3, logFile, __LINE__, "End of stream reached\n");
        still();
    } else if (flags.isReverse() && meta.valueFor(OrbId(OrbIdStartOfStream)).toBool()) {
        orbLogOutput(3, logFile, __LINE__, "Start of stream reached\n");
        still();
    }
}

OrbMetadataHash VtrObject::currentFrameMetadata() const
{
    return _state.isInModePlay() ? _vdev->currentFrameMetadata() : OrbMetadataHash();
}

int VtrObject::currentFrameNumber() const
{
    return currentFrameMetadata().valueFor(OrbId(OrbIdFrameNumber)).toInt();
}
