#include "services/rvstore/subscriber.h"

#include "libconfig/packet.h"

#include <algorithm>

namespace
{

constexpr std::int64_t firstResendMs = 10;
constexpr std::int64_t lastResendMs = 500;
// What a packet of events holds besides its items.
constexpr std::size_t eventsOverheadBytes = 64;

} // namespace

Subscriber::Subscriber(std::uint64_t client, std::uint64_t id, Peer peer, std::int64_t nowMs)
    : _client(client), _id(id), _peer(peer), _leaseEndMs(nowMs + leaseMs),
      _heartbeatAtMs(nowMs + heartbeatMs)
{
}

void Subscriber::renew(Peer peer, std::int64_t nowMs)
{
    _peer = peer;
    _leaseEndMs = nowMs + leaseMs;
}

bool Subscriber::add(const lumo::store::Item &item, bool isMomentary)
{
    if (!isMomentary) {
        for (auto change = _pending.rbegin(); change != _pending.rend(); ++change) {
            if (change->isMomentary) {
                break;
            }
            if (change->item.parameter() == item.parameter()) {
                change->item = item;
                return true;
            }
        }
    }
    if (_pending.size() >= maxPending || (isMomentary && _momentary >= maxMomentary)) {
        _pending.clear();
        _momentary = 0;
        _resync = true;
        return false;
    }
    _pending.push_back({item, isMomentary});
    _momentary += isMomentary;
    return true;
}

void Subscriber::acknowledge(std::uint64_t sequence)
{
    if (sequence == _sequence) {
        _underway.clear();
    }
}

std::string Subscriber::takeDatagram(std::uint64_t epoch, std::int64_t nowMs)
{
    if (!_underway.empty()) {
        if (nowMs < _resendAtMs) {
            return {};
        }
        _resendAfterMs = std::min(2 * _resendAfterMs, lastResendMs);
        _resendAtMs = nowMs + _resendAfterMs;
        return _underway;
    }
    if (!_pending.empty() || _resync) {
        _underway = makeEvents(epoch);
        _resendAfterMs = firstResendMs;
        _resendAtMs = nowMs + _resendAfterMs;
        _heartbeatAtMs = nowMs + heartbeatMs;
        return _underway;
    }
    if (nowMs < _heartbeatAtMs) {
        return {};
    }
    _heartbeatAtMs = nowMs + heartbeatMs;
    lumo::store::Packet packet;
    packet.set_client(_client);
    packet.set_epoch(epoch);
    packet.mutable_heartbeat()->set_subscription(_id);
    packet.mutable_heartbeat()->set_sequence(_sequence);
    return encodePacket(packet);
}

std::int64_t Subscriber::nextDeadlineMs() const
{
    return std::min(_leaseEndMs, _underway.empty() ? _heartbeatAtMs : _resendAtMs);
}

std::string Subscriber::makeEvents(std::uint64_t epoch)
{
    lumo::store::Packet packet;
    packet.set_client(_client);
    packet.set_epoch(epoch);
    auto *events = packet.mutable_events();
    events->set_subscription(_id);
    events->set_sequence(++_sequence);
    events->set_resync(_resync);
    _resync = false;
    std::size_t bytes = packetFrameBytes + eventsOverheadBytes;
    while (!_pending.empty()) {
        // The tag and the length in front of an item take up to four bytes.
        bytes += _pending.front().item.ByteSizeLong() + 4;
        if (bytes > maxPacketBytes && events->item_size() > 0) {
            break;
        }
        _momentary -= _pending.front().isMomentary;
        *events->add_item() = std::move(_pending.front().item);
        _pending.pop_front();
    }
    return encodePacket(packet);
}
