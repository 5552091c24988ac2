#pragma once

#include "liborb/ifaces/videodriver.h"

#include <memory>

/// The software video device "ferin": live inputs, generators, coding and a program bus on ordinary
/// hardware.
std::unique_ptr<OrbVideoDriver> createSoftwareVideoDriver();
