#pragma once

#include <boost/interprocess/sync/named_mutex.hpp>

#include <cstdint>

namespace lumo::media {

/// Holds a named mutex that says who holds it, for as long as this object lives.
///
/// The holder's mark, process number and start time, stands in shared memory beside the mutex. Who has waited its
/// patience out looks at the mark: a holder that is no more is succeeded at once, and the mutex goes on from
/// hand to hand as if it had let go. With \a TakeOver a holder that lives but does not move (stopped, or killed between
/// the lock and the mark) is succeeded, too: it finds its mark gone when it wakes up and then leaves the mutex alone.
class OwnedMutex
{
public:
    enum Patience { LeaveAlone, TakeOver };

    /// Waits \a patienceMs at most. \a mark is shared, eight-byte aligned, 0 while nobody holds the mutex.
    OwnedMutex(boost::interprocess::named_mutex &mutex, std::uint64_t &mark, int patienceMs,
               Patience afterwards);
    ~OwnedMutex();
    OwnedMutex(const OwnedMutex &) = delete;
    OwnedMutex &operator=(const OwnedMutex &) = delete;

    /// False when somebody else still holds it: what is read then may be torn.
    bool isHeld() const { return _isHeld; }

private:
    bool lockFor(int patienceMs);
    bool succeed(Patience afterwards);

    boost::interprocess::named_mutex &_mutex;
    std::uint64_t &_mark;
    std::uint64_t _own;
    bool _isHeld = false;
};

} // namespace lumo::media
