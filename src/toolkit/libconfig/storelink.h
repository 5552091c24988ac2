#pragma once

#include "libconfig/config.h"
#include "libmessages/wire.pb.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// A set that did not come to pass.
struct StoreRefusal {
    eParam_t id;
    lumo::store::Status status;
};

/// A client's side of the store's protocol, without socket, thread and clock: times and datagrams
/// in, datagrams and events out. Holds the mirror of all values.
///
/// The life of a link: lost, until the store answers a subscription; listing, while it fetches all
/// values; live. A store that restarts is known by its epoch: then everything is listed again, and
/// a value that only the store lost, because this client was the last to set it, is set again.
class StoreLink
{
public:
    using Send = std::function<void(const std::string &datagram)>;

    static constexpr std::size_t maxQueued = 1024;
    static constexpr std::size_t maxRefusals = 64;
    static constexpr std::int64_t renewMs = 1500;
    static constexpr std::int64_t silenceMs = 3500;
    /// So often a request is sent; a store that answers other things and never this one counts as lost.
    static constexpr int maxAttempts = 24;

    /// `client` is random and not 0.
    StoreLink(std::uint64_t client, Send send);

    std::optional<ParamValue> value(eParam_t id) const;
    /// Queue a value; see StoreClient::set().
    bool set(eParam_t id, const ParamValue &value);

    /// The store has answered and not fallen silent.
    bool isReachable() const { return _phase != Phase::Lost; }
    /// All values have been listed at least once.
    bool isReady() const { return _isReady; }
    /// When the store's value was set, as far as is known; zero for a default.
    timeval when(eParam_t id) const;
    /// Nothing set waits for an answer, nor for the store's medium if that was asked for.
    bool isIdle() const;
    /// From now on, have the store say when what was set is on its medium.
    void wantKept(bool isWanted) { _wantsKept = isWanted; }
    /// The sets that failed since the last call.
    std::vector<StoreRefusal> takeRefusals();
    /// How many more failed than takeRefusals() had room for, since the last call.
    std::uint64_t takeMoreRefusals() { return std::exchange(_moreRefusals, 0); }

    /// Take one datagram in; changes for the listeners are added to `events`.
    void receive(std::span<const std::uint8_t> datagram, std::int64_t nowMs,
                 std::vector<ConfigEvent> &events);
    /// Nobody listens at the store's address.
    void refused(std::int64_t nowMs);
    /// Send what is due. The answer is when to call again at the latest.
    std::int64_t step(std::int64_t nowMs);
    /// End the subscription.
    void goodbye();

private:
    enum class Phase {
        Lost,
        Listing,
        Live,
    };

    struct Entry {
        const ParamDescriptor *descriptor;
        ParamValue value;                 ///< as the store has it, as far as is known
        timeval when{};
        std::int64_t revision = -1;       ///< of the value in this epoch; -1 not known
        bool isOwn = false;               ///< this client was the last to set it
        std::optional<ParamValue> wanted; ///< set here, and not yet seen from the store
        std::uint64_t ticket = 0;         ///< of the set that `wanted` comes from
        std::int64_t wantedRevision = -1; ///< once the store has carried it out
    };

    struct Queued {
        Entry *entry;
        ParamValue value;
        std::uint64_t ticket;
    };

    /// A request that is repeated until it is answered.
    struct Request {
        std::uint64_t number = 0; ///< 0: none under way
        std::string datagram;
        int attempts = 0;
        std::int64_t dueMs = 0;
    };

    Entry *find(eParam_t id);
    const Entry *find(eParam_t id) const;
    bool enqueue(Entry &entry, const ParamValue &value);
    void requeue();
    void refuse(const Queued &queued, lumo::store::Status status);
    void lose(std::int64_t nowMs);

    bool isAnswer(const lumo::store::Packet &packet) const;
    void handlePacket(const lumo::store::Packet &packet, std::int64_t nowMs, std::vector<ConfigEvent> &events);
    void handleProve(const lumo::store::Packet &packet, std::int64_t nowMs);
    void handleKept(const lumo::store::KeepReply &reply);
    void handleSubscribed(const lumo::store::Packet &packet, std::int64_t nowMs);
    void handleList(const lumo::store::Packet &packet, std::vector<ConfigEvent> &events);
    void handleEvents(const lumo::store::Packet &packet, std::vector<ConfigEvent> &events);
    void handleSetReply(const lumo::store::Packet &packet);
    void apply(const lumo::store::Item &item, bool isListed, std::vector<ConfigEvent> &events);
    bool takeBack(Entry &entry, const ParamValue &stored);
    void settle(Entry &entry);
    void beginListing();
    void startEpoch(std::uint64_t epoch);

    void stepSubscription(std::int64_t nowMs);
    void stepSets(std::int64_t nowMs);
    void stepKeep(std::int64_t nowMs);
    bool sendRequest(Request &request, std::int64_t nowMs);
    void start(Request &request, lumo::store::Packet &packet, std::int64_t nowMs);

    std::uint64_t _client;
    Send _send;
    std::vector<Entry> _entries;
    Phase _phase = Phase::Lost;
    bool _isReady = false;
    std::uint64_t _epoch = 0;
    std::uint64_t _subscription = 0;
    std::uint64_t _cookie = 0;
    std::uint64_t _lastSubscribe = 0;  ///< the number of the last subscribe request
    std::uint64_t _firstSubscribe = 1; ///< of the first that an answer may still belong to
    std::uint64_t _sequence = 0;
    std::uint64_t _lastRequest = 0;
    std::uint64_t _lastTicket = 0;
    std::int64_t _heardAtMs = 0;
    std::int64_t _subscribeAtMs = 0;
    int _subscribeAttempts = 0;
    std::uint32_t _listFrom = 0;
    Request _list;
    Request _sets;
    Request _keep;
    bool _wantsKept = false;
    bool _isKeepUnsure = false;    ///< the run of the store that was to keep something has ended
    eParam_t _toKeepId{};          ///< the last kept parameter that was set
    std::uint64_t _toKeep = 0;     ///< the revision of the last one
    std::uint64_t _kept = 0;       ///< up to here the store's medium has everything
    std::vector<Queued> _underway;
    std::deque<Queued> _queue;
    std::vector<StoreRefusal> _refusals;
    std::uint64_t _moreRefusals = 0;
};
