#pragma once

#include "libmessages/alarm.pb.h"

namespace lumo::alarms
{

inline constexpr Alarm_Severity Alarm_NONE = Alarm_Severity_NONE;
inline constexpr Alarm_Severity Alarm_WARNING = Alarm_Severity_WARNING;
inline constexpr Alarm_Severity Alarm_ERROR = Alarm_Severity_ERROR;

} // namespace lumo::alarms
