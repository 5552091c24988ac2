#include "services/rvctl/commands.h"

#include "services/rvctl/cliplists.h"
#include "services/rvctl/describe.h"
#include "services/rvctl/mediareport.h"
#include "services/rvctl/names.h"
#include "services/rvctl/report.h"
#include "services/rvctl/settings.h"

#include <charconv>
#include <chrono>
#include <functional>
#include <span>

namespace
{

using Words = std::span<const std::string>;
constexpr std::uint32_t maxSteps = 1000;
constexpr std::uint32_t stepsAtOnce = 32;

int tellWaited(Session &session, Waiter::Result result, const std::string &wanted)
{
    switch (result) {
    case Waiter::Result::Met:
        return session.succeed(", \"state\": " + jsonString(session.shown(eParamTransportState)));
    case Waiter::Result::StoreLost:
        return session.fail(NotRunning, "the parameter store is lost");
    case Waiter::Result::TimedOut:
        break;
    }
    return session.fail(Failed, "not " + wanted + " in time; the transport is in " +
                                    session.shown(eParamTransportState));
}

/// Whether a command may be given again while its state has not come: one that says where to go may, one
/// that moves on from where the transport is may not.
enum class Again { Never, WhileRefused };

/// The recorder refuses a command while another is being carried out, and queues none.
constexpr std::chrono::milliseconds pausesBetween[] = {std::chrono::milliseconds(100),
                                                       std::chrono::milliseconds(200),
                                                       std::chrono::milliseconds(400),
                                                       std::chrono::milliseconds(800)};

/// Send a value and, if asked to, wait for what it brings about.
int sendAndWait(Session &session, eParam_t id, const ParamValue &value, const std::string &wanted,
                const std::function<bool()> &isMet, Again again = Again::Never)
{
    Waiter waiter(session.store());
    int code = session.send(id, value);
    if (code != Done) {
        return code;
    }
    if (!session.options().wait) {
        return session.succeed();
    }
    auto left = session.options().timeout;
    if (again == Again::WhileRefused) {
        for (const auto pause : pausesBetween) {
            if (pause >= left) {
                break;
            }
            if (waiter.waitFor(isMet, pause) != Waiter::Result::TimedOut) {
                break;
            }
            left -= pause;
            code = session.send(id, value);
            if (code != Done) {
                return code;
            }
        }
    }
    return tellWaited(session, waiter.waitFor(isMet, left), wanted);
}

/// A transport key: its command, and the transport states that it leads to.
struct Key {
    const char *word;
    std::uint32_t command;
    std::span<const std::uint32_t> states;
    Again again;
};

constexpr std::uint32_t playStates[] = {3};
constexpr std::uint32_t recordStates[] = {2};
constexpr std::uint32_t stopStates[] = {1, 15};
constexpr std::uint32_t forwardStates[] = {4, 5, 6, 7};
constexpr std::uint32_t reverseStates[] = {10, 11, 12, 13};

constexpr Key keys[] = {
    {"play", 1, playStates, Again::WhileRefused},
    {"record", 3, recordStates, Again::WhileRefused},
    {"stop", 4, stopStates, Again::Never},
    {"ff", 5, forwardStates, Again::Never},
    {"rew", 6, reverseStates, Again::Never},
};

bool isIn(Session &session, std::span<const std::uint32_t> states)
{
    const std::uint32_t state = session.number(eParamTransportState);
    return std::ranges::find(states, state) != states.end();
}

int pressKey(Session &session, const Key &key)
{
    if (!session.connectToRecorder()) {
        return NotRunning;
    }
    const std::string wanted =
        GetDescriptor(eParamTransportState)->valueName(static_cast<int>(key.states.front()));
    return sendAndWait(session, eParamTransportCommand, key.command, "in " + wanted,
                       [&] { return isIn(session, key.states); }, key.again);
}

int step(Session &session, Words words)
{
    const std::string text = words[0].starts_with('+') ? words[0].substr(1) : words[0];
    int count = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), count);
    const auto frames = static_cast<std::uint32_t>(count < 0 ? -std::int64_t(count) : count);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || frames == 0 ||
        frames > maxSteps) {
        return session.fail(Usage, "step takes a number of frames from -1000 to +1000, not 0");
    }
    if (!session.connectToRecorder()) {
        return NotRunning;
    }
    for (std::uint32_t i = 0; i + 1 < frames; i++) {
        const bool isSet = session.store().set(eParamTransportCommand, count > 0 ? 7u : 8u);
        if (!isSet || (i % stepsAtOnce == 0 &&
                       !session.store().flush(session.options().timeout).isComplete)) {
            return session.fail(NotRunning, "the parameter store is lost");
        }
    }
    constexpr static std::uint32_t still[] = {15};
    return sendAndWait(session, eParamTransportCommand, count > 0 ? 7u : 8u, "in Still",
                       [&] { return isIn(session, still); });
}

