#include "services/rvctl/describe.h"

#include "services/rvctl/names.h"

#include <cstdio>
#include <vector>

namespace
{

/// What happens to the transport: as attributes name it, and in words.
struct Event {
    const char *attribute;
    const char *words;
};

constexpr Event events[] = {
    {"play_pressed", "play is pressed"},       {"record_pressed", "record is pressed"},
    {"stop_pressed", "stop is pressed"},       {"playback", "playback begins"},
    {"record", "recording begins"},            {"standby", "the transport stands by"},
    {"standby_off", "the transport leaves standby"},
};

std::string eventsOf(const ParamDescriptor &descriptor, const std::string &prefix)
{
    std::string text;
    for (const Event &event : events) {
        if (descriptor.attributes().has(prefix + event.attribute)) {
            text += (text.empty() ? "" : " or ") + std::string(event.words);
        }
    }
    return text;
}

const char *writerText(ParamWriter writer)
{
    switch (writer) {
    case ParamWriter::Clients:
        return "clients";
    case ParamWriter::Daemon:
        return "the transport daemon";
    case ParamWriter::MediaService:
        return "the media service";
    }
    return "";
}

const char *lastingText(const ParamDescriptor &descriptor)
{
    if (descriptor.isMomentary()) {
        return "momentary: every set is an event, none is remembered";
    }
    return descriptor.isPersistent() ? "kept over a restart" : "not kept";
}

std::string hexNumber(const ParamDescriptor &descriptor)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", unsigned(descriptor.id()));
    return text;
}

std::string rangeText(const ParamDescriptor &descriptor)
{
    if (descriptor.kind() == ParamKind::Unsigned) {
        return std::to_string(descriptor.minimum()) + " to " + std::to_string(descriptor.maximum()) +
               (descriptor.unit().empty() ? "" : " " + descriptor.unit());
    }
    return descriptor.isNumber() ? "" : "up to " + std::to_string(maxValueBytes) + " bytes";
}

std::string defaultText(const ParamDescriptor &descriptor)
{
    if (descriptor.kind() == ParamKind::Alarm) {
        return "clear";
    }
    const std::string text = valueText(descriptor, descriptor.defaultValue());
    return descriptor.isNumber() ? text : "\"" + text + "\"";
}

std::string row(const std::string &label, const std::string &text)
{
    return text.empty() ? "" : label + std::string(label.size() < 11 ? 11 - label.size() : 1, ' ') + text + "\n";
}

/// A word of a shell that stands for exactly this text.
std::string shellWord(const std::string &text)
{
    std::string out = "'";
    for (const char c : text) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

} // namespace

std::string alarmPolicy(const ParamDescriptor &descriptor)
{
    if (descriptor.kind() != ParamKind::Alarm) {
        return {};
    }
    const std::string raised = eventsOf(descriptor, "raise_on_");
    const std::string cleared = eventsOf(descriptor, "clear_on_");
    return (raised.empty() ? "shown at once" : "waits, and is shown when " + raised) + "; cleared when " +
           (cleared.empty() ? "" : cleared + ", or ") + "its cause ends";
}

std::string descriptionText(const ParamDescriptor &descriptor)
{
    std::string text = row("Name", descriptor.name()) + row("Number", hexNumber(descriptor)) +
                       row("Meaning", descriptor.description()) + row("Kind", kindName(descriptor)) +
                       row("Range", rangeText(descriptor)) + row("Default", defaultText(descriptor)) +
                       row("Set by", writerText(descriptor.writer())) + row("Lasting", lastingText(descriptor));
    if (descriptor.resetsWithWriter()) {
        text += row("Reset", "to its default when the program that set it is lost");
    }
    text += row("Policy", alarmPolicy(descriptor));
    std::string label = "Values";
    for (const ParamValueName &value : descriptor.values()) {
        char number[16];
        std::snprintf(number, sizeof number, "%3u  ", unsigned(value.value));
        text += row(label, number + std::string(value.name));
        label = " ";
    }
    return text;
}

