#include "libconfig/udpconfig.h"

#include "libconfig/storeclient.h"

namespace
{

constexpr std::chrono::milliseconds firstWait{1000};

} // namespace

Config *UdpConfig::connect(const std::string &uri)
{
    const auto address = parseStoreUri(uri);
    if (!address) {
        return nullptr;
    }
    auto client = StoreClient::open(*address);
    if (!client) {
        return nullptr;
    }
    if (client.use_count() == 1) {
        client->waitUntilReady(firstWait);
    }
    return new UdpConfig(std::move(client));
}

UdpConfig::UdpConfig(std::shared_ptr<StoreClient> client) : _client(std::move(client)) {}

UdpConfig::~UdpConfig()
{
    for (ConfigEventListener *listener : _listeners) {
        _client->removeListener(listener);
    }
}

bool UdpConfig::getUInt32(eParam_t id, unsigned int &value)
{
    const ParamDescriptor *descriptor = GetDescriptor(id);
    if (!descriptor || !descriptor->isNumber()) {
        return false;
    }
    value = std::get<std::uint32_t>(*_client->value(id));
    return true;
}

bool UdpConfig::getString(eParam_t id, std::string &value)
{
    const ParamDescriptor *descriptor = GetDescriptor(id);
    if (!descriptor || descriptor->kind() != ParamKind::String) {
        return false;
    }
    value = std::get<std::string>(*_client->value(id));
    return true;
}

bool UdpConfig::getData(eParam_t id, std::string &value)
{
    const ParamDescriptor *descriptor = GetDescriptor(id);
    if (!descriptor || !descriptor->isData()) {
        return false;
    }
    value = std::get<std::string>(*_client->value(id));
    return true;
}

bool UdpConfig::setUInt32(eParam_t id, unsigned int value)
{
    return _client->set(id, std::uint32_t(value));
}

bool UdpConfig::setString(eParam_t id, const std::string &value)
{
    const ParamDescriptor *descriptor = GetDescriptor(id);
    return descriptor && descriptor->kind() == ParamKind::String && _client->set(id, value);
}

bool UdpConfig::setData(eParam_t id, const std::string &value)
{
    const ParamDescriptor *descriptor = GetDescriptor(id);
    return descriptor && descriptor->isData() && _client->set(id, value);
}

void UdpConfig::registerListener(ConfigEventListener *listener)
{
    _listeners.push_back(listener);
    _client->addListener(listener);
}

const AttributeSet *UdpConfig::attributes(eParam_t id) const
{
    const ParamDescriptor *descriptor = GetDescriptor(id);
    return descriptor ? &descriptor->attributes() : nullptr;
}
