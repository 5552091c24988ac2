#pragma once

#include "services/rvctl/session.h"

#include <span>
#include <string>

// What lies on the media, from the lists that the recorder's processes share. Each answers with the exit code.

/// The clips of the active medium, or of all media.
int reportClips(Session &session, bool allMedia);
/// The active medium's play list, missing entries included.
int reportPlayList(Session &session);
/// Hands an edit of the play list to the media service: the words of it as they stand on the command line.
int editPlayList(Session &session, std::span<const std::string> words);
/// The active medium and the next one: how much of each is free.
int reportMedia(Session &session);
