#pragma once

#include "libvanta/clip.h"

#include <list>
#include <map>
#include <string>

/// Lists the clips of a directory in the order of recording. Remembers what it has read, so that only new and
/// changed files are opened. Every call may wait for the medium: use it from one worker thread.
class ClipLister
{
public:
    /// All readable .mov clips in \a path, oldest first; empty when the directory cannot be read. Files that
    /// are no clips are left out, and so is everything that is not a regular file. At most maxClips.
    std::list<Clip> list(const std::string &path);

    static constexpr std::size_t maxClips = 20000;

private:
    /// What was read from a file, with what tells whether it has changed since.
    struct Known {
        long long size;
        long long modifiedNs;
        bool isClip;
        Clip clip;
    };

    const Known &look(const std::string &path, const std::string &name);

    std::string _path;
    std::map<std::string, Known> _known;
};
