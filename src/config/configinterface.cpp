#include "config/configinterface.h"

#include "liborb/orblog.h"

#include <mutex>

namespace {

constexpr const char *logFile = "configinterface.cpp";
constexpr int enumeratedType = 3;
constexpr int stringType = 12;

eParam_t param(quint32 id)
{
    return static_cast<eParam_t>(id);
}

void createDescriptorsOnce()
{
    static std::once_flag created;
    std::call_once(created, CreateDescriptors);
}

std::unique_ptr<Config> connection(const std::string &uri)
{
    return std::unique_ptr<Config>(ConfigFactoryImpl::GetInstance()->create(uri));
}

} // namespace

ConfigInterface::ConfigInterface(QObject *parent) : QObject(parent)
{
    createDescriptorsOnce();
    const std::string configUri = GetConfigURI("udp");
    const std::string eventsUri = GetEventsURI("udp");
    _config = connection(configUri);
    if (!_config)
        orbLogOutput(1, logFile, __LINE__, "Failed to create config: %s\n", configUri.c_str());
    _events = connection(eventsUri);
    if (!_events)
        orbLogOutput(1, logFile, __LINE__, "Failed to create events: %s\n", eventsUri.c_str());
    if (_events)
        _events->registerListener(this);
}

/// Deleting the events connection ends the events.
ConfigInterface::~ConfigInterface()
{
    _config.reset();
    _events.reset();
}

void ConfigInterface::ParamChanged(eParam_t id, unsigned int value, timeval when)
{
    emit paramChanged(id, QVariant(value), OrbTimeStamp(when));
}

void ConfigInterface::ParamChanged(eParam_t id, std::string value, timeval when)
{
    emit paramChanged(id, QVariant(QString::fromStdString(value)), OrbTimeStamp(when));
}

bool ConfigInterface::DataChanged(eParam_t id, std::string &data, timeval when)
{
    const QByteArray bytes(data.data(), static_cast<qsizetype>(data.length()));
    emit paramChanged(id, QVariant(bytes), OrbTimeStamp(when));
    return true;
}

void ConfigInterface::StoreReachable(bool isReachable)
{
    if (isReachable)
        orbLogOutput(3, logFile, __LINE__, "The parameter store answers\n");
    else
        orbLogOutput(2, logFile, __LINE__, "The parameter store does not answer\n");
}

quint32 ConfigInterface::getUInt32(quint32 id)
{
    unsigned int value = 0;
    if (_config)
        _config->getUInt32(param(id), value);
    return value;
}

QString ConfigInterface::getString(quint32 id)
{
    std::string value;
    if (_config)
        _config->getString(param(id), value);
    return QString::fromStdString(value);
}

QByteArray ConfigInterface::getData(quint32 id)
{
    std::string value;
    if (_config)
        _config->getData(param(id), value);
    return QByteArray(value.data(), static_cast<qsizetype>(value.length()));
}

bool ConfigInterface::setUInt32(quint32 id, quint32 value)
{
    return _config && _config->setUInt32(param(id), value);
}

bool ConfigInterface::setString(quint32 id, QString value)
{
    return _config && _config->setString(param(id), value.toStdString());
}

bool ConfigInterface::setData(quint32 id, QByteArray value)
{
    return _config &&
           _config->setData(param(id),
                            std::string(value.constData(), static_cast<size_t>(value.size())));
}

bool ConfigInterface::set(quint32 paramID, QVariant value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return setString(paramID, value.toString());
    case QMetaType::QByteArray:
        return setData(paramID, value.toByteArray());
    default:
        return setUInt32(paramID, value.toUInt());
    }
}

void ConfigInterface::loadParam(quint32 id)
{
    const ParamDescriptor *descriptor = GetDescriptor(param(id));
    if (!descriptor) {
        orbLogOutput(1, logFile, __LINE__, "Param ID %u not found\n", id);
        return;
    }
    const QVariant value = descriptor->typeCode() == stringType ? QVariant(getString(id))
                                                                : QVariant(getUInt32(id));
    emit paramChanged(id, value, OrbTimeStamp::getCurrent());
}

void ConfigInterface::loadParams(const quint32 *idlist, int listSize)
{
    for (int i = 0; i < listSize; ++i)
        loadParam(idlist[i]);
}

QString ConfigInterface::paramToString(quint32 id, const QVariant &value)
{
    const ParamDescriptor *descriptor = GetDescriptor(param(id));
    if (!descriptor)
        return QString();
    QString text;
    if (descriptor->typeCode() == enumeratedType) {
        const int number = value.toInt();
        text = QStringLiteral("[%1] %2").arg(number).arg(
            QString::fromStdString(descriptor->valueName(number)));
    } else if (dynamic_cast<const DataDescriptor *>(descriptor)) {
        text = QStringLiteral("Data Parameter - no details available");
    } else {
        text = value.toString();
    }
    // One replacement after the other: a "%" sequence in a name may be taken by a later one.
    return QStringLiteral("[%1] %2 = %3")
        .arg(id, 0, 16)
        .arg(QString::fromStdString(descriptor->name()))
        .arg(text);
}
