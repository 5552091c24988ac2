#pragma once

#include "libbus/bus.h"

#include <string>

namespace monitor {

/// Writes the frame's picture as RGB to a .png or .ppm file. The file appears whole or not at all.
/// False with \a error filled in when it cannot.
bool writeStill(bus::Frame &frame, const std::string &path, std::string &error);

} // namespace monitor
