#pragma once

#include "libconfig/paramdescriptor.h"

#include <span>

/// The rows of the catalogue in ascending order of their numbers; made by the catalogue generator.
std::span<const ParamRow> parameterRows();
