#include "services/rvstore/storecore.h"

#include "libconfig/packet.h"

#include <algorithm>

using lumo::store::Packet;
using lumo::store::Status;

StoreCore::StoreCore(std::uint64_t epoch, Send send, Keep keep)
    : _epoch(epoch), _send(std::move(send)), _keep(std::move(keep)),
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
    switch (packet->body_case()) {
    case Packet::kSetRequest:
        return handleSet(peer, *packet, now);
    case Packet::kGetRequest:
        return handleGet(peer, *packet);
    case Packet::kListRequest:
        return handleList(peer, *packet);
    case Packet::kAttributesRequest:
        return handleAttributes(peer, *packet);
    case Packet::kSubscribeRequest:
        return handleSubscribe(peer, *packet, now);
    case Packet::kGoodbye:
        std::erase_if(_subscribers, [&](const Subscriber &s) {
            return s.client() == packet->client() && s.id() == packet->goodbye().subscription();
        });
        return;
    case Packet::kEventsAck: {
        const auto &ack = packet->events_ack();
        if (Subscriber *subscriber = findSubscriber(packet->client(), ack.subscription())) {
            subscriber->acknowledge(ack.sequence());
        }
        return;
    }
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
    if (entry.descriptor->isPersistent()) {
        _keep(entry.descriptor->id(), entry.value);
    }
    const lumo::store::Item item = itemToWire(entry);
    for (Subscriber &subscriber : _subscribers) {
        _counters.overflows += !subscriber.add(item, entry.descriptor->isMomentary());
    }
}

void StoreCore::handleSet(const Peer &peer, const Packet &packet, StoreTime now)
{
    Client &client = clientRecord(packet.client(), now.monotonicMs);
    if (packet.request() <= client.lastRequest) {
        _counters.duplicates++;
        const auto found = std::ranges::find(client.replies, packet.request(),
                                             [](const auto &reply) { return reply.first; });
        if (found != client.replies.end()) {
            _send(peer, found->second);
        }
        return;
    }
    client.lastRequest = packet.request();
    Packet reply = replyTo(packet);
    auto *results = reply.mutable_set_reply();
    for (const lumo::store::Set &set : packet.set_request().set()) {
        *results->add_result() = carryOut(set, packet.client(), now.wall);
    }
    const std::string datagram = encodePacket(reply);
    client.replies.emplace_back(packet.request(), datagram);
    if (client.replies.size() > maxReplies) {
        client.replies.pop_front();
    }
    if (!datagram.empty()) {
        _send(peer, datagram);
    }
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

void StoreCore::handleSubscribe(const Peer &peer, const Packet &packet, StoreTime now)
{
    Packet reply = replyTo(packet);
    auto *body = reply.mutable_subscribe_reply();
    Subscriber *subscriber =
        findSubscriber(packet.client(), packet.subscribe_request().subscription());
    if (subscriber) {
        subscriber->renew(peer, now.monotonicMs);
    } else {
        std::erase_if(_subscribers,
                      [&](const Subscriber &s) { return s.client() == packet.client(); });
        if (_subscribers.size() >= maxSubscribers) {
            body->set_status(Status::Busy);
            return send(peer, reply);
        }
        subscriber =
            &_subscribers.emplace_back(packet.client(), ++_lastSubscription, peer, now.monotonicMs);
    }
    body->set_subscription(subscriber->id());
    body->set_sequence(subscriber->sequence());
    send(peer, reply);
}

Subscriber *StoreCore::findSubscriber(std::uint64_t client, std::uint64_t subscription)
{
    const auto found = std::ranges::find_if(_subscribers, [&](const Subscriber &s) {
        return s.client() == client && s.id() == subscription;
    });
    return found == _subscribers.end() ? nullptr : &*found;
}

StoreCore::Client &StoreCore::clientRecord(std::uint64_t client, std::int64_t nowMs)
{
    if (!_clients.count(client) && _clients.size() >= maxClients) {
        _clients.erase(std::ranges::min_element(
            _clients, {}, [](const auto &other) { return other.second.usedAtMs; }));
    }
    Client &record = _clients[client];
    record.usedAtMs = nowMs;
    return record;
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
    if (!datagram.empty()) {
        _send(peer, datagram);
    }
}
