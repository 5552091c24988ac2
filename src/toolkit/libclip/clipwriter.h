#pragma once

#include "libclip/clip.h"

#include <cstddef>
#include <memory>
#include <span>

namespace clip {

/// Writes one QuickTime .mov clip: video as it comes, PCM 24-bit audio, a timecode track with start
/// timecode and reel name. While it grows the file is a fragmented movie that ordinary readers open
/// up to the last fragment (at most half a second); close() makes it an ordinary, unfragmented one
/// in place. The room that close() needs is reserved before a frame is written, so that it works
/// on a full medium. Every call may wait for the medium: use it from an I/O thread. Not thread-safe, but
/// for sync(), stillThere() and committedFrames().
class ClipWriter
{
public:
    /// Who makes fragments durable: write() itself, or another thread that calls sync() in time.
    enum class Syncing { ByWrite, BySync };

    ClipWriter();
    ~ClipWriter(); ///< closes, ignoring the outcome
    ClipWriter(const ClipWriter &) = delete;
    ClipWriter &operator=(const ClipWriter &) = delete;

    /// For the clips opened from now on; ByWrite unless set.
    void setSyncing(Syncing syncing);

    /// Creates \a path, which must not exist (EEXIST), and makes its head durable. EINVAL for a
    /// format that no clip can have.
    Error open(const std::string &path, const ClipInfo &info);
    bool isOpen() const;
    /// Appends one frame: its coded picture and its sound (interleaved, little-endian, 24 bit; any
    /// number of samples, empty for none). The data is copied or written before the call returns.
    /// After a failed write of the medium every further call returns the same error, and the frames
    /// of the fragment that failed are not part of the clip. A medium that is full takes the frames
    /// up to this one.
    Error write(std::span<const std::byte> picture, std::span<const std::byte> sound);
    /// Writes the fragment begun and makes all written frames durable.
    Error flush();
    /// Makes the fragments written so far durable and lets readers see them. Any one thread may
    /// call it while another one is in write(); nobody may while flush() or close() runs. Waits for
    /// the medium.
    Error sync();
    /// ENODEV when the medium or the clip's name is gone from where open() found it, although the
    /// system still takes what is written. As sync(); may wait for the medium.
    Error stillThere() const;
    /// Completes the clip. After an error the fragments written so far stay readable.
    Error close();
    /// Frames taken by write() that are or will be in the clip.
    std::int64_t frames() const;
    /// A fragment waits for sync(). Any thread.
    bool hasUncommitted() const;
    /// Frames that survive a loss of power; after close() those that the clip has for good. Any
    /// thread.
    std::int64_t committedFrames() const;

private:
    struct Private;
    std::unique_ptr<Private> _d;
};

} // namespace clip