int goRelative(Session &session, std::uint32_t command)
{
    if (!session.connectToRecorder()) {
        return NotRunning;
    }
    const std::string before = session.text(eParamCurrentClip);
    return sendAndWait(session, eParamTransportCommand, command, "at another clip",
                       [&] { return session.text(eParamCurrentClip) != before; });
}

int goTo(Session &session, Words words)
{
    if (!session.connectToRecorder()) {
        return NotRunning;
    }
    const auto index = parseNumber(words[0]);
    if (index && !session.options().byName) {
        if (GetDescriptor(eParamGotoClipIndex)->check(*index) != ValueError::None) {
            return session.fail(Usage, "no clip has the index " + words[0]);
        }
        return sendAndWait(session, eParamGotoClipIndex, *index, "at clip " + words[0],
                           [&] { return session.number(eParamCurrentPlayListIndex) == *index; });
    }
    return sendAndWait(session, eParamGotoClipName, words[0], "at clip " + words[0],
                       [&] { return session.text(eParamCurrentClip) == words[0]; });
}

int standbyOff(Session &session)
{
    if (!session.connectToRecorder()) {
        return NotRunning;
    }
    constexpr static std::uint32_t off[] = {1};
    return sendAndWait(session, eParamGotoClipName, std::string("N/A"), "in Standby Off",
                       [&] { return isIn(session, off); }, Again::WhileRefused);
}

int shutDown(Session &session)
{
    if (!session.connectToRecorder()) {
        return NotRunning;
    }
    return sendAndWait(session, eParamTransportCommand, 15u, "shut down",
                       [&] { return session.number(eParamTransportRunning) != 1; });
}

int get(Session &session, Words words)
{
    std::string problem;
    const ParamDescriptor *descriptor = findParameter(words[0], problem);
    if (!descriptor) {
        return session.fail(Failed, problem);
    }
    return session.connect() ? reportValue(session, *descriptor) : NotRunning;
}

int set(Session &session, Words words)
{
    std::string problem;
    const ParamDescriptor *descriptor = findParameter(words[0], problem);
    if (!descriptor) {
        return session.fail(Failed, problem);
    }
    const auto value = parseValue(*descriptor, words[1], problem);
    if (!value) {
        return session.fail(Failed, problem);
    }
    if (!session.connect()) {
        return NotRunning;
    }
    const int code = session.send(descriptor->id(), *value);
    return code == Done ? session.succeed() : code;
}

int clips(Session &session, Words words)
{
    if (!words.empty() && words[0] != "all") {
        return session.fail(Usage, "clips takes \"all\" or nothing");
    }
    return session.connect() ? reportClips(session, !words.empty()) : NotRunning;
}

int playList(Session &session, Words words)
{
    const auto act = [&] { return words.empty() ? reportPlayList(session) : editPlayList(session, words); };
    return session.connect() ? act() : NotRunning;
}

int rollOver(Session &session, Words words)
{
    if (words[0] != "on" && words[0] != "off") {
        return session.fail(Usage, "rollover takes \"on\" or \"off\"");
    }
    if (!session.connect()) {
        return NotRunning;
    }
    const int code = session.send(eParamRolloverEnable, words[0] == "on" ? 1u : 0u);
    return code == Done ? session.succeed() : code;
}

int list(Session &session, Words words)
{
    return session.connect() ? reportList(session, words.empty() ? "" : words[0]) : NotRunning;
}

int watch(Session &session, Words words)
{
    std::set<eParam_t> wanted;
    for (const std::string &word : words) {
        std::string problem;
        const ParamDescriptor *descriptor = findParameter(word, problem);
        if (!descriptor) {
            return session.fail(Failed, problem);
        }
        wanted.insert(descriptor->id());
    }
    return session.connect() ? reportChanges(session, wanted) : NotRunning;
}

int describe(Session &session, Words words)
{
    std::string problem;
    const ParamDescriptor *descriptor = findParameter(words[0], problem);
    if (!descriptor) {
        return session.fail(Failed, problem);
    }
    if (session.options().json) {
        return session.succeed(descriptionMembers(*descriptor));
    }
    std::fputs(descriptionText(*descriptor).c_str(), stdout);
    return Done;
}

int exportSettings(Session &session, Words)
{
    if (!session.connect()) {
        return NotRunning;
    }
    std::fputs(settingsText([&session](const ParamDescriptor &descriptor) {
                   return *session.store().value(descriptor.id());
               }).c_str(),
               stdout);
    return std::fflush(stdout) == 0 ? Done : session.fail(Failed, "the settings cannot be written");
}

