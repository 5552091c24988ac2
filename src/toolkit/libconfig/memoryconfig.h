#pragma once

#include "libconfig/config.h"

#include <map>
#include <memory>
#include <mutex>
#include <vector>

/// A parameter store inside the process, for tests and tools. Holds the catalogue's defaults at
/// first; tells listeners in the setting thread, before the set returns; keeps a record of every
/// set. Same rules as the real store: values that do not fit are refused, a set that changes
/// nothing is no event unless the parameter is momentary. Must outlive its connections.
class MemoryStore
{
public:
    /// One attempt to set a parameter.
    struct Set {
        eParam_t id;
        ParamValue value;
        bool accepted;
    };

    MemoryStore();
    ~MemoryStore();
    MemoryStore(const MemoryStore &) = delete;
    MemoryStore &operator=(const MemoryStore &) = delete;

    /// A new connection to this store, owned by the caller.
    Config *connect();
    /// From now on, and until this store goes, the factory hands out connections to this store.
    void install();
    /// While false every set fails and leaves the values as they are.
    void setReachable(bool reachable);

    /// The value of a parameter; 0 when unknown.
    ParamValue value(eParam_t id) const;
    std::uint32_t number(eParam_t id) const;
    std::string text(eParam_t id) const;

    /// Set from outside, as another client would: not recorded. False when the value does not fit.
    bool put(eParam_t id, const ParamValue &value);
    /// The same without the check of range: for values that the catalogue does not know.
    bool putUnchecked(eParam_t id, const ParamValue &value);
    /// The time that events carry; the clock's by default.
    void setTime(timeval when);

    /// The sets made through connections, in order.
    std::vector<Set> sets() const;
    void clearSets();

private:
    friend class MemoryConfig;

    bool set(eParam_t id, const ParamValue &value, bool kindFits);
    bool store(eParam_t id, const ParamValue &value);
    timeval now() const;

    mutable std::recursive_mutex _mutex;
    std::map<eParam_t, ParamValue> _values;
    std::vector<std::pair<const Config *, ConfigEventListener *>> _listeners;
    std::vector<Set> _sets;
    timeval _when{};
    bool _hasTime = false;
    bool _reachable = true;
    bool _installed = false;
};
