#pragma once

#include <QCoreApplication>
#include <QTest>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

/// The calls that a clip's threads make for their media, failing or stalling when a test says so. For the one
/// source file of a test program.

namespace {

/// Turn by turn, because a thousand recordings have no time for polling. CTest ends a wait in vain.
template<typename Condition>
void waitUntil(Condition condition)
{
    while (!condition())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

/// What calls fail with, and whether once or from then on.
inline void addFaults()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<bool>("isForGood");
    QTest::newRow("one EIO") << EIO << false;
    QTest::newRow("one ENOSPC") << ENOSPC << false;
    QTest::newRow("the medium is gone") << ENODEV << true;
    QTest::newRow("the medium is read only") << EROFS << true;
    QTest::newRow("no space for good") << ENOSPC << true;
}

/// Fails one of the calls that the writer's threads make, or all from one on.
struct Fault
{
    std::atomic<int> calls{0};
    std::atomic<int> chosen{-1};
    std::atomic<bool> isForGood{false};
    std::atomic<int> code{0};
    std::atomic<long> onlyCall{-1}; ///< -1 counts every call
    std::atomic<const char *> folder{nullptr}; ///< counts calls for files in it alone; null for all
    std::atomic<int> stallMs{0};    ///< the call takes so long instead of failing
    std::atomic<bool> isHanging{false}; ///< stalled calls wait until it is over

    void reset(int newChosen, int newCode, bool forGood, long only = -1)
    {
        chosen = -1;
        stallMs = 0;
        calls = 0;
        code = newCode;
        isForGood = forGood;
        onlyCall = only;
        chosen = newChosen;
    }
    bool isAffected(const char *path, int descriptor) const
    {
        const char *wanted = folder;
        if (!wanted)
            return true;
        char name[4096] = {};
        if (!path) {
            const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
            const auto length = ::readlink(link.c_str(), name, sizeof(name) - 1);
            path = length < 0 ? "" : name;
        }
        return std::strstr(path, wanted) != nullptr;
    }
    /// What the chosen call does; true when it fails.
    bool strike(int call)
    {
        if (call != chosen && !(isForGood && call > chosen))
            return false;
        if (stallMs == 0)
            return true;
        // By the clock: many short sleeps add up to more on a busy machine.
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(stallMs);
        while (isHanging || std::chrono::steady_clock::now() < end)
            ::usleep(5000);
        return false;
    }
};

Fault fault;

/// \a path names the file, or the descriptor \a a does.
long passOrFail(const char *path, long number, long a, long b = 0, long c = 0, long d = 0)
{
    // The event loop's own calls are no affair of the medium.
    if (gettid() == getpid() || fault.chosen < 0 || (fault.onlyCall >= 0 && fault.onlyCall != number)
        || !fault.isAffected(path, int(a)))
        return syscall(number, a, b, c, d);
    if (fault.strike(fault.calls++)) {
        errno = fault.code;
        return -1;
    }
    return syscall(number, a, b, c, d);
}

template<typename T>
long word(T *pointer)
{
    return reinterpret_cast<long>(pointer);
}

} // namespace

// The library's calls end here instead of in the C library.
extern "C" {

int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int mode = flags & O_CREAT ? va_arg(arguments, int) : 0;
    va_end(arguments);
    return int(passOrFail(path, SYS_openat, AT_FDCWD, word(path), flags, mode));
}

int fdatasync(int descriptor)
{
    return int(passOrFail(nullptr, SYS_fdatasync, descriptor));
}

int fsync(int descriptor)
{
    return int(passOrFail(nullptr, SYS_fsync, descriptor));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow" // a structure has this name as well
int flock(int descriptor, int operation)
{
    return int(passOrFail(nullptr, SYS_flock, descriptor, operation));
}
#pragma GCC diagnostic pop

int ftruncate64(int descriptor, off64_t length)
{
    return int(passOrFail(nullptr, SYS_ftruncate, descriptor, length));
}

int fallocate64(int descriptor, int mode, off64_t offset, off64_t length)
{
    return int(passOrFail(nullptr, SYS_fallocate, descriptor, mode, offset, length));
}

ssize_t pwrite64(int descriptor, const void *bytes, size_t length, off64_t offset)
{
    return passOrFail(nullptr, SYS_pwrite64, descriptor, word(bytes), long(length), offset);
}

ssize_t write(int descriptor, const void *bytes, size_t length)
{
    // Eight bytes and less wake the event loop.
    if (length <= 8)
        return syscall(SYS_write, descriptor, bytes, length);
    return passOrFail(nullptr, SYS_write, descriptor, word(bytes), long(length));
}

int unlink(const char *path)
{
    return int(passOrFail(path, SYS_unlink, word(path)));
}

} // extern "C"
