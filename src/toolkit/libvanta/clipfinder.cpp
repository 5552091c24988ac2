#include "libvanta/clipfinder.h"

#include "libvanta/withintime.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <memory>

#include <sys/stat.h>

namespace {

constexpr unsigned int lastCounter = 9999;
constexpr int lastPart = 9999;
constexpr const char *extension = ".mov";

/// Reel names are padded to three characters and stripped of what has no place in a file name.
std::string reelPart(const std::string &reel)
{
    std::string text;
    for (const char c : reel) {
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '-')
            text += c;
    }
    text.resize(std::min<std::size_t>(text.size(), 32));
    return text.size() < 3 ? std::string(3 - text.size(), '0') + text : text;
}

/// Anything that has the name is in the way, also a link to nowhere.
bool exists(const std::string &path)
{
    struct stat st = {};
    return lstat(path.c_str(), &st) == 0;
}

/// The names that must not be given again: what the lists hold, and what lies in the folders of the media.
struct TakenNames {
    std::set<std::string> listed;
    std::set<std::string> folders;
    bool contains(const std::string &name) const
    {
        return listed.contains(name) || std::ranges::any_of(folders, [&](const std::string &folder) {
                   return exists(folder + "/" + name);
               });
    }
};

/// A search for a free name, by a thread that a dying medium may hold for ever.
struct Search {
    TakenNames taken;
    std::string name;
    bool isFree = false;
};

std::string clipName(const std::string &reel, unsigned int counter)
{
    char number[16];
    std::snprintf(number, sizeof number, "C%04u", counter);
    return "R" + reel + number + extension;
}

/// The stem and the number of the part that a name stands for; 1 for a name without one.
int splitPart(std::string &stem)
{
    const std::size_t mark = stem.rfind('_');
    if (mark == std::string::npos || mark == 0)
        return 1;
    const char *begin = stem.data() + mark + 1;
    const char *end = stem.data() + stem.size();
    int number = 0;
    const auto [stop, problem] = std::from_chars(begin, end, number);
    if (problem != std::errc() || stop != end || number < 2)
        return 1;
    stem.resize(mark);
    return number;
}

} // namespace

ClipFinder::ClipFinder(Config *config) : _config(config), _cache("NewCache") {}

std::string ClipFinder::text(eParam_t id) const
{
    std::string value;
    if (_config)
        _config->getString(id, value);
    return value;
}

std::list<Clip> ClipFinder::findClips(bool activeOnly, bool playList, bool completeOnly)
{
    std::list<Clip> clips;
    if (playList)
        _cache.playlist(clips);
    else
        _cache.clips(clips);
    if (activeOnly) {
        const std::string path = activePath();
        clips.remove_if([&](const Clip &clip) { return clip.path() != path; });
    }
    if (completeOnly)
        clips.remove_if([](const Clip &clip) { return !clip.isComplete(); });
    return clips;
}

void ClipFinder::lookAround(std::set<std::string> &names, std::set<std::string> &folders)
{
    std::list<Clip> all;
    _cache.clips(all);
    for (const Clip &clip : all) {
        names.insert(clip.getName());
        folders.insert(clip.path());
    }
    folders.insert(text(eParamActivePath));
    folders.insert(text(eParamRolloverPath));
    folders.erase(std::string());
}

int ClipFinder::buildClipName(std::string &name, const std::list<Clip> &allClips)
{
    std::string reel;
    unsigned int first = 1;
    if (_config) {
        _config->getString(eParamReelName, reel);
        _config->getUInt32(eParamClipCounter, first);
    }
    first = std::clamp(first, 1u, lastCounter);
    reel = reelPart(reel);
    const auto search = std::make_shared<Search>();
    lookAround(search->taken.listed, search->taken.folders);
    for (const Clip &clip : allClips)
        search->taken.listed.insert(clip.getName());
    const auto find = [search, reel, first] {
        for (unsigned int counter = first; counter <= lastCounter && !search->isFree; ++counter) {
            search->name = clipName(reel, counter);
            search->isFree = !search->taken.contains(search->name);
        }
    };
    const std::set<std::string> listed = search->taken.listed;
    if (!lumo::utils::withinTime(lumo::utils::filePatience, find)) {
        // A medium hangs; the lists are all that is known.
        unsigned int counter = first;
        while (counter < lastCounter && listed.contains(clipName(reel, counter)))
            ++counter;
        name = clipName(reel, counter);
        _builtCounter = counter;
        return listed.contains(name) ? -1 : 0;
    }
    name = search->name;
    const char *digits = name.data() + 1 + reel.size() + 1;
    std::from_chars(digits, digits + 4, _builtCounter);
    return search->isFree ? 0 : -1;
}

void ClipFinder::incrementTakeIfAppropriate()
{
    if (_config && _builtCounter > 0)
        _config->setUInt32(eParamClipCounter, std::min(_builtCounter + 1, lastCounter));
}

int ClipFinder::getClipNameWithIncrementedRolloverIndex(const std::string &current,
                                                        std::string &next)
{
    const std::size_t dot = current.rfind('.');
    std::string stem = current.substr(0, dot);
    const std::string suffix = dot == std::string::npos ? std::string() : current.substr(dot);
    if (stem.empty())
        return 1;
    const int first = splitPart(stem) + 1;
    next = current;
    if (first > lastPart)
        return 1;
    const auto search = std::make_shared<Search>();
    lookAround(search->taken.listed, search->taken.folders);
    const auto find = [search, stem, suffix, first] {
        for (int part = first; part <= lastPart && !search->isFree; ++part) {
            search->name = stem + "_" + std::to_string(part) + suffix;
            search->isFree = !search->taken.contains(search->name);
        }
    };
    // A medium that hangs is no reason to end a recording; the open tells whether the name could be had.
    if (!lumo::utils::withinTime(lumo::utils::filePatience, find)) {
        next = stem + "_" + std::to_string(first) + suffix;
        return 0;
    }
    next = search->name;
    return search->isFree ? 0 : 1;
}
