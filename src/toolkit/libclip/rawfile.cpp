#include "libclip/rawfile.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace clip {

namespace {

/// One system call moves at most this much: some systems cut or refuse more than 2 GiB.
constexpr std::size_t maxTransfer = std::size_t(1) << 30;
/// No system has larger ones.
constexpr std::uint64_t largestPage = std::uint64_t(1) << 16;

bool fitsOffset(std::uint64_t offset, std::size_t length)
{
    constexpr auto limit = std::uint64_t(std::numeric_limits<off_t>::max());
    return offset <= limit && length <= limit - offset;
}

std::string folderOf(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Tells who completes clips that nobody writes any more that this file is in use. 0 or an errno
/// value.
int lockFile(int descriptor, int operation)
{
    int outcome = 0;
    do {
        outcome = ::flock(descriptor, operation);
    } while (outcome < 0 && errno == EINTR);
    return outcome < 0 ? errno : 0;
}

/// The file system has no way to reserve room.
bool isUnsupported(int code)
{
    return code == EOPNOTSUPP || code == ENOTSUP || code == ENOSYS || code == EINVAL;
}

} // namespace

Error systemError(int code, const char *what)
{
    return { code, std::string(what) + ": " + std::generic_category().message(code) };
}

bool isFull(const Error &error)
{
    return error.code == ENOSPC || error.code == EDQUOT;
}

bool isForWantOfSpace(const Error &error)
{
    return isFull(error) || error.code == EFBIG;
}

void removeFile(const std::string &path)
{
    (void)::unlink(path.c_str());
}

Error syncDirectoryOf(const std::string &path)
{
    const int descriptor =
        ::open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return systemError(errno, "open directory");
    }
    int outcome = 0;
    do {
        outcome = ::fsync(descriptor);
    } while (outcome < 0 && errno == EINTR);
    const int code = outcome < 0 ? errno : 0;
    ::close(descriptor);
    // Some file systems have no such call for directories and need none.
    if (code == 0 || code == EINVAL || code == ENOTSUP) {
        return { };
    }
    return systemError(code, "sync directory");
}

Error RawFile::create(const std::string &path)
{
    close();
    // Read access is for preallocation and for the writer's own checks.
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    _descriptor = ::open(path.c_str(), flags, 0666);
    if (_descriptor < 0) {
        return systemError(errno, "create");
    }
    // Nobody else locks a file before it has a head. Without locks the clip is written all the same.
    (void)lockFile(_descriptor, LOCK_EX);
    struct stat status { };
    _folder = folderOf(path);
    _folderDevice = ::stat(_folder.c_str(), &status) == 0 ? std::uint64_t(status.st_dev) : 0;
    return { };
}

bool RawFile::isOpenAt(int descriptor) const
{
    struct stat own { };
    struct stat other { };
    return ::fstat(_descriptor, &own) == 0 && ::fstat(descriptor, &other) == 0
        && own.st_dev == other.st_dev && own.st_ino == other.st_ino;
}

