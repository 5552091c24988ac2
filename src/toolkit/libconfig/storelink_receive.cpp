// What the store says, and what follows from it for the mirror.
//
// The store numbers its changes, so lists and events may come in any order and as often as they
// like: an item counts only when its revision is above the mirrored one. What a listener has been
// told last is what the mirror holds, so a change is told when it changes the mirror. A value that
// was set here shows to readers at once, over the mirror, until the mirror has caught up with it.

#include "libconfig/packet.h"
#include "libconfig/storelink.h"

#include <algorithm>

using lumo::store::Packet;
using lumo::store::Status;

void StoreLink::receive(std::span<const std::uint8_t> datagram, std::int64_t nowMs,
                        std::vector<ConfigEvent> &events)
{
    PacketError error;
    const auto packet = decodePacket(datagram, error);
    if (!packet || packet->client() != _client || packet->epoch() == 0) {
        return;
    }
    if (packet->body_case() == Packet::kSubscribeReply) {
        handleSubscribed(*packet, nowMs);
    } else if (packet->epoch() == _epoch && _phase != Phase::Lost) {
        handlePacket(*packet, nowMs, events);
    } else if (packet->epoch() != _epoch && packet->body_case() == Packet::kRefusal && isAnswer(*packet)) {
        // Another run of the store: only a subscription begins with it.
        _subscribeAtMs = std::min(_subscribeAtMs, nowMs);
    }
}

/// Whether it answers a request that waits for one; anything else is late, or not meant for us.
bool StoreLink::isAnswer(const Packet &packet) const
{
    return packet.request() != 0 && (packet.request() == _sets.number || packet.request() == _list.number ||
                                     packet.request() == _keep.number);
}

void StoreLink::handlePacket(const Packet &packet, std::int64_t nowMs, std::vector<ConfigEvent> &events)
{
    _heardAtMs = nowMs;
    switch (packet.body_case()) {
    case Packet::kSetReply:
        return handleSetReply(packet);
    case Packet::kListReply:
        return handleList(packet, events);
    case Packet::kEvents:
        return handleEvents(packet, events);
    case Packet::kKeepReply:
        if (_keep.number != 0 && packet.request() == _keep.number) {
            handleKept(packet.keep_reply());
        }
        return;
    case Packet::kHeartbeat:
        if (packet.heartbeat().subscription() == _subscription && packet.heartbeat().sequence() > _sequence) {
            _sequence = packet.heartbeat().sequence();
            beginListing();
        }
        return;
    case Packet::kRefusal:
        // The store has ended the subscription; what was sent within it is not carried out any more.
        if (isAnswer(packet)) {
            lose(nowMs);
            _subscribeAtMs = nowMs;
        }
        return;
    default:
        return;
    }
}

void StoreLink::handleKept(const lumo::store::KeepReply &reply)
{
    if (reply.status() != Status::Ok) {
        if (_refusals.size() < maxRefusals) {
            _refusals.push_back({_toKeepId, Status::NotKept});
        }
        _toKeep = _kept;
    } else {
        _kept = std::max(_kept, std::uint64_t(reply.revision()));
    }
    _keep = {};
}

void StoreLink::handleProve(const Packet &packet, std::int64_t nowMs)
{
    // Only the latest question's answer, so that repeated datagrams do not multiply.
    if (packet.request() == _lastSubscribe) {
        _cookie = packet.subscribe_reply().cookie();
        _subscribeAtMs = nowMs;
    }
}

void StoreLink::handleSubscribed(const Packet &packet, std::int64_t nowMs)
{
    const auto &reply = packet.subscribe_reply();
    if (packet.request() < _firstSubscribe || packet.request() > _lastSubscribe) {
        return;
    }
    if (reply.status() == Status::Prove) {
        return handleProve(packet, nowMs);
    }
    if (reply.status() != Status::Ok) {
        return;
    }
    const bool isNewEpoch = packet.epoch() != _epoch;
    const bool isNew = isNewEpoch || reply.subscription() != _subscription;
    _heardAtMs = nowMs;
    _subscribeAtMs = nowMs + renewMs;
    if (!isNew && _phase != Phase::Lost) {
        return;
    }
    if (isNewEpoch) {
        startEpoch(packet.epoch());
    }
    if (isNew) {
        // What is late from before belongs to another subscription.
        _firstSubscribe = packet.request();
        _subscription = reply.subscription();
        _sequence = reply.sequence();
        requeue();
        _keep = {};
    }
    beginListing();
}

void StoreLink::startEpoch(std::uint64_t epoch)
{
    _epoch = epoch;
    // What the last run had not yet said to be kept is either in the list or set again.
    _isKeepUnsure = _isKeepUnsure || _toKeep > _kept;
    _toKeep = 0;
    _kept = 0;
    for (Entry &entry : _entries) {
        entry.revision = -1;
        if (entry.wanted && entry.wantedRevision >= 0) {
            // The last run had it; whether this one has, the list will tell.
            entry.value = *entry.wanted;
            entry.wanted.reset();
            entry.wantedRevision = -1;
        }
    }
}

