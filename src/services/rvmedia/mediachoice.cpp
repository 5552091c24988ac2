#include "mediachoice.h"

#include <algorithm>

namespace
{

const MediumFacts *factsOf(const std::vector<MediumFacts> &media, const std::string &path)
{
    const auto found = std::ranges::find(media, path, &MediumFacts::path);
    return found == media.end() ? nullptr : &*found;
}

bool takesClips(const MediumFacts &medium)
{
    return medium.isPresent && medium.isWritable;
}

bool hasRoom(const MediumFacts &medium)
{
    return takesClips(medium) && medium.freePercent > roomPercent;
}

std::string chooseActive(const std::vector<MediumFacts> &media, const std::string &now)
{
    const MediumFacts *medium = factsOf(media, now);
    if (!now.empty() && (!medium || !medium->isSlot || medium->isPresent || medium->isComing))
        return now;
    auto first = std::ranges::find_if(media, [](const MediumFacts &other) {
        return other.isSlot && (takesClips(other) || other.isComing);
    });
    if (first == media.end())
        first = std::ranges::find_if(
            media, [](const MediumFacts &other) { return other.isSlot && other.isPresent; });
    return first == media.end() || first->isComing ? std::string() : first->path;
}

/// The other media, from the one after \a active on.
std::vector<MediumFacts> roundFrom(const std::vector<MediumFacts> &media, const std::string &active)
{
    const auto at = std::ranges::find(media, active, &MediumFacts::path);
    const auto begin = at == media.end() ? media.begin() : at;
    std::vector<MediumFacts> round(begin, media.end());
    round.insert(round.end(), media.begin(), begin);
    std::erase_if(round, [&](const MediumFacts &medium) { return medium.path == active; });
    return round;
}

/// A slot whose turn is earlier than that of \a next is being listed.
bool isEarlierComing(const std::vector<MediumFacts> &media, const std::string &active, const std::string &next)
{
    for (const MediumFacts &medium : roundFrom(media, active)) {
        if (medium.path == next)
            return false;
        if (medium.isSlot && medium.isComing)
            return true;
    }
    return false;
}

std::string chooseRollover(const std::vector<MediumFacts> &media, const MediaPaths &now, bool isInUse)
{
    const MediumFacts *medium = now.rollover == now.active ? nullptr : factsOf(media, now.rollover);
    if (medium && (medium->isComing || hasRoom(*medium)))
        return now.rollover;
    const bool isUsable = medium && takesClips(*medium);
    const std::string next = nextMedium(media, now.active);
    if (!isInUse && now.rollover.empty() && isEarlierComing(media, now.active, next))
        return std::string();
    const MediumFacts *better = factsOf(media, next);
    if (better && (hasRoom(*better) || !isUsable))
        return next;
    const bool isClients = medium && !medium->isSlot && !medium->isPresent;
    return isUsable || isClients ? now.rollover : std::string();
}

} // namespace

std::string nextMedium(const std::vector<MediumFacts> &media, const std::string &active)
{
    std::vector<MediumFacts> round = roundFrom(media, active);
    std::erase_if(round, [](const MediumFacts &medium) { return !takesClips(medium); });
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
    chosen.rollover = chooseRollover(media, {chosen.active, now.rollover}, isInUse);
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
