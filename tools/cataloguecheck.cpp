#include "tools/catalogue.h"

#include <google/protobuf/text_format.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

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

std::string quoted(const std::string &text)
{
    return '"' + text + '"';
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

} // namespace

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

std::optional<Catalogue> parseCatalogue(const std::string &text, std::string &wrong)
{
    Catalogue catalogue;
    if (!google::protobuf::TextFormat::ParseFromString(text, &catalogue)) {
        wrong = "the text is no catalogue\n";
        return std::nullopt;
    }
    wrong = check(catalogue);
    return wrong.empty() ? std::optional(catalogue) : std::nullopt;
}
