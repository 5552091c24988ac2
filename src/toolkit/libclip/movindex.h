#pragma once

#include "libclip/movtrack.h"
#include "libclip/rawfile.h"

#include <optional>

namespace clip {

/// What a movie file holds, read without belief: every offset in it is within the file.
struct MovIndex
{
    std::vector<MovTrack> tracks;
    std::uint32_t timeScale = 0;  ///< of the movie
    bool isFragmented = false;
    bool isSegmented = false;
    std::string reel;             ///< of a clip without a timecode track
    std::uint64_t movie = 0;      ///< where its box stands
    std::uint64_t end = 0;        ///< behind it, or behind the head of the last fragment

    const MovTrack *first(MovTrack::Kind kind) const;
};

/// Reads the index of \a file as it stands. EINVAL when there is none; otherwise the system's
/// error.
Error readIndex(const RawFile &file, MovIndex &index);

/// Adds the fragments that stand in \a file by now behind those of a fragmented \a index. True when the
/// file has been closed meanwhile: another movie rules it.
bool readMore(const RawFile &file, MovIndex &index);

/// Reads the content of a movie box; \a fileSize bounds what its tables may point at.
void parseMovie(BoxCursor moov, std::uint64_t fileSize, MovIndex &index);

/// Reads a whole fragment head that stands at \a offset and adds its samples to the tracks.
void addFragment(BoxCursor moof, std::uint64_t offset, std::uint64_t fileSize, MovIndex &index);

} // namespace clip
