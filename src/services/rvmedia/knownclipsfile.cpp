#include "knownclipsfile.h"

#include "clipname.h"
#include "libconfig/packet.h"
#include "liborb/orblog.h"
#include "libvanta/cliprecord.h"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <span>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr const char *logFile = "knownclipsfile.cpp";
constexpr quint32 magic = 0x52564b43;
/// Another one when readers find out more, or write it in other words.
constexpr quint32 version = 1;
constexpr std::chrono::seconds pauseBeforeSaving(2);
constexpr qsizetype longestId = 255;

quint32 checksumOf(const QByteArray &bytes)
{
    return crc32c(std::span(reinterpret_cast<const std::uint8_t *>(bytes.constData()), std::size_t(bytes.size())));
}

/// Big-endian, and of the same form with every version of the library.
void setUp(QDataStream &stream)
{
    stream.setVersion(QDataStream::Qt_6_0);
    stream.setByteOrder(QDataStream::BigEndian);
}

bool isBelievable(const Clip &clip)
{
    return clip.state() == ClipState::Ready && isClipName(clip.getName());
}

/// False with errno set.
bool writeFile(const std::string &path, const std::string &text)
{
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (file < 0)
        return false;
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(file, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR)
            break;
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    const bool isDone = written == text.size() && ::fsync(file) == 0;
    const int error = errno;
    ::close(file);
    errno = error;
    return isDone;
}

/// False when there is a file that cannot be read, or is too long.
bool readFile(const std::string &path, std::string &text)
{
    const int file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (file < 0)
        return errno == ENOENT || errno == ENOTDIR;
    struct stat st = {};
    bool isRead = ::fstat(file, &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 0 &&
        static_cast<std::uint64_t>(st.st_size) <= KnownClipsFile::maxBytes;
    text.resize(isRead ? static_cast<std::size_t>(st.st_size) : 0);
    std::size_t got = 0;
    while (isRead && got < text.size()) {
        const ssize_t count = ::read(file, text.data() + got, text.size() - got);
        isRead = count > 0;
        got += isRead ? static_cast<std::size_t>(count) : 0;
    }
    ::close(file);
    return isRead;
}

} // namespace

std::string knownClipsText(const std::list<KnownClips::OfMedium> &media)
{
    QByteArray body;
    QDataStream inner(&body, QIODevice::WriteOnly);
    setUp(inner);
    for (const KnownClips::OfMedium &one : media)
        inner << QByteArray::fromStdString(one.medium)
              << QByteArray::fromStdString(lumo::media::listRecordOf(one.clips));
    QByteArray text;
    QDataStream outer(&text, QIODevice::WriteOnly);
    setUp(outer);
    outer << magic << version << checksumOf(body) << body;
    return text.toStdString();
}

bool readKnownClips(const std::string &text, KnownClips &known)
{
    QDataStream outer(QByteArray::fromRawData(text.data(), qsizetype(text.size())));
    setUp(outer);
    quint32 mark = 0;
    quint32 form = 0;
    quint32 checksum = 0;
    QByteArray body;
    outer >> mark >> form >> checksum >> body;
    if (outer.status() != QDataStream::Ok || mark != magic || form != version || checksum != checksumOf(body))
        return false;
    QDataStream inner(body);
    setUp(inner);
    std::list<KnownClips::OfMedium> media;
    while (!inner.atEnd()) {
        QByteArray id;
        QByteArray records;
        inner >> id >> records;
        KnownClips::OfMedium &one = media.emplace_back(KnownClips::OfMedium{id.toStdString(), {}});
        if (inner.status() != QDataStream::Ok || id.size() > longestId ||
            !lumo::media::clipListOf(records.toStdString(), one.clips))
            return false;
    }
    for (const KnownClips::OfMedium &one : media) {
        for (const Clip &clip : one.clips) {
            if (isBelievable(clip))
                known.remember(one.medium, clip);
        }
    }
    return true;
}

std::string knownClipsPath()
{
    if (const char *state = std::getenv("STATE_DIRECTORY"))
        return std::string(state) + "/rvmedia.clips";
    if (::geteuid() == 0)
        return "/var/lib/rvmedia/clips";
    const char *state = std::getenv("XDG_STATE_HOME");
    const char *home = std::getenv("HOME");
    if (state && *state == '/')
        return std::string(state) + "/rvmedia/clips";
    return home && *home == '/' ? std::string(home) + "/.local/state/rvmedia/clips" : std::string();
}

KnownClipsFile::KnownClipsFile(KnownClips &known, std::string path) : _known(known), _path(std::move(path)) {}

KnownClipsFile::~KnownClipsFile()
{
    {
        const std::lock_guard lock(_mutex);
        _stop = true;
        _wake.notify_all();
    }
    if (_thread.joinable())
        _thread.join();
}

bool KnownClipsFile::load()
{
    std::string text;
    const bool isUsable =
        _path.empty() || (readFile(_path, text) && (text.empty() || readKnownClips(text, _known)));
    _saved = isUsable ? _known.revision() : 0;
    if (!isUsable)
        orbLogOutput(2, logFile, __LINE__, "%s is no list of known clips\n", _path.c_str());
    return isUsable;
}

void KnownClipsFile::changed()
{
    if (_path.empty() || _known.revision() == _saved)
        return;
    const std::lock_guard lock(_mutex);
    ++_changes;
    if (!_thread.joinable())
        _thread = std::thread(&KnownClipsFile::run, this);
    _wake.notify_all();
}

void KnownClipsFile::run()
{
    std::unique_lock lock(_mutex);
    for (std::uint64_t seen = 0; !_stop || _changes != seen;) {
        _wake.wait(lock, [&] { return _stop || _changes != seen; });
        if (_changes == seen)
            return;
        const auto until = std::chrono::steady_clock::now() + pauseBeforeSaving;
        _wake.wait_until(lock, until, [&] { return _stop; });
        seen = _changes;
        lock.unlock();
        save();
        lock.lock();
    }
}

void KnownClipsFile::save()
{
    const std::uint64_t revision = _known.revision();
    if (revision == _saved)
        return;
    const std::string fresh = _path + ".new";
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(_path).parent_path(), ignored);
    const bool isSaved =
        writeFile(fresh, knownClipsText(_known.good())) && ::rename(fresh.c_str(), _path.c_str()) == 0;
    const int error = errno;
    if (isSaved)
        _saved = revision;
    else
        (void)::unlink(fresh.c_str());
    if (!isSaved && !std::exchange(_isFailing, true))
        orbLogOutput(2, logFile, __LINE__, "Known clips can't be kept in %s: %s\n", _path.c_str(),
                     std::strerror(error));
}
