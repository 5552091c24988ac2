#pragma once

#include <chrono>
#include <functional>

namespace lumo::utils {

/// Does \a work on a thread of its own and waits for it, \a patience at most. For calls into the file system that a
/// dying medium may never answer.
///
/// False when it is not done by then, or when too many earlier ones still hang. The thread of work that hangs is
/// left behind: what \a work refers to must live as long as \a work itself.
bool withinTime(std::chrono::milliseconds patience, const std::function<void()> &work);

/// What the file system is given before a file counts as unreachable: far more than a healthy medium needs, also on
/// a busy machine.
inline constexpr std::chrono::milliseconds filePatience {250};

} // namespace lumo::utils
