#pragma once

#include <cstdint>

namespace ferin {

/// How many queued frames the output moves on at each beat. Forward speeds advance by the speed,
/// exactly over any time: after n beats the output stands floor(n * speed) frames on. At still and
/// at reverse speeds each queued frame is shown for one beat: there the queue already holds just
/// the frames to show. A pure value.
class SpeedStepper
{
public:
    double speed() const { return _speed; }
    /// Another speed starts counting anew.
    void setSpeed(double speed);
    /// \a speed within the bounds of what the output can do; 0.0 for one that is not finite.
    static double usable(double speed);
    /// The next frame in the queue is the first one shown.
    void restart();
    /// Frames to move on at the coming beat, 0 to hold; the first one is always shown.
    int next() const;
    /// The coming beat has been carried out.
    void advance();

    /// Slots that a playback queue needs so that one filling a frame feeds it.
    static int slotsFor(double speed);

private:
    double _speed = 1.0;
    bool _first = true;
    std::int64_t _beats = 0; // since the first frame was shown
};

} // namespace ferin
