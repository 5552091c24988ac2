#pragma once

#include "libconfig/paramdescriptor.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

// The kept settings as a text that people edit: one a line, "EncodeType = ProRes 422 HQ". Empty lines and
// lines that begin with # say nothing. Text and file names stand in double quotes, with \" \\ and \xHH
// inside; without quotes they are what stands between the equals sign and the end of the line.

/// A line that cannot be carried out, and why. Line 0: the text as a whole.
struct SettingProblem {
    int line;
    std::string text;
};

using Settings = std::vector<std::pair<const ParamDescriptor *, ParamValue>>;

/// No text of settings is longer.
inline constexpr std::size_t maxSettingsBytes = 1 << 20;

/// All kept parameters with the values that `valueOf` has for them.
std::string settingsText(const std::function<ParamValue(const ParamDescriptor &)> &valueOf);

/// The settings of a text in its order. With problems the answer is not to be used.
Settings parseSettings(const std::string &text, std::vector<SettingProblem> &problems);
