#pragma once

#include "libclip/recoveryplan.h"

#include <functional>
#include <optional>
#include <span>

// How the confined process tells what it read of an interrupted clip: a message of 32 bytes, four numbers of eight
// bytes, the low byte first (kind, end, frames, bytes of the movie), and the movie in messages of at most 32 KiB.

/// What the asker wants to know of the file that it sends.
enum class Wanted : char { Facts, RecoveryPlan };

/// Sends \a plan over \a socket, whose reader may be slow; false when nobody reads it.
bool sendPlan(int socket, const clip::RecoveryPlan &plan);

/// Fills the bytes with the next message and answers its length, 0 or less when there is none.
using MessageReader = std::function<long(std::span<std::byte>)>;

/// The plan that the next messages bring; nothing when they are not what sendPlan() sends. Believes no number: whoever
/// sends may have been taken over by a file.
std::optional<clip::RecoveryPlan> receivePlan(const MessageReader &next);
