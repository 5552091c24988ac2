#include "transport/playbackdecisions.h"

HeadAction headAction(VtrSpeedFlags flags, bool isLooping, bool isFirst, bool isLast)
{
    if (flags.isStill())
        return HeadAction::Hold;
    const bool runsOverEnd = flags.isForward() && isLast;
    const bool runsOverStart = flags.isReverse() && isFirst;
    if (isLooping) {
        if (runsOverEnd)
            return HeadAction::SeekToFirst;
        return runsOverStart ? HeadAction::SeekToLast : HeadAction::Take;
    }
    const bool moves = flags.isForward() || flags.isReverse();
    return moves && !runsOverEnd && !runsOverStart ? HeadAction::Take : HeadAction::Hold;
}

OrbIdValue playModeFor(VtrSpeedFlags flags)
{
    if (flags.isStill())
        return OrbIdPlayModeStill;
    if (flags.isFastForward())
        return OrbIdPlayModeFastForward;
    return flags.isFastReverse() ? OrbIdPlayModeFastReverse : OrbIdPlayModePlay;
}

double cacheSpeedFor(double speed)
{
    return speed > 0.0 ? 1.0 : speed;
}

int frameAfterFlush(int flushedAt, int pendingCue, int stepOffset)
{
    return (pendingCue == -1 ? flushedAt : pendingCue) + stepOffset;
}
