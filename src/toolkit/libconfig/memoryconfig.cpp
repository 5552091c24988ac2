#include "libconfig/memoryconfig.h"

#include <algorithm>

/// A connection to a MemoryStore.
class MemoryConfig : public Config
{
public:
    explicit MemoryConfig(MemoryStore *store) : _store(store) {}

    ~MemoryConfig() override
    {
        const std::lock_guard lock(_store->_mutex);
        std::erase_if(_store->_listeners, [this](const auto &l) { return l.first == this; });
    }

    bool getUInt32(eParam_t id, unsigned int &value) override
    {
        const ParamDescriptor *descriptor = GetDescriptor(id);
        return descriptor && descriptor->isNumber() && get(id, value);
    }

    bool getString(eParam_t id, std::string &value) override
    {
        const ParamDescriptor *descriptor = GetDescriptor(id);
        return descriptor && descriptor->kind() == ParamKind::String && get(id, value);
    }

    bool getData(eParam_t id, std::string &value) override
    {
        const ParamDescriptor *descriptor = GetDescriptor(id);
        return descriptor && descriptor->isData() && get(id, value);
    }

    bool setUInt32(eParam_t id, unsigned int value) override
    {
        return _store->set(id, std::uint32_t(value), true);
    }

    bool setString(eParam_t id, const std::string &value) override
    {
        const ParamDescriptor *descriptor = GetDescriptor(id);
        return _store->set(id, value, descriptor && descriptor->kind() == ParamKind::String);
    }

    bool setData(eParam_t id, const std::string &value) override
    {
        const ParamDescriptor *descriptor = GetDescriptor(id);
        return _store->set(id, value, descriptor && descriptor->isData());
    }

    void registerListener(ConfigEventListener *listener) override
    {
        const std::lock_guard lock(_store->_mutex);
        _store->_listeners.emplace_back(this, listener);
    }

    const AttributeSet *attributes(eParam_t id) const override
    {
        const ParamDescriptor *descriptor = GetDescriptor(id);
        return descriptor ? &descriptor->attributes() : nullptr;
    }

private:
    template <typename T> bool get(eParam_t id, T &value)
    {
        value = std::get<T>(_store->value(id));
        return true;
    }

    MemoryStore *_store;
};

MemoryStore::MemoryStore()
{
    CreateDescriptors();
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        _values[descriptor->id()] = descriptor->defaultValue();
    }
}

MemoryStore::~MemoryStore()
{
    if (_installed) {
        ConfigFactoryImpl::GetInstance()->setCreator({});
    }
}

Config *MemoryStore::connect()
{
    return new MemoryConfig(this);
}

void MemoryStore::install()
{
    _installed = true;
    ConfigFactoryImpl::GetInstance()->setCreator(
        [this](const std::string &) -> Config * { return connect(); });
}

void MemoryStore::setReachable(bool reachable)
{
    const std::lock_guard lock(_mutex);
    _reachable = reachable;
}

ParamValue MemoryStore::value(eParam_t id) const
{
    const std::lock_guard lock(_mutex);
    const auto found = _values.find(id);
    return found == _values.end() ? ParamValue() : found->second;
}

std::uint32_t MemoryStore::number(eParam_t id) const
{
    const ParamValue held = value(id);
    const auto *number = std::get_if<std::uint32_t>(&held);
    return number ? *number : 0;
}

std::string MemoryStore::text(eParam_t id) const
{
    const ParamValue held = value(id);
    const auto *text = std::get_if<std::string>(&held);
    return text ? *text : std::string();
}

bool MemoryStore::put(eParam_t id, const ParamValue &value)
{
    const ParamDescriptor *descriptor = GetDescriptor(id);
    if (!descriptor || descriptor->check(value) != ValueError::None) {
        return false;
    }
    return store(id, value);
}

bool MemoryStore::putUnchecked(eParam_t id, const ParamValue &value)
{
    const ParamDescriptor *descriptor = GetDescriptor(id);
    if (!descriptor || descriptor->check(value) == ValueError::WrongKind) {
        return false;
    }
    return store(id, value);
}

void MemoryStore::setTime(timeval when)
{
    const std::lock_guard lock(_mutex);
    _when = when;
    _hasTime = true;
}

std::vector<MemoryStore::Set> MemoryStore::sets() const
{
    const std::lock_guard lock(_mutex);
    return _sets;
}

void MemoryStore::clearSets()
{
    const std::lock_guard lock(_mutex);
    _sets.clear();
}

bool MemoryStore::set(eParam_t id, const ParamValue &value, bool kindFits)
{
    const std::lock_guard lock(_mutex);
    const ParamDescriptor *descriptor = GetDescriptor(id);
    const bool fits = kindFits && descriptor && descriptor->check(value) == ValueError::None;
    _sets.push_back({id, value, fits && _reachable});
    return fits && _reachable && store(id, value);
}

bool MemoryStore::store(eParam_t id, const ParamValue &value)
{
    const std::lock_guard lock(_mutex);
    ParamValue &held = _values[id];
    if (held == value && !GetDescriptor(id)->isMomentary()) {
        return true;
    }
    held = value;
    // A listener may connect, disconnect or set in its turn.
    const auto listeners = _listeners;
    for (const auto &listener : listeners) {
        if (std::ranges::find(_listeners, listener) != _listeners.end()) {
            listener.second->ParamChanged(ConfigEvent{id, value, now()});
        }
    }
    return true;
}

timeval MemoryStore::now() const
{
    if (_hasTime) {
        return _when;
    }
    timeval when{};
    gettimeofday(&when, nullptr);
    return when;
}
