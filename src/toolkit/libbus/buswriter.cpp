#include "libbus/buslayout.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bus {

// The lock on the object is what makes a writer the writer: the kernel drops it when the process
// ends in whatever way, so the next one needs no guess about who is alive. The writer reserves the
// memory of a slot before it first draws there: a full /dev/shm is an invalid view, not a signal.

struct Writer::Shared {
    std::string name;
    int fd = -1;
    std::uint8_t *memory = nullptr;
    std::uint64_t sequence = 0; ///< the frame published last
    bool begun = false;
    Format format;
    std::array<std::size_t, slotCount> reserved {}; ///< bytes with memory behind them

    Header &header() const { return *reinterpret_cast<Header *>(memory); }
    SlotHeader &slot(std::uint64_t s) const
    {
        return *reinterpret_cast<SlotHeader *>(memory + slotOffset(s));
    }

    bool attach();
    bool create();
    bool takeOver();
    bool reserve(std::size_t offset, std::size_t bytes) const;
    bool prepareSlot(std::size_t pictureBytes);
    bool isStillThere() const;
    void detach();
};

namespace {

enum class Claim { Ours, Fresh, Foreign, Gone, Refused };

/// Locks the object and tells what it is.
Claim claim(int fd)
{
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        errno = errno == EWOULDBLOCK ? EBUSY : errno;
        return Claim::Refused;
    }
    struct stat status {};
    if (fstat(fd, &status) != 0)
        return Claim::Refused;
    if (!S_ISREG(status.st_mode)) {
        errno = EPROTO;
        return Claim::Refused;
    }
    if (status.st_nlink == 0)
        return Claim::Gone;
    if (status.st_size == 0)
        return Claim::Fresh;
    Header header {};
    if (pread(fd, static_cast<void *>(&header), sizeof header, 0) != sizeof header)
        return Claim::Foreign;
    const bool whole = status.st_size == static_cast<off_t>(objectBytes);
    return whole && isOurs(header) ? Claim::Ours : Claim::Foreign;
}

} // namespace

bool Writer::Shared::attach()
{
    // A few rounds: what is found may be removed, or be somebody else's leftover that is removed
    // here.
    for (int round = 0; round < 5; ++round) {
        fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_NONBLOCK, 0660);
        if (fd < 0)
            return false;
        bool attached = false;
        switch (claim(fd)) {
        case Claim::Ours:
            attached = takeOver();
            break;
        case Claim::Fresh:
            attached = create();
            break;
        case Claim::Foreign:
            if (shm_unlink(name.c_str()) == 0 || errno == ENOENT) {
                detach();
                continue;
            }
            break;
        case Claim::Gone:
            detach();
            continue;
        case Claim::Refused:
            break;
        }
        if (attached)
            return true;
        const int reason = errno;
        detach();
        errno = reason;
        return false;
    }
    errno = EBUSY;
    return false;
}

bool Writer::Shared::create()
{
    if (ftruncate(fd, static_cast<off_t>(objectBytes)) != 0 || !reserve(0, headerSpace))
        return false;
    void *mapped = mmap(nullptr, objectBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED)
        return false;
    memory = static_cast<std::uint8_t *>(mapped);
    Header *fresh = new (memory) Header {};
    describe(*fresh);
    fresh->generation.store(1, std::memory_order_relaxed);
    orderWrites();
    fresh->magic = busMagic;
    sequence = 0;
    return true;
}

bool Writer::Shared::takeOver()
{
    void *mapped = mmap(nullptr, objectBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED)
        return false;
    memory = static_cast<std::uint8_t *>(mapped);
    // A writer that died between its last two steps has counted a frame that it did not announce.
    const std::uint32_t published = header().published.load(std::memory_order_acquire);
    sequence = header().sequence;
    if (stampOf(sequence) - published > 1)
        sequence = published;
    header().generation.fetch_add(1, std::memory_order_relaxed);
    return true;
}

bool Writer::Shared::reserve(std::size_t offset, std::size_t bytes) const
{
    int result = EINTR;
    for (int tries = 0; result == EINTR && tries < 100; ++tries)
        result = posix_fallocate(fd, static_cast<off_t>(offset), static_cast<off_t>(bytes));
    errno = result;
    return result == 0;
}

bool Writer::Shared::isStillThere() const
{
    struct stat status {};
    return fstat(fd, &status) == 0 && status.st_nlink > 0
           && status.st_size >= static_cast<off_t>(objectBytes);
}

bool Writer::Shared::prepareSlot(std::size_t pictureBytes)
{
    const std::uint64_t next = sequence + 1;
    const std::size_t start = slotOffset(next);
    std::size_t &has = reserved[static_cast<std::size_t>(next % slotCount)];
    if (has == 0 && !(reserve(start, pictureOffset) && reserve(start + audioOffset, audioSpace)))
        return false;
    if (has < pictureOffset + pictureBytes) {
        if (pictureBytes > 0 && !reserve(start + pictureOffset, pictureBytes))
            return false;
        has = pictureOffset + pictureBytes;
    }
    slot(next).begin.store(stampOf(next), std::memory_order_relaxed);
    orderWrites();
    return true;
}

void Writer::Shared::detach()
{
    if (memory != nullptr)
        munmap(memory, objectBytes);
    if (fd >= 0)
        ::close(fd);
    memory = nullptr;
    fd = -1;
    begun = false;
    reserved.fill(0);
}

Writer::Writer()
    : _d(std::make_unique<Shared>())
{
}

Writer::~Writer()
{
    _d->detach();
}

bool Writer::open(const std::string &name)
{
    _d->detach();
    _d->name = name;
    return _d->attach();
}

void Writer::close()
{
    _d->detach();
}

bool Writer::isOpen() const
{
    return _d->memory != nullptr;
}

void Writer::remove(const std::string &name)
{
    shm_unlink(name.c_str());
}

picture::View Writer::beginFrame(const Format &format)
{
    _d->begun = false;
    if (!isOpen() || !fits(format))
        return {};
    if (!_d->isStillThere()) {
        // Somebody has removed or cut the object: readers can no longer find it, so it is made
        // anew.
        _d->detach();
        if (!_d->attach())
            return {};
    }
    if (!_d->prepareSlot(picture::bytesFor(format.width, format.height)))
        return {};
    _d->begun = true;
    _d->format = format;
    return picture::viewOf(_d->memory + slotOffset(_d->sequence + 1) + pictureOffset, format.width,
                           format.height);
}

std::uint8_t *Writer::audioSlot()
{
    if (!isOpen() || (!_d->begun && !_d->prepareSlot(0)))
        return nullptr;
    return _d->memory + slotOffset(_d->sequence + 1) + audioOffset;
}

void Writer::publish(FrameInfo info)
{
    if (!isOpen() || !_d->begun)
        return;

    const std::uint64_t next = _d->sequence + 1;
    info.sequence = next;
    SlotHeader &slot = _d->slot(next);
    slot.record = recordOf(_d->format, info);
    slot.record.publishedNs = monotonicNs();
    slot.end.store(stampOf(next), std::memory_order_release);

    Header &header = _d->header();
    header.sequence = next;
    header.published.store(stampOf(next), std::memory_order_release);
    wakeWord(&header.published);
    _d->sequence = next;
    _d->begun = false;
}

} // namespace bus
