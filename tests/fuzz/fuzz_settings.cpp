// A text of settings that somebody imports.
// links: control

#include "driver.h"
#include "services/rvctl/settings.h"

#include <map>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    CreateDescriptors();
    std::vector<SettingProblem> problems;
    std::map<const ParamDescriptor *, ParamValue> values;
    for (const auto &[descriptor, value] : parseSettings({reinterpret_cast<const char *>(data), size}, problems)) {
        fuzzCheck(descriptor->isPersistent() && descriptor->check(value) == ValueError::None);
        values[descriptor] = value;
    }
    if (!problems.empty()) {
        return 0;
    }
    // What is exported comes back as it was.
    const std::string text = settingsText([&values](const ParamDescriptor &descriptor) {
        const auto found = values.find(&descriptor);
        return found == values.end() ? descriptor.defaultValue() : found->second;
    });
    std::vector<SettingProblem> none;
    for (const auto &[descriptor, value] : parseSettings(text, none)) {
        const auto found = values.find(descriptor);
        fuzzCheck(value == (found == values.end() ? descriptor->defaultValue() : found->second));
    }
    fuzzCheck(none.empty());
    return 0;
}
