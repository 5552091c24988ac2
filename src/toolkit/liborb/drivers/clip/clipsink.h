#pragma once

#include "libclip/clipwriter.h"
#include "libclip/rawfile.h"
#include "liborb/drivers/clip/mediumcall.h"
#include "liborb/orberror.h"
#include "liborb/orbframe.h"
#include "liborb/orbstreaminfo.h"

#include <QString>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

/// One clip file being written, on an I/O thread: every call may wait for the medium. What is
/// written is made durable by a second thread, so that a slow sync does not hold up the writing.
class ClipSink
{
public:
    /// What happens on the sink's threads, told from there at once. Both may come more than once.
    struct News
    {
        std::function<void(const OrbError &)> failed; ///< the medium; nothing has been done about it yet
        std::function<void()> committed;              ///< framesCommitted() may have grown
    };

    ClipSink() = default;
    explicit ClipSink(News news) : _news(std::move(news)) {}
    ~ClipSink();
    ClipSink(const ClipSink &) = delete;
    ClipSink &operator=(const ClipSink &) = delete;

    /// Takes the name and makes sure that the medium can be written: EEXIST, EROFS, ENOSPC … show
    /// here. EINVAL for what no clip can hold. The clip itself begins with its first frame, whose
    /// timecode is the clip's; a clip that is closed without one leaves no file.
    OrbError open(const QString &path, const OrbStreamInfo &info);
    /// Waits for the frame's promised buffers. After an error the clip is closed as far as it went
    /// and every further frame has the same error.
    OrbError write(const OrbFrame &frame);
    OrbError flush();
    OrbError close();
    /// Frames that write() took and the clip does not have for good; known once it is closed, also
    /// by an error. They are its last.
    qint64 framesLost() const { return _framesLost; }
    /// Frames that survive a loss of power by now. Any thread.
    qint64 framesCommitted() const { return _writer.committedFrames(); }
    /// Frames that write() took.
    qint64 framesTaken() const { return _framesTaken; }
    /// How long the medium has not answered a call that is under way; zero when none is. Any thread.
    std::chrono::milliseconds waitingForMedium() const;

private:
    OrbError reserve();
    OrbError begin(const OrbFrame &first);
    OrbError append(const OrbFrame &frame);
    OrbError appendBytes(const OrbBuffer &picture, const OrbBuffer &sound);
    OrbError mediumFailed(const clip::Error &error);
    void lookForMedium();
    void releaseName();
    void startSyncing();
    void stopSyncing();
    void syncUntilStopped();
    void syncTwice();

    const News _news;
    std::string _path;
    clip::ClipInfo _info;
    clip::ClipWriter _writer;
    OrbError _error;
    clip::RawFile _reservation; ///< holds the name until the clip begins
    int _framesSinceFlush = 0;
    qint64 _framesTaken = 0;
    qint64 _framesLost = 0;
    MediumCall _writing;
    MediumCall _syncing;
    std::atomic<bool> _isMediumGone{false};

    std::thread _syncThread;
    std::mutex _writerMutex; ///< keeps syncs apart from flush and close
    std::mutex _wakeMutex;
    std::condition_variable _wake;
    bool _isDirty = false;
    std::chrono::steady_clock::time_point _lastLook{}; ///< the sync thread's own
    bool _isStopping = false;
};
