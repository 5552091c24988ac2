#include "services/rvctl/report.h"

#include "libmessages/alarm.h"
#include "libvanta/shmstring.h"
#include "services/rvctl/names.h"
#include "services/rvctl/plaintext.h"

#include <algorithm>
#include <csignal>
#include <cstdio>

#include <time.h>

namespace
{

/// A text that the daemon keeps in shared memory for every frame; empty when there is none.
std::string sharedText(const char *name)
{
    ShmString text(name);
    return text.open() ? text.read() : std::string();
}

std::string jsonMembers(const ParamDescriptor &descriptor, const ParamValue &value)
{
    char number[16];
    std::snprintf(number, sizeof number, "0x%08x", unsigned(descriptor.id()));
    return "\"name\": " + jsonString(descriptor.name()) + ", \"number\": \"" + number +
           "\", \"kind\": \"" + kindName(descriptor) +
           "\", \"value\": " + jsonValue(descriptor, value) +
           ", \"text\": " + jsonString(valueText(descriptor, value));
}

struct ActiveAlarm {
    std::string name;
    std::string text;
    lumo::alarms::Alarm alarm;
    timeval since;
    eParam_t id;
};

std::vector<ActiveAlarm> activeAlarms(Session &session)
{
    std::vector<ActiveAlarm> active;
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        lumo::alarms::Alarm alarm;
        if (descriptor->kind() == ParamKind::Alarm &&
            alarm.ParseFromString(session.text(descriptor->id())) && alarm.active()) {
            active.push_back({shortName(*descriptor), descriptor->description(), alarm,
                              session.store().when(descriptor->id()), descriptor->id()});
        }
    }
    return active;
}

/// A line of the status: its name for people and for machines, and the parameter.
struct StatusLine {
    const char *label;
    const char *member;
    eParam_t id;
};

constexpr StatusLine statusLines[] = {
    {"Transport", "state", eParamTransportState},
    {"Clip", "clip", eParamCurrentClip},
    {"Recording", "recordClip", eParamRecordClipName},
    {"Input format", "inputFormat", eParamInputFormat},
    {"Record format", "recordFormat", eParamRecordFormat},
    {"Media format", "mediaFormat", eParamMediaFormat},
    {"Encode type", "encodeType", eParamEncodeType},
    {"Storage", "storage", eParamStorageInUse},
    {"Medium", "activePath", eParamActivePath},
    {"Next medium", "rolloverPath", eParamRolloverPath},
    {"Capture queue", "captureQueue", eParamCaptureQueue},
    {"Coding, ms", "codingTimeMs", eParamCodingTime},
    {"Longest, ms", "worstCodingTimeMs", eParamWorstCodingTime},
    {"Late frames", "lateFrames", eParamLateFrames},
};

void printStatusJson(Session &session, bool isRunning)
{
    std::printf("{\"ok\": %s, \"running\": %s", isRunning ? "true" : "false",
                isRunning ? "true" : "false");
    for (const StatusLine &line : statusLines) {
        const bool isText = GetDescriptor(line.id)->kind() == ParamKind::String;
        const std::string value = isText ? session.text(line.id) : session.shown(line.id);
        std::printf(", \"%s\": %s", line.member, jsonString(value).c_str());
    }
    std::printf(", \"stateNumber\": %u, \"timecode\": %s, \"inputTimecode\": %s, \"alarms\": [",
                session.number(eParamTransportState),
                jsonString(sharedText("/rvd_currentTimecode")).c_str(),
                jsonString(sharedText("/rvd_inputTimecode")).c_str());
    const char *between = "";
    for (const ActiveAlarm &alarm : activeAlarms(session)) {
        const bool isWarning = alarm.alarm.severity() == lumo::alarms::Alarm_WARNING;
        std::printf("%s{\"name\": %s, \"severity\": \"%s\", \"message\": %s}", between,
                    jsonString(alarm.name).c_str(), isWarning ? "warning" : "error",
                    jsonString(alarm.alarm.message()).c_str());
        between = ", ";
    }
    std::printf("]}\n");
}

void printStatusText(Session &session)
{
    for (const StatusLine &line : statusLines) {
        const std::string value = session.shown(line.id);
        std::printf("%-15s%s\n", line.label, value.empty() ? "-" : value.c_str());
        if (line.id == eParamCurrentClip) {
            const std::string timecode = sharedText("/rvd_currentTimecode");
            const std::string input = sharedText("/rvd_inputTimecode");
            std::printf("%-15s%s\n", "Timecode", timecode.empty() ? "-" : timecode.c_str());
            std::printf("%-15s%s\n", "Input timecode", input.empty() ? "-" : input.c_str());
        }
    }
    const auto alarms = activeAlarms(session);
    std::printf("%-15s%s", "Alarms", alarms.empty() ? "none\n" : "");
    for (std::size_t i = 0; i < alarms.size(); i++) {
        const std::string bytes = alarms[i].alarm.SerializeAsString();
        std::printf("%*s%s (%s) %s\n", i ? 15 : 0, "", alarms[i].name.c_str(),
                    alarms[i].text.c_str(),
                    valueText(*GetDescriptor(eParamAlarm1901), bytes).c_str());
    }
}

