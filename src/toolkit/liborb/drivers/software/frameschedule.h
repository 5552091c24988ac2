#pragma once

#include <cstdint>

namespace ferin {

/// When frames are due: frame n at start + n * den / num seconds, exact for any n, so that nothing
/// drifts. A pure value; times are nanoseconds of CLOCK_MONOTONIC.
class FrameSchedule
{
public:
    FrameSchedule() = default;
    /// \a num / \a den frames a second, each 1 to 1,000,000.
    FrameSchedule(int num, int den, std::int64_t startNs)
        : _startNs(startNs), _num(num), _den(den)
    {
    }

    bool isValid() const { return _num > 0 && _den > 0; }
    int num() const { return _num; }
    int den() const { return _den; }
    std::int64_t dueNs(std::int64_t frame) const;
    /// One frame, rounded down.
    std::int64_t periodNs() const;
    /// Moves every later frame by \a ns, towards the future when positive.
    void shift(std::int64_t ns) { _startNs += ns; }
    /// Frames that are due after \a frame and not later than \a nowNs.
    std::int64_t overdue(std::int64_t frame, std::int64_t nowNs) const;

private:
    std::int64_t _startNs = 0;
    int _num = 0;
    int _den = 1;
};

} // namespace ferin
