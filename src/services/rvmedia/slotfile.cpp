#include "slotfile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace
{

constexpr std::size_t maxSlots = 16;
constexpr std::size_t maxBytes = 65536;

std::string trimmed(const std::string &line)
{
    const std::size_t begin = line.find_first_not_of(" \t\r");
    const std::size_t end = line.find_last_not_of(" \t\r");
    return begin == std::string::npos ? std::string() : line.substr(begin, end - begin + 1);
}

} // namespace

std::vector<std::string> defaultSlots()
{
    return {"/media/slot1", "/media/slot2"};
}

std::string cleanPath(const std::string &path)
{
    if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos)
        return std::string();
    std::string clean;
    for (const char c : path) {
        if (c != '/' || clean.empty() || clean.back() != '/')
            clean += c;
    }
    if (clean.size() > 1 && clean.back() == '/')
        clean.pop_back();
    return clean;
}

std::vector<std::string> slotsIn(const std::string &text, std::string &problem)
{
    std::vector<std::string> paths;
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        const std::string entry = trimmed(line);
        if (entry.empty() || entry[0] == '#')
            continue;
        const std::string path = cleanPath(entry);
        const bool isUsable = path.size() > 1 && paths.size() < maxSlots;
        if (!isUsable && problem.empty())
            problem = "line " + std::to_string(number) + ": " +
                (paths.size() < maxSlots ? "not the path of a mount point" : "too many slots");
        if (isUsable && std::ranges::find(paths, path) == paths.end())
            paths.push_back(path);
    }
    return paths;
}

std::vector<std::string> readSlotFile(const std::string &name, std::string &problem)
{
    errno = 0;
    std::ifstream file(name, std::ios::binary);
    if (!file) {
        if (errno != ENOENT)
            problem = std::strerror(errno);
        return defaultSlots();
    }
    std::string text(maxBytes, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return slotsIn(text, problem);
}
