#include "liborb/orbthread.h"

#include <algorithm>

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

/// Low among the real-time priorities: kernel threads and audio go first.
constexpr int frameDeadlinePriority = 5;

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

bool orbRankThread(OrbWork work)
{
    const int first = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    const auto self = static_cast<id_t>(gettid());
    return setpriority(PRIO_PROCESS, self, std::max(first, static_cast<int>(work))) == 0;
}
