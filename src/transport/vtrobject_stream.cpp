// The stream: how it is opened, opened anew, and closed.
//
// The engine does not know where media lives. Before every open it asks the controller for a
// descriptor; the question is answered before the emit returns. What comes of it is told by
// streamIsOpen() and streamIsClosed(), and storageInUse() tells of the time between.
//
// Where playback begins: at the start, at the place left before when the stream is of the same
// media, or at a cue. A cue is carried out when the device has flushed; when the stream is not open
// by then, it waits for the open instead, and goes before the place left.

#include "transport/vtrobject.h"

#include "liborb/orblog.h"
#include "liborb/orbconnect.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"
#include "transport/playbackdecisions.h"

#include <QFile>
#include <QTimer>

#include <array>
#include <cstdio>

namespace {

constexpr char benchmarkPath[] = "/rvd_bench.txt";
constexpr size_t benchmarkLineSize = 256;
constexpr int flushPeriodMs = 1000;
constexpr int accessRead = 1;
constexpr int accessWrite = 2;

/// At most one video and one audio description, those of the frame's first image and first sound.
OrbStreamInfo infoForRecord(const OrbFrame &frame, const QString &reelName)
{
    OrbStreamInfo info;
    const QVariant rate = frame.meta().valueFor(OrbId(OrbIdEffectiveFrameRate));
    if (rate.isValid())
        info.setEffectiveFrameRate(
            OrbVideoRate(static_cast<OrbVideoRate::StdRate>(rate.toInt())));
    info.setReelName(reelName);
    if (!frame.vids().isEmpty())
        info.vids().append(frame.vids().first().desc());
    if (!frame.auds().isEmpty())
        info.auds().append(frame.auds().first().desc());
    info.setOffset(0);
    return info;
}

} // namespace

bool VtrObject::streamOpenForRead()
{
    QVariant desc;
    int startFrame = 0;
    emit requestPlaybackStreamDesc(desc, startFrame);
    if (!desc.isValid()) {
        orbLogOutput(1, logFile, __LINE__, "STREAM: Failed to get a playback stream descriptor\n");
        return false;
    }
    emit storageInUse(true);
    _stm->close();
    _stm->setAutoType();
    _stm->setDesc(desc);
    if (!_stm->open(accessRead)) {
        orbLogOutput(1, logFile, __LINE__, "STREAM: Open for read failed");
        emit storageInUse(false);
        return false;
    }
    if (startFrame > 0) {
        _pendingCue = startFrame;
        videoDeviceFlush();
    }
    orbLogOutput(3, logFile, __LINE__, "STREAM: Open for Read Started\n");
    return true;
}

bool VtrObject::streamOpenForWrite(const OrbFrame &firstFrame)
{
    QVariant desc;
    emit requestRecordStreamDesc(desc);
    if (!desc.isValid()) {
        orbLogOutput(1, logFile, __LINE__, "STREAM: Failed to get a record stream descriptor\n");
        return false;
    }
    emit storageInUse(true);
    _stm->close();
    _stm->setInfo(infoForRecord(firstFrame, _reelName));
    _stm->setType(OrbId(OrbIdStreamTypeRecord));
    _stm->setDesc(desc);
    if (!_stm->open(accessWrite)) {
        orbLogOutput(1, logFile, __LINE__, "STREAM: Open for write failed");
        emit storageInUse(false);
        return false;
    }
    orbLogOutput(3, logFile, __LINE__, "STREAM: Open for Write Started\n");
    return true;
}

bool VtrObject::reopenRecordStream()
{
    if (!_stm->isOpen()) {
        orbLogOutput(1, logFile, __LINE__,
                     "STREAM: Can't reopen record stream: Stream is not open\n");
        return false;
    }
    if (!_stm->isWritable()) {
        orbLogOutput(1, logFile, __LINE__,
                     "STREAM: Can't reopen record stream: Stream isn't writable\n");
        return false;
    }
    orbLogOutput(3, logFile, __LINE__, "STREAM: Reopen Record Stream\n");
    _stm->close();
    return true;
}

