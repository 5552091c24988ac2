#pragma once

#include "libconfig/paramdescriptor.h"
#include "libmessages/wire.pb.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

#include <sys/time.h>

/// The values of all parameters in one run of the store, and the rules of setting them.
class StoreValues
{
public:
    struct Entry {
        const ParamDescriptor *descriptor;
        ParamValue value;
        std::uint64_t revision;
        timeval when;
        std::uint64_t origin;
    };
    using Changed = std::function<void(const Entry &)>;

    struct Result {
        lumo::store::Status status;
        std::uint64_t revision;
    };

    /// Every parameter at its default. `changed` is called for each change, and for each set of a
    /// momentary parameter, before set() returns.
    explicit StoreValues(Changed changed);

    /// Put in a kept value. False when it fits no persistent parameter any more.
    bool restore(eParam_t id, const ParamValue &value, timeval when);

    /// Set a parameter on behalf of a client (0: the store itself).
    Result set(eParam_t id, const ParamValue &value, std::uint64_t origin, timeval when);

    /// Put every parameter that resets with its writer back to its default, if that client wrote it
    /// last.
    void writerLost(std::uint64_t client, timeval when);

    /// The entry of a parameter; null when unknown.
    const Entry *find(eParam_t id) const;
    /// All entries in ascending order of their numbers.
    std::span<const Entry> entries() const { return _entries; }

private:
    std::vector<Entry> _entries;
    std::uint64_t _revision = 0;
    Changed _changed;
};

/// An entry as the wire has it.
lumo::store::Item itemToWire(const StoreValues::Entry &entry);
