#include "liborb/orbalarmcontroller.h"

OrbAlarmController::OrbAlarmController(QObject *parent) : QObject(parent) {}

void OrbAlarmController::setAlarm(const OrbAlarm &alarm)
{
    const OrbAlarm report = alarm; // a receiver may change what the caller's reference names
    const auto known = _alarms.constFind(report.id());
    if (!report.isActive()) {
        if (known == _alarms.constEnd())
            return;
        _alarms.remove(report.id());
        emit alarmTriggered(report);
        return;
    }
    if (known != _alarms.constEnd() && known->level() == report.level()
        && known->text() == report.text())
        return;
    _alarms.insert(report.id(), report);
    emit alarmTriggered(report);
}
