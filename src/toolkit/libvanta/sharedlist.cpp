#include "libvanta/sharedlist.h"

#include "clipcache.pb.h"

#include <boost/interprocess/mapped_region.hpp>
#include <boost/interprocess/shared_memory_object.hpp>
#include <boost/interprocess/sync/named_mutex.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

namespace ipc = boost::interprocess;

namespace {

constexpr std::uint32_t magic = 0x434c5053; // "CLPS"
constexpr std::uint32_t version = 1;
/// A reader is on an event loop, a writer is not.
constexpr int readPatienceMs = 5;
constexpr int writePatienceMs = 500;

struct Header {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint64_t length;
    std::uint32_t crc;
    std::uint32_t reserved;
};

std::uint32_t crc32(const char *bytes, std::size_t length)
{
    std::uint32_t crc = 0xffffffffu;
    for (std::size_t i = 0; i < length; ++i) {
        crc ^= static_cast<unsigned char>(bytes[i]);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

/// Holds the mutex, or after the time-out goes on without: its holder is dead or stopped.
class PatientLock
{
public:
    PatientLock(ipc::named_mutex &mutex, int patienceMs) : _mutex(mutex)
    {
        const auto until = boost::posix_time::microsec_clock::universal_time() +
                           boost::posix_time::milliseconds(patienceMs);
        _held = _mutex.timed_lock(until);
    }
    ~PatientLock()
    {
        if (_held)
            _mutex.unlock();
    }
    PatientLock(const PatientLock &) = delete;
    PatientLock &operator=(const PatientLock &) = delete;
    bool isHeld() const { return _held; }

private:
    ipc::named_mutex &_mutex;
    bool _held = false;
};

Clip toClip(const lumo::media::ClipRecord &record)
{
    Clip clip;
    clip.setName(record.name());
    clip.setPath(record.path());
    clip.setFrameCount(record.frames());
    clip.setFileSize(record.file_size());
    clip.setModified(record.modified());
    clip.setFormat(record.format());
    clip.setTimecode(record.timecode());
    clip.setComplete(record.complete());
    return clip;
}

void fillRecord(const Clip &clip, lumo::media::ClipRecord &record)
{
    record.set_name(clip.getName());
    record.set_path(clip.path());
    record.set_frames(clip.getFrameCount());
    record.set_file_size(clip.fileSize());
    record.set_modified(clip.modified());
    record.set_format(clip.format());
    record.set_timecode(clip.timecode());
    record.set_complete(clip.isComplete());
}

} // namespace

namespace lumo::media {

struct SharedList::Private {
    std::string mutexName;
    std::unique_ptr<ipc::named_mutex> mutex;
    ipc::mapped_region region;
    char *base() const { return static_cast<char *>(region.get_address()); }
    std::size_t room() const { return region.get_size() - sizeof(Header); }
};

SharedList::SharedList(const std::string &prefix, std::size_t size)
    : _d(std::make_unique<Private>())
{
    try {
        _d->mutexName = prefix + "_mutex";
        ipc::shared_memory_object memory(ipc::open_or_create, (prefix + "_shm").c_str(),
                                         ipc::read_write);
        ipc::offset_t current = 0;
        if (!memory.get_size(current) || current != static_cast<ipc::offset_t>(size))
            memory.truncate(static_cast<ipc::offset_t>(size));
        _d->mutex =
            std::make_unique<ipc::named_mutex>(ipc::open_or_create, _d->mutexName.c_str());
        _d->region = ipc::mapped_region(memory, ipc::read_write, 0, size);
    } catch (const ipc::interprocess_exception &) {
        _d->mutex.reset();
    }
}

SharedList::~SharedList() = default;

bool SharedList::isOpen() const
{
    return _d->mutex && _d->region.get_size() > sizeof(Header);
}

bool SharedList::load(std::list<Clip> &clips) const
{
    if (!isOpen())
        return false;
    std::vector<char> bytes;
    Header header;
    {
        const PatientLock lock(*_d->mutex, readPatienceMs);
        std::memcpy(&header, _d->base(), sizeof header);
        if (header.magic != magic || header.version != version || header.length > _d->room())
            return false;
        bytes.assign(_d->base() + sizeof header, _d->base() + sizeof header + header.length);
    }
    ClipList list;
    if (crc32(bytes.data(), bytes.size()) != header.crc ||
        !list.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())))
        return false;
    clips.clear();
    for (const ClipRecord &record : list.clip())
        clips.push_back(toClip(record));
    return true;
}

bool SharedList::store(const std::list<Clip> &clips)
{
    if (!isOpen())
        return false;
    ClipList list;
    for (const Clip &clip : clips)
        fillRecord(clip, *list.add_clip());
    const std::string bytes = list.SerializeAsString();
    if (bytes.size() > _d->room())
        return false;
    const Header header{magic, version, bytes.size(), crc32(bytes.data(), bytes.size()), 0};

    auto lock = std::make_unique<PatientLock>(*_d->mutex, writePatienceMs);
    if (!lock->isHeld()) {
        // The holder died with it: the next ones get a fresh mutex under the same name.
        lock.reset();
        try {
            ipc::named_mutex::remove(_d->mutexName.c_str());
            _d->mutex =
                std::make_unique<ipc::named_mutex>(ipc::open_or_create, _d->mutexName.c_str());
        } catch (const ipc::interprocess_exception &) {
            return false;
        }
        lock = std::make_unique<PatientLock>(*_d->mutex, writePatienceMs);
    }
    std::memcpy(_d->base() + sizeof header, bytes.data(), bytes.size());
    std::memcpy(_d->base(), &header, sizeof header);
    return true;
}

void SharedList::remove(const std::string &prefix)
{
    ipc::shared_memory_object::remove((prefix + "_shm").c_str());
    ipc::named_mutex::remove((prefix + "_mutex").c_str());
}

} // namespace lumo::media
