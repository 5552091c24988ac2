#pragma once

#include "libclip/clip.h"

#include <cstddef>
#include <memory>
#include <span>

namespace clip {

/// Writes one QuickTime .mov clip: video as it comes, PCM 24-bit audio, a timecode track with start
/// timecode and reel name. While it grows the file is a fragmented movie that ordinary readers open up
/// to the last fragment (at most half a second); close() makes it an ordinary, unfragmented one in place.
/// Every call may wait for the medium: use it from an I/O thread. Not thread-safe.
class ClipWriter
{
public:
    ClipWriter();
    ~ClipWriter(); ///< closes, ignoring the outcome
    ClipWriter(const ClipWriter &) = delete;
    ClipWriter &operator=(const ClipWriter &) = delete;

    /// Creates \a path, which must not exist (EEXIST), and makes its head durable.
    Error open(const std::string &path, const ClipInfo &info);
    bool isOpen() const;
    /// Appends one frame: its coded picture and its sound (interleaved, little-endian, 24 bit; any number
    /// of samples, empty for none). The data is copied or written before the call returns.
    Error write(std::span<const std::byte> picture, std::span<const std::byte> sound);
    /// Writes the fragment begun and makes all written frames durable.
    Error flush();
    /// Completes the clip. After an error the fragments written so far stay readable.
    Error close();
    std::int64_t frames() const;

private:
    struct Private;
    std::unique_ptr<Private> _d;
};

} // namespace clip
