#pragma once

#include "clipinspector.h"
#include "knownclips.h"
#include "libvanta/clip.h"

#include <list>
#include <string>

/// Lists the clips of a directory in the order of recording. Every call may wait for the medium: use it from one
/// worker thread.
///
/// A clip is a regular file with a clip's name (see isClipName()). Links, pipes, folders, hidden files and
/// names that are no text are left out. Files that are no clips, torn beyond use or hostile are listed as bad, but
/// not while they are younger than 0.4 s.
/// One that is unfinished is being recorded while somebody has it open for writing, and ready when nobody has:
/// an interrupted recording plays up to its last whole part, and is completed where it lies when it may be.
class ClipLister
{
public:
    /// What has been read is kept in \a known; new and changed files are read by \a inspector's program.
    ClipLister(KnownClips &known, std::string inspector);

    /// The clips in \a path, oldest first, at most maxClips. \a error is an errno value when the directory
    /// cannot be read, 0 otherwise.
    std::list<Clip> list(const std::string &path, int &error);

    static constexpr std::size_t maxClips = 20000;

private:
    bool look(int directory, const std::string &name, Clip &clip);
    void read(int directory, int file, Clip &clip);

    KnownClips &_known;
    ClipInspector _inspector;
    std::string _medium; ///< the one being listed, see mediumIdOf()
    bool _hasComplained = false;
};
