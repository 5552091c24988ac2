#include "libconfig/config.h"

#include "libconfig/storeuri.h"
#include "libconfig/udpconfig.h"

std::string GetConfigURI(const std::string &transport)
{
    return storeUri(transport, "values");
}

std::string GetEventsURI(const std::string &transport)
{
    return storeUri(transport, "events");
}

ConfigFactoryImpl *ConfigFactoryImpl::GetInstance()
{
    // Never deleted, so that it outlives every static object that holds a connection.
    static auto *factory = new ConfigFactoryImpl;
    return factory;
}

Config *ConfigFactoryImpl::create(const std::string &uri)
{
    if (_creator) {
        return _creator(uri);
    }
    return UdpConfig::connect(uri);
}

void ConfigFactoryImpl::setCreator(Creator creator)
{
    _creator = std::move(creator);
}
