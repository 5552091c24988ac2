#pragma once

#include "libbus/bus.h"

#include <cstdint>
#include <string>

namespace monitor {

/// "none", "live", "playback", "held" or "black".
const char *contentName(bus::Content content);

/// "10:00:00:00", with a semicolon in drop frame; empty when the frame has none.
std::string timecodeText(const bus::FrameInfo &info);

/// One frame as a line of text, without the line's end; fields without a value are "-".
/// \a firstNs is the time of the first frame.
std::string shortLine(bus::Frame &frame);
std::string longLine(bus::Frame &frame, std::int64_t firstNs);
/// The same and more as a JSON object; values that are missing are null. \a seenNs is when the frame came here.
std::string jsonLine(bus::Frame &frame, std::int64_t firstNs, std::int64_t seenNs);

} // namespace monitor
