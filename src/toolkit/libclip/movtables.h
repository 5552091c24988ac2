#pragma once

#include "libclip/boxwriter.h"

#include <cstdint>
#include <vector>

namespace clip {

/// Consecutive samples of a track in the file.
struct Chunk
{
    std::uint64_t offset = 0;
    std::uint32_t samples = 0;
};

/// Where everything of a clip being written stands: one chunk per fragment and track.
struct MovieTables
{
    std::vector<std::uint32_t> pictureSizes;
    std::vector<Chunk> pictureChunks;
    std::vector<Chunk> soundChunks;
    std::uint64_t soundSamples = 0;
    std::uint64_t timecodeOffset = 0; ///< of the only timecode sample; 0 while there is none
    std::uint32_t dnxCompression = 0; ///< in the first picture's header; 0 if unknown
};

/// The four sample tables without samples, as a movie that goes on in fragments has them.
void writeEmptyTables(BoxWriter &writer);
/// Tables of samples of the same duration and of the sizes given.
void writePictureTables(BoxWriter &writer, const MovieTables &tables, std::uint32_t duration);
/// Tables of samples of \a block bytes that last one unit each.
void writeSoundTables(BoxWriter &writer, const MovieTables &tables, std::uint32_t block);
/// Tables of the one timecode sample, which lasts \a duration units.
void writeTimecodeTables(BoxWriter &writer, const MovieTables &tables, std::uint64_t duration);

} // namespace clip
