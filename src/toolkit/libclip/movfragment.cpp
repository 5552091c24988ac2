#include "libclip/movfragment.h"

#include "libclip/movhead.h"

#include <algorithm>

namespace clip {

namespace {

/// A fragment of large pictures ends before its half second, so that what a crash costs is bounded.
constexpr std::size_t maxBytes = std::size_t(64) << 20;

constexpr std::size_t dataHeaderSize = 16;
constexpr std::size_t timecodeSize = 4;

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
    _pictureBytes = 0;
    _sound.clear();
    _samples = 0;
    // A shorter head leaves a gap in front of the data, where no sample is.
    _sizes.assign(std::size_t(_wanted), 0);
    _frontSize = head({ }, _sizes, info.audio ? 1 : 0).size() + dataHeaderSize
        + (_isFirst ? timecodeSize : 0);
    _sizes.clear();
}

std::uint64_t MovFragment::sizeWith(std::uint64_t pictureBytes, std::uint64_t soundBytes) const
{
    constexpr std::uint64_t mostPadding = 7;
    return nextPicture() + pictureBytes + _sound.size() + soundBytes + mostPadding;
}

void MovFragment::add(std::uint64_t pictureBytes, std::span<const std::byte> sound)
{
    _pictureBytes += pictureBytes;
    _sizes.push_back(std::uint32_t(pictureBytes));
    _sound.insert(_sound.end(), sound.begin(), sound.end());
    if (_info->audio) {
        _samples = std::uint32_t(_sound.size() / soundBlock(_info->audio->channels));
    }
}

bool MovFragment::isFull() const
{
    return int(_sizes.size()) >= _wanted || _pictureBytes + _sound.size() >= maxBytes;
}

std::uint32_t MovFragment::soundSamples() const
{
    return _samples;
}

/// The head of a fragment with pictures of \a sizes, whose data ends with the front.
BoxWriter::Bytes MovFragment::head(const Position &position, std::span<const std::uint32_t> sizes,
                                   std::uint32_t samples) const
{
    const auto rateDen = std::uint32_t(_info->video.rateDen);
    const auto frames = std::uint32_t(sizes.size());
    const std::uint64_t base = position.offset;
    BoxWriter writer;
    writer.box("free", [&] {
        writer.full("mfhd", 0, 0, [&] { writer.u32(position.sequence); });
        writePart(writer,
                  { VideoTrack, position.frames * rateDen, rateDen, 0, frames, _frontSize }, base,
                  sizes);
        if (samples != 0) {
            const std::uint32_t block = soundBlock(_info->audio->channels);
            writePart(writer,
                      { SoundTrack, position.soundSamples, 1, block, samples,
                        _frontSize + _pictureBytes },
                      base, { });
        }
        if (_isFirst) {
            writePart(writer,
                      { TimecodeTrack, 0, frames * rateDen, timecodeSize, 1,
                        _frontSize - timecodeSize },
                      base, { });
        }
    });
    return writer.take();
}

std::span<const std::byte> MovFragment::sealBack()
{
    const std::uint64_t length = nextPicture() + _sound.size();
    _sound.resize(_sound.size() + std::size_t((8 - length % 8) % 8));
    return _sound;
}

std::span<const std::byte> MovFragment::sealFront(const Position &position, Places &places)
{
    const std::uint64_t end = nextPicture() + _sound.size();
    const auto boxes = head(position, _sizes, _samples);
    BoxWriter writer;
    writer.append(boxes);
    writer.u32(1).code("mdat").u64(end - boxes.size());
    const std::size_t sample = _isFirst ? timecodeSize : 0;
    writer.zeros(std::size_t(_frontSize) - writer.size() - sample);
    if (_isFirst) {
        writer.u32(_info->timecode->frameCount);
    }
    _front = writer.take();

    const std::uint64_t pictures = position.offset + _frontSize;
    places.timecodeOffset = _isFirst ? pictures - timecodeSize : 0;
    places.pictures = { pictures, std::uint32_t(_sizes.size()) };
    places.sound = { pictures + _pictureBytes, _samples };
    places.end = position.offset + end;
    return _front;
}

} // namespace clip
