#include "libvanta/ownedmutex.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/interprocess/exceptions.hpp>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

#include <unistd.h>

namespace {

/// When a process was started, in ticks since the system's start; 0 when there is no such process, or only what
/// is left of one that has ended.
std::uint64_t startOf(std::uint32_t process)
{
    char name[32];
    std::snprintf(name, sizeof name, "/proc/%u/stat", process);
    std::FILE *file = std::fopen(name, "re");
    if (!file)
        return 0;
    char text[1024];
    const std::size_t length = std::fread(text, 1, sizeof text - 1, file);
    std::fclose(file);
    text[length] = '\0';
    const char *after = std::strrchr(text, ')'); // the name before it may hold anything
    char state = 0;
    unsigned long long start = 0;
    if (!after || std::sscanf(after + 1,
                              " %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s "
                              "%*s %*s %llu",
                              &state, &start) != 2)
        return 0;
    return state == 'Z' || state == 'X' ? 0 : start;
}

/// Process number above, the low half of its start time below; never 0.
std::uint64_t markOf(std::uint32_t process, std::uint64_t start)
{
    return std::uint64_t(process) << 32 | (start & 0xffffffffu);
}

std::uint64_t ownMark()
{
    const auto process = static_cast<std::uint32_t>(::getpid());
    return markOf(process, startOf(process));
}

bool isAlive(std::uint64_t mark)
{
    const auto process = static_cast<std::uint32_t>(mark >> 32);
    const std::uint64_t start = startOf(process);
    return start != 0 && markOf(process, start) == mark;
}

} // namespace

namespace lumo::media {

OwnedMutex::OwnedMutex(boost::interprocess::named_mutex &mutex, std::uint64_t &mark, int patienceMs,
                       Patience afterwards)
    : _mutex(mutex), _mark(mark), _own(ownMark())
{
    _isHeld = lockFor(patienceMs) || succeed(afterwards);
}

OwnedMutex::~OwnedMutex()
{
    std::uint64_t own = _own;
    // A mark that is not ours any more belongs to a successor, who lets the mutex go.
    if (_isHeld && std::atomic_ref(_mark).compare_exchange_strong(own, 0))
        _mutex.unlock();
}

bool OwnedMutex::lockFor(int patienceMs)
{
    const auto until = boost::posix_time::microsec_clock::universal_time() +
        boost::posix_time::milliseconds(patienceMs);
    try {
        if (!_mutex.timed_lock(until))
            return false;
    } catch (const boost::interprocess::interprocess_exception &) {
        return false;
    }
    // A mark that stands while the mutex could be had is what a holder left that died between mark and unlock.
    std::uint64_t none = 0;
    return std::atomic_ref(_mark).compare_exchange_strong(none, _own) ||
        (!isAlive(none) && std::atomic_ref(_mark).compare_exchange_strong(none, _own));
}

bool OwnedMutex::succeed(Patience afterwards)
{
    std::uint64_t holder = std::atomic_ref(_mark).load();
    const bool isDead = holder != 0 && !isAlive(holder);
    if (!isDead && afterwards == LeaveAlone)
        return false;
    return std::atomic_ref(_mark).compare_exchange_strong(holder, _own);
}

} // namespace lumo::media
