#include "libbus/buslayout.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace bus {

// A reader takes everything by pread(): an object that is cut while it is read is a short read and
// never a signal. The header is mapped only to have an address to wait on, and only the kernel
// looks there.

namespace {

constexpr int sliceMs = 30; ///< how often a waiting reader looks for a new object

bool readExactly(int fd, void *to, std::size_t bytes, std::size_t offset)
{
    auto *out = static_cast<std::uint8_t *>(to);
    while (bytes > 0) {
        const ssize_t got = pread(fd, out, bytes, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        out += got;
        offset += static_cast<std::size_t>(got);
        bytes -= static_cast<std::size_t>(got);
    }
    return true;
}

/// Tightly packed lines to where they belong in a plane.
bool readLines(int fd, const picture::View &view, int p, std::size_t offset)
{
    const std::size_t lineBytes
        = sizeof(std::uint16_t) * static_cast<std::size_t>(p == 0 ? view.width : view.width / 2);
    if (static_cast<std::size_t>(view.stride[p]) * sizeof(std::uint16_t) == lineBytes)
        return readExactly(fd, view.plane[p], lineBytes * static_cast<std::size_t>(view.height), offset);
    constexpr int atOnce = 256;
    iovec lines[atOnce];
    for (int first = 0; first < view.height; first += atOnce) {
        const int count = std::min(atOnce, view.height - first);
        for (int i = 0; i < count; ++i)
            lines[i] = {view.line(p, first + i), lineBytes};
        const auto wanted = static_cast<ssize_t>(lineBytes) * count;
        ssize_t got = -1;
        do {
            got = preadv(fd, lines, count, static_cast<off_t>(offset));
        } while (got < 0 && errno == EINTR);
        if (got != wanted)
            return false;
        offset += static_cast<std::size_t>(wanted);
    }
    return true;
}

/// Into the frame's own memory, or to where its target wants it.
bool readPicture(int fd, Frame &frame, std::size_t bytes, std::size_t offset)
{
    if (!frame.target) {
        frame.picture.resize(bytes / sizeof(std::uint16_t));
        return readExactly(fd, frame.picture.data(), bytes, offset);
    }
    frame.picture.clear();
    if (bytes == 0)
        return true;
    const picture::View view = frame.target(frame.format);
    if (!view.isValid() || view.width != frame.format.width || view.height != frame.format.height)
        return true;
    return readLines(fd, view, 0, offset) && readLines(fd, view, 1, offset + bytes / 2)
           && readLines(fd, view, 2, offset + bytes / 4 * 3);
}

struct Stamps {
    std::uint32_t begin, end;
};

/// Reads the record of frame \a stamp; false when it is not whole or not sound.
bool readRecord(int fd, std::uint32_t stamp, Record &record)
{
    const std::size_t at = slotOffset(stamp);
    Stamps before {};
    Stamps after {};
    if (!readExactly(fd, &before, sizeof before, at))
        return false;
    orderReads();
    if (!readExactly(fd, &record, sizeof record, at + offsetof(SlotHeader, record)))
        return false;
    orderReads();
    if (!readExactly(fd, &after, sizeof after, at))
        return false;
    return before.begin == stamp && before.end == stamp && after.begin == stamp
           && after.end == stamp && stampOf(record.sequence) == stamp && isSound(record);
}

} // namespace

struct Reader::Shared {
    std::string name;
    int fd = -1;
    void *mapped = nullptr;
    std::uint64_t last = 0; ///< the frame delivered last, 0 before the first
    std::uint64_t missed = 0;

    // What wake() looks at from another thread.
    std::atomic<const std::atomic<std::uint32_t> *> word = nullptr;
    std::atomic<bool> waiting = false;
    std::atomic<bool> wakeRequested = false;

