#include "libvanta/file.h"

#include "libvanta/withintime.h"

#include <memory>

#include <sys/stat.h>

bool lumo::utils::file::File::file_exists(const std::string &path)
{
    if (path.empty() || path.find('\0') != std::string::npos)
        return false;
    const auto exists = std::make_shared<bool>(false);
    const auto look = [exists, path] {
        struct stat st = {};
        *exists = stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
    };
    return withinTime(filePatience, look) && *exists;
}