std::string descriptionMembers(const ParamDescriptor &descriptor)
{
    const char *isKept = descriptor.isPersistent() ? "true" : "false";
    const char *isMomentary = descriptor.isMomentary() ? "true" : "false";
    std::string text = ", \"name\": " + jsonString(descriptor.name()) + ", \"number\": " +
                       jsonString(hexNumber(descriptor)) + ", \"kind\": " + jsonString(kindName(descriptor)) +
                       ", \"meaning\": " + jsonString(descriptor.description()) +
                       ", \"default\": " + jsonValue(descriptor, descriptor.defaultValue()) +
                       ", \"writer\": " + jsonString(writerText(descriptor.writer())) + ", \"kept\": " + isKept +
                       ", \"momentary\": " + isMomentary;
    if (descriptor.kind() == ParamKind::Unsigned) {
        text += ", \"minimum\": " + std::to_string(descriptor.minimum()) +
                ", \"maximum\": " + std::to_string(descriptor.maximum()) +
                ", \"unit\": " + jsonString(descriptor.unit());
    }
    const auto list = [&text](const char *name, const auto &items, auto textOf) {
        text += std::string(", \"") + name + "\": [";
        const char *between = "";
        for (const auto &item : items) {
            text += between + textOf(item);
            between = ", ";
        }
        text += "]";
    };
    if (!descriptor.values().empty()) {
        list("values", descriptor.values(), [](const ParamValueName &value) {
            return "{\"value\": " + std::to_string(value.value) + ", \"name\": " + jsonString(value.name) + "}";
        });
    }
    if (descriptor.kind() == ParamKind::Alarm) {
        list("attributes", descriptor.attributes().names(), [](const char *name) { return jsonString(name); });
        text += ", \"policy\": " + jsonString(alarmPolicy(descriptor));
    }
    return text;
}

std::string bashCompletion(std::span<const std::string> commands)
{
    std::string out = "# Completion for rvctl in bash:  source <(rvctl completion bash)\n"
                      "_rvctl()\n"
                      "{\n"
                      "    local current=${COMP_WORDS[COMP_CWORD]} command= name= i\n"
                      "    local IFS=$'\\n'\n"
                      "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
                      "        case ${COMP_WORDS[i]} in\n"
                      "            --timeout) ((i++)) ;;\n"
                      "            --*) ;;\n"
                      "            *) if [ -z \"$command\" ]; then command=${COMP_WORDS[i]}\n"
                      "               else name=${COMP_WORDS[i]}; fi ;;\n"
                      "        esac\n"
                      "    done\n"
                      "    local choices=()\n"
                      "    case $command in\n"
                      "        '') choices=(";
    for (const std::string &command : commands) {
        out += shellWord(command) + " ";
    }
    out += "--json --wait --timeout --name --help) ;;\n"
           "        completion) choices=(bash) ;;\n"
           "        clips) choices=(all) ;;\n"
           "        rollover) choices=(on off) ;;\n"
           "        playlist) if [ -z \"$name\" ]; then choices=(append insert move remove clear); fi ;;\n"
           "        eject) local slot; for slot in {1..16}; do\n"
           "                   local told=$(rvctl get MediaSlot$slot 2>/dev/null)\n"
           "                   if [ -z \"$told\" ]; then break; fi\n"
           "                   choices+=(\"${told#* * * * }\")\n"
           "               done ;;\n"
           "        import) COMPREPLY=($(compgen -f -- \"$current\")); return ;;\n"
           "        get|describe|watch|list) choices=($(_rvctl_names)) ;;\n"
           "        set) if [ -z \"$name\" ]; then choices=($(_rvctl_names))\n"
           "             else choices=($(_rvctl_values \"$name\")); fi ;;\n"
           "    esac\n"
           "    COMPREPLY=()\n"
           "    local choice\n"
           "    for choice in \"${choices[@]}\"; do\n"
           "        # What was typed may be quoted already; names are compared in any case.\n"
           "        local typed=${current//\\\\/}; typed=${typed#[\\'\\\"]}\n"
           "        if [[ ${choice,,} == \"${typed,,}\"* ]]; then COMPREPLY+=(\"$(printf %q \"$choice\")\"); fi\n"
           "    done\n"
           "}\n"
           "_rvctl_names()\n"
           "{\n"
           "    printf '%s\\n'";
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        out += " " + shortName(*descriptor);
    }
    out += "\n}\n"
           "_rvctl_values()\n"
           "{\n"
           "    local name=${1,,}\n"
           "    case ${name#eparam} in\n";
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        if (descriptor->values().empty()) {
            continue;
        }
        out += "        " + lowerText(shortName(*descriptor)) + ") printf '%s\\n'";
        for (const ParamValueName &value : descriptor->values()) {
            out += " " + shellWord(value.name);
        }
        out += " ;;\n";
    }
    return out + "    esac\n"
                 "}\n"
                 "complete -F _rvctl rvctl\n";
}