    bool attach(bool fromNewest);
    void detach();
    bool replaced() const;
    bool readPublished(std::uint32_t &published) const;
    bool copyFrame(std::uint64_t sequence, Frame &frame) const;
    bool take(Frame &frame, bool inOrder, std::uint32_t &published);
    bool resync(std::uint32_t published);
};

bool Reader::Shared::attach(bool fromNewest)
{
    const int opened = shm_open(name.c_str(), O_RDONLY | O_NONBLOCK, 0);
    if (opened < 0)
        return false;

    struct stat status {};
    Header header {};
    const bool ours = fstat(opened, &status) == 0 && S_ISREG(status.st_mode)
                      && status.st_size >= static_cast<off_t>(objectBytes)
                      && readExactly(opened, &header, sizeof header, 0) && isOurs(header);
    if (!ours) {
        ::close(opened);
        errno = EPROTO;
        return false;
    }
    void *page = mmap(nullptr, sizeof(Header), PROT_READ, MAP_SHARED, opened, 0);
    if (page == MAP_FAILED) {
        const int reason = errno;
        ::close(opened);
        errno = reason;
        return false;
    }

    detach();
    fd = opened;
    mapped = page;
    word.store(&static_cast<const Header *>(page)->published);
    last = 0;
    std::uint32_t published = 0;
    if (fromNewest && readPublished(published) && published != 0)
        resync(published);
    return true;
}

void Reader::Shared::detach()
{
    word.store(nullptr);
    if (mapped != nullptr)
        munmap(mapped, sizeof(Header));
    if (fd >= 0)
        ::close(fd);
    mapped = nullptr;
    fd = -1;
}

bool Reader::Shared::replaced() const
{
    struct stat status {};
    return fstat(fd, &status) != 0 || status.st_nlink == 0
           || status.st_size < static_cast<off_t>(objectBytes);
}

bool Reader::Shared::readPublished(std::uint32_t &published) const
{
    // Twice the same: a read into which the writer's store fell is not taken for a number.
    constexpr std::size_t at = offsetof(Header, published);
    std::uint32_t first = 0;
    for (int tries = 0; tries < 100; ++tries) {
        if (!readExactly(fd, &first, sizeof first, at)
            || !readExactly(fd, &published, sizeof published, at))
            return false;
        if (first == published) {
            orderReads();
            return true;
        }
    }
    return false;
}

/// Makes the newest frame the next one.
bool Reader::Shared::resync(std::uint32_t published)
{
    Record record {};
    const bool known = readRecord(fd, published, record) && record.sequence > 0;
    last = (known ? record.sequence : published) - 1;
    return known;
}

bool Reader::Shared::copyFrame(std::uint64_t sequence, Frame &frame) const
{
    Record record {};
    if (!readRecord(fd, stampOf(sequence), record) || record.sequence != sequence)
        return false;

    takeRecord(record, frame.format, frame.info);
    const bool hasPicture = frame.info.content != Content::None;
    const std::size_t pictureBytes =
        hasPicture ? picture::bytesFor(record.width, record.height) : 0;
    const std::size_t audioBytes = hasPicture ? static_cast<std::size_t>(frame.info.samples)
                                                    * static_cast<std::size_t>(record.audioChannels)
                                                    * 3
                                              : 0;
    frame.audio.resize(audioBytes);

    const std::size_t at = slotOffset(sequence);
    const std::uint32_t stamp = stampOf(sequence);
    Stamps after {};
    bool whole = readPicture(fd, frame, pictureBytes, at + pictureOffset)
                 && readExactly(fd, frame.audio.data(), audioBytes, at + audioOffset);
    orderReads();
    whole = whole && readExactly(fd, &after, sizeof after, at) && after.begin == stamp
            && after.end == stamp;
    if (!whole) { // what has been copied so far belongs to two frames: nobody gets to see it
        frame.info = {};
        frame.picture.clear();
        frame.audio.clear();
    }
    return whole;
}

/// Copies the next frame, when there is one; \a published is what the bus has announced.
bool Reader::Shared::take(Frame &frame, bool inOrder, std::uint32_t &published)
{
    if (!readPublished(published) || published == stampOf(last))
        return false;

    const std::uint32_t ahead = published - stampOf(last);
    if (ahead > 0x7fff'ffffU && !resync(published))
        return false; // the count went backwards, and what it points to is no frame
    const std::uint64_t newest = last + static_cast<std::uint32_t>(published - stampOf(last));
    const std::uint64_t oldest = newest < slotCount ? 1 : newest - slotCount + 1;

    std::uint64_t sequence = inOrder ? std::max(last + 1, oldest) : newest;
    while (sequence <= newest && !copyFrame(sequence, frame))
        ++sequence;
    if (sequence > newest)
        return false;

    const std::uint64_t firstKept = inOrder ? sequence : std::max(last + 1, oldest);
    missed += firstKept - (last + 1);
    last = sequence;
    return true;
}

Reader::Reader()
    : _d(std::make_unique<Shared>())
{
}

Reader::~Reader()
{
    _d->detach();
}

bool Reader::open(const std::string &name)
{
    _d->detach();
    _d->name = name;
    _d->missed = 0;
    return _d->attach(true);
}

void Reader::close()
{
    _d->detach();
}

bool Reader::isOpen() const
{
    return _d->fd >= 0;
}

bool Reader::next(Frame &frame, int timeoutMs, bool inOrder)
{
    const std::int64_t deadline = monotonicNs() + std::int64_t {timeoutMs} * 1'000'000;
    while (isOpen()) {
        if (_d->wakeRequested.exchange(false))
            return false;
        std::uint32_t published = 0;
        if (_d->take(frame, inOrder, published))
            return true;
        if (_d->replaced() && _d->attach(false))
            continue;
        const std::int64_t leftMs = (deadline - monotonicNs() + 999'999) / 1'000'000;
        if (timeoutMs >= 0 && leftMs <= 0)
            return false;

        const int slice = timeoutMs < 0 || leftMs > sliceMs ? sliceMs : static_cast<int>(leftMs);
        _d->waiting.store(true);
        bool waited = true;
        if (!_d->wakeRequested.load())
            waited = waitOnWord(_d->word.load(), published, slice);
        _d->waiting.store(false);
        if (!waited) {
            const timespec pause = {0, std::min(slice, 10) * 1'000'000L};
            nanosleep(&pause, nullptr);
        }
    }
    return false;
}

std::uint64_t Reader::missed() const
{
    return _d->missed;
}

bool Reader::isAlive(int ms) const
{
    if (!isOpen())
        return false;
    for (int tries = 0; tries < 3; ++tries) {
        std::uint32_t published = 0;
        Record record {};
        if (!_d->readPublished(published) || published == 0)
            return false;
        if (!readRecord(_d->fd, published, record))
            continue;
        const std::int64_t now = monotonicNs();
        return record.publishedNs <= now
               && now - record.publishedNs <= std::int64_t {ms} * 1'000'000;
    }
    return false;
}

void Reader::wake()
{
    // The waiter may be anywhere between its last look at the flag and its sleep: it is woken again
    // until it has seen the flag. Should that take longer than a slice, it looks of its own accord.
    _d->wakeRequested.store(true);
    for (int tries = 0; tries < 1000 && _d->waiting.load() && _d->wakeRequested.load(); ++tries) {
        if (const auto *word = _d->word.load())
            wakeWord(word);
        const timespec pause = {0, 50'000};
        nanosleep(&pause, nullptr);
    }
}

} // namespace bus
