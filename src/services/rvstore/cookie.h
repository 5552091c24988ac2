#pragma once

#include <array>
#include <cstdint>
#include <span>

struct Peer;

/// The 128 bits that only this run of the store knows.
using StoreSecret = std::array<std::uint64_t, 2>;

/// SipHash-2-4: a keyed hash that nobody can foretell without the key.
std::uint64_t sipHash(const StoreSecret &key, std::span<const std::uint8_t> bytes);

/// What a client has to send back to prove that packets to its address reach it; never 0. It is worth
/// something for ten to twenty seconds, and the store remembers nothing for it.
std::uint64_t makeCookie(const StoreSecret &secret, std::uint64_t client, const Peer &peer, std::int64_t nowMs);

/// Whether a cookie is one that this client was given at this address and is still worth something.
bool isCookieGood(const StoreSecret &secret, std::uint64_t client, const Peer &peer, std::int64_t nowMs,
                  std::uint64_t cookie);
