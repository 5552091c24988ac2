#pragma once

#include <string>

namespace lumo::utils::file {

class File
{
public:
    /// Something that is not a directory exists at \a path. A medium that does not answer within a quarter of a
    /// second has no file.
    static bool file_exists(const std::string &path);
};

} // namespace lumo::utils::file
