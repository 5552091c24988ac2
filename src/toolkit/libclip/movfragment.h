#pragma once

#include "libclip/boxwriter.h"
#include "libclip/clip.h"
#include "libclip/movtables.h"

#include <span>

namespace clip {

/// A fragment being written: room for its front, the pictures one after the other, and their sound.
/// The pictures are written as they come, each at its place; the sound is gathered. Until the front
/// is written, last, the fragment is nothing that a reader knows: zeros, and what follows them.
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
    /// Where the next picture goes, from the fragment's start on.
    std::uint64_t nextPicture() const { return _frontSize + _pictureBytes; }
    /// Bytes from its start to its end, were \a pictureBytes and \a soundBytes the last of it.
    std::uint64_t sizeWith(std::uint64_t pictureBytes, std::uint64_t soundBytes) const;
    /// Takes the sound of a frame whose picture of \a pictureBytes is written.
    void add(std::uint64_t pictureBytes, std::span<const std::byte> sound);
    bool isEmpty() const { return _sizes.empty(); }
    bool isFull() const;
    /// Frames that are still to come until it is full.
    std::uint64_t framesLeft() const { return std::uint64_t(_wanted) - _sizes.size(); }
    std::span<const std::uint32_t> pictureSizes() const { return _sizes; }
    std::uint32_t soundSamples() const;

    /// What stands behind the last picture. The bytes stay valid until the next call of start().
    std::span<const std::byte> sealBack();
    /// What stands in front of the first picture, the head still disguised as a free box; after
    /// sealBack(). The bytes are for the file at \a position and stay valid until the next call of
    /// start(); to commit, overwrite commitOffset with "moof".
    std::span<const std::byte> sealFront(const Position &position, Places &places);
    /// Bytes from the start of a fragment to its type.
    static constexpr std::uint64_t commitOffset = 4;

private:
    BoxWriter::Bytes head(const Position &position, std::span<const std::uint32_t> sizes,
                          std::uint32_t samples) const;

    const ClipInfo *_info = nullptr;
    bool _isFirst = false;          ///< and carries a timecode sample
    int _wanted = 1;                ///< frames that make it full
    std::uint64_t _frontSize = 0;   ///< a head of as many frames, the data's header, the timecode sample
    std::uint64_t _pictureBytes = 0;
    std::vector<std::byte> _sound;  ///< when sealed also what makes the end a multiple of 8
    std::uint32_t _samples = 0;     ///< of it
    std::vector<std::uint32_t> _sizes;
    BoxWriter::Bytes _front;
};

} // namespace clip
