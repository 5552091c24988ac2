#pragma once

#include "libconfig/paramdescriptor.h"

#include <optional>
#include <string>
#include <vector>

// What people type and read, for parameters and their values.

/// The number of letters to insert, leave out or change to make one text the other, in any case.
std::size_t editDistance(const std::string &a, const std::string &b);
/// The candidate nearest to a text; empty without candidates.
std::string nearestMatch(const std::string &text, const std::vector<std::string> &candidates);

/// The text with small letters.
std::string lowerText(std::string text);
/// Two digits for each byte.
std::string hexBytes(const std::string &bytes);
/// Whether two texts are the same in any case.
bool isSameText(const std::string &a, const std::string &b);
/// A number in decimal, or in hexadecimal behind "0x"; none for anything else.
std::optional<std::uint32_t> parseNumber(const std::string &text);

/// The name without its prefix, "TransportState".
std::string shortName(const ParamDescriptor &descriptor);
/// "Unsigned", "Enumerated" ...
std::string kindName(const ParamDescriptor &descriptor);

/// The parameter of a name (with or without its prefix, in any case) or number; null when there is
/// none, and then `problem` names the nearest.
const ParamDescriptor *findParameter(const std::string &text, std::string &problem);
/// The value that a text stands for; none when there is none, and then `problem` says what would
/// fit.
std::optional<ParamValue> parseValue(const ParamDescriptor &descriptor, const std::string &text,
                                     std::string &problem);
/// The value for people: the name of an enumerated value, what an alarm says, text without control
/// characters.
std::string valueText(const ParamDescriptor &descriptor, const ParamValue &value);

/// A JSON string with its quotes. Bytes that are not UTF-8 become U+FFFD.
std::string jsonString(const std::string &text);
/// The value for machines: a number, or a string; data in hexadecimal.
std::string jsonValue(const ParamDescriptor &descriptor, const ParamValue &value);
