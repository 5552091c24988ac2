#include "libvanta/daemonizer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <syslog.h>
#include <sys/wait.h>
#include <unistd.h>

// The new process reports to the starting one through a pipe: a first byte that says whether it
// stands, then the text to print. A report that ends without a byte is a process that died on its
// way.

namespace {

constexpr char stands = '+';
constexpr char failed = '-';
constexpr std::size_t longestReport = 4096;
constexpr std::chrono::milliseconds patience{5000};
constexpr std::array endSignals{SIGTERM, SIGINT, SIGHUP};

void (*callback)(int) = nullptr;
bool detached = false;
bool done = false;
char identity[64];

void onEndSignal(int sig)
{
    const int savedError = errno;
    callback(sig);
    errno = savedError;
}

void handleEndSignals(void (*handler)(int))
{
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    for (const int sig : endSignals)
        sigaddset(&action.sa_mask, sig);
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int sig : endSignals)
        ::sigaction(sig, &action, nullptr);
}

/// Detached, standard error leads nowhere: an end that nobody announced is told to the system's
/// log.
void atEnd()
{
    if (!done)
        ::syslog(LOG_ERR, "ended without announcing it");
}

void report(int fd, char outcome, const std::string &text)
{
    const std::string bytes = (outcome + text).substr(0, longestReport);
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::write(fd, bytes.data() + sent, bytes.size() - sent);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return; // the starting process lost patience
        sent += static_cast<std::size_t>(count);
    }
}

/// Everything up to the report's end; what came in time when the new process takes too long.
std::string awaitReport(int fd)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + patience;
    std::string text;
    while (text.size() <= longestReport) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - Clock::now());
        const int leftMs = std::max(0, static_cast<int>(left.count()));
        pollfd waiting{fd, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, leftMs);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            break;
        char bytes[512];
        const ssize_t count = ::read(fd, bytes, sizeof bytes);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        text.append(bytes, static_cast<std::size_t>(count));
    }
    return text;
}

[[noreturn]] void endStartingProcess(const std::string &name, const std::string &answer)
{
    if (answer.empty() || answer.front() != stands) {
        const std::string reason = answer.empty() ? "the new process gave no answer"
                                                  : answer.substr(1);
        std::fprintf(stderr, "%s: could not detach: %s\n", name.c_str(), reason.c_str());
        ::_exit(1);
    }
    if (answer.size() > 1)
        std::printf("%s\n", answer.c_str() + 1);
    std::fflush(stdout);
    ::_exit(0);
}

[[noreturn]] void giveUp(int reportFd, const char *what)
{
    report(reportFd, failed, std::string(what) + ": " + std::strerror(errno));
    ::_exit(1);
}

void leaveTerminal(int reportFd)
{
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0)
        giveUp(reportFd, "/dev/null");
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::dup2(nowhere, fd) < 0)
            giveUp(reportFd, "dup2");
    }
    if (nowhere > STDERR_FILENO)
        ::close(nowhere);
}

} // namespace

void Daemonizer::daemonize(std::string name, void (*signalCallback)(int),
                           std::string (*statusCallback)(), bool closeTerminal)
{
    std::fflush(nullptr); // nothing buffered may be written twice
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        endStartingProcess(name, failed + std::string("pipe: ") + std::strerror(errno));
    const pid_t child = ::fork();
    if (child < 0)
        endStartingProcess(name, failed + std::string("fork: ") + std::strerror(errno));
    if (child > 0) {
        ::close(ends[1]);
        ::waitpid(child, nullptr, 0); // it ends at once, its own child is the daemon
        endStartingProcess(name, awaitReport(ends[0]));
    }

    ::close(ends[0]);
    if (::setsid() < 0)
        giveUp(ends[1], "setsid");
    const pid_t grandchild = ::fork(); // no session leader: it can never get a terminal again
    if (grandchild < 0)
        giveUp(ends[1], "fork");
    if (grandchild > 0)
        ::_exit(0);

    if (::chdir("/") != 0)
        giveUp(ends[1], "/");
    ::umask(022);
    std::snprintf(identity, sizeof identity, "%s", name.c_str());
    ::openlog(identity, LOG_PID, LOG_DAEMON);
    std::atexit(atEnd);
    detached = true;
    callback = signalCallback;
    if (callback != nullptr)
        handleEndSignals(onEndSignal);
    const std::string status = statusCallback != nullptr ? statusCallback() : std::string();
    if (closeTerminal)
        leaveTerminal(ends[1]);
    report(ends[1], stands, status);
    ::close(ends[1]);
}

void Daemonizer::setDone()
{
    if (!detached)
        return;
    done = true;
    if (callback != nullptr)
        handleEndSignals(SIG_DFL);
}
