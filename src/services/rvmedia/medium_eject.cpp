// How a medium is given up for being taken out. Its own thread looks whether anybody records on it and has all written
// to it; the event loop decides and tells that it is gone; the thread unmounts it. Each of these may hang with the
// medium, which holds up nobody.

#include "medium.h"

#include "liborb/orblog.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace
{

constexpr const char *logFile = "medium.cpp";
/// The daemon closes what it has just used a moment after it says so.
constexpr int unmountTries = 20;
constexpr unsigned int pauseUs = 100000;

std::string errorText(int error)
{
    return std::strerror(error);
}

/// Why the medium cannot go; nothing when all is on it.
std::string problemOf(const MediumScanner::Listing &listing, const std::string &path)
{
    const auto growing = std::ranges::find(listing.clips, ClipState::Recording, &Clip::state);
    if (growing != listing.clips.end())
        return path + " is being recorded on: " + growing->getName() + " grows";
    const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isWritten = folder >= 0 && ::syncfs(folder) == 0;
    const int error = errno;
    if (folder >= 0)
        ::close(folder);
    // A medium that cannot be read any more has nothing to lose.
    if (isWritten || listing.error != 0)
        return {};
    return "not all could be written to " + path + ": " + errorText(error);
}

std::string unmounted(const std::string &path)
{
    for (int left = unmountTries;; --left) {
        if (::umount2(path.c_str(), UMOUNT_NOFOLLOW) == 0 || errno == EINVAL)
            return {}; // EINVAL: somebody was faster
        if (errno != EBUSY || left == 0)
            break;
        ::usleep(pauseUs);
    }
    return path + " is given up but still mounted, do not take it out: " + errorText(errno);
}

} // namespace

MediaSlot Medium::slot() const
{
    MediaSlot slot;
    slot.path = _path;
    if (_isEjected && _isMounted)
        slot.state = SlotState::Ejected;
    else if (isPresent())
        slot.state = SlotState::Ready;
    else if (_isMounted)
        slot.state = _isListed ? SlotState::Failed : SlotState::Loading;
    if (slot.state == SlotState::Ready) {
        slot.isReadOnly = _listing.isReadOnly;
        slot.freeBytes = _listing.freeBytes;
        slot.totalBytes = _listing.totalBytes;
    }
    return slot;
}

void Medium::eject(const std::function<std::string()> &mayGo, const Outcome &done)
{
    if (!_isMounted || _isEjecting) {
        done(_isMounted ? _path + " is being ejected" : "no medium is in " + _path);
        return;
    }
    _isEjecting = true;
    _ejectDone = done;
    Worker *worker = _worker.get();
    if (_isEjected) {
        unmount(worker);
        return;
    }
    QMetaObject::invokeMethod(&worker->object, [this, worker, mayGo] {
        const std::string found = problemOf(worker->scanner.scan(_path), _path);
        QMetaObject::invokeMethod(this, [this, worker, mayGo, found] {
            const bool isCurrent = worker == _worker.get();
            const std::string problem = found.empty() && isCurrent ? mayGo() : found;
            if (!problem.empty() || !isCurrent) {
                ejectEnded(worker, problem);
                return;
            }
            giveUp();
            unmount(worker);
        });
    });
}

void Medium::giveUp()
{
    orbLogOutput(3, logFile, __LINE__, "The medium in %s is given up\n", _path.c_str());
    _isEjected = true;
    _isListed = false;
    _settle.stop();
    _coming.stop();
    _listing = {};
    emit listed();
}

void Medium::unmount(Worker *worker)
{
    QMetaObject::invokeMethod(&worker->object, [this, worker] {
        worker->scanner.letGo();
        const std::string problem = unmounted(_path);
        QMetaObject::invokeMethod(this, [this, worker, problem] { ejectEnded(worker, problem); });
    });
}

void Medium::ejectEnded(Worker *worker, const std::string &problem)
{
    if (retire(worker))
        return; // whoever asked was told when the medium went
    _isEjecting = false;
    if (!problem.empty())
        orbLogOutput(2, logFile, __LINE__, "Not ejected: %s\n", problem.c_str());
    std::exchange(_ejectDone, {})(problem);
}
