#pragma once

#include "frame_law.h"

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace law {

/// Follows the program bus on a thread of its own and keeps what every frame shows. A frame that
/// it did not come to see is counted.
class Watch
{
public:
    explicit Watch(const std::string &bus);
    ~Watch();

    /// The number of frames seen so far.
    std::size_t count() const;
    /// The frames seen from the \a from th on.
    std::vector<Shown> since(std::size_t from) const;
    Shown last() const;
    /// Frames of the bus that were not seen.
    std::uint64_t missed() const { return _missed; }

private:
    void run();

    const std::string _bus;
    mutable std::mutex _mutex;
    std::vector<Shown> _seen; // guarded
    bus::Reader _reader;
    std::atomic<std::uint64_t> _missed = 0;
    std::atomic<bool> _ends = false;
    std::thread _thread;
};

} // namespace law
