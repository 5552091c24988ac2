// rvctl: the recorder's command line. See --help.

#include "services/rvctl/commands.h"

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace
{

bool parseTimeout(const std::string &text, Options &options)
{
    double seconds = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, seconds);
    // A week is as good as for ever, and fits every clock.
    if (parsed.ec != std::errc() || parsed.ptr != end || !(seconds >= 0) || seconds > 604800) {
        return false;
    }
    options.timeout = std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
    options.isTimed = true;
    return true;
}

bool parseOptions(int argc, char **argv, Options &options)
{
    bool onlyWords = false;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        if (onlyWords || !word.starts_with("--")) {
            options.words.push_back(word);
        } else if (word == "--") {
            onlyWords = true;
        } else if (word == "--json") {
            options.json = true;
        } else if (word == "--wait") {
            options.wait = true;
        } else if (word == "--name") {
            options.byName = true;
        } else if (word != "--timeout" || i + 1 >= argc || !parseTimeout(argv[++i], options)) {
            return false;
        }
    }
    return true;
}

void blockEndSignals()
{
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(usageText(), stdout);
        return Done;
    }
    Options options;
    if (!parseOptions(argc, argv, options)) {
        std::fputs(usageText(), stderr);
        return Usage;
    }
    if (!options.words.empty() && options.words[0] == "watch") {
        blockEndSignals();
    }
    CreateDescriptors();
    Session session(options);
    return runCommand(session);
}
