#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace cam {

/// A timecode label that counts on. Drop frame leaves out labels, never frames: the first two (at
/// 60 frames a second four) of every minute that does not divide by ten.
struct Timecode {
    int hour = 0, minute = 0, second = 0, frame = 0;
    int fps = 25; ///< labels a second
    bool drop = false;

    /// The label \a count frames later; midnight follows 23:59:59.
    Timecode after(std::int64_t count) const;
    bool operator==(const Timecode &) const = default;
};

/// "10:00:00:00", or with a semicolon before the frames for drop frame. Nothing when it is no label
/// at \a fps labels a second; drop frame exists at 30 and 60.
std::optional<Timecode> timecodeOf(std::string_view text, int fps);

} // namespace cam
