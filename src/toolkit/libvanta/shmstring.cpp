#include "libvanta/shmstring.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#if defined(__aarch64__)
#include <sys/auxv.h>
#endif

namespace
{

constexpr int lineSize = 16;
constexpr int largestSize = 4096;
/// A writer that is still at it after these has lost the processor for a while. One that has not
/// got it back after as many naps has died.
constexpr int readingsWithoutNap = 1000;
constexpr int mostNaps = 2000;
constexpr timespec nap = {0, 1'000'000};

/// Moved with one instruction where the machine has one for it, else in words.
using Line [[gnu::vector_size(16), gnu::may_alias]] = std::uint8_t;

void storeLine(char *to, const char *from)
{
    Line line;
    std::memcpy(&line, from, lineSize);
    *reinterpret_cast<volatile Line *>(to) = line;
}

void loadLine(char *to, const char *from)
{
    const Line line = *reinterpret_cast<const volatile Line *>(from);
    std::memcpy(to, &line, lineSize);
}

std::atomic_ref<char> lastByte(char *memory, std::size_t size)
{
    return std::atomic_ref<char>(memory[size - 1]);
}

} // namespace

bool ShmString::machineStoresLines()
{
#if defined(__x86_64__)
    return __builtin_cpu_supports("avx");
#elif defined(__aarch64__)
    constexpr unsigned long unalignedAtomics = 1ul << 25; // HWCAP_USCAT, which brings this with it
    return getauxval(AT_HWCAP) & unalignedAtomics;
#else
    return false;
#endif
}

ShmString::ShmString(const char *name, bool storesLines) : _name(name), _storesLines(storesLines) {}

ShmString::~ShmString()
{
    if (_memory)
        munmap(_memory, _size);
}

bool ShmString::create(int size)
{
    if (_memory || size <= 0 || size > largestSize)
        return false;
    const int bytes = (size + lineSize - 1) / lineSize * lineSize;
    const int fd = shm_open(_name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    // Readers of any user may read, whatever mask the daemon was started with. Another owner's object
    // is taken as it is.
    (void)fchmod(fd, 0644);
    // Room that is not there shows now and not as a signal at the first write.
    const bool isSized = ftruncate(fd, bytes) == 0 && posix_fallocate(fd, 0, bytes) == 0;
    const bool isMapped = isSized && map(fd, static_cast<std::size_t>(bytes), true);
    ::close(fd);
    if (isMapped)
        std::fill(_memory + strnlen(_memory, _size - 1), _memory + _size, '\0');
    return isMapped;
}

bool ShmString::open()
{
    const int fd = _memory ? -1 : shm_open(_name.c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0)
        return false;
    struct stat st = {};
    const bool isSized = fstat(fd, &st) == 0 && st.st_size > 0 && st.st_size <= largestSize &&
                         st.st_size % lineSize == 0;
    const bool isMapped = isSized && map(fd, static_cast<std::size_t>(st.st_size), false);
    ::close(fd);
    return isMapped;
}

bool ShmString::map(int fd, std::size_t size, bool isWriter)
{
    void *memory =
        mmap(nullptr, size, isWriter ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED)
        return false;
    _memory = static_cast<char *>(memory);
    _size = size;
    _isWriter = isWriter;
    return true;
}

void ShmString::set(const char *text)
{
    if (!_isWriter)
        return;
    std::string bytes(text, strnlen(text, _size - 1));
    const bool fitsOneLine = bytes.size() < lineSize && strnlen(_memory, lineSize) < lineSize;
    bytes.resize(_size);
    if (_storesLines && fitsOneLine)
        storeLine(_memory, bytes.data());
    else
        writeLines(bytes);
}

/// The last byte is up while lines are written. Where it belongs to the old text or the new it is
/// not.
void ShmString::writeLines(const std::string &bytes)
{
    const auto last = lastByte(_memory, _size);
    if (_memory[_size - 2] == '\0' && bytes[_size - 2] == '\0')
        last.store(1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    for (std::size_t at = 0; at + lineSize < _size; at += lineSize)
        storeLine(_memory + at, bytes.data() + at);
    std::string end = bytes.substr(_size - lineSize);
    end.back() = last.load(std::memory_order_relaxed);
    storeLine(_memory + _size - lineSize, end.data());
    last.store(0, std::memory_order_release);
}

std::string ShmString::read() const
{
    if (!_memory)
        return std::string();
    if (_storesLines) {
        char line[lineSize];
        loadLine(line, _memory);
        if (line[lineSize - 1] == '\0')
            return std::string(line);
    }
    return readLines();
}

/// False when lines are being written; \a to then holds some of the old text and some of the new.
bool ShmString::copyAtRest(std::string &to) const
{
    const auto last = lastByte(_memory, _size);
    const bool wasAtRest = last.load(std::memory_order_acquire) == 0;
    for (std::size_t at = 0; at < _size; at += lineSize)
        loadLine(to.data() + at, _memory + at);
    std::atomic_thread_fence(std::memory_order_acquire);
    return wasAtRest && last.load(std::memory_order_relaxed) == 0;
}

std::string ShmString::readLines() const
{
    std::string text(_size, '\0');
    std::string again(_size, '\0');
    for (int i = 0; i < readingsWithoutNap + mostNaps; ++i) {
        if (copyAtRest(text) && copyAtRest(again) && text == again)
            break;
        if (i >= readingsWithoutNap)
            nanosleep(&nap, nullptr);
    }
    return std::string(text.data(), strnlen(text.data(), _size - 1));
}
