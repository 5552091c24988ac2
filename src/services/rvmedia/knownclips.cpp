#include "knownclips.h"

#include <algorithm>

std::optional<Clip> KnownClips::find(const std::string &medium, const std::string &name, std::int64_t size,
                                     std::int64_t modifiedNs) const
{
    const std::lock_guard lock(_mutex);
    const auto clips = _media.find(medium);
    if (clips == _media.end())
        return std::nullopt;
    const auto known = clips->second.find(Key(name, size, modifiedNs));
    return known == clips->second.end() ? std::nullopt : std::optional(known->second);
}

void KnownClips::makeRoom(const std::string &medium)
{
    if (_count < maxClips)
        return;
    const auto other = std::ranges::find_if(_media, [&](const auto &one) { return one.first != medium; });
    const auto victim = other != _media.end() ? other : _media.begin();
    _count -= victim->second.size();
    _media.erase(victim);
}

void KnownClips::remember(const std::string &medium, const Clip &clip)
{
    const std::lock_guard lock(_mutex);
    makeRoom(medium);
    const Key key(clip.getName(), clip.fileSize(), clip.modifiedNs());
    _count += _media[medium].insert_or_assign(key, clip).second;
    ++_revision;
}

void KnownClips::keepOnly(const std::string &medium, const std::set<std::string> &names)
{
    const std::lock_guard lock(_mutex);
    const auto clips = _media.find(medium);
    if (clips == _media.end())
        return;
    const std::size_t gone = std::erase_if(clips->second, [&](const auto &one) {
        return !names.contains(std::get<0>(one.first));
    });
    _count -= gone;
    if (gone > 0)
        ++_revision;
}

std::list<KnownClips::OfMedium> KnownClips::good() const
{
    const std::lock_guard lock(_mutex);
    std::list<OfMedium> all;
    for (const auto &[medium, clips] : _media) {
        OfMedium &one = all.emplace_back(OfMedium{medium, {}});
        for (const auto &[key, clip] : clips) {
            if (clip.state() == ClipState::Ready)
                one.clips.push_back(clip);
        }
    }
    return all;
}
