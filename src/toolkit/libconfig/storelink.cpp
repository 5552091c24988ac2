#include "libconfig/storelink.h"

#include "libconfig/packet.h"

#include <algorithm>
#include <array>

using lumo::store::Packet;
using lumo::store::Status;

namespace
{

// A request is sent, and sent again after each of these times and then always after the last.
constexpr std::array<std::int64_t, 6> retryAfterMs{10, 20, 40, 80, 160, 320};
// A request is made as long as any answer to it that the store may send to a stranger.
constexpr std::size_t subscribePaddingBytes = 64;
constexpr std::size_t requestPaddingBytes = 8;
// While the store is lost: quickly at first, then at a pace that costs nothing.
constexpr std::int64_t quickSearchMs = 20;
constexpr std::int64_t slowSearchMs = 200;
constexpr int quickSearches = 25;
// What a packet of sets holds besides them, and a set besides its value.
constexpr std::size_t setsOverheadBytes = 64;

} // namespace

StoreLink::StoreLink(std::uint64_t client, Send send) : _client(client), _send(std::move(send))
{
    CreateDescriptors();
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        Entry entry;
        entry.descriptor = descriptor;
        entry.value = descriptor->defaultValue();
        _entries.push_back(std::move(entry));
    }
}

std::optional<ParamValue> StoreLink::value(eParam_t id) const
{
    const Entry *entry = find(id);
    if (!entry) {
        return std::nullopt;
    }
    return entry->wanted ? *entry->wanted : entry->value;
}

timeval StoreLink::when(eParam_t id) const
{
    const Entry *entry = find(id);
    return entry ? entry->when : timeval{};
}

bool StoreLink::isIdle() const
{
    const bool isKept = _toKeep <= _kept && !(_isKeepUnsure && _phase != Phase::Live);
    return _queue.empty() && _underway.empty() && (!_wantsKept || isKept);
}

bool StoreLink::set(eParam_t id, const ParamValue &value)
{
    Entry *entry = find(id);
    if (!entry || entry->descriptor->check(value) != ValueError::None) {
        return false;
    }
    if (!isReachable() && entry->descriptor->isMomentary()) {
        return false;
    }
    return enqueue(*entry, value) && isReachable();
}

std::vector<StoreRefusal> StoreLink::takeRefusals()
{
    return std::exchange(_refusals, {});
}

bool StoreLink::enqueue(Entry &entry, const ParamValue &value)
{
    const bool isMomentary = entry.descriptor->isMomentary();
    const std::uint64_t ticket = ++_lastTicket;
    auto waiting = _queue.rend();
    if (!isMomentary) {
        // A later value takes the place of one that waits, but not across a command.
        waiting = std::find_if(_queue.rbegin(), _queue.rend(), [&entry](const Queued &queued) {
            return queued.entry == &entry || queued.entry->descriptor->isMomentary();
        });
    }
    if (waiting != _queue.rend() && waiting->entry == &entry) {
        waiting->value = value;
        waiting->ticket = ticket;
    } else if (_queue.size() >= maxQueued) {
        return false;
    } else {
        _queue.push_back({&entry, value, ticket});
    }
    if (!isMomentary) {
        entry.wanted = value;
        entry.wantedRevision = -1;
        entry.isOwn = true;
    }
    entry.ticket = ticket;
    return true;
}

void StoreLink::requeue()
{
    for (auto set = _underway.rbegin(); set != _underway.rend(); ++set) {
        if (set->entry->descriptor->isMomentary()) {
            refuse(*set, Status::OtherEpoch);
        } else if (set->entry->ticket == set->ticket) {
            // Only what is still the last word on its parameter goes again.
            _queue.push_front(std::move(*set));
        }
    }
    _underway.clear();
    _sets = {};
}

void StoreLink::refuse(const Queued &queued, Status status)
{
    if (_refusals.size() < maxRefusals) {
        _refusals.push_back({queued.entry->descriptor->id(), status});
    } else {
        _moreRefusals++;
    }
}

void StoreLink::lose(std::int64_t nowMs)
{
    _phase = Phase::Lost;
    _subscribeAtMs = nowMs + quickSearchMs;
    _subscribeAttempts = 0;
    _list = {};
    _keep = {};
    requeue();
    // A command is meant for now, not for whenever the store comes back.
    std::erase_if(_queue, [this](const Queued &queued) {
        const bool isMomentary = queued.entry->descriptor->isMomentary();
        if (isMomentary) {
            refuse(queued, Status::OtherEpoch);
        }
        return isMomentary;
    });
}

void StoreLink::refused(std::int64_t nowMs)
{
    if (_phase != Phase::Lost) {
        lose(nowMs);
    }
}

