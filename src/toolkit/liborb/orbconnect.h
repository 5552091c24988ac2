#pragma once

#include "liborb/orblog.h"

/// Logs \a statement at level 2 as failed when \a isDone is false; answers \a isDone.
inline bool orbTested(bool isDone, const char *sourceFile, int line, const char *statement)
{
    if (!isDone)
        orbLogOutput(2, sourceFile, line, "FAILED: %s\n", statement);
    return isDone;
}

/// Runs a statement that answers success, a connect above all; a failure is logged at level 2 with the
/// statement's own text under the class's logFile, and the program goes on.
#define ORB_TESTED(...) orbTested(bool(__VA_ARGS__), logFile, __LINE__, #__VA_ARGS__)
