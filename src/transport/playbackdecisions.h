#pragma once

#include "liborb/orbidvalue.h"
#include "transport/vtrspeedflags.h"

/// What a playback pass does with the frame at the head of the cache, besides showing it.
enum class HeadAction {
    Hold,        ///< it stays: shown again on the next pass
    Take,        ///< it is taken from the cache
    SeekToFirst, ///< looping forward over the last frame
    SeekToLast   ///< looping in reverse over the first frame
};

HeadAction headAction(VtrSpeedFlags flags, bool isLooping, bool isFirst, bool isLast);

/// The play mode that the device is told on every pass.
OrbIdValue playModeFor(VtrSpeedFlags flags);

/// The speed of the cache for a transport speed: every forward speed is 1.0, because going faster
/// or slower forward is deliberately the device's business; still and reverse are passed on.
double cacheSpeedFor(double speed);

/// The frame to go to when the device has flushed at \a flushedAt: the cue that waits (-1 for none)
/// instead of it, moved on by the steps made.
int frameAfterFlush(int flushedAt, int pendingCue, int stepOffset);