std::int64_t StoreLink::step(std::int64_t nowMs)
{
    if (_phase != Phase::Lost && nowMs - _heardAtMs >= silenceMs) {
        lose(nowMs);
    }
    stepSubscription(nowMs);
    if (_list.number && !sendRequest(_list, nowMs)) {
        lose(nowMs);
    }
    stepSets(nowMs);
    stepKeep(nowMs);

    std::int64_t next = _subscribeAtMs;
    if (_phase != Phase::Lost) {
        next = std::min(next, _heardAtMs + silenceMs);
    }
    for (const Request *request : {&_list, &_sets, &_keep}) {
        if (request->number) {
            next = std::min(next, request->dueMs);
        }
    }
    return next;
}

void StoreLink::stepSubscription(std::int64_t nowMs)
{
    if (nowMs < _subscribeAtMs) {
        return;
    }
    if (_phase == Phase::Lost) {
        const bool isQuick = ++_subscribeAttempts < quickSearches;
        _subscribeAtMs = nowMs + (isQuick ? quickSearchMs : slowSearchMs);
    } else {
        // The answer puts it off until the next renewal is due.
        _subscribeAtMs = nowMs + slowSearchMs;
    }
    Packet packet;
    packet.set_client(_client);
    packet.set_request(++_lastRequest);
    packet.mutable_subscribe_request()->set_subscription(_subscription);
    packet.mutable_subscribe_request()->set_cookie(_cookie);
    packet.set_padding(std::string(subscribePaddingBytes, '\0'));
    _lastSubscribe = _lastRequest;
    _send(encodePacket(packet));
}

void StoreLink::stepSets(std::int64_t nowMs)
{
    if (_phase == Phase::Lost) {
        return;
    }
    if (_sets.number) {
        if (!sendRequest(_sets, nowMs)) {
            lose(nowMs);
        }
        return;
    }
    if (_queue.empty()) {
        return;
    }
    Packet packet;
    auto *request = packet.mutable_set_request();
    std::size_t bytes = packetFrameBytes + setsOverheadBytes;
    while (!_queue.empty()) {
        lumo::store::Set set;
        set.set_parameter(_queue.front().entry->descriptor->id());
        *set.mutable_value() = valueToWire(_queue.front().value);
        set.set_epoch(_queue.front().entry->descriptor->isMomentary() ? _epoch : 0);
        bytes += set.ByteSizeLong() + 4;
        if (bytes > maxPacketBytes && request->set_size() > 0) {
            break;
        }
        *request->add_set() = std::move(set);
        _underway.push_back(std::move(_queue.front()));
        _queue.pop_front();
    }
    start(_sets, packet, nowMs);
}

void StoreLink::stepKeep(std::int64_t nowMs)
{
    if (_phase == Phase::Lost || !_wantsKept || _toKeep <= _kept) {
        _keep = {};
        return;
    }
    if (!_keep.number) {
        Packet packet;
        packet.mutable_keep_request()->set_revision(_toKeep);
        start(_keep, packet, nowMs);
        return;
    }
    // A medium may take its time; a store that is gone falls silent.
    _keep.attempts = std::min(_keep.attempts, maxAttempts - 1);
    sendRequest(_keep, nowMs);
}

void StoreLink::start(Request &request, Packet &packet, std::int64_t nowMs)
{
    request = {};
    request.number = ++_lastRequest;
    packet.set_client(_client);
    packet.set_subscription(_subscription);
    packet.set_request(request.number);
    packet.set_padding(std::string(requestPaddingBytes, '\0'));
    request.datagram = encodePacket(packet);
    request.dueMs = nowMs;
    sendRequest(request, nowMs);
}

/// Send a request if it is due. False when it has been sent often enough.
bool StoreLink::sendRequest(Request &request, std::int64_t nowMs)
{
    if (nowMs < request.dueMs) {
        return true;
    }
    if (request.attempts >= maxAttempts) {
        return false;
    }
    const std::size_t pause = std::min(static_cast<std::size_t>(request.attempts++), retryAfterMs.size() - 1);
    request.dueMs = nowMs + retryAfterMs[pause];
    _send(request.datagram);
    return true;
}

void StoreLink::goodbye()
{
    if (_phase == Phase::Lost) {
        return;
    }
    Packet packet;
    packet.set_client(_client);
    packet.set_subscription(_subscription);
    packet.mutable_goodbye();
    _send(encodePacket(packet));
}

StoreLink::Entry *StoreLink::find(eParam_t id)
{
    const auto found = std::ranges::lower_bound(
        _entries, id, {}, [](const Entry &entry) { return entry.descriptor->id(); });
    return found != _entries.end() && found->descriptor->id() == id ? &*found : nullptr;
}

const StoreLink::Entry *StoreLink::find(eParam_t id) const
{
    return const_cast<StoreLink *>(this)->find(id);
}
