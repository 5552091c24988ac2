#pragma once

#include "services/rvctl/session.h"

#include <set>
#include <string>

// What rvctl prints; each answers with the exit code.

/// One value.
int reportValue(Session &session, const ParamDescriptor &descriptor);
/// All parameters whose name contains the pattern, in any case.
int reportList(Session &session, const std::string &pattern);
/// The alarms that are raised; ends with 1 when there are any.
int reportAlarms(Session &session);
/// What the recorder does.
int reportStatus(Session &session);
/// Changes as they come, of some parameters or (empty) of all; until a signal ends it or the time
/// is over.
int reportChanges(Session &session, const std::set<eParam_t> &wanted);