/// The contents of a file, or of standard input for "-"; none when it cannot be read.
std::optional<std::string> contentsOf(const std::string &path)
{
    FILE *file = path == "-" ? stdin : std::fopen(path.c_str(), "re");
    if (!file) {
        return std::nullopt;
    }
    std::string text(maxSettingsBytes + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    const bool isRead = !std::ferror(file);
    if (file != stdin) {
        std::fclose(file);
    }
    return isRead ? std::optional(text) : std::nullopt;
}

int refuseSettings(Session &session, const std::string &path, const std::vector<SettingProblem> &problems)
{
    std::string rows;
    for (const SettingProblem &problem : problems) {
        const std::string where = path + ":" + std::to_string(problem.line) + ": ";
        rows += (rows.empty() ? "" : session.options().json ? "; " : "\nrvctl: ") + where + problem.text;
    }
    return session.fail(Failed, rows + (session.options().json ? "; " : "\nrvctl: ") + "nothing was set");
}

int importSettings(Session &session, Words words)
{
    const auto text = contentsOf(words[0]);
    if (!text) {
        return session.fail(Failed, "cannot read " + words[0]);
    }
    std::vector<SettingProblem> problems;
    const Settings settings = parseSettings(*text, problems);
    if (!problems.empty()) {
        return refuseSettings(session, words[0], problems);
    }
    if (!session.connect()) {
        return NotRunning;
    }
    const int code = session.sendAll(settings);
    if (code != Done) {
        return code;
    }
    const std::string count = std::to_string(settings.size());
    if (!session.options().json) {
        std::printf("%s settings\n", count.c_str());
    }
    return session.succeed(", \"settings\": " + count);
}

int completion(Session &session, Words words);

/// A word of the command line, how many follow it, and what it does.
struct Command {
    const char *word;
    std::size_t least;
    std::size_t most;
    int (*run)(Session &session, Words words);
};

// clang-format off
constexpr Command commands[] = {
    //  word         least most
    {"status",      0, 0,   [](Session &s, Words) { return s.connect() ? reportStatus(s) : int(NotRunning); }},
    {"watch",       0, 100, watch},
    {"list",        0, 1,   list},
    {"get",         1, 1,   get},
    {"set",         2, 2,   set},
    {"describe",    1, 1,   describe},
    {"export",      0, 0,   exportSettings},
    {"import",      1, 1,   importSettings},
    {"alarms",      0, 0,   [](Session &s, Words) { return s.connect() ? reportAlarms(s) : int(NotRunning); }},
    {"completion",  1, 1,   completion},
    {"clips",       0, 1,   clips},
    {"playlist",    0, 3,   playList},
    {"media",       0, 0,   [](Session &s, Words) { return s.connect() ? reportMedia(s) : int(NotRunning); }},
    {"eject",       0, 1,   [](Session &s, Words w) { return s.connect() ? ejectMedium(s, w) : int(NotRunning); }},
    {"rollover",    1, 1,   rollOver},
    {"play",        0, 0,   [](Session &s, Words) { return pressKey(s, keys[0]); }},
    {"record",      0, 0,   [](Session &s, Words) { return pressKey(s, keys[1]); }},
    {"stop",        0, 0,   [](Session &s, Words) { return pressKey(s, keys[2]); }},
    {"ff",          0, 0,   [](Session &s, Words) { return pressKey(s, keys[3]); }},
    {"rew",         0, 0,   [](Session &s, Words) { return pressKey(s, keys[4]); }},
    {"step",        1, 1,   step},
    {"next",        0, 0,   [](Session &s, Words) { return goRelative(s, 9); }},
    {"prev",        0, 0,   [](Session &s, Words) { return goRelative(s, 10); }},
    {"goto",        1, 1,   goTo},
    {"standby-off", 0, 0,   [](Session &s, Words) { return standbyOff(s); }},
    {"shutdown",    0, 0,   [](Session &s, Words) { return shutDown(s); }},
};
// clang-format on

std::vector<std::string> commandNames()
{
    std::vector<std::string> names;
    for (const Command &command : commands) {
        names.push_back(command.word);
    }
    return names;
}

int completion(Session &session, Words words)
{
    if (words[0] != "bash") {
        return session.fail(Usage, "completion is known for \"bash\" only");
    }
    std::fputs(bashCompletion(commandNames()).c_str(), stdout);
    return Done;
}

} // namespace

int runCommand(Session &session)
{
    const auto &words = session.options().words;
    if (words.empty()) {
        std::fputs(usageText(), stderr);
        return Usage;
    }
    for (const Command &command : commands) {
        if (words[0] != command.word) {
            continue;
        }
        const Words rest = Words(words).subspan(1);
        if (rest.size() < command.least || rest.size() > command.most) {
            return session.fail(Usage, words[0] + ": wrong number of words; see rvctl --help");
        }
        return command.run(session, rest);
    }
    return session.fail(Usage, "no command is called \"" + words[0] + "\"; did you mean \"" +
                                   nearestMatch(words[0], commandNames()) + "\"?");
}
