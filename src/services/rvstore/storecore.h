#pragma once

#include "services/rvstore/storevalues.h"
#include "services/rvstore/subscriber.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

/// The time of a step: for deadlines, and for the stamp of a change.
struct StoreTime {
    std::int64_t monotonicMs;
    timeval wall;
};

/// The parameter store without its socket, its clock and its database: datagrams and times in,
/// datagrams out. One thread.
class StoreCore
{
public:
    using Send = std::function<void(const Peer &peer, const std::string &datagram)>;
    using Keep = std::function<void(eParam_t id, const ParamValue &value)>;

    static constexpr std::size_t maxSubscribers = 32;
    static constexpr std::size_t maxClients = 256;
    static constexpr std::size_t maxReplies = 16;

    struct Counters {
        std::uint64_t received = 0;
        std::uint64_t malformed = 0;
        std::uint64_t sets = 0;
        std::uint64_t refused = 0;
        std::uint64_t duplicates = 0;
        std::uint64_t overflows = 0;
        std::uint64_t expired = 0;
    };

    /// `epoch` tells this run of the store from others; `keep` is called for each change to be
    /// kept.
    StoreCore(std::uint64_t epoch, Send send, Keep keep);

    StoreValues &values() { return _values; }
    const Counters &counters() const { return _counters; }
    std::size_t subscribers() const { return _subscribers.size(); }

    /// Take one datagram in. Anything malformed is counted and dropped.
    void receive(const Peer &peer, std::span<const std::uint8_t> datagram, StoreTime now);
    /// Send what is due, drop who is gone. The answer is when to call again at the latest, in
    /// monotonic milliseconds; -1 for no need.
    std::int64_t step(StoreTime now);

private:
    /// What is remembered of a client so that none of its requests is carried out twice.
    struct Client {
        std::uint64_t lastRequest = 0;
        std::deque<std::pair<std::uint64_t, std::string>> replies;
        std::int64_t usedAtMs = 0;
    };

    void changed(const StoreValues::Entry &entry);
    void handleSet(const Peer &peer, const lumo::store::Packet &packet, StoreTime now);
    lumo::store::SetResult carryOut(const lumo::store::Set &set, std::uint64_t origin,
                                    timeval when);
    void handleGet(const Peer &peer, const lumo::store::Packet &packet);
    void handleList(const Peer &peer, const lumo::store::Packet &packet);
    void handleAttributes(const Peer &peer, const lumo::store::Packet &packet);
    void handleSubscribe(const Peer &peer, const lumo::store::Packet &packet, StoreTime now);
    Subscriber *findSubscriber(std::uint64_t client, std::uint64_t subscription);
    Client &clientRecord(std::uint64_t client, std::int64_t nowMs);
    lumo::store::Packet replyTo(const lumo::store::Packet &packet) const;
    void send(const Peer &peer, const lumo::store::Packet &packet);

    std::uint64_t _epoch;
    Send _send;
    Keep _keep;
    StoreValues _values;
    std::vector<Subscriber> _subscribers;
    std::map<std::uint64_t, Client> _clients;
    std::uint64_t _lastSubscription = 0;
    Counters _counters;
};
