#pragma once

#include <string>
#include <vector>

// Which medium is recorded on and which comes next, as decisions without effects.

/// What is known of one medium.
struct MediumFacts {
    std::string path;
    bool isSlot = false;      ///< one of the recorder's slots, not a path that a client named
    bool isPresent = false;   ///< a medium is there and has been listed
    double freePercent = 0.0; ///< of the file system, rounded to a whole number
    bool isComing = false;    ///< a medium is there and is being listed for the first time
    bool isWritable = true;   ///< it may be written, and answers
};

struct MediaPaths {
    std::string active;
    std::string rollover;
    bool operator==(const MediaPaths &) const = default;
};

/// A medium takes the rest of a recording while more than this is free.
inline constexpr double roomPercent = 15.0;

/// The medium to roll over to from \a active: the next one after it, in the order of \a media and round, that
/// can be written and has room; without one the next that can be written, because it may still be exchanged or
/// emptied; or none.
std::string nextMedium(const std::vector<MediumFacts> &media, const std::string &active);

/// The paths that should be set now. An active slot without a medium gives way to the first one that has one,
/// preferably one that can be written, but not while the storage is in use. A rollover path stays while its
/// medium can be written and has room; otherwise one with room is taken, or the next one that can be written.
/// Nothing is decided against a medium that is just coming: a first rollover path waits for one whose turn is earlier,
/// unless something is recorded. A path that is no slot was chosen by a client and
/// gives way to better ones only, unless its medium is there and cannot be written: such a one is never next.
MediaPaths choosePaths(const std::vector<MediumFacts> &media, const MediaPaths &now, bool isInUse);

/// The paths after a rollover: recording goes on on the rollover medium, and the next one comes after it.
MediaPaths afterRollover(const std::vector<MediumFacts> &media, const MediaPaths &before);