bool VtrObject::reopenPlaybackStream()
{
    if (!_stm->isOpen()) {
        orbLogOutput(1, logFile, __LINE__,
                     "STREAM: Can't reopen playback stream: Stream is not open\n");
        return false;
    }
    if (!_stm->isReadable()) {
        orbLogOutput(1, logFile, __LINE__,
                     "STREAM: Can't reopen playback stream: Stream is not readable\n");
        return false;
    }
    orbLogOutput(3, logFile, __LINE__, "STREAM: Reopen Playback Stream\n");
    _savedPlaybackDesc = _stm->desc();
    _savedPlaybackPosition = _cache->position();
    _stm->close();
    videoDeviceFlush();
    return true;
}

/// What comes of an open is told before frames are processed: they might start the next one.
void VtrObject::streamOpenIsDone(int, const OrbError &error)
{
    _isStreamNewsDue = true;
    if (error.isError()) {
        logText(1, QStringLiteral("STREAM: Open Error %1").arg(error.value()));
        dropHeldFrame();
        emit storageInUse(false);
        standbyOff();
    } else {
        if (_state.isInModePlay())
            resumePlaybackPosition();
        else if (_state.isInModeRecord())
            _flushTimer->start(flushPeriodMs);
        orbLogOutput(3, logFile, __LINE__, "STREAM: Open is Done\n");
    }
    emit streamIsOpen(error, _stm->info());
    _isStreamNewsDue = false;
}

void VtrObject::resumePlaybackPosition()
{
    int position = 0;
    if (_stm->hasDesc(_savedPlaybackDesc)) {
        position = _savedPlaybackPosition;
        orbLogOutput(3, logFile, __LINE__, "Starting at prior playback position of %d\n", position);
        _cache->seek(position);
    }
    const bool isAwaited = _pendingCue != -1 || _stepOffset != 0;
    if (!isAwaited || _vdev->isFlushing())
        return;
    _cache->seek(frameAfterFlush(position, _pendingCue, _stepOffset));
    _pendingCue = -1;
    _stepOffset = 0;
}

void VtrObject::streamCloseIsDone()
{
    _isStreamNewsDue = true;
    _flushTimer->stop();
    emit storageInUse(false);
    orbLogOutput(3, logFile, __LINE__, "STREAM: Close is Done\n");
    emit streamIsClosed();
    _isStreamNewsDue = false;
}

void VtrObject::streamFlush()
{
    if (_stm && _stm->isWritable())
        _stm->flush();
}

void VtrObject::cacheError(int frame, const OrbError &error)
{
    logText(2, QStringLiteral("STREAM: Cache Error @ %1: %2").arg(frame).arg(error.value()));
}

// Benchmark ---------------------------------------------------------------------------------------

void VtrObject::enableStreamBenchmark()
{
    ORB_TESTED(connect(_stm, SIGNAL(benchmark(int, const OrbTimeStamp &)), this,
                       SLOT(streamBenchmark(int, const OrbTimeStamp &))));
    _stm->setBenchmarkEnable(true);
}

/// The file is kept whether it could be opened or not, so a failed open is not tried again.
void VtrObject::streamBenchmark(int id, const OrbTimeStamp &ts)
{
    if (!_benchmarkFile) {
        _benchmarkFile = new QFile(QString::fromLatin1(benchmarkPath), this);
        if (_benchmarkFile->open(QIODevice::WriteOnly))
            logText(3, QStringLiteral("Benchmark file opened: %1").arg(_benchmarkFile->fileName()));
        else
            logText(1, QStringLiteral("Failed to open benchmark file: %1")
                           .arg(_benchmarkFile->fileName()));
    }
    if (!_benchmarkFile->isWritable())
        return;
    std::array<char, benchmarkLineSize> line = {};
    std::snprintf(line.data(), line.size(), "%d %lf\n", id, ts.toDouble());
    _benchmarkFile->write(line.data());
}
