#pragma once

#include "cliplister.h"

#include <list>
#include <optional>
#include <string>

/// Looks at one medium: its clips, its play list, and the system's notices of what happens on it.
/// Every call may wait for the medium: use it from one worker thread.
class MediumScanner
{
public:
    struct Listing {
        std::list<Clip> clips;
        std::list<Clip> playList;
        int watchError = 0; ///< errno when the system cannot tell of changes; 0 when it does
    };

    /// Notices are to arrive on the inotify descriptor \a notices, which stays the caller's.
    explicit MediumScanner(int notices) : _notices(notices) {}

    /// What lies at \a path now; nothing for an empty path. The notices follow: to another path,
    /// and to a medium that was mounted there since.
    Listing scan(const std::string &path);
    /// The same when notices cannot be relied on: the medium is another one than at the last scan,
    /// or the system does not tell of it. Nothing otherwise: files that grow are left alone until
    /// they are closed.
    std::optional<Listing> look(const std::string &path);

private:
    /// What becomes of the watch.
    struct Watch {
        bool isOther = false;
        int error = 0;
    };
    Watch follow(const std::string &path);
    Listing list(const std::string &path, int watchError);

    ClipLister _lister;
    int _notices;
    int _watch = -1;
};
