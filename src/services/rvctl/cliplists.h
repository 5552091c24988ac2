#pragma once

#include "services/rvctl/session.h"

#include <span>
#include <string>

// What lies on the media, from the lists that the recorder's processes share. Each answers with the exit code.

/// The clips of the active medium, or of all media.
int reportClips(Session &session, bool allMedia);
/// The active medium's play list, missing entries included.
int reportPlayList(Session &session);
/// Has the media service edit the play list: the words of it as they stand on the command line.
int editPlayList(Session &session, std::span<const std::string> words);
