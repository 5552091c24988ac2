// The bytes of a parameter that names a file: a message, or none; its path is safe to ask the file system for.
// links: vanta

#include "libmessages/datafile.h"
#include "libvanta/file.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    lumo::config::DataFile file;
    if (!file.ParseFromString(std::string(reinterpret_cast<const char *>(data), size)))
        return 0;
    if (lumo::utils::file::File::file_exists(file.path()) && file.path().empty())
        std::abort();
    lumo::config::DataFile again;
    if (!again.ParseFromString(file.SerializeAsString()) || again.path() != file.path())
        std::abort();
    return 0;
}
