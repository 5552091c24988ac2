#include "playlistfile.h"

#include "clipname.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <unordered_map>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

/// The text of the play list at \a path; nothing without one, an empty text is one.
std::optional<std::string> textOf(const std::string &path)
{
    const std::string name = path + "/" + playListName;
    if (!isRegularFile(name))
        return std::nullopt;
    std::ifstream file(name, std::ios::binary);
    std::string bytes(maxBytes, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    return bytes;
}

std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> all;
    std::istringstream lines(text.starts_with(byteOrderMark) ? text.substr(3) : text);
    for (std::string line; std::getline(lines, line);)
        all.push_back(line);
    return all;
}

bool isEntry(const std::string &line)
{
    return isClipName(nameIn(line));
}

/// A name as a line that reads back as this name.
std::string lineFor(const std::string &name)
{
    const bool isPlain = name[0] != '#' && name[0] != ' ';
    return isPlain ? name : "./" + name;
}

/// Where the line of entry \a index stands, or the end of the list for the index after the last.
std::optional<std::size_t> lineOfEntry(const std::vector<std::string> &lines, std::size_t index)
{
    for (std::size_t at = 0; at < lines.size(); ++at) {
        if (isEntry(lines[at]) && index-- == 0)
            return at;
    }
    return index == 0 ? std::optional(lines.size()) : std::nullopt;
}

std::optional<std::size_t> numberIn(const std::string &word)
{
    std::size_t number = 0;
    const auto [stop, problem] = std::from_chars(word.data(), word.data() + word.size(), number);
    const bool isNumber = problem == std::errc() && stop == word.data() + word.size();
    return isNumber && number <= maxEntries ? std::optional(number) : std::nullopt;
}

bool insertEntry(std::vector<std::string> &lines, std::size_t index, const std::string &line)
{
    const auto at = lineOfEntry(lines, index);
    if (at)
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(*at), line);
    return at.has_value();
}

/// The line taken out; nothing when there is no such entry.
std::optional<std::string> takeEntry(std::vector<std::string> &lines, std::size_t index)
{
    const auto at = lineOfEntry(lines, index);
    if (!at || *at == lines.size())
        return std::nullopt;
    const std::string line = lines[*at];
    lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(*at));
    return line;
}

/// The command's word, and what stands behind the blank after it.
std::pair<std::string, std::string> split(const std::string &text)
{
    const std::size_t blank = text.find(' ');
    return {text.substr(0, blank), blank == std::string::npos ? std::string() : text.substr(blank + 1)};
}

bool editLines(std::vector<std::string> &lines, const std::string &edit, std::string &problem)
{
    const auto [word, rest] = split(edit);
    const auto [first, second] = split(rest);
    const auto index = numberIn(first);
    const auto other = numberIn(second);
    const std::size_t count = static_cast<std::size_t>(std::ranges::count_if(lines, isEntry));
    problem = "no such entry";
    if (word == "clear" && rest.empty()) {
        std::erase_if(lines, isEntry);
        return true;
    }
    if (word == "append" || (word == "insert" && index)) {
        const std::string &name = word == "append" ? rest : second;
        if (!isClipName(name) || count >= maxEntries) {
            problem = isClipName(name) ? "the play list is full" : "not the name of a clip";
            return false;
        }
        if (word == "append") {
            lines.push_back(lineFor(name));
            return true;
        }
        return insertEntry(lines, *index, lineFor(name));
    }
    if (word == "remove" && index && second.empty())
        return takeEntry(lines, *index).has_value();
    if (word == "move" && index && other) {
        if (*index >= count || *other >= count)
            return false;
        return insertEntry(lines, *other, *takeEntry(lines, *index));
    }
    problem = "not understood";
    return false;
}

bool writeAll(int file, const std::string &text)
{
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(file, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR)
            return false;
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return ::fsync(file) == 0;
}

} // namespace

std::list<Clip> readPlayList(const std::string &path, const std::list<Clip> &clips)
{
    std::list<Clip> list;
    std::unordered_map<std::string, const Clip *> byName;
    for (const Clip &clip : clips)
        byName.emplace(clip.getName(), &clip);
    for (const std::string &line : linesOf(textOf(path).value_or(std::string()))) {
        const std::string entry = nameIn(line);
        if (!isClipName(entry) || list.size() >= maxEntries)
            continue;
        const auto clip = byName.find(entry);
        list.push_back(clip != byName.end() ? *clip->second : missing(path, entry));
    }
    return list;
}

bool editPlayList(std::string &text, const std::string &edit, std::string &problem)
{
    std::vector<std::string> lines = linesOf(text);
    if (!editLines(lines, edit, problem))
        return false;
    std::string edited;
    for (const std::string &line : lines)
        edited += line + "\n";
    if (edited.size() > maxBytes) {
        problem = "the play list is full";
        return false;
    }
    text = edited;
    problem.clear();
    return true;
}

bool editPlayListFile(const std::string &path, const std::string &edit, std::string &problem)
{
    std::string text = textOf(path).value_or("#EXTM3U\n");
    if (!editPlayList(text, edit, problem))
        return false;
    const std::string name = path + "/" + playListName;
    const std::string fresh = path + "/." + playListName + ".new";
    (void)::unlink(fresh.c_str());
    const int file = ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    const bool isWritten = file >= 0 && writeAll(file, text);
    int error = errno;
    if (file >= 0)
        ::close(file);
    if (isWritten && ::rename(fresh.c_str(), name.c_str()) == 0)
        return true;
    error = isWritten ? errno : error;
    (void)::unlink(fresh.c_str());
    problem = std::strerror(error);
    return false;
}
