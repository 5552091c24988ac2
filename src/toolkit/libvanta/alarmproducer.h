#pragma once

#include "libconfig/config.h"
#include "libmessages/alarm.h"

#include <string>

/// Sets alarm parameters: the bytes of a lumo::alarms::Alarm.
class AlarmProducer
{
public:
    /// False when the store cannot be reached or has no such alarm.
    static bool raise(Config *config, eParam_t param, lumo::alarms::Alarm_Severity severity,
                      const std::string &message);
    static bool clear(Config *config, eParam_t param);
};
