#include "services/rvstore/storecore.h"

#include "libconfig/packet.h"

#include <algorithm>

using lumo::store::Packet;
using lumo::store::Status;

StoreCore::StoreCore(std::uint64_t epoch, const StoreSecret &secret, Send send, Keep keep, Hurry hurry)
    : _epoch(epoch), _secret(secret), _send(std::move(send)), _keep(std::move(keep)), _hurry(std::move(hurry)),
      _values([this](const StoreValues::Entry &entry) { changed(entry); })
{
}

void StoreCore::receive(const Peer &peer, std::span<const std::uint8_t> datagram, StoreTime now)
{
    _counters.received++;
    PacketError error;
    const auto packet = decodePacket(datagram, error);
    if (!packet) {
        _counters.malformed++;
        return;
    }
    _allowedBytes = datagram.size();
    if (packet->body_case() == Packet::kSubscribeRequest) {
        return handleSubscribe(peer, *packet, now);
    }
    Subscriber *subscriber = findSubscriber(packet->client());
    if (subscriber && subscriber->id() == packet->subscription() && subscriber->peer() == peer) {
        _allowedBytes = maxPacketBytes;
        subscriber->renew(peer, now.monotonicMs);
        return handleRequest(*subscriber, *packet, now);
    }
    _counters.homeless++;
    if (packet->request() != 0) {
        Packet reply = replyTo(*packet);
        reply.mutable_refusal()->set_status(Status::NoSubscription);
        send(peer, reply);
    }
}

void StoreCore::handleRequest(Subscriber &subscriber, const Packet &packet, StoreTime now)
{
    const Peer peer = subscriber.peer();
    switch (packet.body_case()) {
    case Packet::kSetRequest:
        return handleSet(subscriber, packet, now);
    case Packet::kGetRequest:
        return handleGet(peer, packet);
    case Packet::kListRequest:
        return handleList(peer, packet);
    case Packet::kAttributesRequest:
        return handleAttributes(peer, packet);
    case Packet::kKeepRequest:
        return handleKeep(subscriber, packet);
    case Packet::kGoodbye:
        std::erase_if(_subscribers, [&](const Subscriber &s) { return s.client() == packet.client(); });
        return;
    case Packet::kEventsAck:
        return subscriber.acknowledge(packet.events_ack().sequence());
    default:
        // What only the store says.
        _counters.malformed++;
    }
}

std::int64_t StoreCore::step(StoreTime now)
{
    std::vector<std::uint64_t> lost;
    std::erase_if(_subscribers, [&](const Subscriber &subscriber) {
        if (!subscriber.isExpired(now.monotonicMs)) {
            return false;
        }
        lost.push_back(subscriber.client());
        return true;
    });
    _counters.expired += lost.size();
    for (const std::uint64_t client : lost) {
        _values.writerLost(client, now.wall);
    }
    std::int64_t next = -1;
    // Who set something knows it already, and hears of it after those who do not.
    if (_subscribers.size() > 1 && _subscribers.back().client() != _lastSetter) {
        std::ranges::partition(_subscribers, [this](const Subscriber &s) { return s.client() != _lastSetter; });
    }
    for (Subscriber &subscriber : _subscribers) {
        const std::string datagram = subscriber.takeDatagram(_epoch, now.monotonicMs);
        if (!datagram.empty()) {
            _send(subscriber.peer(), datagram);
        }
        const std::int64_t deadline = subscriber.nextDeadlineMs();
        next = next < 0 ? deadline : std::min(next, deadline);
    }
    return next;
}

void StoreCore::changed(const StoreValues::Entry &entry)
{
    if (_keep && entry.descriptor->isPersistent()) {
        _lastToKeep = entry.revision;
        _keep(entry.descriptor->id(), entry.value, entry.revision);
    }
    const lumo::store::Item item = itemToWire(entry);
    for (Subscriber &subscriber : _subscribers) {
        _counters.overflows += !subscriber.add(item, entry.descriptor->isMomentary());
    }
}

