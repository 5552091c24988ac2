#pragma once

#include "services/rvcam/settings.h"
#include "services/rvcam/source.h"

namespace cam {

/// Writes frames as YUV4MPEG2 to standard output until they are done, the reader goes away or a
/// signal comes. The program's exit code.
int runPipe(const Settings &settings, Source &source);

} // namespace cam
