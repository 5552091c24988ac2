#pragma once

#include "liborb/drivers/software/input.h"

namespace ferin {

/// Follows the input bus \a name in shared memory: picture, sound, timecode and the camera's record flag.
/// The bus need not exist yet.
std::unique_ptr<Input> createBusInput(const QString &name);

} // namespace ferin