void StoreCore::handleSet(Subscriber &subscriber, const Packet &packet, StoreTime now)
{
    if (packet.request() == 0) {
        _counters.malformed++;
        return;
    }
    if (packet.request() <= subscriber.lastSet().request) {
        _counters.duplicates++;
        // Only the last one can still be waited for.
        if (packet.request() == subscriber.lastSet().request) {
            _send(subscriber.peer(), subscriber.lastSet().reply);
        }
        return;
    }
    _lastSetter = packet.client();
    Packet reply = replyTo(packet);
    auto *results = reply.mutable_set_reply();
    for (const lumo::store::Set &set : packet.set_request().set()) {
        *results->add_result() = carryOut(set, packet.client(), now.wall);
    }
    std::string datagram = encodePacket(reply);
    if (datagram.empty()) {
        // So many sets in one packet that their results fit in none: then only that they were done is told.
        reply.mutable_set_reply()->clear_result();
        datagram = encodePacket(reply);
    }
    _send(subscriber.peer(), datagram);
    subscriber.rememberSet(packet.request(), std::move(datagram));
}

lumo::store::SetResult StoreCore::carryOut(const lumo::store::Set &set, std::uint64_t origin,
                                           timeval when)
{
    lumo::store::SetResult result;
    const auto id = static_cast<eParam_t>(set.parameter());
    const StoreValues::Entry *entry = _values.find(id);
    const auto value = valueFromWire(set.value());
    if (entry && entry->descriptor->isMomentary() && set.epoch() != 0 && set.epoch() != _epoch) {
        result.set_status(Status::OtherEpoch);
    } else if (!value) {
        result.set_status(Status::WrongKind);
    } else {
        const auto outcome = _values.set(id, *value, origin, when);
        result.set_status(outcome.status);
        result.set_revision(outcome.revision);
    }
    _counters.sets++;
    _counters.refused += result.status() != Status::Ok;
    return result;
}

void StoreCore::handleGet(const Peer &peer, const Packet &packet)
{
    Packet reply = replyTo(packet);
    const auto id = static_cast<eParam_t>(packet.get_request().parameter());
    const StoreValues::Entry *entry = _values.find(id);
    auto *body = reply.mutable_get_reply();
    if (entry) {
        *body->mutable_item() = itemToWire(*entry);
    } else {
        body->set_status(Status::UnknownParameter);
    }
    send(peer, reply);
}

void StoreCore::handleList(const Peer &peer, const Packet &packet)
{
    Packet reply = replyTo(packet);
    auto *body = reply.mutable_list_reply();
    body->set_done(true);
    std::size_t bytes = packetFrameBytes + 64;
    for (const StoreValues::Entry &entry : _values.entries()) {
        if (entry.descriptor->id() < packet.list_request().from()) {
            continue;
        }
        const lumo::store::Item item = itemToWire(entry);
        bytes += item.ByteSizeLong() + 4;
        if (bytes > maxPacketBytes && body->item_size() > 0) {
            body->set_done(false);
            body->set_next(entry.descriptor->id());
            break;
        }
        *body->add_item() = item;
    }
    send(peer, reply);
}

void StoreCore::handleAttributes(const Peer &peer, const Packet &packet)
{
    Packet reply = replyTo(packet);
    const auto id = static_cast<eParam_t>(packet.attributes_request().parameter());
    auto *body = reply.mutable_attributes_reply();
    if (const ParamDescriptor *descriptor = GetDescriptor(id)) {
        for (const char *name : descriptor->attributes().names()) {
            body->add_attribute(name);
        }
    } else {
        body->set_status(Status::UnknownParameter);
    }
    send(peer, reply);
}

void StoreCore::handleKeep(Subscriber &subscriber, const Packet &packet)
{
    subscriber.waitForKeep({packet.request(), packet.keep_request().revision()});
    answerKeep(subscriber);
    if (subscriber.waitedKeep().request != 0 && _hurry) {
        _hurry();
    }
}

