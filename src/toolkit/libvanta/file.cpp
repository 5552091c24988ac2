#include "libvanta/file.h"

#include <sys/stat.h>

bool lumo::utils::file::File::file_exists(const std::string &path)
{
    struct stat st = {};
    return stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}
