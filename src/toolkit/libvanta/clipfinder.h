#pragma once

#include "libconfig/config.h"
#include "libvanta/clip.h"
#include "libvanta/mediacache.h"

#include <list>
#include <set>
#include <string>

/// Finds clips and names new ones.
///
/// A new clip is called after reel, counter and, in a rollover, part: R001C0042.mov, then R001C0042_2.mov. The
/// counter is a persistent parameter. A name is in use when the shared lists show it on any medium, whatever its
/// state, or when anything of that name lies on the active medium, the one to roll over to, or one that has a clip.
/// No call waits longer than a quarter of a second for a medium.
class ClipFinder
{
public:
    explicit ClipFinder(Config *config);

    /// The clips of all media, medium by medium, in the order of recording; with \a playList the entries of their
    /// play lists. With \a activeOnly those of other media than the active one are left out; with \a completeOnly
    /// all that cannot be played: clips still being recorded, bad files, entries whose clip is missing.
    std::list<Clip> findClips(bool activeOnly, bool playList, bool completeOnly);

    /// The name of the next recording: the first one from the counter on that is not in use. -1 when the name it
    /// arrives at is taken: no number up to 9999 is free.
    int buildClipName(std::string &name, const std::list<Clip> &allClips);
    /// Moves the counter on past the name built last.
    void incrementTakeIfAppropriate();
    /// The continuation's name: "A.mov" gives "A_2.mov", "A_2.mov" gives "A_3.mov"; parts whose name is in
    /// use are skipped. Non-zero on failure: no name to start from, or no part
    /// up to 9999 is free; \a next is then the last one tried.
    int getClipNameWithIncrementedRolloverIndex(const std::string &current, std::string &next);

private:
    std::string text(eParam_t id) const;
    std::string activePath() const { return text(eParamActivePath); }
    void lookAround(std::set<std::string> &names, std::set<std::string> &folders);

    Config *_config;
    lumo::media::MediaCache _cache;
    unsigned int _builtCounter = 0;
};
