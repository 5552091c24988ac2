#pragma once

#include "liborb/orbvideorate.h"

#include <cstdint>
#include <optional>

namespace ferin {

/// The standard rate that \a num / \a den frames a second stands for; invalid when none is near.
OrbVideoRate snapRate(std::int64_t num, std::int64_t den);

/// Watches pictures' time stamps and says when they no longer come at the rate that is believed in: a sender
/// may change its format without a word. A pure value.
class RateWatch
{
public:
    /// \a tickNs is how exact the time stamps are.
    void restart(const OrbVideoRate &rate, std::int64_t tickNs);
    /// Another standard rate, once the stamps have shown it beyond doubt; otherwise nothing.
    std::optional<OrbVideoRate> next(std::int64_t stampNs);

    static constexpr int window = 24; ///< frames

private:
    OrbVideoRate _rate;
    std::int64_t _tickNs = 0;
    std::int64_t _first = 0;
    std::int64_t _last = 0;
    std::int64_t _shortest = 0;
    std::int64_t _longest = 0;
    int _count = 0; // stamps since _first; 0: none yet
};

} // namespace ferin
