#pragma once

#include "liborb/drivers/software/rawpicture.h"
#include "liborb/orbframe.h"
#include "liborb/orbtimecode.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

namespace ferin {

/// Counts things that are out and how many may be. Tokens may outlive the counter. Thread-safe.
class Allowance
{
public:
    explicit Allowance(int limit) : _limit(limit), _out(std::make_shared<std::atomic<int>>(0)) {}
    int limit() const { return _limit; }
    int out() const { return _out->load(); }
    bool isUsedUp() const { return out() >= _limit; }
    /// Out from now until the last copy of the answer goes.
    std::shared_ptr<void> take();

private:
    int _limit;
    std::shared_ptr<std::atomic<int>> _out;
};

/// A raw picture that counts against \a allowance until nobody needs it any more.
RawPictureRef counted(const RawPictureRef &raw, Allowance &allowance);

/// A captured frame that nobody has read yet. Its label is given when it is read.
struct CaptureEntry {
    OrbFrame frame;
    std::int64_t number = 0;    ///< counts captured frames, lost ones included
    OrbTimecode inputTimecode;
    bool cameraRecords = false;
};

/// Captured frames in order, bounded by the frames that were captured and are not yet released, by
/// whoever has them now. Not thread-safe itself; releases may come from any thread.
class CaptureQueue
{
public:
    /// \a isRateKept: a frame's bytes depend on the pictures coded before it, so the order of coding matters.
    explicit CaptureQueue(int maxBuffers, bool isRateKept = false) : _frames(maxBuffers), _isRateKept(isRateKept) {}
    bool isFull() const { return _frames.isUsedUp() || size() >= _frames.limit(); }
    int size() const { return static_cast<int>(_entries.size()); }
    int unreleased() const { return _frames.out(); }
    /// Queues a frame; \a hooked is the buffer whose release releases the frame, if it has one.
    void push(const CaptureEntry &entry, OrbBuffer hooked);
    /// The frame that waits longest. In a recording that keeps a rate its pictures are requested here, not when
    /// it is written: requestWaiting() may come in between, and would have the frames behind it coded first.
    std::optional<CaptureEntry> pop();
    /// Has the pictures of all waiting frames coded, in order: coded they take far less room than raw.
    void requestWaiting();
    /// Begins or ends a recording. The frame read last is its first one when the camera had started it.
    void setRecording(bool isRecording);
    /// The number of the frame read next, nothing when none waits.
    std::optional<std::int64_t> nextNumber() const;

private:
    Allowance _frames;
    bool _isRateKept = false;
    bool _isRecording = false;
    OrbFrame _mayBeFirst; ///< of the next recording
    std::deque<CaptureEntry> _entries;
    std::size_t _requested = 0; ///< of the first entries
};

} // namespace ferin
