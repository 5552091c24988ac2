#pragma once

#include <string>

/// What tells the medium that the folder open at \a folder lies on from all others: the identifier that was given to
/// its file system when it was made, where the system knows it, else the one the file system has while it is
/// mounted, or that of its device when it has none. The last two another medium may get when this one is gone. Empty
/// when it cannot be asked.
std::string mediumIdOf(int folder);
