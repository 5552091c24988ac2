#pragma once

#include "catalogue.pb.h"

#include <optional>
#include <string>

// The parameter catalogue: its text checked, and what is made from it.

/// The catalogue of a text; none when a rule is broken, and then `wrong` has a line for each.
std::optional<lumo::catalogue::Catalogue> parseCatalogue(const std::string &text, std::string &wrong);

/// What the event of an attribute is called, "play is pressed"; empty when it is no attribute.
std::string eventName(const std::string &attribute);

/// The C++ header of the parameters' numbers.
std::string catalogueHeader(const lumo::catalogue::Catalogue &catalogue);
/// The C++ source of the descriptor table.
std::string catalogueTable(const lumo::catalogue::Catalogue &catalogue);
/// The manual, in Markdown.
std::string catalogueManual(const lumo::catalogue::Catalogue &catalogue);
