// Detaches itself and tells what became of it through a named pipe. Arguments: the pipe and what to
// do: "plain", "status" (has something to print), "die" (ends before it stands), "open" (keeps its
// terminal), "deaf" (no callback).

#include "libvanta/daemonizer.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

volatile int signalsSeen = 0;
int fifo = -1;

void say(const std::string &text)
{
    const std::string line = text + "\n";
    if (::write(fifo, line.data(), line.size()) < 0)
        std::_Exit(9);
}

void onSignal(int sig)
{
    char line[32];
    std::snprintf(line, sizeof line, "signal %d", sig);
    say(line);
    signalsSeen = signalsSeen + 1;
}

std::string target(const char *link)
{
    char path[256];
    const ssize_t length = ::readlink(link, path, sizeof path);
    return std::string(path, length > 0 ? static_cast<std::size_t>(length) : 0);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    const std::string act = argv[2];
    fifo = ::open(argv[1], O_WRONLY | O_CLOEXEC);
    std::printf("printed once\n"); // still buffered when the process detaches

    std::string (*status)() = nullptr;
    if (act == "status")
        status = [] { return std::string("standing"); };
    if (act == "die")
        status = []() -> std::string { std::_Exit(3); };
    Daemonizer::setDone(); // nothing before it is detached
    Daemonizer::daemonize("Helper", act == "deaf" ? nullptr : onSignal, status, act != "open");

    char folder[256];
    say("pid " + std::to_string(::getpid()));
    say("leader " + std::to_string(::getsid(0) == ::getpid()));
    say("parent's session " + std::to_string(::getsid(0) == ::getsid(::getppid())));
    say(std::string("in ") + ::getcwd(folder, sizeof folder));
    say("umask " + std::to_string(::umask(0)));
    say("0 " + target("/proc/self/fd/0"));
    say("1 " + target("/proc/self/fd/1"));
    say("2 " + target("/proc/self/fd/2"));
    say("ready");
    // Blocked between the looks at the count, so that no signal slips in unseen.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, &before);
    while (signalsSeen < 3)
        ::sigsuspend(&before);
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    Daemonizer::setDone();
    say("done");
    ::pause();
    return 0;
}
