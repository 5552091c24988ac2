#pragma once

#include "libclip/movhead.h"
#include "libclip/rawfile.h"

#include <array>
#include <cstdint>
#include <vector>

namespace clip {

/// What a fragment's head says, as far as this writer's own ones go.
struct WrittenPart
{
    bool isThere = false;
    std::uint64_t time = 0;
    std::uint32_t duration = 0;
    std::uint32_t size = 0;
    std::uint32_t samples = 0;
    std::uint64_t offset = 0;           ///< in the file
    std::vector<std::uint32_t> sizes;
};

struct WrittenFragment
{
    bool isCommitted = false;
    std::uint32_t sequence = 0;
    std::array<WrittenPart, 3> parts;  ///< video, sound, timecode
    std::uint64_t dataBegin = 0;
    std::uint64_t end = 0;

    const WrittenPart &part(TrackId track) const { return parts[track - 1]; }
};

/// Reads the fragment that begins at \a offset; false when no whole one of this writer begins there.
/// \a bytes is room for its head, kept from call to call.
bool readWrittenFragment(const RawFile &file, std::uint64_t offset, std::uint64_t fileSize,
                         std::vector<std::byte> &bytes, WrittenFragment &fragment);

} // namespace clip
