#include "services/rvstore/storevalues.h"

#include "libconfig/packet.h"

#include <algorithm>

using lumo::store::Status;

namespace
{

Status statusOf(ValueError error)
{
    switch (error) {
    case ValueError::None:
        return Status::Ok;
    case ValueError::UnknownParameter:
        return Status::UnknownParameter;
    case ValueError::WrongKind:
        return Status::WrongKind;
    case ValueError::OutOfRange:
        return Status::OutOfRange;
    case ValueError::TooLong:
        return Status::TooLong;
    }
    return Status::WrongKind;
}

} // namespace

StoreValues::StoreValues(Changed changed) : _changed(std::move(changed))
{
    CreateDescriptors();
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        _entries.push_back({descriptor, descriptor->defaultValue(), 0, {}, 0});
    }
}

bool StoreValues::restore(eParam_t id, const ParamValue &value, timeval when)
{
    auto *entry = const_cast<Entry *>(find(id));
    if (!entry || !entry->descriptor->isPersistent() ||
        entry->descriptor->check(value) != ValueError::None) {
        return false;
    }
    entry->value = value;
    entry->when = when;
    return true;
}

StoreValues::Result StoreValues::set(eParam_t id, const ParamValue &value, std::uint64_t origin,
                                     timeval when)
{
    auto *entry = const_cast<Entry *>(find(id));
    if (!entry) {
        return {Status::UnknownParameter, 0};
    }
    const ValueError error = entry->descriptor->check(value);
    if (error != ValueError::None) {
        return {statusOf(error), entry->revision};
    }
    // Who wrote last counts even when the value stays: a restarted daemon takes its status over.
    entry->origin = origin;
    if (entry->value == value && !entry->descriptor->isMomentary()) {
        return {Status::Ok, entry->revision};
    }
    entry->value = value;
    entry->revision = ++_revision;
    entry->when = when;
    _changed(*entry);
    return {Status::Ok, entry->revision};
}

void StoreValues::writerLost(std::uint64_t client, timeval when)
{
    for (const Entry &entry : _entries) {
        if (entry.descriptor->resetsWithWriter() && entry.origin == client) {
            set(entry.descriptor->id(), entry.descriptor->defaultValue(), 0, when);
        }
    }
}

const StoreValues::Entry *StoreValues::find(eParam_t id) const
{
    const auto found = std::ranges::lower_bound(
        _entries, id, {}, [](const Entry &entry) { return entry.descriptor->id(); });
    return found != _entries.end() && found->descriptor->id() == id ? &*found : nullptr;
}

lumo::store::Item itemToWire(const StoreValues::Entry &entry)
{
    lumo::store::Item item;
    item.set_parameter(entry.descriptor->id());
    *item.mutable_value() = valueToWire(entry.value);
    item.set_revision(entry.revision);
    item.set_seconds(static_cast<std::uint64_t>(entry.when.tv_sec));
    item.set_microseconds(static_cast<std::uint32_t>(entry.when.tv_usec));
    item.set_origin(entry.origin);
    return item;
}