void StoreLink::beginListing()
{
    _phase = Phase::Listing;
    _listFrom = 0;
    Packet packet;
    packet.mutable_list_request()->set_from(0);
    start(_list, packet, _heardAtMs);
}

void StoreLink::handleList(const Packet &packet, std::vector<ConfigEvent> &events)
{
    if (packet.request() != _list.number) {
        return;
    }
    const auto &reply = packet.list_reply();
    for (const auto &item : reply.item()) {
        apply(item, true, events);
    }
    if (reply.done() || reply.next() <= _listFrom) {
        _list = {};
        _phase = Phase::Live;
        _isReady = true;
        _isKeepUnsure = false;
        return;
    }
    _listFrom = reply.next();
    Packet next;
    next.mutable_list_request()->set_from(_listFrom);
    start(_list, next, _heardAtMs);
}

void StoreLink::handleEvents(const Packet &packet, std::vector<ConfigEvent> &events)
{
    const auto &body = packet.events();
    if (body.subscription() != _subscription) {
        return;
    }
    Packet ack;
    ack.set_client(_client);
    ack.set_subscription(_subscription);
    ack.mutable_events_ack()->set_sequence(body.sequence());
    _send(encodePacket(ack));
    if (body.sequence() <= _sequence) {
        return;
    }
    const bool isGap = body.sequence() != _sequence + 1;
    _sequence = body.sequence();
    for (const auto &item : body.item()) {
        apply(item, false, events);
    }
    if (isGap || body.resync()) {
        beginListing();
    }
}

void StoreLink::handleSetReply(const Packet &packet)
{
    if (_sets.number == 0 || packet.request() != _sets.number) {
        return;
    }
    const auto &reply = packet.set_reply();
    for (std::size_t i = 0; i < _underway.size(); i++) {
        Entry &entry = *_underway[i].entry;
        const bool isAnswered = static_cast<int>(i) < reply.result_size();
        const Status status =
            isAnswered ? reply.result(static_cast<int>(i)).status() : Status::WrongKind;
        const bool isLast = entry.ticket == _underway[i].ticket;
        if (status != Status::Ok) {
            refuse(_underway[i], status);
            if (isLast) {
                entry.wanted.reset();
            }
            continue;
        }
        const std::uint64_t revision = reply.result(static_cast<int>(i)).revision();
        if (entry.descriptor->isPersistent() && revision > _toKeep) {
            _toKeep = revision;
            _toKeepId = entry.descriptor->id();
        }
        if (isLast && entry.wanted) {
            entry.wantedRevision = static_cast<std::int64_t>(revision);
            settle(entry);
        }
    }
    _underway.clear();
    _sets = {};
}

void StoreLink::apply(const lumo::store::Item &item, bool isListed,
                      std::vector<ConfigEvent> &events)
{
    Entry *entry = find(static_cast<eParam_t>(item.parameter()));
    const auto value = valueFromWire(item.value());
    if (!entry || !value || entry->descriptor->check(*value) != ValueError::None) {
        return;
    }
    const timeval when{static_cast<time_t>(item.seconds()),
                       static_cast<suseconds_t>(item.microseconds())};
    const auto revision = static_cast<std::int64_t>(item.revision());
    if (entry->descriptor->isMomentary()) {
        // Events bring every set once and in order; a list, never.
        if (!isListed) {
            entry->value = *value;
            events.push_back({entry->descriptor->id(), *value, when});
        }
        return;
    }
    if (revision <= entry->revision) {
        return;
    }
    entry->revision = revision;
    entry->when = when;
    if (isListed && item.origin() == 0 && entry->isOwn && takeBack(*entry, *value)) {
        return;
    }
    if (item.origin() != 0 && item.origin() != _client) {
        entry->isOwn = entry->wanted.has_value();
    }
    const bool isChange = *value != entry->value;
    entry->value = *value;
    settle(*entry);
    if (isChange) {
        events.push_back({entry->descriptor->id(), *value, when});
    }
}

/// The store has lost what this client was the last to set, and nobody has set it since: set it
/// again. False when there is nothing to set, as the store's value is the same.
bool StoreLink::takeBack(Entry &entry, const ParamValue &stored)
{
    const ParamValue mine = entry.wanted ? *entry.wanted : entry.value;
    if (mine == stored) {
        return false;
    }
    const bool isOnItsWay = entry.wanted && entry.wantedRevision < 0;
    if (!isOnItsWay) {
        enqueue(entry, mine);
    }
    return true;
}

/// The mirror takes over from the value set here once it has caught up.
void StoreLink::settle(Entry &entry)
{
    if (entry.wanted && entry.wantedRevision >= 0 && entry.revision >= entry.wantedRevision) {
        entry.wanted.reset();
        entry.wantedRevision = -1;
    }
}
