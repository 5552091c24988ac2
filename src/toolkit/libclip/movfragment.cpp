#include "libclip/movfragment.h"

#include "libclip/movhead.h"

#include <algorithm>

namespace clip {

namespace {

/// A fragment of large pictures ends before its half second, so that the memory it takes is
/// bounded.
constexpr std::size_t maxBytes = std::size_t(64) << 20;

constexpr std::size_t dataHeaderSize = 16;
constexpr std::size_t timecodeSize = 4;
/// More than the boxes of a head take without the picture sizes.
constexpr std::size_t headRoom = 512;

// What a track's part of a fragment states: base offset, default duration, size and flags.
constexpr std::uint32_t partFlags = 0x39;
constexpr std::uint32_t independentSample = 0x02000000;
constexpr std::uint32_t runHasOffset = 0x001;
constexpr std::uint32_t runHasSizes = 0x200;

struct Part
{
    TrackId track;
    std::uint64_t time;         ///< of the first sample, in the track's units
    std::uint32_t duration;     ///< of a sample
    std::uint32_t size;         ///< of a sample, 0 when each has its own
    std::uint32_t samples;
    std::uint64_t dataOffset;   ///< from the start of the fragment
};

void writePart(BoxWriter &writer, const Part &part, std::uint64_t base,
               std::span<const std::uint32_t> sizes)
{
    writer.box("traf", [&] {
        writer.full("tfhd", 0, partFlags, [&] {
            writer.u32(part.track).u64(base).u32(part.duration).u32(part.size);
            writer.u32(independentSample);
        });
        writer.full("tfdt", 1, 0, [&] { writer.u64(part.time); });
        writer.full("trun", 0, runHasOffset | (sizes.empty() ? 0 : runHasSizes), [&] {
            writer.u32(part.samples).u32(std::uint32_t(part.dataOffset));
            for (const std::uint32_t size : sizes) {
                writer.u32(size);
            }
        });
    });
}

/// Frames of a fragment that \a framesBefore others stand before.
int wantedFrames(const VideoFormat &video, std::uint64_t framesBefore)
{
    const int most = MovFragment::maxFrames(video);
    for (const int end : { 1, video.rateNum / (5 * video.rateDen), most }) {
        if (framesBefore < std::uint64_t(end)) {
            return end - int(framesBefore);
        }
    }
    return most;
}

} // namespace

int MovFragment::maxFrames(const VideoFormat &video)
{
    return std::max(1, video.rateNum / (2 * video.rateDen));
}

void MovFragment::start(const ClipInfo &info, std::uint64_t framesBefore)
{
    _info = &info;
    _isFirst = framesBefore == 0 && info.timecode;
    _wanted = wantedFrames(info.video, framesBefore);
    _room = headRoom + dataHeaderSize + 4 * std::size_t(maxFrames(info.video));
    _bytes.resize(_room);
    _sound.clear();
    _sizes.clear();
    if (_isFirst) {
        BoxWriter sample;
        sample.u32(info.timecode->frameCount);
        _bytes.insert(_bytes.end(), sample.bytes().begin(), sample.bytes().end());
    }
}

void MovFragment::add(std::span<const std::byte> picture, std::span<const std::byte> sound)
{
    _bytes.insert(_bytes.end(), picture.begin(), picture.end());
    _sound.insert(_sound.end(), sound.begin(), sound.end());
    _sizes.push_back(std::uint32_t(picture.size()));
}

bool MovFragment::isFull() const
{
    return int(_sizes.size()) >= _wanted || _bytes.size() + _sound.size() >= maxBytes;
}

std::uint32_t MovFragment::soundSamples() const
{
    return _info->audio ? std::uint32_t(_sound.size() / soundBlock(_info->audio->channels)) : 0;
}

BoxWriter::Bytes MovFragment::head(const Position &position, std::uint64_t headSize) const
{
    const auto rateDen = std::uint32_t(_info->video.rateDen);
    const auto frames = std::uint32_t(_sizes.size());
    const std::uint64_t first = headSize + dataHeaderSize;
    const std::uint64_t pictures = first + (_isFirst ? timecodeSize : 0);
    std::uint64_t pictureBytes = 0;
    for (const std::uint32_t size : _sizes) {
        pictureBytes += size;
    }
    const std::uint64_t base = position.offset;
    BoxWriter writer;
    writer.box("free", [&] {
        writer.full("mfhd", 0, 0, [&] { writer.u32(position.sequence); });
        writePart(writer,
                  { VideoTrack, position.frames * rateDen, rateDen, 0, frames, pictures },
                  base, _sizes);
        if (soundSamples() != 0) {
            const std::uint32_t block = soundBlock(_info->audio->channels);
            writePart(writer,
                      { SoundTrack, position.soundSamples, 1, block, soundSamples(),
                        pictures + pictureBytes },
                      base, { });
        }
        if (_isFirst) {
            writePart(writer, { TimecodeTrack, 0, frames * rateDen, timecodeSize, 1, first }, base,
                      { });
        }
    });
    return writer.take();
}

std::span<const std::byte> MovFragment::seal(const Position &position, Places &places)
{
    const std::uint64_t pictureBytes = _bytes.size() - _room - (_isFirst ? timecodeSize : 0);
    const std::uint32_t samples = soundSamples();
    _bytes.insert(_bytes.end(), _sound.begin(), _sound.end());

    // The offsets in the head depend on its own length, which they do not change.
    const std::size_t headSize = head(position, 0).size();
    const std::size_t start = _room - dataHeaderSize - headSize;
    const std::size_t length = _bytes.size() - start;
    const std::size_t padding = (8 - length % 8) % 8;
    _bytes.resize(_bytes.size() + padding);

    BoxWriter writer;
    writer.append(head(position, headSize));
    writer.u32(1).code("mdat").u64(_bytes.size() - _room + dataHeaderSize);
    std::ranges::copy(writer.bytes(), _bytes.begin() + std::ptrdiff_t(start));

    const std::uint64_t data = position.offset + headSize + dataHeaderSize;
    const std::uint64_t pictures = data + (_isFirst ? timecodeSize : 0);
    places.timecodeOffset = _isFirst ? data : 0;
    places.pictures = { pictures, std::uint32_t(_sizes.size()) };
    places.sound = { pictures + pictureBytes, samples };
    places.end = position.offset + length + padding;
    return std::span(_bytes).subspan(start);
}

} // namespace clip
