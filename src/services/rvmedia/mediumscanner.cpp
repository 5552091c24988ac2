#include "mediumscanner.h"

#include "mounttable.h"
#include "playlistfile.h"
#include "slotfile.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace
{

constexpr std::uint32_t watchedOfMedium = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
    IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_ONLYDIR;
constexpr std::uint32_t watchedAbove =
    IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

void MediumScanner::measure(const std::string &path, Listing &listing)
{
    struct statfs root = {};
    struct statfs medium = {};
    const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isMeasured = folder >= 0 && ::statfs("/", &root) == 0 && ::fstatfs(folder, &medium) == 0;
    listing.useError = isMeasured ? 0 : errno;
    if (folder >= 0)
        ::close(folder);
    if (!isMeasured)
        return;
    listing.isMounted = std::memcmp(&root.f_fsid, &medium.f_fsid, sizeof root.f_fsid) != 0;
    if (medium.f_blocks > 0)
        listing.freePercent = std::round(double(medium.f_bfree) / double(medium.f_blocks) * 100.0);
    listing.freeBytes = std::uint64_t(medium.f_bfree) * std::uint64_t(medium.f_bsize);
    listing.totalBytes = std::uint64_t(medium.f_blocks) * std::uint64_t(medium.f_bsize);
    listing.isReadOnly = (medium.f_flags & ST_RDONLY) != 0 || isGivenUpIn(mountTable(), cleanPath(path));
}

void MediumScanner::letGo()
{
    const int watch = std::exchange(_watch, -1);
    if (watch >= 0)
        ::inotify_rm_watch(_notices, watch);
}

int MediumScanner::watch(const std::string &path)
{
    int watch = ::inotify_add_watch(_notices, path.c_str(), watchedOfMedium);
    std::string above = path;
    while (watch < 0 && errno == ENOENT && above.size() > 1) {
        const std::size_t slash = above.rfind('/');
        if (slash == std::string::npos)
            break;
        above.resize(std::max<std::size_t>(slash, 1));
        const int outer = ::inotify_add_watch(_notices, above.c_str(), watchedAbove);
        if (outer < 0)
            continue;
        // It may have come before the watch above it.
        watch = ::inotify_add_watch(_notices, path.c_str(), watchedOfMedium);
        if (watch < 0)
            return outer;
        ::inotify_rm_watch(_notices, outer);
    }
    return watch;
}

/// Adding the watch that is there already changes nothing; on another file system it is another one.
int MediumScanner::follow(const std::string &path)
{
    const int now = watch(path);
    const int error = now < 0 ? errno : 0;
    const int before = std::exchange(_watch, now);
    if (before >= 0 && before != now)
        ::inotify_rm_watch(_notices, before); // gone by itself when its medium is
    return error;
}

MediumScanner::Listing MediumScanner::scan(const std::string &path)
{
    Listing listing;
    listing.watchError = follow(path);
    listing.clips = _lister.list(path, listing.error);
    listing.playList = readPlayList(path, listing.clips);
    measure(path, listing);
    return listing;
}
