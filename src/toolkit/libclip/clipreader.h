#pragma once

#include "libclip/clip.h"

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace clip {

/// Reads a QuickTime .mov clip, growing or complete, by frame number, in constant time whatever the
/// length. Believes no size or offset before it is checked against the file. Not thread-safe, but
/// any thread may use it; calls may wait for the medium.
class ClipReader
{
public:
    ClipReader();
    ~ClipReader();
    ClipReader(const ClipReader &) = delete;
    ClipReader &operator=(const ClipReader &) = delete;

    /// Reads the index. ENOENT, EACCES … as the system says; EINVAL for a file that is not a clip,
    /// is torn beyond use, holds no frame, or whose video is not one of Codec.
    Error open(const std::string &path);
    /// The same of a file that is open already; the descriptor becomes the reader's.
    Error open(int descriptor);
    void close();
    bool isOpen() const;
    const ClipInfo &info() const;
    /// Looks at a clip that is not complete for what was written since it was opened or looked at last: frames
    /// committed by now follow those there were, and a clip that was closed is complete. True when info() has
    /// changed. Cheap when nothing came; what fails changes nothing.
    bool lookAgain();

    /// Bytes of the coded picture of frame \a frame; 0 when there is no such frame.
    std::size_t pictureSize(std::int64_t frame) const;
    /// Fills \a out, which is pictureSize(frame) long. EINVAL outside the clip, EIO on a short
    /// file.
    Error readPicture(std::int64_t frame, std::span<std::byte> out) const;
    /// The sound that belongs to \a frame, interleaved little-endian 24 bit; empty when the clip
    /// has none there. Resizes \a out.
    Error readSound(std::int64_t frame, std::vector<std::byte> &out) const;

private:
    Error load();

    struct Private;
    std::unique_ptr<Private> _d;
};

} // namespace clip
