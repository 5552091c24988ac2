#pragma once

#include <string>
#include <vector>

/// The slots that a recorder has when nobody says otherwise.
std::vector<std::string> defaultSlots();
/// Where the list of slots is looked for when nobody says otherwise.
inline constexpr const char *slotFileName = "/etc/rvmedia.conf";

/// The slots that the lines of \a text name: one mount point a line, an absolute path, in the order in which
/// they are used. Empty lines and lines that begin with "#" mean nothing; a path counts once; at most 16. \a
/// problem says what is wrong with the first line that cannot be used.
std::vector<std::string> slotsIn(const std::string &text, std::string &problem);
/// The slots of the file \a name. The default ones when there is no such file; \a problem is filled in when it
/// cannot be read or a line of it cannot be used.
std::vector<std::string> readSlotFile(const std::string &name, std::string &problem);

/// A path as everybody writes it: without doubled and trailing slashes. Empty unless it is absolute.
std::string cleanPath(const std::string &path);