/// Answer who waits for the medium, if there is an answer yet.
void StoreCore::answerKeep(Subscriber &subscriber)
{
    const Subscriber::WaitedKeep waited = subscriber.waitedKeep();
    const bool isKept = !_keep || std::min(waited.revision, _lastToKeep) <= _kept;
    if (waited.request == 0 || (!isKept && _isKeeping)) {
        return;
    }
    Packet reply;
    reply.set_client(subscriber.client());
    reply.set_request(waited.request);
    reply.set_epoch(_epoch);
    reply.mutable_keep_reply()->set_status(isKept ? Status::Ok : Status::NotKept);
    reply.mutable_keep_reply()->set_revision(isKept ? std::max(waited.revision, _kept) : _kept);
    _send(subscriber.peer(), encodePacket(reply));
    subscriber.waitForKeep({});
}

void StoreCore::kept(std::uint64_t revision)
{
    _kept = std::max(_kept, revision);
    _isKeeping = true;
    std::ranges::for_each(_subscribers, [this](Subscriber &subscriber) { answerKeep(subscriber); });
}

void StoreCore::setKeeping(bool isKeeping)
{
    _isKeeping = isKeeping;
    std::ranges::for_each(_subscribers, [this](Subscriber &subscriber) { answerKeep(subscriber); });
}

void StoreCore::handleSubscribe(const Peer &peer, const Packet &packet, StoreTime now)
{
    const auto &request = packet.subscribe_request();
    Packet reply = replyTo(packet);
    auto *body = reply.mutable_subscribe_reply();
    Subscriber *subscriber = findSubscriber(packet.client());
    const bool isRenewal = subscriber && subscriber->peer() == peer && subscriber->id() == request.subscription();
    if (!isRenewal && !isCookieGood(_secret, packet.client(), peer, now.monotonicMs, request.cookie())) {
        body->set_status(Status::Prove);
        body->set_cookie(makeCookie(_secret, packet.client(), peer, now.monotonicMs));
        return send(peer, reply);
    }
    _allowedBytes = maxPacketBytes;
    // A client that asks again, because the answer was lost, gets the same; one that has moved says
    // which one was its own.
    if (!subscriber) {
        subscriber = newSubscriber(packet.client(), peer, now.monotonicMs);
    } else if (subscriber->peer() != peer && subscriber->id() != request.subscription()) {
        subscriber = nullptr;
    }
    if (!subscriber) {
        _counters.busy++;
        body->set_status(Status::Busy);
        return send(peer, reply);
    }
    subscriber->renew(peer, now.monotonicMs);
    body->set_subscription(subscriber->id());
    body->set_sequence(subscriber->sequence());
    send(peer, reply);
}

Subscriber *StoreCore::findSubscriber(std::uint64_t client)
{
    const auto found = std::ranges::find(_subscribers, client, &Subscriber::client);
    return found == _subscribers.end() ? nullptr : &*found;
}

/// Null when all subscriptions are taken.
Subscriber *StoreCore::newSubscriber(std::uint64_t client, const Peer &peer, std::int64_t nowMs)
{
    if (_subscribers.size() >= maxSubscribers) {
        return nullptr;
    }
    // A number that nobody can foretell: it is what a client's requests are known by.
    const std::uint64_t count = ++_lastSubscription;
    std::array<std::uint8_t, 8> bytes;
    for (std::size_t i = 0; i < bytes.size(); i++) {
        bytes[i] = static_cast<std::uint8_t>(count >> (8 * i));
    }
    const std::uint64_t id = sipHash(_secret, bytes);
    return &_subscribers.emplace_back(client, id ? id : 1, peer, nowMs);
}

Packet StoreCore::replyTo(const Packet &packet) const
{
    Packet reply;
    reply.set_client(packet.client());
    reply.set_request(packet.request());
    reply.set_epoch(_epoch);
    return reply;
}

void StoreCore::send(const Peer &peer, const Packet &packet)
{
    const std::string datagram = encodePacket(packet);
    if (datagram.size() > _allowedBytes) {
        _counters.withheld++;
    } else if (!datagram.empty()) {
        _send(peer, datagram);
    }
}
