#include "knownclips.h"

std::optional<Clip> KnownClips::find(const std::string &name, std::int64_t size,
                                     std::int64_t modifiedNs) const
{
    const std::lock_guard lock(_mutex);
    const auto known = _clips.find(Key(name, size, modifiedNs));
    return known == _clips.end() ? std::nullopt : std::optional(known->second);
}

void KnownClips::remember(const Clip &clip)
{
    const std::lock_guard lock(_mutex);
    if (_clips.size() >= maxClips)
        _clips.clear();
    _clips[Key(clip.getName(), clip.fileSize(), clip.modifiedNs())] = clip;
}
