#include "transport/recordinterval.h"

#include <iterator>

namespace {

/// By the number of the period.
constexpr float secondsInPeriod[] = {1.0F, 60.0F, 60.0F * 60.0F};

} // namespace

RecordInterval::Findings RecordInterval::start(int frames, int period, int rate)
{
    Findings findings;
    count = 0.0F;
    if (period >= 0 && period < static_cast<int>(std::size(secondsInPeriod)))
        every = static_cast<float>(rate) * secondsInPeriod[period];
    if (frames == 0)
        findings.totalIsZero = true;
    else
        every /= static_cast<float>(frames);
    if (every < 1.0F) {
        findings.isLessThanOne = true;
        every = 1.0F;
    }
    return findings;
}

void RecordInterval::startOff()
{
    count = 0.0F;
    every = 1.0F;
}

bool RecordInterval::takesNext()
{
    count += 1.0F;
    if (count < every)
        return false;
    count -= every;
    return true;
}
