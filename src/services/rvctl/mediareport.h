#pragma once

#include "services/rvctl/session.h"

#include <cstdint>
#include <span>
#include <string>

// The slots for media. Each answers with the exit code.

/// Every slot: what is in it, how much of it is free, and how long a recording may go on.
int reportMedia(Session &session);
/// Gives a medium up and unmounts it: the one in the slot of this number (from 1), mount point or last part of it; the
/// active one without a word.
int ejectMedium(Session &session, std::span<const std::string> words);

/// "1 h 23 min", "12 min", "40 s".
std::string durationText(double seconds);
/// How long a recording may go on on a medium, in seconds; it ends or goes over when a tenth of the medium is free.
double recordingSeconds(std::uint64_t freeBytes, std::uint64_t totalBytes, double bytesPerSecond);
