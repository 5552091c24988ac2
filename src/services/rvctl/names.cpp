#include "services/rvctl/names.h"

#include "libmessages/alarm.h"
#include "libmessages/datafile.h"
#include "services/rvctl/plaintext.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <numeric>

namespace
{

char lower(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

std::string alarmText(const std::string &bytes)
{
    lumo::alarms::Alarm alarm;
    if (!alarm.ParseFromString(bytes)) {
        return "not an alarm: " + hexBytes(bytes);
    }
    if (!alarm.active()) {
        return "clear";
    }
    const bool isWarning = alarm.severity() == lumo::alarms::Alarm_WARNING;
    const std::string message = alarm.message().empty() ? "" : ": " + printable(alarm.message());
    return (isWarning ? "warning" : "error") + message;
}

std::optional<ParamValue> parseEnumerated(const ParamDescriptor &descriptor,
                                          const std::string &text, std::string &problem)
{
    std::vector<std::string> names;
    for (const ParamValueName &value : descriptor.values()) {
        if (isSameText(text, value.name)) {
            return ParamValue(value.value);
        }
        names.push_back(value.name);
    }
    const auto number = parseNumber(text);
    if (number && descriptor.check(*number) == ValueError::None) {
        return ParamValue(*number);
    }
    problem = "\"" + text + "\" is no value of " + shortName(descriptor) + "; did you mean \"" +
              nearestMatch(text, names) + "\"?";
    return std::nullopt;
}

std::optional<ParamValue> parseData(const ParamDescriptor &descriptor, const std::string &text,
                                    std::string &problem)
{
    if (descriptor.kind() == ParamKind::Data) {
        lumo::config::DataFile file;
        file.set_path(text);
        return ParamValue(text.empty() ? text : file.SerializeAsString());
    }
    if (isSameText(text, "clear")) {
        return ParamValue(std::string());
    }
    problem = "an alarm can only be set to \"clear\"";
    return std::nullopt;
}

} // namespace

std::string hexBytes(const std::string &bytes)
{
    std::string out;
    for (const char c : bytes) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(c));
        out += pair;
    }
    return out;
}

std::string lowerText(std::string text)
{
    std::ranges::transform(text, text.begin(), lower);
    return text;
}

std::size_t editDistance(const std::string &a, const std::string &b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t(0));
    for (std::size_t i = 0; i < a.size(); i++) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); j++) {
            const std::size_t changed = diagonal + (lower(a[i]) != lower(b[j]));
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::string nearestMatch(const std::string &text, const std::vector<std::string> &candidates)
{
    const auto nearest = std::ranges::min_element(
        candidates, {}, [&text](const std::string &name) { return editDistance(text, name); });
    return nearest == candidates.end() ? std::string() : *nearest;
}

bool isSameText(const std::string &a, const std::string &b)
{
    return std::ranges::equal(a, b, [](char x, char y) { return lower(x) == lower(y); });
}

std::optional<std::uint32_t> parseNumber(const std::string &text)
{
    const bool isHex = text.size() > 2 && text[0] == '0' && lower(text[1]) == 'x';
    const char *begin = text.data() + (isHex ? 2 : 0);
    const char *end = text.data() + text.size();
    std::uint32_t number = 0;
    const auto parsed = std::from_chars(begin, end, number, isHex ? 16 : 10);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        return std::nullopt;
    }
    return number;
}

std::string shortName(const ParamDescriptor &descriptor)
{
    return descriptor.name().substr(std::string("eParam").size());
}

std::string kindName(const ParamDescriptor &descriptor)
{
    switch (descriptor.kind()) {
    case ParamKind::Unsigned:
        return "Unsigned";
    case ParamKind::Enumerated:
        return "Enumerated";
    case ParamKind::String:
        return "String";
    case ParamKind::Data:
        return "Data";
    case ParamKind::Alarm:
        return "Alarm";
    }
    return {};
}

const ParamDescriptor *findParameter(const std::string &text, std::string &problem)
{
    if (const auto number = parseNumber(text)) {
        const ParamDescriptor *descriptor = GetDescriptor(static_cast<eParam_t>(*number));
        if (!descriptor) {
            problem = "no parameter has the number " + text;
            const auto distance = [&number](const ParamDescriptor *other) {
                return std::max<std::uint32_t>(other->id(), *number) -
                       std::min<std::uint32_t>(other->id(), *number);
            };
            const auto *nearest = *std::ranges::min_element(allDescriptors(), {}, distance);
            char hex[16];
            std::snprintf(hex, sizeof hex, "0x%08x", unsigned(nearest->id()));
            problem += "; the nearest is " + std::string(hex) + ", " + shortName(*nearest);
        }
        return descriptor;
    }
    std::vector<std::string> names;
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        if (isSameText(text, descriptor->name()) || isSameText(text, shortName(*descriptor))) {
            return descriptor;
        }
        names.push_back(shortName(*descriptor));
    }
    const bool hasPrefix = isSameText(text.substr(0, 6), "eParam");
    problem = "no parameter is called \"" + text + "\"; did you mean \"" +
              nearestMatch(hasPrefix ? text.substr(6) : text, names) + "\"?";
    return nullptr;
}

std::optional<ParamValue> parseValue(const ParamDescriptor &descriptor, const std::string &text,
                                     std::string &problem)
{
    if (descriptor.kind() == ParamKind::Enumerated) {
        return parseEnumerated(descriptor, text, problem);
    }
    std::optional<ParamValue> value;
    if (descriptor.isData()) {
        value = parseData(descriptor, text, problem);
    } else if (descriptor.kind() == ParamKind::String) {
        value = ParamValue(text);
    } else if (const auto number = parseNumber(text)) {
        value = ParamValue(*number);
    } else {
        problem = "\"" + text + "\" is no number";
    }
    if (value && descriptor.check(*value) != ValueError::None) {
        problem = descriptor.isNumber() ? shortName(descriptor) + " goes from " +
                                              std::to_string(descriptor.minimum()) + " to " +
                                              std::to_string(descriptor.maximum())
                                        : "longer than " + std::to_string(maxValueBytes) + " bytes";
        return std::nullopt;
    }
    return value;
}

std::string valueText(const ParamDescriptor &descriptor, const ParamValue &value)
{
    if (const auto *number = std::get_if<std::uint32_t>(&value)) {
        const std::string name = descriptor.valueName(static_cast<int>(*number));
        return name.empty() ? std::to_string(*number) : name;
    }
    const auto &bytes = std::get<std::string>(value);
    if (descriptor.kind() == ParamKind::Alarm) {
        return alarmText(bytes);
    }
    lumo::config::DataFile file;
    if (descriptor.kind() == ParamKind::Data && file.ParseFromString(bytes)) {
        return printable(file.path());
    }
    return descriptor.isData() ? hexBytes(bytes) : printable(bytes);
}

std::string jsonString(const std::string &text)
{
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        const std::size_t length = character.bytes;
        if (!character.isText) {
            out += "\\ufffd";
        } else if (character.code < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", unsigned(character.code));
            out += escape;
        } else {
            out += character.code == '"' || character.code == '\\' ? "\\" : "";
            out += text.substr(i, length);
        }
        i += length;
    }
    return out + '"';
}

std::string jsonValue(const ParamDescriptor &descriptor, const ParamValue &value)
{
    if (const auto *number = std::get_if<std::uint32_t>(&value)) {
        return std::to_string(*number);
    }
    const auto &bytes = std::get<std::string>(value);
    return jsonString(descriptor.isData() ? hexBytes(bytes) : bytes);
}
