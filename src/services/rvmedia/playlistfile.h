#pragma once

#include "libvanta/clip.h"

#include <list>
#include <string>

/// The play list of a medium is the text file "playlist.m3u" on it: one clip name a line, in the
/// order of playing, a clip as often as it is to be played. Empty lines and lines that begin with
/// "#" mean nothing.
inline constexpr const char *playListName = "playlist.m3u";

/// The entries of the play list at \a path, with what \a clips says of them; a name that none of them has gives a
/// missing one. Empty without a play list. At most 1 MiB is read. May wait for the medium.
std::list<Clip> readPlayList(const std::string &path, const std::list<Clip> &clips);

/// Carries out one edit on the text of a play list, and leaves what is no entry as it is: "append NAME",
/// "insert INDEX NAME", "move FROM TO", "remove INDEX" or "clear"; indices count entries from 0, and "insert" and
/// "move" say where the entry stands afterwards. False, with \a problem filled in and the text untouched, for
/// anything else.
bool editPlayList(std::string &text, const std::string &edit, std::string &problem);

/// Edits the play list at \a path, which is made when there is none and replaced in one step. False with \a problem
/// filled in when it cannot be done. May wait for the medium.
bool editPlayListFile(const std::string &path, const std::string &edit, std::string &problem);
