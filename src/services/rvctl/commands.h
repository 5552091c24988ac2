#pragma once

#include "services/rvctl/session.h"

/// Carry out the words of the command line; the answer is the exit code.
int runCommand(Session &session);

/// The text of --help.
const char *usageText();
