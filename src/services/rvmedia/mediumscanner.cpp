#include "mediumscanner.h"

#include "playlistfile.h"

#include <cerrno>
#include <cstdint>
#include <utility>

#include <sys/inotify.h>

namespace
{

constexpr std::uint32_t watched =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_UNMOUNT;

} // namespace

/// Adding the watch that is there already changes nothing; on another file system it is another
/// one.
MediumScanner::Watch MediumScanner::follow(const std::string &path)
{
    const int watch = path.empty() ? -1 : inotify_add_watch(_notices, path.c_str(), watched);
    const int error = !path.empty() && watch < 0 ? errno : 0;
    const int before = std::exchange(_watch, watch);
    if (before >= 0 && before != watch)
        inotify_rm_watch(_notices, before); // gone by itself when its medium is
    return {before != watch, error};
}

MediumScanner::Listing MediumScanner::list(const std::string &path, int watchError)
{
    Listing listing;
    listing.watchError = watchError;
    if (path.empty())
        return listing;
    listing.clips = _lister.list(path);
    listing.playList = readPlayList(path, listing.clips);
    return listing;
}

MediumScanner::Listing MediumScanner::scan(const std::string &path)
{
    return list(path, follow(path).error);
}

std::optional<MediumScanner::Listing> MediumScanner::look(const std::string &path)
{
    const Watch watch = follow(path);
    if (!watch.isOther && watch.error == 0)
        return std::nullopt;
    return list(path, watch.error);
}
