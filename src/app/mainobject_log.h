#pragma once

#include "liborb/orblog.h"

/// Every record and alarm of the controller names this file, whatever topic file it comes from.
inline constexpr const char *logFile = "mainobject.cpp";

/// Writes one composed record with the caller's line.
inline void logText(int level, const QString &text, int line = __builtin_LINE())
{
    OrbLogStream(logFile, line, level, OrbLog::defaultLog()) << text;
}
