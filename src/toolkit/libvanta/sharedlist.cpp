#include "libvanta/sharedlist.h"

#include "libvanta/cliprecord.h"
#include "libvanta/ownedmutex.h"

#include <boost/interprocess/mapped_region.hpp>
#include <boost/interprocess/shared_memory_object.hpp>
#include <boost/interprocess/sync/named_mutex.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ipc = boost::interprocess;

namespace {

constexpr std::uint32_t magic = 0x434c5053; // "CLPS"
constexpr std::uint32_t version = 2;
/// A reader is on an event loop, a writer is not.
constexpr int readPatienceMs = 5;
constexpr int writePatienceMs = 500;

/// What stands at the start of the shared memory, in host byte order. The holder's mark lives its own life.
struct Header {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint64_t length;
    std::uint32_t crc;
    std::uint32_t reserved;
    std::uint64_t holder;
};
static_assert(sizeof(Header) == 32 && offsetof(Header, holder) == 24);

constexpr std::array<std::uint32_t, 256> crcTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t crc = i;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
        table[i] = crc;
    }
    return table;
}();

std::uint32_t crc32(const char *bytes, std::size_t length)
{
    std::uint32_t crc = 0xffffffffu;
    for (std::size_t i = 0; i < length; ++i)
        crc = (crc >> 8) ^ crcTable[(crc ^ static_cast<unsigned char>(bytes[i])) & 0xff];
    return ~crc;
}

} // namespace

namespace lumo::media {

struct SharedList::Private {
    std::unique_ptr<ipc::named_mutex> mutex;
    ipc::shared_memory_object memory;
    ipc::mapped_region region;
    char *base() const { return static_cast<char *>(region.get_address()); }
    std::uint64_t &holder() const { return reinterpret_cast<Header *>(base())->holder; }
    std::size_t room() const { return region.get_size() - sizeof(Header); }
    /// Memory that somebody cut behind our back must not be touched.
    bool isWhole() const
    {
        ipc::offset_t size = 0;
        return memory.get_size(size) && size == static_cast<ipc::offset_t>(region.get_size());
    }
};

SharedList::SharedList(const std::string &prefix, std::size_t size)
    : _d(std::make_unique<Private>())
{
    try {
        ipc::shared_memory_object memory(ipc::open_or_create, (prefix + "_shm").c_str(),
                                         ipc::read_write);
        ipc::offset_t current = 0;
        if (!memory.get_size(current) || current != static_cast<ipc::offset_t>(size))
            memory.truncate(static_cast<ipc::offset_t>(size));
        _d->mutex =
            std::make_unique<ipc::named_mutex>(ipc::open_or_create, (prefix + "_mutex").c_str());
        _d->region = ipc::mapped_region(memory, ipc::read_write, 0, size);
        _d->memory.swap(memory);
    } catch (const ipc::interprocess_exception &) {
        _d->mutex.reset();
    }
}

SharedList::~SharedList() = default;

bool SharedList::isOpen() const
{
    return _d->mutex && _d->region.get_size() > sizeof(Header) && _d->isWhole();
}

bool SharedList::load(std::list<Clip> &clips) const
{
    if (!isOpen())
        return false;
    std::string bytes;
    Header header;
    {
        const OwnedMutex lock(*_d->mutex, _d->holder(), readPatienceMs, OwnedMutex::LeaveAlone);
        std::memcpy(&header, _d->base(), sizeof header);
        if (header.magic != magic || header.version != version || header.length > _d->room())
            return false;
        bytes.assign(_d->base() + sizeof header, _d->base() + sizeof header + header.length);
    }
    return crc32(bytes.data(), bytes.size()) == header.crc && clipListOf(bytes, clips);
}

bool SharedList::store(const std::list<Clip> &clips)
{
    if (!isOpen())
        return false;
    const std::string bytes = listRecordOf(clips);
    if (bytes.size() > _d->room())
        return false;
    const Header header{magic, version, bytes.size(), crc32(bytes.data(), bytes.size()), 0, 0};

    const OwnedMutex lock(*_d->mutex, _d->holder(), writePatienceMs, OwnedMutex::TakeOver);
    if (!lock.isHeld())
        return false;
    std::memcpy(_d->base() + sizeof header, bytes.data(), bytes.size());
    std::memcpy(_d->base(), &header, offsetof(Header, holder));
    return true;
}

void SharedList::remove(const std::string &prefix)
{
    ipc::shared_memory_object::remove((prefix + "_shm").c_str());
    ipc::named_mutex::remove((prefix + "_mutex").c_str());
}

} // namespace lumo::media
