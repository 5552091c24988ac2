#pragma once

#include "libconfig/config.h"
#include "libvanta/clip.h"
#include "libvanta/mediacache.h"

#include <list>
#include <string>

/// Finds clips and names new ones.
///
/// A new clip is called after reel, counter and, in a rollover, part: R001C0042.mov, then R001C0042_2.mov. The
/// counter is a persistent parameter; numbers whose name is in use on the active medium are skipped.
class ClipFinder
{
public:
    explicit ClipFinder(Config *config);

    /// The clips of the active medium in the order of recording; with \a playList those of the play list. With
    /// \a activeOnly clips of other media are left out; with \a completeOnly clips still being recorded are.
    std::list<Clip> findClips(bool activeOnly, bool playList, bool completeOnly);

    /// The next free name for a recording. -1 when the name it arrives at is taken (no number is free).
    int buildClipName(std::string &name, const std::list<Clip> &allClips);
    /// Moves the counter on past the name built last.
    void incrementTakeIfAppropriate();
    /// The continuation's name: "A.mov" gives "A_2.mov", "A_2.mov" gives "A_3.mov"; parts whose name is in
    /// use on the medium to roll over to are skipped. Non-zero on failure: no name to start from, or no part
    /// up to 9999 is free; \a next is then the last one tried.
    int getClipNameWithIncrementedRolloverIndex(const std::string &current, std::string &next);

private:
    std::string text(eParam_t id) const;
    std::string activePath() const { return text(eParamActivePath); }
    bool isTaken(const std::string &name, const std::list<Clip> &allClips) const;

    Config *_config;
    lumo::media::MediaCache _cache;
    unsigned int _builtCounter = 0;
};
