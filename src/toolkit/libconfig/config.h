#pragma once

#include "libconfig/paramdescriptor.h"
#include "libconfig/paramvalue.h"

#include <functional>
#include <string>

#include <sys/time.h>

/// One change of a parameter: the new value and when it was set.
struct ConfigEvent {
    eParam_t id;
    ParamValue value;
    timeval when;
};

/// Is told of every change of a parameter, on a thread of the library's own; one call at a time.
class ConfigEventListener
{
public:
    virtual ~ConfigEventListener() = default;

    /// An unsigned or enumerated parameter changed.
    virtual void ParamChanged(eParam_t id, unsigned int value, timeval when);
    /// A string parameter changed.
    virtual void ParamChanged(eParam_t id, std::string value, timeval when);
    /// A data or alarm parameter changed; the answer is whether it was understood.
    virtual bool DataChanged(eParam_t id, std::string &data, timeval when);
    /// Any parameter changed. The library calls only this one; it calls the one of the three that
    /// fits.
    virtual void ParamChanged(ConfigEvent event);
    /// The store is lost, or answers again. Told when a listener is registered only if it is lost.
    virtual void StoreReachable(bool isReachable);
};

/// A connection to the parameter store. Get and set never block and may be called from any thread.
class Config
{
public:
    virtual ~Config() = default;

    /// Read a value. False, and `value` untouched, when the parameter is unknown or of another
    /// kind. A set through this process's connections shows at once.
    virtual bool getUInt32(eParam_t id, unsigned int &value) = 0;
    virtual bool getString(eParam_t id, std::string &value) = 0;
    /// Reads data and alarm parameters.
    virtual bool getData(eParam_t id, std::string &value) = 0;

    /// Hand a value to the store. False when it does not fit the parameter or the store cannot be
    /// reached. In the latter case the last value of a parameter that is not momentary is kept and
    /// sent later.
    virtual bool setUInt32(eParam_t id, unsigned int value) = 0;
    virtual bool setString(eParam_t id, const std::string &value) = 0;
    virtual bool setData(eParam_t id, const std::string &value) = 0;

    /// From now on the listener is told of every change, also of those set here. It is not owned
    /// and must outlive this object; destroying this object ends the events, and waits for a call
    /// under way.
    virtual void registerListener(ConfigEventListener *listener) = 0;

    /// The attributes of a parameter; null when the store has no such parameter.
    virtual const AttributeSet *attributes(eParam_t id) const = 0;
};

/// The address of the store's value service for a transport; only "udp" is known, others give "".
std::string GetConfigURI(const std::string &transport);
/// The address of the store's event service for a transport; only "udp" is known, others give "".
std::string GetEventsURI(const std::string &transport);

/// Makes connections to the store.
class ConfigFactoryImpl
{
public:
    using Creator = std::function<Config *(const std::string &uri)>;

    static ConfigFactoryImpl *GetInstance();

    /// A new connection, owned by the caller; null when the address is malformed or sockets fail.
    /// All connections of a process to one store share one view of it. The first waits up to 1 s
    /// for the store; without one the connection is made all the same and carries on when the store
    /// comes.
    Config *create(const std::string &uri);

    /// For tests: what create() calls from now on; an empty function puts the real thing back.
    void setCreator(Creator creator);

private:
    ConfigFactoryImpl() = default;

    Creator _creator;
};
