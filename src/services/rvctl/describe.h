#pragma once

#include "libconfig/paramdescriptor.h"

#include <span>
#include <string>

// What the catalogue says, for people and for shells.

/// What the recorder does about an alarm, in words; empty for other kinds.
std::string alarmPolicy(const ParamDescriptor &descriptor);
/// Everything that is known of a parameter, a line each.
std::string descriptionText(const ParamDescriptor &descriptor);
/// The same for machines: members of a JSON object, each with a comma in front.
std::string descriptionMembers(const ParamDescriptor &descriptor);

/// A script that teaches bash to complete the commands, the names of parameters and of their values.
std::string bashCompletion(std::span<const std::string> commands);
