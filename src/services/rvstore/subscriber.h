#pragma once

#include "libmessages/wire.pb.h"

#include <compare>
#include <cstdint>
#include <deque>
#include <string>

/// Where a client listens, in host byte order.
struct Peer {
    std::uint32_t host;
    std::uint16_t port;

    auto operator<=>(const Peer &) const = default;
};

/// What the store knows of one subscribed client: what it must not carry out twice, and what it owes
/// it, the changes that it has not acknowledged. One
/// datagram is on its way at a time; what changes meanwhile waits, and a parameter that changes
/// again while it waits waits once, with its last value. Momentary parameters wait in order and
/// keep every set; nothing that was set after one of them overtakes it.
class Subscriber
{
public:
    static constexpr std::int64_t leaseMs = 5000;
    static constexpr std::int64_t heartbeatMs = 1000;
    static constexpr std::size_t maxMomentary = 256;
    static constexpr std::size_t maxPending = 1024;

    Subscriber(std::uint64_t client, std::uint64_t id, Peer peer, std::int64_t nowMs);

    std::uint64_t client() const { return _client; }
    std::uint64_t id() const { return _id; }
    const Peer &peer() const { return _peer; }
    std::uint64_t sequence() const { return _sequence; }
    std::size_t pending() const { return _pending.size(); }

    void renew(Peer peer, std::int64_t nowMs);
    bool isExpired(std::int64_t nowMs) const { return nowMs >= _leaseEndMs; }

    /// The last request that was carried out, and what it was answered with.
    struct LastSet {
        std::uint64_t request = 0;
        std::string reply;
    };
    const LastSet &lastSet() const { return _lastSet; }
    void rememberSet(std::uint64_t request, std::string reply) { _lastSet = {request, std::move(reply)}; }

    /// A request to be told when a revision is on the medium; 0: none.
    struct WaitedKeep {
        std::uint64_t request = 0;
        std::uint64_t revision = 0;
    };
    const WaitedKeep &waitedKeep() const { return _waitedKeep; }
    void waitForKeep(WaitedKeep waited) { _waitedKeep = waited; }

    /// Owe one more change. False when too many wait: then all are dropped, and the client will be
    /// told to fetch the list again.
    bool add(const lumo::store::Item &item, bool isMomentary);
    void acknowledge(std::uint64_t sequence);

    /// The datagram to send now: new changes, the last ones once more, or a heartbeat; empty for
    /// none.
    std::string takeDatagram(std::uint64_t epoch, std::int64_t nowMs);
    /// When takeDatagram() may have something again if nothing else happens, or the lease ends.
    std::int64_t nextDeadlineMs() const;

private:
    struct Change {
        lumo::store::Item item;
        bool isMomentary;
    };

    std::string makeEvents(std::uint64_t epoch);

    std::uint64_t _client;
    std::uint64_t _id;
    Peer _peer;
    std::int64_t _leaseEndMs;
    std::int64_t _heartbeatAtMs;
    std::deque<Change> _pending;
    std::size_t _momentary = 0;
    bool _resync = false;
    std::uint64_t _sequence = 0;
    std::string _underway;
    std::int64_t _resendAtMs = 0;
    std::int64_t _resendAfterMs = 0;
    LastSet _lastSet;
    WaitedKeep _waitedKeep;
};
