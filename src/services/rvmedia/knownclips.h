#pragma once

#include "libvanta/clip.h"

#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>

/// What has been read of clips, by name, size and time of the last change: a medium that comes back, in
/// whatever slot, is listed without a file being opened. Any thread.
class KnownClips
{
public:
    /// The size and the time are those of the file now.
    std::optional<Clip> find(const std::string &name, std::int64_t size, std::int64_t modifiedNs) const;
    /// Remembers a clip by its own name, size and time. With more than maxClips all are forgotten first.
    void remember(const Clip &clip);

    static constexpr std::size_t maxClips = 200000;

private:
    using Key = std::tuple<std::string, std::int64_t, std::int64_t>;

    mutable std::mutex _mutex;
    std::map<Key, Clip> _clips;
};
