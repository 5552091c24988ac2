#pragma once

#include <QString>

#include <sys/types.h>

/// A lock file that keeps a second instance away. The lock is the kernel's (it goes with the process);
/// the file holds the holder's process id for people and for whoHasLock().
class OrbLockFile
{
public:
    explicit OrbLockFile(const QString &path);
    ~OrbLockFile(); ///< gives the lock back
    OrbLockFile(const OrbLockFile &) = delete;
    OrbLockFile &operator=(const OrbLockFile &) = delete;

    /// True when this process now holds the lock (also when it did before).
    bool lock();
    QString filename() const { return _path; }
    /// Process id of the holder; 0 when nobody holds it or it cannot be told.
    pid_t whoHasLock() const;

private:
    QString _path;
    int _fd = -1;
};
