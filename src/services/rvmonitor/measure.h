#pragma once

#include "libbus/bus.h"
#include "services/rvmonitor/follower.h"

#include <cstdint>
#include <optional>
#include <string>

namespace monitor {

/// The highest sample of the frame's sound in dB below full scale; minus infinity for silence.
double peakDbfs(const bus::Frame &frame);

/// What happened on a bus over some time.
struct Measurement {
    std::int64_t frames = 0;  ///< frames read
    std::int64_t gaps = 0;    ///< sequence numbers that were never read
    std::int64_t repeats = 0; ///< frames that show what the frame before showed
    std::int64_t jumps = 0;   ///< bar numbers that are neither the last one nor the one after it
    double peak;              ///< dBFS
    Measurement();

    void take(bus::Frame &frame);
    std::string text() const;
    std::string json() const;

private:
    std::uint64_t _sequence = 0;
    std::optional<std::uint32_t> _number;
};

/// Reads for \a seconds; a silence of \a timeoutMs ends it early.
Measurement measure(Follower &follower, double seconds, int timeoutMs);

} // namespace monitor
