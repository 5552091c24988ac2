#pragma once

#include "libvanta/clip.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <tuple>

/// What has been read of clips, by medium, name, size and time of the last change: a medium that comes back, in
/// whatever slot, is listed without a file being opened. Any thread.
class KnownClips
{
public:
    /// What is known of one medium, for keeping.
    struct OfMedium {
        std::string medium;
        std::list<Clip> clips;
    };

    /// The size and the time are those of the file now.
    std::optional<Clip> find(const std::string &medium, const std::string &name, std::int64_t size,
                             std::int64_t modifiedNs) const;
    /// Remembers a clip by its own name, size and time. When there are more than maxClips, all of another medium are
    /// forgotten first.
    void remember(const std::string &medium, const Clip &clip);
    /// Forgets what is not among the files that lie on the medium now.
    void keepOnly(const std::string &medium, const std::set<std::string> &names);

    /// All that is known, but for bad clips: another reader may understand them.
    std::list<OfMedium> good() const;
    /// Counts the changes.
    std::uint64_t revision() const { return _revision; }

    static constexpr std::size_t maxClips = 200000;

private:
    using Key = std::tuple<std::string, std::int64_t, std::int64_t>;

    void makeRoom(const std::string &medium);

    mutable std::mutex _mutex;
    std::map<std::string, std::map<Key, Clip>> _media;
    std::size_t _count = 0;
    std::atomic<std::uint64_t> _revision = 0;
};
