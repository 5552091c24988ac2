#include "liborb/orbthread.h"

#include <pthread.h>
#include <sched.h>

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
