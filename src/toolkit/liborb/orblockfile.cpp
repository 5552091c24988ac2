#include "liborb/orblockfile.h"

#include <QByteArray>
#include <QFile>

#include <cerrno>
#include <charconv>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int attempts = 16; ///< against a file that others keep replacing

/// The lock over the whole file that belongs to the open file, not to the process: closing another
/// descriptor of the same file does not lose it.
struct flock wholeFile(short type)
{
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    return range;
}

/// Opens the file, creating it when there is none. A symbolic link or anything that is no ordinary file
/// is refused: the folder may be one that everybody can write.
int openLockFile(const QByteArray &path)
{
    constexpr int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        // Opened first and created second: kernels refuse O_CREAT on another user's file there.
        int fd = ::open(path.constData(), flags);
        if (fd < 0 && errno == ENOENT)
            fd = ::open(path.constData(), flags | O_CREAT | O_EXCL, 0644);
        if (fd < 0 && (errno == EEXIST || errno == EINTR))
            continue;
        struct stat status = {};
        if (fd >= 0 && (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))) {
            ::close(fd);
            return -1;
        }
        return fd;
    }
    return -1;
}

bool stillNamed(int fd, const QByteArray &path)
{
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(fd, &opened) == 0 && ::lstat(path.constData(), &named) == 0
           && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

void writeHolder(int fd)
{
    char text[32];
    const int length = std::snprintf(text, sizeof text, "%ld\n", static_cast<long>(::getpid()));
    // The lock holds without the text, which only tells people who has it.
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, text, static_cast<size_t>(length), 0) != length)
        std::perror("lock file");
}

pid_t writtenHolder(int fd)
{
    char text[32];
    const ssize_t length = ::pread(fd, text, sizeof text, 0);
    pid_t pid = 0;
    if (length > 0)
        std::from_chars(text, text + length, pid);
    return pid > 0 ? pid : 0;
}

} // namespace

OrbLockFile::OrbLockFile(const QString &path) : _path(path) {}

OrbLockFile::~OrbLockFile()
{
    if (_fd < 0)
        return;
    // The file stays: removing it would let two processes lock two files of one name.
    if (::ftruncate(_fd, 0) != 0)
        std::perror("lock file");
    ::close(_fd);
}

bool OrbLockFile::lock()
{
    if (_fd >= 0)
        return true;
    const QByteArray path = QFile::encodeName(_path);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const int fd = openLockFile(path);
        if (fd < 0)
            return false;
        struct flock range = wholeFile(F_WRLCK);
        if (::fcntl(fd, F_OFD_SETLK, &range) != 0) {
            ::close(fd);
            return false;
        }
        if (stillNamed(fd, path)) {
            writeHolder(fd);
            _fd = fd;
            return true;
        }
        ::close(fd); // locked a file that was removed meanwhile
    }
    return false;
}

pid_t OrbLockFile::whoHasLock() const
{
    if (_fd >= 0)
        return ::getpid();
    const int fd = ::open(QFile::encodeName(_path).constData(),
                          O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return 0;
    struct flock range = wholeFile(F_WRLCK);
    // Asking takes no lock, so that it disturbs nobody who is just about to.
    const bool held = ::fcntl(fd, F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
    const pid_t holder = held ? writtenHolder(fd) : 0;
    ::close(fd);
    return holder;
}
