#include "tools/catalogue.h"

#include <cstdio>
#include <map>
#include <sstream>

using lumo::catalogue::Catalogue;
using lumo::catalogue::Parameter;
using lumo::catalogue::ValueSet;

namespace
{

using Sets = std::map<std::string, const ValueSet *>;

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

} // namespace

std::string catalogueHeader(const Catalogue &catalogue)
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

namespace
{

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

} // namespace

std::string catalogueTable(const Catalogue &catalogue)
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

namespace
{

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

} // namespace

std::string catalogueManual(const Catalogue &catalogue)
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
