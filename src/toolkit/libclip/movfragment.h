#pragma once

#include "libclip/boxwriter.h"
#include "libclip/clip.h"
#include "libclip/movtables.h"

#include <span>

namespace clip {

/// A fragment being gathered in memory: pictures one after the other, then their sound. It becomes
/// the bytes of one write: the fragment's head, still disguised as a free box, and the data.
class MovFragment
{
public:
    /// Where the parts of a sealed fragment stand in the file.
    struct Places
    {
        Chunk pictures;
        Chunk sound;                      ///< no samples when the fragment has no sound
        std::uint64_t timecodeOffset = 0; ///< 0 in all but the first fragment
        std::uint64_t end = 0;            ///< where the next fragment goes, a multiple of 8
    };

    /// Frames and sound samples that stand before this fragment, for its times.
    struct Position
    {
        std::uint64_t offset = 0;
        std::uint32_t sequence = 1; ///< 1 is the first fragment; it carries the timecode sample
        std::uint64_t frames = 0;
        std::uint64_t soundSamples = 0;
    };

    /// Half a second of frames, at least one.
    static int maxFrames(const VideoFormat &video);

    /// Empties the fragment for frames of \a info, \a framesBefore of which stand before it. It is
    /// full with half a second of them; but the first holds one frame alone, so that a clip opens
    /// as soon as it has one, and the next two end a fifth and half a second behind its beginning.
    void start(const ClipInfo &info, std::uint64_t framesBefore);
    void add(std::span<const std::byte> picture, std::span<const std::byte> sound);
    bool isEmpty() const { return _sizes.empty(); }
    bool isFull() const;
    std::span<const std::uint32_t> pictureSizes() const { return _sizes; }
    std::uint32_t soundSamples() const;

    /// Puts the head in front of the data. The bytes are for the file at \a position and stay valid
    /// until the next call of start(); to commit, overwrite commitOffset with "moof".
    std::span<const std::byte> seal(const Position &position, Places &places);
    /// Bytes from the start of a fragment to its type.
    static constexpr std::uint64_t commitOffset = 4;

private:
    BoxWriter::Bytes head(const Position &position, std::uint64_t headSize) const;

    const ClipInfo *_info = nullptr;
    bool _isFirst = false;          ///< and carries a timecode sample
    int _wanted = 1;                ///< frames that make it full
    std::size_t _room = 0;          ///< bytes kept free in front of the data
    std::vector<std::byte> _bytes;  ///< room, timecode sample, pictures, when sealed also the sound
    std::vector<std::byte> _sound;
    std::vector<std::uint32_t> _sizes;
};

} // namespace clip
