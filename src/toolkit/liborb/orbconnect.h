#pragma once

#include "liborb/orblog.h"

/// Runs a statement that answers success, a connect above all; a failure is logged at level 2 with the
/// statement's own text under the class's logFile, and the program goes on.
#define ORB_TESTED(...)                                                                              \
    do {                                                                                             \
        if (!(__VA_ARGS__))                                                                          \
            orbLogOutput(2, logFile, __LINE__, "FAILED: %s\n", #__VA_ARGS__);                        \
    } while (false)
