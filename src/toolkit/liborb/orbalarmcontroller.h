#pragma once

#include "liborb/orbalarm.h"

#include <QHash>
#include <QObject>

/// Collects the alarms of one owner and passes on what changed: a report equal in level and text to the last
/// one of its identifier is swallowed, and so is a clear of an alarm never raised.
class OrbAlarmController : public QObject
{
    Q_OBJECT
public:
    explicit OrbAlarmController(QObject *parent = nullptr);

    void setAlarm(const OrbAlarm &alarm);

signals:
    void alarmTriggered(const OrbAlarm &alarm);

private:
    QHash<OrbId, OrbAlarm> _alarms;
};
