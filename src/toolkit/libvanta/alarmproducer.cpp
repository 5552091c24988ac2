#include "libvanta/alarmproducer.h"

bool AlarmProducer::raise(Config *config, eParam_t param, lumo::alarms::Alarm_Severity severity,
                          const std::string &message)
{
    lumo::alarms::Alarm alarm;
    alarm.set_active(true);
    alarm.set_severity(severity);
    alarm.set_message(message);
    return config && config->setData(param, alarm.SerializeAsString());
}

bool AlarmProducer::clear(Config *config, eParam_t param)
{
    return config && config->setData(param, lumo::alarms::Alarm().SerializeAsString());
}
