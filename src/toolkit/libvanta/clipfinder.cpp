#include "libvanta/clipfinder.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

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

bool exists(const std::string &path)
{
    struct stat st = {};
    return stat(path.c_str(), &st) == 0;
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

bool ClipFinder::isTaken(const std::string &name, const std::list<Clip> &allClips) const
{
    if (std::ranges::find(allClips, name, &Clip::getName) != allClips.end())
        return true;
    return exists(activePath() + "/" + name);
}

int ClipFinder::buildClipName(std::string &name, const std::list<Clip> &allClips)
{
    std::string reel;
    unsigned int counter = 1;
    if (_config) {
        _config->getString(eParamReelName, reel);
        _config->getUInt32(eParamClipCounter, counter);
    }
    for (counter = std::clamp(counter, 1u, lastCounter);; ++counter) {
        char number[16];
        std::snprintf(number, sizeof number, "C%04u", counter);
        name = "R" + reelPart(reel) + number + extension;
        _builtCounter = counter;
        if (!isTaken(name, allClips))
            return 0;
        if (counter == lastCounter)
            return -1;
    }
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
    int part = 1;
    const std::size_t mark = stem.rfind('_');
    if (mark != std::string::npos && mark > 0) {
        const char *begin = stem.data() + mark + 1;
        const char *end = stem.data() + stem.size();
        int number = 0;
        const auto [stop, problem] = std::from_chars(begin, end, number);
        if (problem == std::errc() && stop == end && number > 1) {
            part = number;
            stem.resize(mark);
        }
    }
    const std::string medium = text(eParamRolloverPath);
    next = current;
    while (++part <= lastPart) {
        next = stem + "_" + std::to_string(part) + suffix;
        if (!exists(medium + "/" + next))
            return 0;
    }
    return 1;
}
