#include "main/signals.h"

#include "liborb/orblog.h"
#include "main/backtrace.h"
#include "main/exitrequest.h"
#include "main/output.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

// What a handler may do is little: the code it interrupts may hold any lock, the allocator's above
// all. So the texts of the signals are fetched beforehand, the log is written by its way for
// handlers, output is unbuffered, and the event loop is asked through a pipe. A back-trace with
// names cannot do without memory; a watchdog ends a process that gets stuck there.

namespace {

constexpr char logFile[] = "main.cpp";
constexpr unsigned watchdogSeconds = 5;
constexpr std::size_t longestDescription = 2048; ///< with its terminating zero
constexpr int signalCount = 65;

constexpr int signalOrder[] = {
    SIGINT,  SIGQUIT, SIGTERM, SIGFPE,  SIGABRT, SIGILL, SIGSEGV, SIGUSR1,   SIGBUS,
    SIGSYS,  SIGHUP,  SIGTSTP, SIGTTOU, SIGTTIN, SIGPIPE, SIGALRM, SIGUSR2,  SIGTTIN,
    SIGTTOU, SIGIO,   SIGPROF, SIGURG,  SIGVTALRM, SIGXCPU, SIGXFSZ,
};

volatile std::sig_atomic_t exitRequested = 0;
char signalTexts[signalCount][48];
int probe[2] = {-1, -1};

void prepareTexts()
{
    for (const int sig : signalOrder)
        std::snprintf(signalTexts[sig], sizeof signalTexts[sig], "%s", ::strsignal(sig));
}

const char *textOf(int sig)
{
    if (sig > 0 && sig < signalCount && signalTexts[sig][0] != '\0')
        return signalTexts[sig];
    return ::strsignal(sig);
}

/// The record at \a info, zeroes when there is none. The info flag is not requested, so the pointer
/// may be anything: the kernel is asked to read it, which refuses instead of crashing.
siginfo_t readable(const siginfo_t *info)
{
    siginfo_t copy;
    std::memset(&copy, 0, sizeof copy);
    // The raw call, because a sanitizer would take the peeping of the wrapper for a mistake of
    // ours.
    if (info == nullptr || probe[1] < 0
        || ::syscall(SYS_write, probe[1], info, sizeof copy) != static_cast<long>(sizeof copy))
        return copy;
    if (::read(probe[0], &copy, sizeof copy) != static_cast<ssize_t>(sizeof copy))
        std::memset(&copy, 0, sizeof copy);
    return copy;
}

void describe(char *line, std::size_t size, int sig, const siginfo_t *given, void *context)
{
    const siginfo_t info = readable(given);
    const auto word = [](auto value) { return static_cast<unsigned>(value); };
    const auto wide = [](auto value) { return static_cast<unsigned long>(value); };
    std::snprintf(line, size,
                  "%s %p S%X E%X C%X P%X U%X S%X U%lX S%lX V%lX I%X P%p O%X T%X A%p B%lX F%X",
                  textOf(sig), context, word(info.si_signo), word(info.si_errno),
                  word(info.si_code), word(info.si_pid), word(info.si_uid), word(info.si_status),
                  wide(info.si_utime), wide(info.si_stime),
                  wide(reinterpret_cast<std::uintptr_t>(info.si_value.sival_ptr)),
                  word(info.si_int), info.si_ptr, word(info.si_overrun), word(info.si_timerid),
                  info.si_addr, wide(info.si_band), word(info.si_fd));
}

void logLine(int level, const char *prefix, const char *description, int line = __builtin_LINE())
{
    char text[longestDescription + 64];
    std::snprintf(text, sizeof text, "%s%s\n", prefix, description);
    OrbLog::defaultLog()->outputFromSignal(level, logFile, line, text);
}

void printLine(const char *prefix, const char *description)
{
    char text[longestDescription + 64];
    std::snprintf(text, sizeof text, "%s%s\n", prefix, description);
    output::print(text);
}

/// The names could not be had: the process ends with what needs no memory.
void endStuckProcess(int)
{
    printPlainBackTrace();
    std::abort();
}

[[noreturn]] void abortWith(const char *description)
{
    std::signal(SIGABRT, SIG_DFL);
    std::signal(SIGALRM, endStuckProcess);
    ::alarm(watchdogSeconds);
    logLine(1, "Aborting. ", description);
    printLine("Aborting. ", description);
    printBackTrace();
    std::abort();
}

void restoreConsole()
{
    // "reset" sets the terminal; in the background it would be stopped for that, and wait for ever.
    sigset_t terminal;
    sigset_t before;
    sigemptyset(&terminal);
    sigaddset(&terminal, SIGTTOU);
    sigaddset(&terminal, SIGTTIN);
    ::pthread_sigmask(SIG_BLOCK, &terminal, &before);
    std::ignore = std::system("reset");
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

std::span<const int> handledSignals()
{
    return signalOrder;
}

void setupSignals()
{
    exitrequest::prepare();
    prepareTexts();
    prepareBackTrace();
    if (probe[0] < 0 && ::pipe2(probe, O_CLOEXEC | O_NONBLOCK) != 0)
        probe[0] = probe[1] = -1;
    OrbLog::defaultLog(); // made before a handler needs it
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_sigaction = signalAction;
    action.sa_flags = 0;
    for (const int sig : signalOrder)
        ::sigaction(sig, &action, nullptr);
}

void signalAction(int sig, siginfo_t *info, void *context)
{
    const int savedError = errno;
    char description[longestDescription];
    describe(description, sizeof description, sig, info, context);
    switch (sig) {
    case SIGILL:
    case SIGABRT:
    case SIGBUS:
    case SIGFPE:
    case SIGSEGV:
    case SIGSYS:
        abortWith(description);
    case SIGINT:
    case SIGQUIT:
    case SIGTERM:
        if (exitRequested != 0) {
            logLine(3, "Forcing exit. ", description);
            printLine("Forcing exit. ", description);
            ::_exit(1); // at once: nothing is taken down
        }
        exitRequested = 1;
        logLine(3, "Exit requested. ", description);
        restoreConsole();
        exitrequest::ask();
        break;
    default:
        logLine(2, "Ignoring Signal. ", description);
        break;
    }
    errno = savedError;
}

void handleDaemonizerSignal(int)
{
    exitrequest::ask();
}
