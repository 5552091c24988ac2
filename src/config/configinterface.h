#pragma once

#include "libconfig/config.h"
#include "liborb/orbtimestamp.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVariant>

#include <memory>

Q_DECLARE_INTERFACE(ConfigEventListener, "ConfigEventListener")

/// The daemon's one door to the parameter store: typed get and set, and one signal for every change.
/// Changes made in the store are emitted on a thread of the store's library: connect with the automatic
/// type. Everything else is for the event-loop thread and never blocks.
class ConfigInterface : public QObject, public ConfigEventListener
{
    Q_OBJECT
    Q_INTERFACES(ConfigEventListener)
public:
    explicit ConfigInterface(QObject *parent = nullptr);
    ~ConfigInterface() override;

    /// An unknown or unreadable parameter reads as an empty string, 0 or empty data.
    QString getString(quint32 id);
    quint32 getUInt32(quint32 id);
    QByteArray getData(quint32 id);
    /// The connection that gets and sets; stays the property of this object. Null when creation failed.
    Config *configObject() const { return _config.get(); }
    /// "[number in hex] name = value", for logs; empty for an unknown parameter.
    static QString paramToString(quint32 id, const QVariant &value);

    void ParamChanged(eParam_t id, unsigned int value, timeval when) override;
    void ParamChanged(eParam_t id, std::string value, timeval when) override;
    bool DataChanged(eParam_t id, std::string &data, timeval when) override;
    /// Says in the log that the store is lost, and that it is back.
    void StoreReachable(bool isReachable) override;
    using ConfigEventListener::ParamChanged;

signals:
    void paramChanged(quint32 id, const QVariant &value, const OrbTimeStamp &ts);

public slots:
    /// Emits the current value as paramChanged(), before it returns. Knows only strings and numbers: a data
    /// parameter arrives as a number, deliberately.
    void loadParam(quint32);
    void loadParams(const quint32 *idlist, int listSize);
    /// Writes as the variant's type says: a string as a string, a byte array as data, anything else as an
    /// unsigned number. The answer is the store's.
    bool set(quint32 paramID, QVariant value);
    bool setString(quint32, QString);
    bool setUInt32(quint32, quint32);
    bool setData(quint32, QByteArray);

private:
    std::unique_ptr<Config> _config;
    std::unique_ptr<Config> _events;
};
