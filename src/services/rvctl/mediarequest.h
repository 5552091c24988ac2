#pragma once

#include "services/rvctl/session.h"

#include <chrono>
#include <optional>
#include <string>

/// What the media service answers.
struct MediaAnswer {
    bool isDone = false;
    std::string problem; ///< why it is not done
};

/// Asks the media service for something and waits for its answer, which other clients' do not disturb; nothing when
/// none comes in time. The store is connected.
std::optional<MediaAnswer> mediaAnswer(Session &session, const std::string &request,
                                       std::chrono::milliseconds patience);
/// The same, and tells the user when it fails; the answer is the exit code.
int askMedia(Session &session, const std::string &request);