bool RawFile::isAt(const std::string &path) const
{
    struct stat own { };
    struct stat named { };
    return ::fstat(_descriptor, &own) == 0 && ::lstat(path.c_str(), &named) == 0
        && own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

Error RawFile::stillThere() const
{
    // The folder's device and not the file's: some file systems give files devices of their own.
    struct stat status { };
    if (_folderDevice != 0
        && (::stat(_folder.c_str(), &status) < 0 || std::uint64_t(status.st_dev) != _folderDevice)) {
        return systemError(ENODEV, "look for the medium");
    }
    if (::fstat(_descriptor, &status) == 0 && status.st_nlink == 0) {
        return systemError(ENODEV, "look for the clip");
    }
    return { };
}

Error RawFile::openToChange(const std::string &path)
{
    close();
    constexpr int flags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const int descriptor = ::open(path.c_str(), flags);
    if (descriptor < 0) {
        return systemError(errno, "open");
    }
    Error error = adoptToRead(descriptor);
    if (!error) {
        if (const int code = lockFile(_descriptor, LOCK_EX | LOCK_NB)) {
            error = systemError(code, "lock");
            close();
        }
    }
    return error;
}

Error RawFile::openToRead(const std::string &path)
{
    close();
    // Without O_NONBLOCK a named pipe would hold the thread for good.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    return descriptor < 0 ? systemError(errno, "open") : adoptToRead(descriptor);
}

Error RawFile::adoptToRead(int descriptor)
{
    close();
    _descriptor = descriptor;
    struct stat status { };
    if (::fstat(_descriptor, &status) < 0 || !S_ISREG(status.st_mode)) {
        close();
        return systemError(EINVAL, "open");
    }
    return { };
}

void RawFile::close()
{
    if (_descriptor >= 0) {
        ::close(_descriptor);
        _descriptor = -1;
    }
    _large.close();
}

Error RawFile::size(std::uint64_t &bytes) const
{
    struct stat status { };
    if (::fstat(_descriptor, &status) < 0) {
        return systemError(errno, "stat");
    }
    bytes = std::uint64_t(std::max<off_t>(status.st_size, 0));
    return { };
}

Error RawFile::writeAt(std::uint64_t offset, std::span<const std::byte> bytes)
{
    if (!fitsOffset(offset, bytes.size())) {
        return systemError(EFBIG, "write");
    }
    const bool isLarge = bytes.size() >= LargeWrites::least;
    while (!bytes.empty()) {
        const auto next = bytes.first(std::min(bytes.size(), maxTransfer));
        const ssize_t done = isLarge ? _large.write(_descriptor, offset, next)
                                     : ::pwrite(_descriptor, next.data(), next.size(), off_t(offset));
        if (done < 0 && errno == EINTR) {
            continue;
        }
        if (done <= 0) {
            return systemError(done < 0 ? errno : EIO, "write");
        }
        bytes = bytes.subspan(std::size_t(done));
        offset += std::uint64_t(done);
    }
    return { };
}

Error RawFile::readAt(std::uint64_t offset, std::span<std::byte> bytes) const
{
    if (!fitsOffset(offset, bytes.size())) {
        return systemError(EIO, "read");
    }
    while (!bytes.empty()) {
        const std::size_t length = std::min(bytes.size(), maxTransfer);
        const ssize_t done = ::pread(_descriptor, bytes.data(), length, off_t(offset));
        if (done < 0 && errno == EINTR) {
            continue;
        }
        if (done <= 0) {
            return systemError(done < 0 ? errno : EIO, "read");
        }
        bytes = bytes.subspan(std::size_t(done));
        offset += std::uint64_t(done);
    }
    return { };
}

Error RawFile::truncate(std::uint64_t bytes)
{
    int outcome = 0;
    do {
        outcome = ::ftruncate(_descriptor, off_t(bytes));
    } while (outcome < 0 && errno == EINTR);
    return outcome < 0 ? systemError(errno, "truncate") : Error { };
}

Error RawFile::reserve(std::uint64_t offset, std::uint64_t bytes)
{
    if (!fitsOffset(offset, bytes)) {
        return systemError(EFBIG, "reserve");
    }
    int outcome = 0;
    do {
        outcome = ::fallocate(_descriptor, FALLOC_FL_KEEP_SIZE, off_t(offset), off_t(bytes));
    } while (outcome < 0 && errno == EINTR);
    if (outcome == 0) {
        return { };
    }
    if (!isUnsupported(errno)) {
        return systemError(errno, "reserve");
    }
    struct statvfs medium { };
    do {
        outcome = ::fstatvfs(_descriptor, &medium);
    } while (outcome < 0 && errno == EINTR);
    if (outcome < 0) {
        return systemError(errno, "look for room");
    }
    const std::uint64_t free = std::uint64_t(medium.f_bavail) * medium.f_frsize;
    return free < bytes ? systemError(ENOSPC, "look for room") : Error { };
}

RawFile::Time RawFile::lastChange() const
{
    struct stat status { };
    if (::fstat(_descriptor, &status) < 0) {
        return { };
    }
    return { status.st_mtim.tv_sec, status.st_mtim.tv_nsec };
}

void RawFile::setLastChange(const Time &time)
{
    if (time.nanoseconds < 0) {
        return;
    }
    struct timespec times[2] { };
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = time_t(time.seconds);
    times[1].tv_nsec = time.nanoseconds;
    (void)::futimens(_descriptor, times);
}

Error RawFile::sync()
{
    int outcome = 0;
    do {
        outcome = ::fdatasync(_descriptor);
    } while (outcome < 0 && errno == EINTR);
    return outcome < 0 ? systemError(errno, "sync") : Error { };
}

void RawFile::forget(std::uint64_t from, std::uint64_t to)
{
    // A page that only part of what was forgotten before lay in is still there.
    const std::uint64_t first = from - from % largestPage;
    (void)::posix_fadvise(_descriptor, off_t(first), off_t(to - first), POSIX_FADV_DONTNEED);
}

} // namespace clip
