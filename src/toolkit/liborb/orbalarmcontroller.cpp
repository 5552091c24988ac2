#include "liborb/orbalarmcontroller.h"

OrbAlarmController::OrbAlarmController(QObject *parent) : QObject(parent) {}

void OrbAlarmController::setAlarm(const OrbAlarm &alarm)
{
    const OrbAlarm report = alarm; // a receiver may change what the caller's reference names
    emit alarmTriggered(report);
}
