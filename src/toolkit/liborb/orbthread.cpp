#include "liborb/orbthread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

/// Low among the real-time priorities: kernel threads and audio go first.
constexpr int frameDeadlinePriority = 5;
/// A tenth of the weight of the daemon's other threads, which it starts with the highest.
constexpr int niceOfLongWork = -10;

} // namespace

void orbNameThread(const char *name)
{
    pthread_setname_np(pthread_self(), name);
}

bool orbRaiseThread()
{
    sched_param parameters = {};
    parameters.sched_priority = frameDeadlinePriority;
    return sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &parameters) == 0;
}

bool orbLowerThread()
{
    const auto self = static_cast<id_t>(gettid());
    return getpriority(PRIO_PROCESS, self) >= niceOfLongWork ||
           setpriority(PRIO_PROCESS, self, niceOfLongWork) == 0;
}
