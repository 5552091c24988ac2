#pragma once

#include "libconfig/config.h"
#include "liborb/orbalarm.h"

#include <QObject>

#include <map>

class ConfigInterface;
class VtrState;

/// The one place where alarms leave the daemon: maps each alarm identifier to its parameter, remembers the
/// last state of every alarm and publishes raise and clear. Whether an alarm waits for a transport event,
/// and which events clear it, stands in attributes of its parameter. All calls on the event-loop thread.
class AlarmHandler : public QObject
{
    Q_OBJECT
public:
    explicit AlarmHandler(QObject *parent = nullptr);

    /// "Err:AlarmLut (1920) Raised text file:line", as the log shows an alarm.
    QString alarmToString(const OrbAlarm &alarm) const;
    /// The parameter and the stored state of the alarm \a id; false when there is no such alarm.
    bool findAlarm(const OrbId &id, eParam_t &param, OrbAlarm &alarm) const;
    /// The parameter carries one of the seven attributes that hold an alarm back until an event.
    bool isDelayed(eParam_t param) const;

public slots:
    void setConfigInterface(ConfigInterface *cfg);
    void onEvent(QString clear_attribute, QString raise_attribute);
    void onPlayPressed();
    void onStopPressed();
    void onRecordPressed();
    void onPlayback();
    void onRecord();
    void onStandby();
    void onStandbyOff();
    void stateChanged(const VtrState &oldState, const VtrState &newState);
    void handleAlarm(const OrbAlarm &alarm);

private:
    bool hasAttribute(eParam_t param, const std::string &attribute) const;
    void publish(eParam_t param, const OrbAlarm &alarm);

    Config *_config = nullptr;
    std::map<eParam_t, OrbAlarm> _alarms;
};
