#pragma once

#include "libclip/clip.h"
#include "libclip/recoveryplan.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace clip {

/// What became of a file that may be a clip whose writer died.
struct [[nodiscard]] Recovery
{
    enum class Outcome {
        NotOurs,    ///< no clip of this writer: left as it is
        Complete,   ///< was complete before, left as it is
        Busy,       ///< somebody writes it: left as it is
        ReadOnly,   ///< may not be changed: left as it is, and readable up to its last fragment
        Recovered,  ///< completed in place
        Removed,    ///< held no frame: the file is gone
        Failed,     ///< error says why; what was readable before still is, and another try may succeed
    };

    Outcome outcome = Outcome::NotOurs;
    Error error;
    std::int64_t frames = 0;    ///< of a clip that is recovered
};

/// Completes the clip \a path in place when its writer left it open: its committed fragments become
/// an ordinary, unfragmented clip, as close() would have made it; what was never committed is cut
/// off, and the file keeps the time of its last change. A file whose head is not, byte by byte, what
/// this writer makes is not touched. May be killed, or lose power, at any instant and be called
/// again: the outcome is the same file. Waits for the medium; any thread, and no two calls disturb
/// each other. Follows no link.
Recovery recover(const std::string &path);

/// Works out the plan for a file, which is locked and may be changed; nothing when that cannot be done.
using RecoveryPlanner = std::function<std::optional<RecoveryPlan>(const RawFile &)>;

/// As recover(), where \a planner reads what the file holds beyond its first 64 bytes: such as a process
/// that may be lost. Its plan is checked against the file; without one the outcome is Failed.
Recovery recover(const std::string &path, const RecoveryPlanner &planner);

/// What holds a clip's name, and the room for its head, until its first frame comes: \a bytes long
/// at least. recover() removes a file that holds just this.
std::string reservedContent(std::size_t bytes);

} // namespace clip
