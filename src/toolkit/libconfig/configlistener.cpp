#include "libconfig/config.h"

void ConfigEventListener::ParamChanged(eParam_t, unsigned int, timeval) {}

void ConfigEventListener::ParamChanged(eParam_t, std::string, timeval) {}

bool ConfigEventListener::DataChanged(eParam_t, std::string &, timeval)
{
    return true;
}

void ConfigEventListener::ParamChanged(ConfigEvent event)
{
    const ParamDescriptor *descriptor = GetDescriptor(event.id);
    if (!descriptor) {
        return;
    }
    if (const auto *number = std::get_if<std::uint32_t>(&event.value)) {
        ParamChanged(event.id, *number, event.when);
    } else if (descriptor->isData()) {
        DataChanged(event.id, std::get<std::string>(event.value), event.when);
    } else {
        ParamChanged(event.id, std::get<std::string>(event.value), event.when);
    }
}

void ConfigEventListener::StoreReachable(bool)
{
}
