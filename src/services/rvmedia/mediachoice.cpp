#include "mediachoice.h"

#include <algorithm>

namespace
{

const MediumFacts *factsOf(const std::vector<MediumFacts> &media, const std::string &path)
{
    const auto found = std::ranges::find(media, path, &MediumFacts::path);
    return found == media.end() ? nullptr : &*found;
}

bool hasRoom(const MediumFacts &medium)
{
    return medium.isPresent && medium.freePercent > roomPercent;
}

std::string chooseActive(const std::vector<MediumFacts> &media, const std::string &now)
{
    const MediumFacts *medium = factsOf(media, now);
    if (!now.empty() && (!medium || !medium->isSlot || medium->isPresent || medium->isComing))
        return now;
    const auto first = std::ranges::find_if(media, [](const MediumFacts &other) {
        return other.isSlot && (other.isPresent || other.isComing);
    });
    return first == media.end() || first->isComing ? std::string() : first->path;
}

std::string chooseRollover(const std::vector<MediumFacts> &media, const MediaPaths &now)
{
    const MediumFacts *medium = factsOf(media, now.rollover);
    const bool isPresent = medium && medium->isPresent && now.rollover != now.active;
    const bool isComing = medium && medium->isComing && now.rollover != now.active;
    if (isComing || (isPresent && hasRoom(*medium)))
        return now.rollover;
    const std::string next = nextMedium(media, now.active);
    const MediumFacts *better = factsOf(media, next);
    if (better && (hasRoom(*better) || !isPresent))
        return next;
    const bool isClients = medium && !medium->isSlot && now.rollover != now.active;
    return isPresent || isClients ? now.rollover : std::string();
}

} // namespace

std::string nextMedium(const std::vector<MediumFacts> &media, const std::string &active)
{
    const auto at = std::ranges::find(media, active, &MediumFacts::path);
    const auto begin = at == media.end() ? media.begin() : at;
    std::vector<MediumFacts> round(begin, media.end());
    round.insert(round.end(), media.begin(), begin);
    std::erase_if(round, [&](const MediumFacts &medium) {
        return medium.path == active || !medium.isPresent;
    });
    const auto roomy = std::ranges::find_if(round, hasRoom);
    if (roomy != round.end())
        return roomy->path;
    return round.empty() ? std::string() : round.front().path;
}

MediaPaths choosePaths(const std::vector<MediumFacts> &media, const MediaPaths &now, bool isInUse)
{
    MediaPaths chosen = now;
    if (!isInUse)
        chosen.active = chooseActive(media, now.active);
    chosen.rollover = chooseRollover(media, {chosen.active, now.rollover});
    return chosen;
}

MediaPaths afterRollover(const std::vector<MediumFacts> &media, const MediaPaths &before)
{
    if (before.rollover.empty())
        return before;
    // What was measured of the medium left is older than the recording that has filled it.
    std::vector<MediumFacts> after = media;
    for (MediumFacts &medium : after) {
        if (medium.path == before.active)
            medium.freePercent = 0.0;
    }
    return {before.rollover, nextMedium(after, before.rollover)};
}
