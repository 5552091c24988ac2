// Checks the parameter catalogue and writes what is made from it:
//
//   gencatalogue CATALOGUE.txtpb --header FILE --table FILE --manual FILE
//
// Ends with 1 and a message when the catalogue breaks a rule or a file cannot be written.

#include "catalogue.pb.h"

#include <google/protobuf/text_format.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

using lumo::catalogue::Catalogue;
using lumo::catalogue::Parameter;
using lumo::catalogue::ValueSet;

namespace
{

using Sets = std::map<std::string, const ValueSet *>;

/// What happens to the transport, as attributes and as the manual name it.
struct Event {
    const char *attribute;
    const char *name;
};

constexpr Event events[] = {
    {"play_pressed", "play is pressed"},     {"record_pressed", "record is pressed"}, {"stop_pressed", "stop is pressed"},
    {"playback", "playback begins"},         {"record", "recording begins"},          {"standby", "the transport stands by"},
    {"standby_off", "the transport leaves standby"},
};

const char *note = "Made from catalogue/parameters.txtpb by gencatalogue; edit that file.";

std::string quoted(const std::string &text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + '"';
}

std::string hex(unsigned number)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", number);
    return text;
}

bool isNumber(const Parameter &parameter)
{
    return parameter.kind() == Parameter::Unsigned || parameter.kind() == Parameter::Enumerated;
}

/// The names of all value sets; complaints about them go to `wrong`.
Sets checkSets(const Catalogue &catalogue, std::ostream &wrong)
{
    Sets sets;
    for (const ValueSet &valueSet : catalogue.value_set()) {
        const std::string where = "value set " + valueSet.name() + ": ";
        if (valueSet.name().empty() || !sets.emplace(valueSet.name(), &valueSet).second) {
            wrong << where << "no name, or the name of another\n";
        }
        if (valueSet.value().empty()) {
            wrong << where << "no values\n";
        }
        std::set<std::string> names;
        for (int i = 0; i < valueSet.value_size(); i++) {
            const auto &value = valueSet.value(i);
            if (i > 0 && value.number() <= valueSet.value(i - 1).number()) {
                wrong << where << value.number() << " is not above the value before it\n";
            }
            if (value.name().empty() || !names.insert(value.name()).second) {
                wrong << where << value.number() << " has no name, or the name of another\n";
            }
        }
    }
    return sets;
}

bool holds(const ValueSet &valueSet, unsigned number)
{
    for (const auto &value : valueSet.value()) {
        if (value.number() == number) {
            return true;
        }
    }
    return false;
}

void checkDefault(const Parameter &p, const Sets &sets, std::ostream &wrong)
{
    if (p.kind() == Parameter::Enumerated) {
        const auto found = sets.find(p.values());
        if (found == sets.end()) {
            wrong << p.name() << ": no value set " << quoted(p.values()) << "\n";
        } else if (!holds(*found->second, p.default_number())) {
            wrong << p.name() << ": the default " << p.default_number() << " has no name\n";
        }
    } else if (!p.values().empty()) {
        wrong << p.name() << ": a value set, but not enumerated\n";
    }
    if (isNumber(p) ? !p.default_text().empty() : p.default_number() != 0) {
        wrong << p.name() << ": the default is of another kind\n";
    }
    if (p.has_minimum() != p.has_maximum()) {
        wrong << p.name() << ": half a range\n";
    }
    if (p.has_minimum() && (p.kind() != Parameter::Unsigned || p.default_number() < p.minimum() ||
                            p.default_number() > p.maximum())) {
        wrong << p.name() << ": a range that does not fit the kind or the default\n";
    }
}

/// What the event of an attribute is called; empty when it is no attribute.
std::string eventName(const std::string &attribute)
{
    for (const Event &event : events) {
        if (attribute == std::string("raise_on_") + event.attribute ||
            attribute == std::string("clear_on_") + event.attribute) {
            return event.name;
        }
    }
    return {};
}

void checkAttributes(const Parameter &p, std::ostream &wrong)
{
    std::set<std::string> names;
    for (const std::string &attribute : p.attribute()) {
        if (eventName(attribute).empty()) {
            wrong << p.name() << ": unknown attribute " << attribute << "\n";
        }
        const bool isClear = attribute.rfind("clear", 0) == 0;
        const std::string opposite = (isClear ? "raise" : "clear") + attribute.substr(std::min<std::size_t>(5, attribute.size()));
        if (!names.insert(attribute).second || names.count(opposite)) {
            wrong << p.name() << ": " << attribute << " twice, or with its opposite\n";
        }
    }
}

