#include "cliplister.h"

#include "libvanta/mediacache.h"

#include <memory>
#include <set>
#include <tuple>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>

namespace {

constexpr long long nsPerSecond = 1000000000;

bool isClipName(const std::string &name)
{
    return name.size() > 4 && name[0] != '.' && name.ends_with(".mov");
}

std::vector<std::string> clipNamesIn(const std::string &path)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> dir(opendir(path.c_str()), closedir);
    if (!dir)
        return names;
    while (const dirent *entry = readdir(dir.get())) {
        if (isClipName(entry->d_name) && names.size() < ClipLister::maxClips)
            names.emplace_back(entry->d_name);
    }
    return names;
}

} // namespace

const ClipLister::Known &ClipLister::look(const std::string &path, const std::string &name)
{
    static const Known nothing{-1, -1, false, {}};
    const std::string file = path + "/" + name;
    struct stat st = {};
    if (lstat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return nothing;
    const long long modifiedNs = st.st_mtim.tv_sec * nsPerSecond + st.st_mtim.tv_nsec;
    const auto known = _known.find(name);
    if (known != _known.end() && known->second.size == st.st_size &&
        known->second.modifiedNs == modifiedNs)
        return known->second;
    Known fresh{st.st_size, modifiedNs, false, {}};
    fresh.isClip = lumo::media::MediaCache::GrokClip(fresh.clip, file, false);
    return _known[name] = fresh;
}

std::list<Clip> ClipLister::list(const std::string &path)
{
    if (path != _path)
        _known.clear();
    _path = path;
    std::list<Clip> clips;
    std::set<std::string> seen;
    for (const std::string &name : clipNamesIn(path)) {
        seen.insert(name);
        const Known &known = look(path, name);
        if (known.isClip)
            clips.push_back(known.clip);
    }
    std::erase_if(_known, [&](const auto &entry) { return !seen.contains(entry.first); });
    clips.sort([](const Clip &a, const Clip &b) {
        return std::tuple(a.modified(), a.getName()) < std::tuple(b.modified(), b.getName());
    });
    return clips;
}
