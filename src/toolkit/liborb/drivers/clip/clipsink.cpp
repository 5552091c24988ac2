#include "liborb/drivers/clip/clipsink.h"

#include "libclip/cliprecovery.h"
#include "liborb/drivers/clip/clipformat.h"
#include "liborb/orbthread.h"

#include <QFile>

#include <cerrno>
#include <chrono>
#include <span>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds syncsApart(250);

/// As much as a clip's head takes, so that a full medium shows before the first frame.
constexpr size_t reservedBytes = 16384;

/// Takes the name exclusively and tries the medium. Answers an errno value.
int takeName(const std::string &path)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const int file = ::open(path.c_str(), flags, 0644);
    if (file < 0)
        return errno;
    const std::string content = clip::reservedContent(reservedBytes);
    int error = 0;
    size_t written = 0;
    while (error == 0 && written < content.size()) {
        const ssize_t count = ::write(file, content.data() + written, content.size() - written);
        if (count < 0 && errno != EINTR)
            error = errno;
        else if (count > 0)
            written += size_t(count);
    }
    if (error == 0 && ::fdatasync(file) != 0)
        error = errno;
    ::close(file);
    if (error != 0)
        ::unlink(path.c_str());
    return error;
}

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

OrbError ClipSink::reserve()
{
    const OrbError error(takeName(_path));
    _isReserved = !error.isError();
    return error;
}

void ClipSink::releaseName()
{
    if (std::exchange(_isReserved, false))
        ::unlink(_path.c_str());
}

OrbError ClipSink::write(const OrbFrame &frame)
{
    if (_error.isError())
        return _error;
    OrbError error = _isReserved ? begin(frame) : OrbError();
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
    releaseName();
    startSyncing();
    const clip::Error error = _writer.open(_path, _info);
    if (error)
        stopSyncing();
    return clipformat::errorOf(error);
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
    std::span<const std::byte> sound;
    OrbBuffer samples;
    if (_info.audio && !frame.auds().isEmpty() && !frame.auds().first().buffers().isEmpty()) {
        samples = frame.auds().first().buffers().first();
        if (!samples.isValid() || !samples.wait())
            return OrbError(EIO);
        sound = bytesOf(samples);
    }
    if (const clip::Error error = _writer.write(bytesOf(picture), sound))
        return clipformat::errorOf(error);
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
    const std::lock_guard lock(_writerMutex);
    return clipformat::errorOf(_writer.flush());
}

OrbError ClipSink::close()
{
    releaseName();
    stopSyncing();
    if (!_writer.isOpen())
        return _error;
    const OrbError error = clipformat::errorOf(_writer.close());
    if (_writer.frames() == 0)
        ::unlink(_path.c_str());
    _framesLost = _framesTaken - _writer.committedFrames();
    return error;
}

void ClipSink::startSyncing()
{
    _isStopping = false;
    try {
        _syncThread = std::thread([this] {
        orbNameThread("clip sync");
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

/// Two waits for the medium a fragment: the first makes it durable and shows it to readers, the second
/// makes that durable. The writer keeps the error of a sync; the next frame has it.
void ClipSink::syncUntilStopped()
{
    std::unique_lock lock(_wakeMutex);
    while (!_isStopping) {
        _wake.wait(lock, [this] { return _isDirty || _isStopping; });
        if (_isStopping)
            return;
        _isDirty = false;
        lock.unlock();
        {
            const std::lock_guard writer(_writerMutex);
            if (!_writer.sync())
                (void)_writer.sync();
        }
        lock.lock();
        _wake.wait_for(lock, syncsApart, [this] { return _isStopping; });
    }
}
