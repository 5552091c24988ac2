#pragma once

#include "services/rvcam/settings.h"
#include "services/rvcam/source.h"

namespace cam {

/// Feeds the bus until the frames are done or a signal comes. The program's exit code.
int runCamera(const Settings &settings, Source &source);

} // namespace cam
