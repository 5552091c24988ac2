#pragma once

#include <string>

/// Whether a file of this name is taken for a clip: it ends in ".mov", in any case, does not begin with a dot,
/// and is text that people and messages can hold, which is well-formed UTF-8 without control characters.
/// Blanks, dots and all letters are welcome.
bool isClipName(const std::string &name);

/// Names in the order in which people count: numbers by value, so that "A_2" comes before "A_10".
bool comesBefore(const std::string &a, const std::string &b);
