#pragma once

#include "liborb/drivers/software/decoder.h"
#include "liborb/drivers/software/speedstepper.h"
#include "liborb/orbframe.h"

#include <deque>
#include <functional>
#include <memory>

namespace ferin {

/// One frame waiting for the output.
struct PlaybackEntry {
    OrbFrame frame;
    std::shared_ptr<DecodeJob> job; ///< null until its picture is wanted, or without a picture
};

/// The frames queued for output and the order they come out in. Coded pictures wait as they are;
/// only those that will be shown at the speed of the moment are decoded, a few ahead. A new speed
/// counts once the queue has been cleared or a frame is queued: what was queued before it comes out
/// as it would have. Not thread-safe.
class PlaybackQueue
{
public:
    using Decode = std::function<std::shared_ptr<DecodeJob>(const OrbImage &)>;

    /// What the coming beat shows.
    enum class Step {
        Empty, ///< not enough is queued
        Hold,  ///< the speed shows the frame on output again
        Show   ///< the frame that pick() answers
    };

    void setDecode(const Decode &decode) { _decode = decode; }
    void setAhead(int pictures) { _ahead = pictures; }
    void setSpeed(double speed) { _speed = SpeedStepper::usable(speed); }
    double speed() const { return _speed; }

    int capacity() const { return SpeedStepper::slotsFor(_speed); }
    int size() const { return static_cast<int>(_entries.size()); }
    int room() const;
    void push(const OrbFrame &frame);
    /// Drops everything and starts over: the next frame queued is the next one shown.
    void clear();
    /// Every frame queued has been shown for as long as the speed says.
    bool isPlayedOut() const { return _entries.empty() && _stepper.next() != 0; }
    /// The frame queued longest; a null frame when none is.
    OrbFrame head() const;

    /// Starts the decoding that is due.
    void decodeAhead();
    /// What comes at the coming beat; \a entry is filled for Step::Show. Changes nothing but that
    /// it starts the entry's decoding if need be. A beat that cannot be carried out is simply asked
    /// for again.
    Step pick(PlaybackEntry &entry);
    /// What was picked last is what the beat came to: a frame shown leaves, with those that were
    /// passed over.
    void done(Step step);

private:
    void startDecoding(PlaybackEntry &entry);
    bool isWanted(const std::shared_ptr<DecodeJob> &job) const;

    Decode _decode;
    double _speed = 1.0; // wanted; the stepper's, once it counts
    SpeedStepper _stepper;
    std::deque<PlaybackEntry> _entries;
    PlaybackEntry _last; // shown last; a repeat of the same frame uses its picture again
    int _ahead = 4;
    int _picked = 0; // entries that leave with the beat picked last
    int _short = 0;  // beats in a row that the queue was too short for
};

} // namespace ferin
