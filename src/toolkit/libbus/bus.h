#pragma once

#include "libpicture/picture.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bus {

/// What a bus shows in one frame.
enum class Content : std::uint32_t {
    None = 0,     ///< no signal: picture and sound are absent
    Live = 1,     ///< the input, passed through (E-E)
    Playback = 2, ///< a frame of a clip, shown for the first time
    Held = 3,     ///< the frame shown before, shown again
    Black = 4     ///< generated black
};

/// The format of the frames on a bus; constant from one generation to the next.
struct Format {
    int width = 0;           ///< luma samples; at most maxWidth
    int height = 0;          ///< lines; at most maxHeight
    int rateNum = 0;         ///< frames a second
    int rateDen = 0;
    int scanMode = 0;        ///< 0 progressive, 1 interlaced, 2 segmented frame
    int audioChannels = 0;   ///< 0, 2 or 8; 24-bit PCM at 48 kHz
    bool operator==(const Format &) const = default;
    bool isValid() const { return width > 0 && height > 0 && rateNum > 0 && rateDen > 0; }
};

constexpr int maxWidth = 4096;
constexpr int maxHeight = 2160;
constexpr int maxChannels = 8;
constexpr int maxSamples = 4096;   ///< audio samples of one frame, each channel
constexpr int slotCount = 8;       ///< frames that a reader may be late by, less one

/// What travels beside the picture of one frame.
struct FrameInfo {
    std::uint64_t sequence = 0;    ///< counts published frames, without gaps; set by the writer
    std::int64_t timeNs = 0;       ///< CLOCK_MONOTONIC when the frame was due
    Content content = Content::None;
    std::int64_t frameNumber = -1; ///< frame number within the clip in playback, -1 otherwise
    /// Timecode: hours, minutes, seconds, frames; frames a second; 1 valid, 2 drop frame.
    std::int8_t tcHour = 0, tcMin = 0, tcSec = 0, tcFrame = 0;
    std::int16_t tcFps = 0;
    std::uint16_t tcFlags = 0;
    bool recordFlag = false;       ///< the camera is recording (input buses)
    int samples = 0;               ///< audio samples of this frame, each channel; 0 is silence
    std::string clip;              ///< clip name in playback, at most 63 bytes
};

/// One frame that a reader has copied out.
struct Frame {
    Format format;
    FrameInfo info;
    std::vector<std::uint16_t> picture; ///< tightly packed planes, picture::viewOf()
    std::vector<std::uint8_t> audio;    ///< interleaved 24-bit little-endian PCM
    /// Where the picture goes instead of \a picture, asked before it is copied; it may be asked again, and what
    /// stands there is of no use, until next() succeeds. A view that does not fit leaves the picture out.
    std::function<picture::View(const Format &)> target;
    picture::View view() { return picture::viewOf(picture.data(), format.width, format.height); }
};

/// Puts frames on a bus: a ring of slots in POSIX shared memory that any number of readers follow.
/// One writer a bus; a writer that comes after a dead one takes the bus over. Never waits for a
/// reader. Not thread-safe: one thread uses a Writer.
class Writer
{
public:
    Writer();
    ~Writer(); ///< the shared memory stays for readers until remove()
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    /// Creates or takes over the bus \a name ("/rvd_program"). False with errno set when it cannot,
    /// EBUSY when another writer lives. An object of that name that is not one of ours is replaced.
    [[nodiscard]] bool open(const std::string &name);
    void close();
    bool isOpen() const;
    static void remove(const std::string &name);

    /// The slot that the next frame goes to, laid out for \a format; draw the picture there.
    /// Invalid when the format is larger than a slot, the bus is not open or there is no memory
    /// left. An object that somebody has removed in the meantime is made anew.
    picture::View beginFrame(const Format &format);
    /// Room for the next frame's audio: maxSamples * maxChannels * 3 bytes. Null when the bus is
    /// not open.
    std::uint8_t *audioSlot();
    /// Publishes the frame begun last and wakes the readers. info.sequence is filled in here.
    void publish(FrameInfo info);

private:
    struct Shared;
    std::unique_ptr<Shared> _d;
};

/// Follows a bus. Trusts nothing that stands in the shared memory: every size is checked before use
/// and a frame overwritten while it was read is dropped. Not thread-safe.
class Reader
{
public:
    Reader();
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    /// False with errno set when there is no such bus or it is not one of ours.
    [[nodiscard]] bool open(const std::string &name);
    void close();
    bool isOpen() const;

    /// Waits for a frame newer than the one read last and copies it into \a frame (whose memory is
    /// reused). With \a inOrder the next frame still in the ring, otherwise the newest.
    /// False when none came within \a timeoutMs (0 only looks, negative waits for ever), wake() was
    /// called or the reader is not open; \a frame is then as it was, or empty when its successor was
    /// overwritten half way through the copy. A reader begins with the newest frame that stands on
    /// the bus when it is opened, and follows the bus to a new object by itself.
    [[nodiscard]] bool next(Frame &frame, int timeoutMs, bool inOrder = true);
    /// Frames that were overwritten before this reader came to them.
    std::uint64_t missed() const;
    /// True when the writer has published within the last \a ms milliseconds.
    bool isAlive(int ms = 1000) const;
    /// Ends a next() that another thread waits in, or else the following one. The one call that
    /// another thread may make.
    void wake();

private:
    struct Shared;
    std::unique_ptr<Shared> _d;
};

} // namespace bus
