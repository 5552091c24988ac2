#include "liborb/drivers/software/reference.h"

#include <sys/timex.h>

namespace ferin {

namespace {

bool answer(RefAnswer fixed, bool otherwise)
{
    return fixed == RefAnswer::Auto ? otherwise : fixed == RefAnswer::Yes;
}

} // namespace

KernelClock readKernelClock()
{
    timex clock {}; // no mode bits: only looks
    const int state = adjtimex(&clock);
    if (state < 0)
        return {};
    KernelClock answered;
    answered.synchronised = state != TIME_ERROR && (clock.status & STA_UNSYNC) == 0;
    answered.disciplined = answered.synchronised
                           || (clock.status & (STA_PLL | STA_FLL | STA_PPSSIGNAL)) != 0;
    return answered;
}

OrbVideoRefState referenceState(const DeviceConfig &config, const KernelClock &clock)
{
    const bool present = answer(config.refPresent, clock.disciplined);
    const bool locked = present && answer(config.refLocked, clock.synchronised);
    OrbVideoRefState state(present, locked);
    state.setSource(OrbIdSyncSystemClock);
    return state;
}

} // namespace ferin
