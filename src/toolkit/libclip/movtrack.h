#pragma once

#include "libclip/boxcursor.h"
#include "libclip/clip.h"
#include "libclip/pcm.h"

#include <cstdint>
#include <vector>

namespace clip {

/// Consecutive samples of sound in the file.
struct SoundRun
{
    std::uint64_t firstSample = 0;
    std::uint64_t samples = 0;
    std::uint64_t offset = 0;
};

/// The duration most samples of a track have, found in one pass and in no memory.
struct DurationVote
{
    std::uint32_t duration = 0;
    std::uint64_t lead = 0;

    void count(std::uint32_t value, std::uint64_t samples)
    {
        if (value == duration) {
            lead += samples;
        } else if (samples > lead) {
            duration = value;
            lead = samples - lead;
        } else {
            lead -= samples;
        }
    }
};

/// One track of a clip being read: what it holds, and where each of its samples stands. Everything
/// added lies within the file.
struct MovTrack
{
    enum class Kind { Other, Video, Sound, Timecode };

    Kind kind = Kind::Other;
    std::uint32_t id = 0;
    std::uint32_t timeScale = 0;
    DurationVote durations;
    std::int64_t start = 0;         ///< first unit of the media that is shown
    std::uint64_t delay = 0;        ///< units of the movie before it is shown
    std::uint64_t shown = 0;        ///< units of the movie that are shown; 0 is all there is

    VideoFormat video;              ///< without a rate
    bool hasFields = false;         ///< the scan is stated
    PcmFormat pcm;
    int channels = 0;
    int sampleRate = 48000;
    StartTimecode timecode;         ///< without its frame count
    std::string reel;

    std::vector<std::uint64_t> offsets; ///< of pictures and timecode samples
    std::vector<std::uint32_t> sizes;
    std::vector<SoundRun> runs;
    bool isCut = false;             ///< a sample beyond the end of the file was left out

    std::uint32_t defaultDuration = 0;  ///< of samples in fragments that state none
    std::uint32_t defaultSize = 0;

    std::uint32_t soundBlock() const { return std::uint32_t(channels) * std::uint32_t(pcm.bytes); }
    std::uint64_t soundSamples() const
    {
        return runs.empty() ? 0 : runs.back().firstSample + runs.back().samples;
    }

    /// Adds a picture or timecode sample; false when the track takes no more.
    bool addSample(std::uint64_t offset, std::uint32_t size, std::uint64_t fileSize);
    /// Adds \a bytes of sound; false when the track takes no more.
    bool addSound(std::uint64_t offset, std::uint64_t bytes, std::uint64_t fileSize);
};

/// Reads a track's boxes. Of one that is damaged or of no use to a clip the kind is Other.
MovTrack parseTrack(BoxCursor trak, std::uint64_t fileSize);
/// Reads the first sample description; leaves codec, PCM format or timecode rate unset when it is
/// unknown.
void parseDescription(BoxCursor stsd, MovTrack &track);

} // namespace clip
