#pragma once

#include "cliplister.h"

#include <cstdint>
#include <list>
#include <string>

/// Looks at one medium: its clips, its play list, its free space, and the system's notices of what happens on it.
/// Every call may wait for the medium: use it from one worker thread.
class MediumScanner
{
public:
    struct Listing {
        std::list<Clip> clips;
        std::list<Clip> playList;
        int error = 0;            ///< errno when the folder cannot be read; 0 when it can
        int watchError = 0;       ///< errno when the system cannot tell of changes; 0 when it does
        bool isMounted = false;   ///< it is not part of the root file system
        double freePercent = 0.0; ///< of the file system, rounded to a whole number
        std::uint64_t freeBytes = 0; ///< the superuser's share included
        std::uint64_t totalBytes = 0;
        bool isReadOnly = false;
        int useError = 0; ///< errno when the space could not be measured
    };

    /// Notices are to arrive on the inotify descriptor \a notices, which stays the caller's.
    MediumScanner(int notices, KnownClips &known, const std::string &inspector)
        : _lister(known, inspector), _notices(notices)
    {
    }

    /// What lies at \a path now. The notices follow to a medium that was mounted there since; while there is no
    /// such folder they tell when one above it changes.
    Listing scan(const std::string &path);
    /// Asks for no more notices of the medium, until the next scan.
    void letGo();
    /// The space on the file system at \a path, and whether it may be written; all else of \a listing stays. A
    /// file system that does not let its root be opened any more is not measured.
    static void measure(const std::string &path, Listing &listing);

private:
    int follow(const std::string &path);
    int watch(const std::string &path);

    ClipLister _lister;
    int _notices;
    int _watch = -1;
};
