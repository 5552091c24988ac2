#pragma once

#include <cstdint>

namespace cam {

/// When each frame is due on CLOCK_MONOTONIC, from the exact rate: nothing adds up, nothing drifts.
class FrameClock
{
public:
    FrameClock(int rateNum, int rateDen);

    /// Frame 0 is due now.
    void start();
    std::int64_t dueNs(std::int64_t frame) const;
    /// Sleeps until frame \a frame is due. False when a signal has asked the program to end. A
    /// machine that was asleep for longer than a second goes on from now instead of catching up; after less
    /// it catches up at twice the rate.
    bool waitFor(std::int64_t frame);

private:
    std::int64_t _rateNum;
    std::int64_t _rateDen;
    std::int64_t _startNs = 0;
    std::int64_t _lastNs = 0; ///< when waitFor() last returned
};

/// SIGINT and SIGTERM ask the program to end, SIGUSR1 toggles the record flag; SIGPIPE is an error
/// code.
void installSignals();
bool isEnding();
/// True when SIGUSR1 has come an odd number of times.
bool isToggled();

} // namespace cam
