#pragma once

#include "libbus/bus.h"

#include <cstdint>
#include <string>

namespace monitor {

/// Follows a bus that may come later than its follower.
class Follower
{
public:
    explicit Follower(const std::string &name);

    /// Waits for the next frame. False when none came within \a timeoutMs or a signal asks to end.
    bool next(bus::Frame &frame, int timeoutMs);
    std::uint64_t missed() const { return _reader.missed(); }

private:
    std::string _name;
    bus::Reader _reader;
};

/// SIGINT and SIGTERM ask the program to end.
void installSignals();
bool isEnding();
/// CLOCK_MONOTONIC.
std::int64_t nowNs();
std::int64_t nowMs();

} // namespace monitor
