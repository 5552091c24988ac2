#pragma once

#include "liborb/orbalarm.h"

#include <QObject>

/// Where the alarms of one owner come together. Passes every report on, also one that says nothing new: who
/// receives them knows what was reported before.
class OrbAlarmController : public QObject
{
    Q_OBJECT
public:
    explicit OrbAlarmController(QObject *parent = nullptr);

    void setAlarm(const OrbAlarm &alarm);

signals:
    void alarmTriggered(const OrbAlarm &alarm);
};
