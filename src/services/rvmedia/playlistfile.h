#pragma once

#include "libvanta/clip.h"

#include <list>
#include <string>

/// The play list of a medium is the text file "playlist.m3u" on it: one clip name a line, in the
/// order of playing, a clip as often as it is to be played. Empty lines and lines that begin with
/// "#" mean nothing.
inline constexpr const char *playListName = "playlist.m3u";

/// The clips that the play list at \a path names, out of \a clips; names that are no clips of the
/// medium are left out. Empty without a play list. At most 1 MiB is read. May wait for the medium.
std::list<Clip> readPlayList(const std::string &path, const std::list<Clip> &clips);
