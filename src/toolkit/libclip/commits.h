#pragma once

#include "libclip/rawfile.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

namespace clip {

/// A fragment that is in the file but not yet a fragment to readers.
struct Uncommitted
{
    std::uint64_t offset = 0;
    std::uint64_t end = 0;
    std::int64_t framesWithIt = 0; ///< of the clip up to its end
};

/// The way of a clip's fragments from written to there for good. Thread-safe; no call waits for another's medium.
class Commits
{
public:
    /// Another clip begins.
    void reset();
    void add(const Uncommitted &fragment);
    bool hasPending() const;
    /// One wait for the medium: makes the written fragments durable together with the commits before,
    /// then commits the fragments. A medium that fails here once is never asked again: the system may
    /// have dropped what it could not write and would answer with success.
    Error commit(RawFile &file);
    /// Of the first commit that failed.
    Error error() const;
    /// Frames that are committed for good.
    std::int64_t frames() const { return _frames.load(); }
    /// All is: so many frames, up to \a end.
    void allAreCommitted(RawFile &file, std::int64_t frames, std::uint64_t end);

private:
    mutable std::mutex _mutex;        // guards what follows but for the last, never held during a wait
    std::vector<Uncommitted> _pending;
    Uncommitted _flipped;             // the last fragment that readers see; for good as soon as the next sync is over
    std::uint64_t _forgotten = 0;     // up to here the system need keep nothing more in memory
    Error _error;
    std::atomic<std::int64_t> _frames { 0 };
};

} // namespace clip
