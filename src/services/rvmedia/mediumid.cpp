#include "mediumid.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

namespace
{

constexpr const char *namesOfDevices = "/dev/disk/by-uuid";

/// The name under which the system lists a device; empty for what is no device.
std::string uuidOf(dev_t device)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> names(::opendir(namesOfDevices), ::closedir);
    while (const dirent *entry = names ? ::readdir(names.get()) : nullptr) {
        struct stat st = {};
        if (::fstatat(::dirfd(names.get()), entry->d_name, &st, 0) == 0 && S_ISBLK(st.st_mode) &&
            st.st_rdev == device)
            return entry->d_name;
    }
    return {};
}

} // namespace

std::string mediumIdOf(int folder)
{
    struct stat st = {};
    struct statfs system = {};
    if (::fstat(folder, &st) != 0 || ::fstatfs(folder, &system) != 0)
        return {};
    const std::string uuid = uuidOf(st.st_dev);
    if (!uuid.empty())
        return uuid;
    int parts[2] = {};
    static_assert(sizeof parts == sizeof system.f_fsid);
    std::memcpy(parts, &system.f_fsid, sizeof parts);
    // File systems of other machines and of programs have none; their device is theirs while they are mounted.
    if (parts[0] == 0 && parts[1] == 0) {
        parts[0] = static_cast<int>(major(st.st_dev));
        parts[1] = static_cast<int>(minor(st.st_dev));
    }
    char text[40];
    std::snprintf(text, sizeof text, "%08lx-%08x%08x", static_cast<unsigned long>(system.f_type),
                  static_cast<unsigned int>(parts[0]), static_cast<unsigned int>(parts[1]));
    return text;
}