/// Prints changes on the client's thread.
class ChangePrinter : public ConfigEventListener
{
public:
    using ConfigEventListener::ParamChanged;

    ChangePrinter(const std::set<eParam_t> &wanted, bool json) : _wanted(wanted), _json(json) {}

    void ParamChanged(ConfigEvent event) override
    {
        const ParamDescriptor *descriptor = GetDescriptor(event.id);
        if (!descriptor || (!_wanted.empty() && !_wanted.count(event.id))) {
            return;
        }
        if (_json) {
            std::printf("{%s, \"seconds\": %lld, \"microseconds\": %ld}\n",
                        jsonMembers(*descriptor, event.value).c_str(),
                        static_cast<long long>(event.when.tv_sec),
                        static_cast<long>(event.when.tv_usec));
        } else {
            tm local{};
            localtime_r(&event.when.tv_sec, &local);
            std::printf("%02d:%02d:%02d.%03ld  %s = %s\n", local.tm_hour, local.tm_min,
                        local.tm_sec, static_cast<long>(event.when.tv_usec / 1000),
                        shortName(*descriptor).c_str(),
                        valueText(*descriptor, event.value).c_str());
        }
        std::fflush(stdout);
    }

private:
    const std::set<eParam_t> &_wanted;
    bool _json;
};

} // namespace

int reportValue(Session &session, const ParamDescriptor &descriptor)
{
    const ParamValue value = *session.store().value(descriptor.id());
    if (session.options().json) {
        return session.succeed(", " + jsonMembers(descriptor, value));
    }
    std::printf("%s\n", valueText(descriptor, value).c_str());
    return Done;
}

int reportList(Session &session, const std::string &pattern)
{
    const char *between = "[\n  ";
    int found = 0;
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        if (lowerText(descriptor->name()).find(lowerText(pattern)) == std::string::npos) {
            continue;
        }
        found++;
        const ParamValue value = *session.store().value(descriptor->id());
        if (session.options().json) {
            std::printf("%s{%s}", between, jsonMembers(*descriptor, value).c_str());
            between = ",\n  ";
        } else {
            std::printf("0x%08x  %-24s  %s\n", unsigned(descriptor->id()),
                        shortName(*descriptor).c_str(), valueText(*descriptor, value).c_str());
        }
    }
    if (session.options().json) {
        std::printf(found ? "\n]\n" : "[]\n");
        return Done;
    }
    return found ? int(Done)
                 : session.fail(Failed, "no parameter's name contains \"" + pattern + "\"");
}

int reportAlarms(Session &session)
{
    const auto alarms = activeAlarms(session);
    if (session.options().json) {
        std::printf("{\"ok\": true, \"alarms\": [");
    }
    const char *between = "";
    for (const ActiveAlarm &active : alarms) {
        const bool isWarning = active.alarm.severity() == lumo::alarms::Alarm_WARNING;
        const ParamDescriptor &descriptor = *GetDescriptor(active.id);
        if (session.options().json) {
            std::printf("%s{\"name\": %s, \"severity\": \"%s\", \"meaning\": %s, \"message\": %s, "
                        "\"sinceSeconds\": %lld, \"sinceMicroseconds\": %ld}",
                        between, jsonString(descriptor.name()).c_str(), isWarning ? "warning" : "error",
                        jsonString(active.text).c_str(), jsonString(active.alarm.message()).c_str(),
                        static_cast<long long>(active.since.tv_sec), static_cast<long>(active.since.tv_usec));
            between = ", ";
            continue;
        }
        tm local{};
        localtime_r(&active.since.tv_sec, &local);
        char since[32];
        std::strftime(since, sizeof since, "%Y-%m-%d %H:%M:%S", &local);
        std::printf("%-10s %-7s since %s  %s", active.name.c_str(), isWarning ? "warning" : "error", since,
                    active.text.c_str());
        const std::string message = printable(active.alarm.message());
        std::printf("%s%s\n", message.empty() ? "" : " ", message.c_str());
    }
    if (session.options().json) {
        std::printf("]}\n");
    } else if (alarms.empty()) {
        std::printf("no alarm is raised\n");
    }
    return alarms.empty() ? Done : Failed;
}

int reportStatus(Session &session)
{
    const bool isRunning = session.number(eParamTransportRunning) == 1;
    if (session.options().json) {
        printStatusJson(session, isRunning);
    } else if (isRunning) {
        printStatusText(session);
    } else {
        session.fail(NotRunning, "the recorder is not running");
    }
    return isRunning ? Done : NotRunning;
}

int reportChanges(Session &session, const std::set<eParam_t> &wanted)
{
    // Blocked in main() before any thread was made, so that only the wait below sees them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    ChangePrinter printer(wanted, session.options().json);
    session.store().addListener(&printer);
    if (session.options().isTimed) {
        const auto ms = session.options().timeout.count();
        const timespec timeout{static_cast<time_t>(ms / 1000),
                               static_cast<long>(ms % 1000) * 1000000};
        sigtimedwait(&ends, nullptr, &timeout);
    } else {
        sigwaitinfo(&ends, nullptr);
    }
    session.store().removeListener(&printer);
    return Done;
}
