#include "cliplister.h"

#include "clipname.h"
#include "libclip/cliprecovery.h"
#include "liborb/orblog.h"
#include "mediumid.h"

#include <cerrno>
#include <ctime>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace
{

constexpr const char *logFile = "cliplister.cpp";
constexpr std::int64_t nsPerSecond = 1000000000;
/// So young a file that is no clip may be the place that a recording is about to take; a later listing judges it.
constexpr std::int64_t youthNs = nsPerSecond * 4 / 10;
/// The system tells of a close a moment before the file counts as closed.
constexpr int closePatienceMs = 20;
/// Whoever writes a clip from another machine does so more often, and nothing tells of it.
constexpr std::int64_t leftAloneSeconds = 30;

class Descriptor
{
public:
    explicit Descriptor(int number) : _number(number) {}
    ~Descriptor()
    {
        if (_number >= 0)
            ::close(_number);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int number() const { return _number; }

private:
    int _number;
};

std::vector<std::string> clipNamesIn(DIR *directory)
{
    std::vector<std::string> names;
    while (const dirent *entry = ::readdir(directory)) {
        if (names.size() < ClipLister::maxClips && isClipName(entry->d_name))
            names.emplace_back(entry->d_name);
    }
    return names;
}

std::int64_t modifiedNs(const struct stat &st)
{
    return st.st_mtim.tv_sec * nsPerSecond + st.st_mtim.tv_nsec;
}

bool isYoung(const Clip &clip)
{
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t age = now.tv_sec * nsPerSecond + now.tv_nsec - clip.modifiedNs();
    return age >= 0 && age < youthNs;
}

/// Where there are no leases, those who write clips have locked them, as far as this machine knows.
bool isLocked(int file)
{
    if (::flock(file, LOCK_SH | LOCK_NB) != 0)
        return errno == EWOULDBLOCK;
    ::flock(file, LOCK_UN);
    return false;
}

/// A lease to read is only given when nobody writes. Nothing where the file system has no leases and nobody has
/// locked the file.
std::optional<bool> isWritten(int file)
{
    for (int waited = 0;; ++waited) {
        if (::fcntl(file, F_SETLEASE, F_RDLCK) == 0) {
            ::fcntl(file, F_SETLEASE, F_UNLCK);
            return false;
        }
        if (errno != EAGAIN)
            return isLocked(file) ? std::optional<bool>(true) : std::nullopt;
        if (waited == closePatienceMs)
            return true;
        ::usleep(1000);
    }
}

/// Nobody else's machine can be writing the file: it lies on a device of this one, or has been left alone.
bool isNobodyElses(const struct stat &st, const Clip &clip)
{
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return gnu_dev_major(st.st_dev) != 0 || now.tv_sec - clip.modifiedNs() / nsPerSecond > leftAloneSeconds;
}

/// Completes a clip that a crash left open, as the confined process reads it at \a file; true when the file is another
/// one now.
bool isCompleted(ClipInspector &inspector, int directory, int file, const std::string &name)
{
    const std::string path = "/proc/self/fd/" + std::to_string(directory) + '/' + name;
    const clip::Recovery recovery = clip::recover(path, [&](const clip::RawFile &opened) {
        return opened.isOpenAt(file) ? inspector.planRecovery(file) : std::nullopt;
    });
    switch (recovery.outcome) {
    case clip::Recovery::Outcome::Recovered:
        orbLogOutput(2, logFile, __LINE__, "Interrupted clip %s completed: %lld frames\n", name.c_str(),
                     static_cast<long long>(recovery.frames));
        return true;
    case clip::Recovery::Outcome::Failed:
        orbLogOutput(1, logFile, __LINE__, "Interrupted clip %s not completed: %s\n", name.c_str(),
                     recovery.error.text.c_str());
        return false;
    default:
        return recovery.outcome == clip::Recovery::Outcome::Removed;
    }
}

} // namespace

ClipLister::ClipLister(KnownClips &known, std::string inspector)
    : _known(known), _inspector(std::move(inspector))
{
}

/// The clip's name, directory, size and time are set.
void ClipLister::read(int directory, int file, Clip &clip)
{
    Clip facts;
    const ClipInspector::Outcome outcome = _inspector.inspect(file, facts);
    if (outcome == ClipInspector::Outcome::Read) {
        clip.setFrameCount(facts.getFrameCount());
        clip.setFormat(facts.format());
        clip.setTimecode(facts.timecode());
    }
    clip.setState(facts.state());
    if (outcome != ClipInspector::Outcome::Read)
        clip.setState(ClipState::Bad);
    if (outcome == ClipInspector::Outcome::NotStarted) {
        if (!std::exchange(_hasComplained, true))
            orbLogOutput(1, logFile, __LINE__, "The reader of clips can't be started\n");
        return;
    }
    bool isFinal = clip.state() == ClipState::Ready;
    if (!isFinal) {
        const std::optional<bool> written = isWritten(file);
        isFinal = written == false;
        if (written == true) {
            clip.setState(ClipState::Recording);
        } else if (written == false) {
            // What looks bad may be a clip whose writer died before its first frame was safe.
            if (clip.state() == ClipState::Recording)
                clip.setState(ClipState::Ready);
            isFinal = !isCompleted(_inspector, directory, file, clip.getName());
        } else if (struct stat st = {}; ::fstat(file, &st) == 0 && isNobodyElses(st, clip)) {
            if (isCompleted(_inspector, directory, file, clip.getName()))
                clip.setState(ClipState::Ready);
        }
    }
    if (isFinal)
        _known.remember(_medium, clip);
}

/// False when there is nothing to list.
bool ClipLister::look(int directory, const std::string &name, Clip &clip)
{
    struct stat st = {};
    if (::fstatat(directory, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode))
        return false;
    if (const auto known = _known.find(_medium, name, st.st_size, modifiedNs(st))) {
        clip = *known;
        return true;
    }
    // What it was a moment ago need not be what is opened now.
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const Descriptor file(::openat(directory, name.c_str(), flags));
    clip.setName(name);
    clip.setFileSize(st.st_size);
    clip.setModifiedNs(modifiedNs(st));
    clip.setState(ClipState::Bad);
    if (file.number() < 0)
        return errno == EACCES || errno == EIO;
    if (::fstat(file.number(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    clip.setFileSize(st.st_size);
    clip.setModifiedNs(modifiedNs(st));
    read(directory, file.number(), clip);
    // A clip without a frame is gone now.
    return ::fstat(file.number(), &st) != 0 || st.st_nlink > 0;
}

std::list<Clip> ClipLister::list(const std::string &path, int &error)
{
    std::list<Clip> clips;
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(::opendir(path.c_str()), ::closedir);
    error = directory ? 0 : errno;
    if (!directory)
        return clips;
    _medium = mediumIdOf(::dirfd(directory.get()));
    const std::vector<std::string> names = clipNamesIn(directory.get());
    for (const std::string &name : names) {
        Clip clip;
        if (!look(::dirfd(directory.get()), name, clip) ||
            (clip.state() == ClipState::Bad && isYoung(clip)))
            continue;
        clip.setPath(path);
        clips.push_back(std::move(clip));
    }
    _known.keepOnly(_medium, std::set<std::string>(names.begin(), names.end()));
    clips.sort([](const Clip &a, const Clip &b) {
        return a.modifiedNs() != b.modifiedNs() ? a.modifiedNs() < b.modifiedNs()
                                                : comesBefore(a.getName(), b.getName());
    });
    return clips;
}
