#pragma once

#include "libconfig/config.h"

#include <memory>
#include <vector>

class StoreClient;

/// A connection to the real store: a handle on the view of it that all connections of the process
/// share, so that a value read after an event is never older than the event.
class UdpConfig : public Config
{
public:
    /// A new connection; null when the address is malformed or sockets fail. Waits up to 1 s for
    /// the store when it is the first.
    static Config *connect(const std::string &uri);

    ~UdpConfig() override;

    bool getUInt32(eParam_t id, unsigned int &value) override;
    bool getString(eParam_t id, std::string &value) override;
    bool getData(eParam_t id, std::string &value) override;
    bool setUInt32(eParam_t id, unsigned int value) override;
    bool setString(eParam_t id, const std::string &value) override;
    bool setData(eParam_t id, const std::string &value) override;
    void registerListener(ConfigEventListener *listener) override;
    const AttributeSet *attributes(eParam_t id) const override;

private:
    explicit UdpConfig(std::shared_ptr<StoreClient> client);

    std::shared_ptr<StoreClient> _client;
    std::vector<ConfigEventListener *> _listeners;
};
