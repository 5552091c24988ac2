#include "playlistfile.h"

#include "clipname.h"

#include <fstream>
#include <sstream>
#include <unordered_map>

#include <sys/stat.h>

namespace
{

constexpr std::size_t maxBytes = 1 << 20;
constexpr std::size_t maxEntries = 100000;
constexpr const char *byteOrderMark = "\xef\xbb\xbf";

bool isRegularFile(const std::string &path)
{
    struct stat st = {};
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

/// Without the line end of other systems, blanks around it and a leading "./".
std::string nameIn(const std::string &line)
{
    const std::size_t begin = line.find_first_not_of(" \t");
    const std::size_t end = line.find_last_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#')
        return std::string();
    const std::string name = line.substr(begin, end - begin + 1);
    return name.starts_with("./") ? name.substr(2) : name;
}

Clip missing(const std::string &path, const std::string &name)
{
    Clip clip;
    clip.setName(name);
    clip.setPath(path);
    clip.setState(ClipState::Missing);
    return clip;
}

} // namespace

std::list<Clip> readPlayList(const std::string &path, const std::list<Clip> &clips)
{
    std::list<Clip> list;
    const std::string name = path + "/" + playListName;
    if (!isRegularFile(name))
        return list;
    std::ifstream file(name, std::ios::binary);
    std::string bytes(maxBytes, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    if (bytes.starts_with(byteOrderMark))
        bytes.erase(0, 3);

    std::unordered_map<std::string, const Clip *> byName;
    for (const Clip &clip : clips)
        byName.emplace(clip.getName(), &clip);
    std::istringstream lines(bytes);
    for (std::string line; std::getline(lines, line);) {
        const std::string entry = nameIn(line);
        if (!isClipName(entry) || list.size() >= maxEntries)
            continue;
        const auto clip = byName.find(entry);
        list.push_back(clip != byName.end() ? *clip->second : missing(path, entry));
    }
    return list;
}
