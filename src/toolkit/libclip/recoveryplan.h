#pragma once

#include "libclip/rawfile.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace clip {

/// How a file that its writer left open becomes a clip, worked out without changing it.
struct RecoveryPlan
{
    enum class Kind : std::uint8_t {
        NotOurs,    ///< no clip of this writer, or complete
        Empty,      ///< holds no frame that is safe
        Completed,  ///< by the rest of the plan
    };

    Kind kind = Kind::NotOurs;
    std::uint64_t end = 0;              ///< of what is safe: here the file is cut and the movie begins
    std::int64_t frames = 0;
    std::vector<std::byte> movie;       ///< of the whole clip, a "moov" box
};

/// A movie for more than the 24 hours that a clip may have is longer than any of this writer's.
constexpr std::uint64_t maxMovieBytes = std::uint64_t(256) << 20;

/// Works out the plan for \a file. Believes nothing in it; memory and time are bounded by its length
/// alone, so let a process of its own do it where the file may be hostile. Waits for the medium.
RecoveryPlan planRecovery(const RawFile &file);

/// What the first bytes of \a file, \a fileSize bytes long, say that it may be.
enum class ClipLook { Foreign, Complete, Unfinished, Reserved };
ClipLook lookAt(const RawFile &file, std::uint64_t fileSize);

/// Stands at the beginning of a file that holds a clip's name, see reservedContent().
constexpr std::string_view reservedMark = "rvrs: the name of a clip that has not begun";

} // namespace clip
