#pragma once

#include "liborb/drivers/software/deviceconfig.h"
#include "liborb/orbvideostate.h"

namespace ferin {

/// What the kernel's clock discipline says.
struct KernelClock {
    bool disciplined = false;  ///< a time service adjusts the clock
    bool synchronised = false; ///< and it is within its bounds
};

KernelClock readKernelClock();

/// The state of reference input 0, the system clock: as \a config fixes it, otherwise as \a clock
/// says.
OrbVideoRefState referenceState(const DeviceConfig &config, const KernelClock &clock);

} // namespace ferin
