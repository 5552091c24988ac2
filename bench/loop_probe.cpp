// How long the event loop of a program is away from waiting: a library to preload into it.
//
// The main thread waits for events in poll() or ppoll() and nowhere else. The time from the end of one wait to the
// beginning of the next is a turn of the loop, and no call on it is longer than its turn. At the end of the program
// all turns are written to the file named by RV_LOOP_TURNS: a line each, when it began (nanoseconds of the monotonic
// clock), how long it took, how much processor time it had (microseconds), and how often it gave the processor up
// to wait for something: a turn that never did was as long as it was because others had the processor.

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr std::size_t mostTurns = 2'000'000;

struct Turn
{
    std::int64_t beganNs;
    std::uint32_t wallUs;
    std::uint32_t cpuUs;
    std::uint32_t waits;
};

std::array<Turn, mostTurns> turns;
std::size_t count = 0;
std::int64_t beganNs = 0;
std::int64_t beganCpuNs = 0;
long beganWaits = 0;

std::int64_t now(clockid_t clock)
{
    timespec time {};
    clock_gettime(clock, &time);
    return std::int64_t(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

long waitsOfThread()
{
    rusage usage {};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

bool isMainThread()
{
    static thread_local const bool isMain = getpid() == pid_t(syscall(SYS_gettid));
    return isMain;
}

void endTurn()
{
    if (beganNs != 0 && count < mostTurns) {
        turns[count++] = {beganNs, std::uint32_t((now(CLOCK_MONOTONIC) - beganNs) / 1000),
                          std::uint32_t((now(CLOCK_THREAD_CPUTIME_ID) - beganCpuNs) / 1000),
                          std::uint32_t(waitsOfThread() - beganWaits)};
    }
}

void beginTurn()
{
    beganNs = now(CLOCK_MONOTONIC);
    beganCpuNs = now(CLOCK_THREAD_CPUTIME_ID);
    beganWaits = waitsOfThread();
}

template<typename Wait>
int waited(Wait wait)
{
    if (!isMainThread())
        return wait();
    endTurn();
    const int result = wait();
    beginTurn();
    return result;
}

template<typename Function>
Function next(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

struct Report
{
    ~Report()
    {
        const char *path = std::getenv("RV_LOOP_TURNS");
        std::FILE *file = path && count > 0 ? std::fopen(path, "w") : nullptr;
        if (!file)
            return;
        for (std::size_t i = 0; i < count; ++i)
            std::fprintf(file, "%lld %u %u %u\n", static_cast<long long>(turns[i].beganNs), turns[i].wallUs, turns[i].cpuUs,
                         turns[i].waits);
        std::fclose(file);
    }
} report;

} // namespace

extern "C" int poll(pollfd *files, nfds_t number, int timeout)
{
    static const auto real = next<int (*)(pollfd *, nfds_t, int)>("poll");
    return waited([&] { return real(files, number, timeout); });
}

extern "C" int ppoll(pollfd *files, nfds_t number, const timespec *timeout, const sigset_t *mask)
{
    static const auto real = next<int (*)(pollfd *, nfds_t, const timespec *, const sigset_t *)>("ppoll");
    return waited([&] { return real(files, number, timeout, mask); });
}
