#include "liborb/drivers/clip/clipsink.h"

#include "libclip/cliprecovery.h"
#include "liborb/drivers/clip/clipformat.h"
#include "liborb/orbthread.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <span>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds syncsApart(250);
constexpr std::chrono::milliseconds looksApart(300);

/// As much as a clip's head takes, so that a full medium shows before the first frame.
constexpr size_t reservedBytes = 16384;

std::span<const std::byte> bytesOf(const OrbBuffer &buffer)
{
    return {reinterpret_cast<const std::byte *>(buffer.data()), buffer.size()};
}

} // namespace

ClipSink::~ClipSink()
{
    (void)close();
}

OrbError ClipSink::open(const QString &path, const OrbStreamInfo &info)
{
    const auto clipInfo = clipformat::clipInfoOf(info);
    if (!clipInfo)
        return _error = OrbError(EINVAL);
    _info = *clipInfo;
    _path = QFile::encodeName(path).toStdString();
    return _error = reserve();
}

/// A frame that cannot be written to any medium is not the medium's failure.
OrbError ClipSink::mediumFailed(const clip::Error &error)
{
    if (error && error.code != EINVAL && _news.failed)
        _news.failed(clipformat::errorOf(error));
    return clipformat::errorOf(error);
}

std::chrono::milliseconds ClipSink::waitingForMedium() const
{
    return std::max(_writing.duration(), _syncing.duration());
}

OrbError ClipSink::reserve()
{
    const MediumCall::Scope call(_writing);
    clip::Error error = _reservation.create(_path);
    if (error)
        return clipformat::errorOf(error);
    const std::string content = clip::reservedContent(reservedBytes);
    error = _reservation.writeAt(0, std::as_bytes(std::span(content)));
    if (!error)
        error = _reservation.sync();
    if (error)
        releaseName();
    return clipformat::errorOf(error);
}

void ClipSink::releaseName()
{
    if (!_reservation.isOpen())
        return;
    ::unlink(_path.c_str());
    _reservation.close();
}

OrbError ClipSink::write(const OrbFrame &frame)
{
    if (_error.isError())
        return _error;
    OrbError error = _isMediumGone ? OrbError(ENODEV) : OrbError();
    if (!error.isError() && _reservation.isOpen())
        error = begin(frame);
    if (!error.isError())
        error = append(frame);
    if (error.isError()) {
        (void)close();
        _error = error;
    }
    return error;
}

OrbError ClipSink::begin(const OrbFrame &first)
{
    _info.timecode = clipformat::startTimecodeOf(
        first.meta().valueFor(OrbId(OrbIdTimecode)).value<OrbTimecode>());
    const MediumCall::Scope call(_writing);
    // The lock on what reserved the name is kept until the clip is there: nobody takes it for a leftover.
    ::unlink(_path.c_str());
    startSyncing();
    clip::Error error;
    {
        const std::lock_guard lock(_writerMutex);
        error = _writer.open(_path, _info);
    }
    _reservation.close();
    if (error)
        stopSyncing();
    return mediumFailed(error);
}

OrbError ClipSink::append(const OrbFrame &frame)
{
    if (frame.vids().isEmpty())
        return OrbError(EINVAL);
    const OrbBuffer picture = frame.vids().first().buffer();
    if (!picture.isValid())
        return OrbError(EINVAL);
    if (!picture.wait())
        return OrbError(EIO);
    OrbBuffer samples;
    if (_info.audio && !frame.auds().isEmpty() && !frame.auds().first().buffers().isEmpty()) {
        samples = frame.auds().first().buffers().first();
        if (!samples.isValid() || !samples.wait())
            return OrbError(EIO);
    }
    return appendBytes(picture, samples);
}

OrbError ClipSink::appendBytes(const OrbBuffer &picture, const OrbBuffer &sound)
{
    const MediumCall::Scope call(_writing);
    const auto samples = sound.isValid() ? bytesOf(sound) : std::span<const std::byte>();
    if (const clip::Error error = _writer.write(bytesOf(picture), samples))
        return mediumFailed(error);
    ++_framesSinceFlush;
    ++_framesTaken;
    if (_writer.hasUncommitted()) {
        const std::lock_guard lock(_wakeMutex);
        _isDirty = true;
        _wake.notify_one();
    }
    return OrbError();
}

/// A recording in real time fills a fragment every half second, which the other thread makes
/// durable. One that is slower, such as an interval recording, has its frames written here.
OrbError ClipSink::flush()
{
    if (_error.isError() || !_writer.isOpen())
        return _error;
    const int frames = std::exchange(_framesSinceFlush, 0);
    const int framesAFragment = _info.video.rateNum / _info.video.rateDen / 2;
    if (frames == 0 || (_syncThread.joinable() && frames > framesAFragment))
        return OrbError();
    const MediumCall::Scope call(_writing);
    clip::Error error;
    {
        const std::lock_guard lock(_writerMutex);
        error = _writer.flush();
    }
    if (!error && _news.committed)
        _news.committed();
    return mediumFailed(error);
}

OrbError ClipSink::close()
{
    const MediumCall::Scope call(_writing);
    releaseName();
    stopSyncing();
    if (!_writer.isOpen())
        return _error;
    const OrbError error = clipformat::errorOf(_writer.close());
    if (_writer.frames() == 0)
        ::unlink(_path.c_str());
    _framesLost = _framesTaken - _writer.committedFrames();
    if (error.isError())
        _error = error;
    return error;
}

void ClipSink::startSyncing()
{
    _isStopping = false;
    try {
        _syncThread = std::thread([this] {
            orbNameThread("clip sync");
            orbRankThread(OrbWork::Background);
            syncUntilStopped();
        });
        _writer.setSyncing(clip::ClipWriter::Syncing::BySync);
    } catch (const std::system_error &) {
        _writer.setSyncing(clip::ClipWriter::Syncing::ByWrite);
    }
}

void ClipSink::stopSyncing()
{
    if (!_syncThread.joinable())
        return;
    {
        const std::lock_guard lock(_wakeMutex);
        _isStopping = true;
        _wake.notify_one();
    }
    _syncThread.join();
}

/// The first wait for the medium makes a fragment durable and shows it to readers, the second makes
/// that durable. The writer keeps the error of a sync; the next frame has it, too.
void ClipSink::syncTwice()
{
    const MediumCall::Scope call(_syncing);
    clip::Error error;
    {
        const std::lock_guard writer(_writerMutex);
        error = _writer.sync();
        if (!error)
            error = _writer.sync();
    }
    if (!error && _news.committed)
        _news.committed();
    (void)mediumFailed(error);
}

/// A medium that is taken away under a writer takes every write and fails none.
void ClipSink::lookForMedium()
{
    const MediumCall::Scope call(_syncing);
    const auto now = std::chrono::steady_clock::now();
    if (_isMediumGone || now - _lastLook < looksApart)
        return;
    _lastLook = now;
    clip::Error error;
    {
        const std::lock_guard writer(_writerMutex);
        error = _writer.isOpen() ? _writer.stillThere() : clip::Error();
    }
    _isMediumGone = bool(error);
    (void)mediumFailed(error);
}

void ClipSink::syncUntilStopped()
{
    std::unique_lock lock(_wakeMutex);
    while (!_isStopping) {
        const bool isWanted =
            _wake.wait_for(lock, looksApart, [this] { return _isDirty || _isStopping; });
        if (_isStopping)
            return;
        _isDirty = false;
        lock.unlock();
        if (isWanted)
            syncTwice();
        lookForMedium();
        lock.lock();
        _wake.wait_for(lock, syncsApart, [this] { return _isStopping; });
    }
}
