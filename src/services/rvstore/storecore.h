#pragma once

#include "services/rvstore/cookie.h"
#include "services/rvstore/storevalues.h"
#include "services/rvstore/subscriber.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

/// The time of a step: for deadlines, and for the stamp of a change.
struct StoreTime {
    std::int64_t monotonicMs;
    timeval wall;
};

/// The parameter store without its socket, its clock and its file: datagrams and times in, datagrams
/// out. One thread.
///
/// What holds, whatever arrives:
/// - A request is carried out within a living subscription or not at all, and once: what is remembered
///   for that lives and dies with the subscription.
/// - A subscription is given only to a client that has proved its address, and at most maxSubscribers
///   live; when all are taken a new client is answered Busy, and the others keep theirs.
/// - An address that has proved nothing is never sent more bytes than it sent.
class StoreCore
{
public:
    using Send = std::function<void(const Peer &peer, const std::string &datagram)>;
    /// Has a value written soon. The revision is handed back with kept().
    using Keep = std::function<void(eParam_t id, const ParamValue &value, std::uint64_t revision)>;
    /// Somebody waits for what is being kept.
    using Hurry = std::function<void()>;

    static constexpr std::size_t maxSubscribers = 64;

    struct Counters {
        std::uint64_t received = 0;
        std::uint64_t malformed = 0;
        std::uint64_t sets = 0;
        std::uint64_t refused = 0;
        std::uint64_t duplicates = 0;
        std::uint64_t homeless = 0; ///< requests of no living subscription
        std::uint64_t withheld = 0; ///< answers that would have been longer than the request
        std::uint64_t busy = 0;     ///< clients that found every subscription taken
        std::uint64_t overflows = 0;
        std::uint64_t expired = 0;
    };

    /// `epoch` tells this run of the store from others; `keep` and `hurry` may be empty: then nothing
    /// is kept, and nobody waits for it.
    StoreCore(std::uint64_t epoch, const StoreSecret &secret, Send send, Keep keep, Hurry hurry);

    StoreValues &values() { return _values; }
    const StoreValues &values() const { return _values; }
    const Counters &counters() const { return _counters; }
    std::size_t subscribers() const { return _subscribers.size(); }

    /// Take one datagram in. Anything malformed is counted and dropped.
    void receive(const Peer &peer, std::span<const std::uint8_t> datagram, StoreTime now);
    /// Send what is due, drop who is gone. The answer is when to call again at the latest, in
    /// monotonic milliseconds; -1 for no need.
    std::int64_t step(StoreTime now);
    /// Every kept value of this revision and before is on the medium.
    void kept(std::uint64_t revision);
    /// Whether the file takes values at the moment.
    void setKeeping(bool isKeeping);

private:
    void changed(const StoreValues::Entry &entry);
    void handleRequest(Subscriber &subscriber, const lumo::store::Packet &packet, StoreTime now);
    void handleSet(Subscriber &subscriber, const lumo::store::Packet &packet, StoreTime now);
    lumo::store::SetResult carryOut(const lumo::store::Set &set, std::uint64_t origin, timeval when);
    void handleGet(const Peer &peer, const lumo::store::Packet &packet);
    void handleList(const Peer &peer, const lumo::store::Packet &packet);
    void handleAttributes(const Peer &peer, const lumo::store::Packet &packet);
    void handleKeep(Subscriber &subscriber, const lumo::store::Packet &packet);
    void answerKeep(Subscriber &subscriber);
    void handleSubscribe(const Peer &peer, const lumo::store::Packet &packet, StoreTime now);
    Subscriber *findSubscriber(std::uint64_t client);
    Subscriber *newSubscriber(std::uint64_t client, const Peer &peer, std::int64_t nowMs);
    lumo::store::Packet replyTo(const lumo::store::Packet &packet) const;
    void send(const Peer &peer, const lumo::store::Packet &packet);

    std::uint64_t _epoch;
    StoreSecret _secret;
    Send _send;
    Keep _keep;
    Hurry _hurry;
    StoreValues _values;
    std::vector<Subscriber> _subscribers;
    std::uint64_t _lastSubscription = 0;
    std::uint64_t _lastSetter = 0; ///< the client that set something last
    std::uint64_t _lastToKeep = 0;
    std::uint64_t _kept = 0;
    bool _isKeeping = true;
    std::size_t _allowedBytes = 0; ///< how long an answer may be to who asks now
    Counters _counters;
};
