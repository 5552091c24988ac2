#pragma once

#include "transport/vtrstate.h"

/// What a dropped frame leads to.
struct DroppedFrameRule {
    enum class Then { GoOn, Still, StandbyOff };

    int alarmLevel;
    const char *text; ///< of the alarm and of the log line
    Then then;
};

/// The rule for a transport in \a state; null when a dropped frame means nothing.
const DroppedFrameRule *droppedFrameRule(const VtrState &state);
