#pragma once

#include <cstdint>

namespace ferin {

/// Makes the frame clock follow a source with a clock of its own: it keeps the source's queue, as
/// it is seen just before a frame is taken, between \a held frames and one less. With two, arrivals lie a
/// whole frame away from running dry and from a third frame. At most 0.2 % of a frame time a frame: too
/// slow to be seen.
class PhaseFollower
{
public:
    explicit PhaseFollower(int held = 2) : _target(held - 0.5), _level(_target) {}

    /// By how many nanoseconds the following frames move, when \a level frames wait now.
    std::int64_t correction(int level, std::int64_t periodNs);

    static constexpr double largestShare = 0.002;

private:
    double _target;
    double _level;
};

/// Frames of a network source that wait, at \a num / \a den a second: 80 ms, which cover its sender's bursts. At least
/// 2, at most half of an InputQueue.
int framesHeldOfNetwork(int num, int den);

/// How many frames of a source with a clock of its own are taken at each beat, so that none is lost or shown twice.
/// A pure value.
class InputPace
{
public:
    /// Another source: it is waited for anew.
    void restart() { _primed = false; }
    /// \a waiting frames stand in the queue, \a held are to wait there. Usually one; none while the queue fills at
    /// first or after it ran dry, more after the machine was late or a burst came. \a shiftNs is by how much the
    /// frame clock moves to follow the source.
    int framesDue(int waiting, int held, std::int64_t periodNs, std::int64_t &shiftNs);

    static constexpr int mostDue = 8;

private:
    PhaseFollower _follower;
    bool _primed = false;
};

} // namespace ferin
