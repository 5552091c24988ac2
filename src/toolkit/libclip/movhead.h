#pragma once

#include "libclip/boxwriter.h"
#include "libclip/clip.h"
#include "libclip/movtables.h"

namespace clip {

/// Bytes from the start of the file to the placeholder that close() turns into the header of the
/// data.
inline constexpr std::uint64_t placeholderOffset = 20;
inline constexpr std::uint64_t placeholderSize = 16;

/// Bytes of one sample of all channels in memory and in the file.
constexpr std::uint32_t soundBlock(int channels) { return std::uint32_t(channels) * 3; }

/// What a reader cannot get from the ordinary boxes, in the movie's user data: a mark that the
/// progressive pictures are segmented frames, and the reel name of a clip that has no timecode
/// track.
inline constexpr char segmentedMark[5] = "rvsf";
inline constexpr char reelMark[5] = "rvrl";

/// Track numbers, also of clips that lack one of them.
enum TrackId : std::uint32_t { VideoTrack = 1, SoundTrack = 2, TimecodeTrack = 3 };

/// Everything in front of the first fragment: file type, placeholder, a movie without samples. Its
/// length is a multiple of 8.
BoxWriter::Bytes movieHead(const ClipInfo &info);
/// The movie of a completed clip.
BoxWriter::Bytes completeMovie(const ClipInfo &info, const MovieTables &tables);

/// No movie of \a frames frames in \a fragments fragments is longer: a size a picture, and a place
/// and a number of samples a fragment and track.
constexpr std::uint64_t mostMovieBytes(std::uint64_t frames, std::uint64_t fragments)
{
    constexpr std::uint64_t boxes = 4096;
    return boxes + 4 * frames + 2 * 20 * fragments;
}

} // namespace clip