void checkParameter(const Parameter &p, const Sets &sets, std::ostream &wrong)
{
    const std::string prefix = "eParam";
    if (p.name().size() <= prefix.size() || p.name().compare(0, prefix.size(), prefix) != 0 ||
        p.name().find_first_not_of(
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789") !=
            std::string::npos) {
        wrong << quoted(p.name()) << ": not a name\n";
    }
    if (p.number() == 0 || p.description().empty() || p.kind() == Parameter::Unset ||
        p.writer() == Parameter::Nobody) {
        wrong << p.name() << ": number, description, kind or writer is missing\n";
    }
    if (p.momentary() && p.persistent()) {
        wrong << p.name() << ": momentary and persistent\n";
    }
    if (p.kind() != Parameter::Alarm && p.attribute_size() > 0) {
        wrong << p.name() << ": attributes, but not an alarm\n";
    }
    if (!p.unit().empty() && p.kind() != Parameter::Unsigned) {
        wrong << p.name() << ": a unit, but not unsigned\n";
    }
    checkAttributes(p, wrong);
    checkDefault(p, sets, wrong);
}

std::string check(const Catalogue &catalogue)
{
    std::ostringstream wrong;
    const Sets sets = checkSets(catalogue, wrong);
    std::set<std::string> names;
    std::set<std::string> used;
    unsigned before = 0;
    for (const Parameter &parameter : catalogue.parameter()) {
        checkParameter(parameter, sets, wrong);
        used.insert(parameter.values());
        if (!names.insert(parameter.name()).second) {
            wrong << parameter.name() << ": twice\n";
        }
        if (parameter.number() <= before) {
            wrong << parameter.name() << ": its number is not above the one before it\n";
        }
        before = parameter.number();
    }
    for (const auto &[name, valueSet] : sets) {
        if (!used.count(name)) {
            wrong << "value set " << name << ": not used\n";
        }
    }
    return wrong.str();
}

std::string header(const Catalogue &catalogue)
{
    std::ostringstream out;
    out << "#pragma once\n\n// " << note << "\n\n"
        << "/// The numbers of all parameters. Any other number is a legal value that has no "
           "name.\n"
        << "enum eParam_t : unsigned int {\n";
    for (const Parameter &parameter : catalogue.parameter()) {
        out << "    " << parameter.name() << " = " << hex(parameter.number()) << ", ///< "
            << parameter.description() << "\n";
    }
    out << "};\n";
    return out.str();
}

const char *kindName(const Parameter &parameter)
{
    switch (parameter.kind()) {
    case Parameter::Unsigned:
        return "Unsigned";
    case Parameter::Enumerated:
        return "Enumerated";
    case Parameter::String:
        return "String";
    case Parameter::Data:
        return "Data";
    default:
        return "Alarm";
    }
}

const char *writerName(const Parameter &parameter)
{
    switch (parameter.writer()) {
    case Parameter::Clients:
        return "Clients";
    case Parameter::Daemon:
        return "Daemon";
    default:
        return "MediaService";
    }
}

void tableRow(const Parameter &p, std::ostream &out)
{
    const char *yes[] = {"false", "true"};
    const unsigned maximum = p.has_maximum() ? p.maximum() : 0xffffffffu;
    out << "    {" << p.name() << ", " << quoted(p.name()) << ", " << quoted(p.description())
        << ", ParamKind::" << kindName(p) << ", "
        << (p.kind() == Parameter::Enumerated ? "values" + p.values() : "{}") << ", "
        << p.default_number() << "u, " << quoted(p.default_text()) << ", " << p.minimum() << "u, "
        << maximum << "u, ParamWriter::" << writerName(p) << ", " << yes[p.persistent()] << ", "
        << yes[p.momentary()] << ", " << yes[p.resets_with_writer()] << ", "
        << (p.attribute_size() ? "attributes" + p.name() : "{}") << ", " << quoted(p.unit()) << "},\n";
}

std::string table(const Catalogue &catalogue)
{
    std::ostringstream out;
    out << "// " << note << "\n\n#include \"libconfig/parametertable.h\"\n\nnamespace\n{\n";
    for (const ValueSet &valueSet : catalogue.value_set()) {
        out << "\nconst ParamValueName values" << valueSet.name() << "[] = {\n";
        for (const auto &value : valueSet.value()) {
            out << "    {" << value.number() << ", " << quoted(value.name()) << "},\n";
        }
        out << "};\n";
    }
    for (const Parameter &parameter : catalogue.parameter()) {
        if (parameter.attribute_size() == 0) {
            continue;
        }
        out << "\nconst char *const attributes" << parameter.name() << "[] = {\n";
        for (const std::string &attribute : parameter.attribute()) {
            out << "    " << quoted(attribute) << ",\n";
        }
        out << "};\n";
    }
    out << "\nconst ParamRow rows[] = {\n";
    for (const Parameter &parameter : catalogue.parameter()) {
        tableRow(parameter, out);
    }
    out << "};\n\n} // namespace\n\nstd::span<const ParamRow> parameterRows()\n{\n    return "
           "rows;\n}\n";
    return out.str();
}

std::string manualDefault(const Parameter &p, const Sets &sets)
{
    if (!isNumber(p)) {
        return p.default_text().empty() ? "empty" : quoted(p.default_text());
    }
    if (p.kind() == Parameter::Enumerated) {
        for (const auto &value : sets.at(p.values())->value()) {
            if (value.number() == p.default_number()) {
                return value.name();
            }
        }
    }
    return std::to_string(p.default_number());
}

std::string manualKind(const Parameter &p)
{
    if (p.kind() == Parameter::Enumerated) {
        std::string anchor = p.values();
        for (char &c : anchor) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        return "[" + p.values() + "](#" + anchor + ")";
    }
    std::string kind = kindName(p);
    if (p.has_minimum()) {
        kind += " " + std::to_string(p.minimum()) + " to " + std::to_string(p.maximum());
    }
    if (!p.unit().empty()) {
        kind += ", " + p.unit();
    }
    return kind;
}

/// The events of a parameter's attributes of one kind, in words.
std::string eventsOf(const Parameter &p, const std::string &prefix)
{
    std::string text;
    for (const std::string &attribute : p.attribute()) {
        if (attribute.rfind(prefix, 0) == 0) {
            text += (text.empty() ? "" : " or ") + eventName(attribute);
        }
    }
    return text;
}

void alarmManual(const Catalogue &catalogue, std::ostream &out)
{
    out << "\n# Alarms\n\n"
        << "When the recorder shows an alarm that was reported to it, and what clears it. The end of its cause, "
           "when that is\nreported, clears every alarm. What waits (`raise_on_...`) is shown again each time, until "
           "its cause has ended. What an event\nclears (`clear_on_...`) comes back only when it is reported again; "
           "those are the alarms of things that happened once.\n\n"
        << "| Alarm | Meaning | Shown | Cleared | Attributes |\n|---|---|---|---|---|\n";
    for (const Parameter &p : catalogue.parameter()) {
        if (p.kind() != Parameter::Alarm) {
            continue;
        }
        const std::string raised = eventsOf(p, "raise_on_");
        const std::string cleared = eventsOf(p, "clear_on_");
        out << "| `" << p.name() << "` | " << p.description() << " | " << (raised.empty() ? "at once" : "when " + raised)
            << " | " << (cleared.empty() ? "when its cause ends" : "when " + cleared + ", or its cause ends") << " |";
        for (int i = 0; i < p.attribute_size(); i++) {
            out << (i ? ", `" : " `") << p.attribute(i) << "`";
        }
        out << " |\n";
    }
}

std::string manual(const Catalogue &catalogue)
{
    Sets sets;
    for (const ValueSet &valueSet : catalogue.value_set()) {
        sets[valueSet.name()] = &valueSet;
    }
    std::ostringstream out;
    out << "# Parameters\n\n"
        << note << "\n\n"
        << "Kept: the store keeps the value over a restart. Momentary: a command or notice; every "
           "set is "
           "an event\nof its own. The command line takes names without `eParam`, in any case.\n\n"
        << "| Number | Name | Kind | Default | Set by | | Meaning "
           "|\n|---|---|---|---|---|---|---|\n";
    for (const Parameter &p : catalogue.parameter()) {
        out << "| " << hex(p.number()) << " | `" << p.name() << "` | " << manualKind(p) << " | "
            << manualDefault(p, sets) << " | " << writerName(p) << " | "
            << (p.persistent()  ? "kept"
                : p.momentary() ? "momentary"
                                : "")
            << " | " << p.description() << " |\n";
    }
    alarmManual(catalogue, out);
    out << "\n# Values\n";
    for (const ValueSet &valueSet : catalogue.value_set()) {
        out << "\n## " << valueSet.name() << "\n\n| Value | Name |\n|---|---|\n";
        for (const auto &value : valueSet.value()) {
            out << "| " << value.number() << " | " << value.name() << " |\n";
        }
    }
    return out.str();
}

bool write(const std::string &path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) {
        std::fprintf(stderr, "gencatalogue: cannot write %s\n", path.c_str());
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2 || argc % 2 != 0) {
        std::fprintf(stderr, "usage: gencatalogue CATALOGUE [--header|--table|--manual FILE]...\n");
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    Catalogue catalogue;
    if (!file || !google::protobuf::TextFormat::ParseFromString(text.str(), &catalogue)) {
        std::fprintf(stderr, "gencatalogue: cannot read %s\n", argv[1]);
        return 1;
    }
    const std::string wrong = check(catalogue);
    if (!wrong.empty()) {
        std::fprintf(stderr, "%s", wrong.c_str());
        return 1;
    }
    bool written = true;
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string what = argv[i];
        if (what == "--header") {
            written = write(argv[i + 1], header(catalogue)) && written;
        } else if (what == "--table") {
            written = write(argv[i + 1], table(catalogue)) && written;
        } else if (what == "--manual") {
            written = write(argv[i + 1], manual(catalogue)) && written;
        } else {
            std::fprintf(stderr, "gencatalogue: unknown option %s\n", argv[i]);
            return 2;
        }
    }
    return written ? 0 : 1;
}
