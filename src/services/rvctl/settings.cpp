#include "services/rvctl/settings.h"

#include "libmessages/datafile.h"
#include "services/rvctl/names.h"

#include <charconv>
#include <map>

namespace
{

const std::string hexPrefix = "hex:";

std::string quoted(const std::string &text)
{
    static const char digits[] = "0123456789abcdef";
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            out += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        } else {
            out += c == '"' || c == '\\' ? "\\" : "";
            out += c;
        }
    }
    return out + '"';
}

/// The bytes of pairs of hexadecimal digits; false for anything else.
bool fromHex(const std::string &text, std::string &bytes)
{
    for (std::size_t i = 0; i < text.size(); i += 2) {
        unsigned int byte = 0;
        const char *begin = text.data() + i;
        if (i + 2 > text.size() || std::from_chars(begin, begin + 2, byte, 16).ptr != begin + 2) {
            return false;
        }
        bytes += static_cast<char>(byte);
    }
    return true;
}

/// What stands in quotes; false, with the problem, when they do not fit together.
bool unquote(const std::string &text, std::string &out, std::string &problem)
{
    std::size_t i = 1;
    for (; i < text.size() && text[i] != '"'; i++) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        i++;
        if (i < text.size() && (text[i] == '"' || text[i] == '\\')) {
            out += text[i];
        } else if (i + 2 < text.size() && text[i] == 'x' && fromHex(text.substr(i + 1, 2), out)) {
            i += 2;
        } else {
            problem = "after a backslash comes \", another backslash or xHH";
            return false;
        }
    }
    if (i + 1 != text.size()) {
        problem = i < text.size() ? "something follows the closing quote" : "the closing quote is missing";
        return false;
    }
    return true;
}

std::string trimmed(const std::string &text)
{
    const auto begin = text.find_first_not_of(" \t\r");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

std::string settingText(const ParamDescriptor &descriptor, const ParamValue &value)
{
    if (std::holds_alternative<std::uint32_t>(value)) {
        return valueText(descriptor, value);
    }
    const auto &bytes = std::get<std::string>(value);
    if (descriptor.kind() == ParamKind::String) {
        return quoted(bytes);
    }
    lumo::config::DataFile file;
    if (bytes.empty() || (file.ParseFromString(bytes) && file.SerializeAsString() == bytes)) {
        return quoted(file.path());
    }
    return hexPrefix + hexBytes(bytes);
}

std::optional<ParamValue> parseSetting(const ParamDescriptor &descriptor, const std::string &text,
                                       std::string &problem)
{
    std::string plain = text;
    if (text.starts_with('"')) {
        plain.clear();
        if (!unquote(text, plain, problem)) {
            return std::nullopt;
        }
    } else if (descriptor.kind() == ParamKind::Data && text.starts_with(hexPrefix)) {
        std::string bytes;
        if (!fromHex(text.substr(hexPrefix.size()), bytes) || bytes.size() > maxValueBytes) {
            problem = "after hex: come pairs of hexadecimal digits, at most " + std::to_string(maxValueBytes);
            return std::nullopt;
        }
        return ParamValue(bytes);
    } else if (text.empty()) {
        problem = "the value is missing; an empty text is \"\"";
        return std::nullopt;
    }
    return parseValue(descriptor, plain, problem);
}

/// One line that says something; the answer is null when it cannot be carried out.
const ParamDescriptor *parseLine(const std::string &line, ParamValue &value, std::string &problem)
{
    const auto equals = line.find('=');
    if (equals == std::string::npos) {
        problem = "a setting reads NAME = VALUE";
        return nullptr;
    }
    const ParamDescriptor *descriptor = findParameter(trimmed(line.substr(0, equals)), problem);
    if (!descriptor) {
        return nullptr;
    }
    if (!descriptor->isPersistent()) {
        problem = shortName(*descriptor) + " is no setting; it is not kept";
        return nullptr;
    }
    const auto parsed = parseSetting(*descriptor, trimmed(line.substr(equals + 1)), problem);
    if (!parsed) {
        return nullptr;
    }
    value = *parsed;
    return descriptor;
}

} // namespace

std::string settingsText(const std::function<ParamValue(const ParamDescriptor &)> &valueOf)
{
    std::string out = "# Settings of the recorder. \"rvctl import FILE\" puts them in again, all of them or, if\n"
                      "# a line is wrong, none; a line that is left out leaves its setting as it is.\n";
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        if (descriptor->isPersistent()) {
            out += shortName(*descriptor) + " = " + settingText(*descriptor, valueOf(*descriptor)) + "\n";
        }
    }
    return out;
}

Settings parseSettings(const std::string &text, std::vector<SettingProblem> &problems)
{
    Settings settings;
    std::map<eParam_t, int> lines;
    if (text.size() > maxSettingsBytes) {
        problems.push_back({0, "longer than " + std::to_string(maxSettingsBytes) + " bytes"});
        return settings;
    }
    int number = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = trimmed(text.substr(begin, end - begin));
        begin = end + 1;
        number++;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        ParamValue value;
        std::string problem;
        const ParamDescriptor *descriptor = parseLine(line, value, problem);
        if (descriptor && !lines.emplace(descriptor->id(), number).second) {
            problem = shortName(*descriptor) + " stands already in line " + std::to_string(lines[descriptor->id()]);
            descriptor = nullptr;
        }
        if (descriptor) {
            settings.emplace_back(descriptor, std::move(value));
        } else {
            problems.push_back({number, problem});
        }
    }
    return settings;
}
