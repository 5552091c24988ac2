#include "libvanta/shmstring.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t word = sizeof(std::uint64_t);

} // namespace

ShmString::ShmString(const char *name) : _name(name) {}

ShmString::~ShmString()
{
    if (_memory)
        munmap(_memory, _size);
}

bool ShmString::create(int size)
{
    if (_memory || size < static_cast<int>(word))
        return false;
    const int fd = shm_open(_name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const bool sized = ftruncate(fd, size) == 0;
    void *memory = sized ? mmap(nullptr, static_cast<std::size_t>(size), PROT_READ | PROT_WRITE,
                                MAP_SHARED, fd, 0)
                         : MAP_FAILED;
    ::close(fd);
    if (memory == MAP_FAILED)
        return false;
    _memory = static_cast<char *>(memory);
    _size = static_cast<std::size_t>(size);
    return true;
}

/// Written in whole words from the front, each in one store. A text of more than one word can be met half
/// written; a reader that reads twice alike has it whole.
void ShmString::set(const char *text)
{
    if (!_memory)
        return;
    const std::size_t length = std::min(std::strlen(text), _size - 1);
    std::size_t at = 0;
    for (; at + word <= _size && at <= length; at += word) {
        char bytes[word] = {};
        std::memcpy(bytes, text + at, std::min(word, length - at));
        std::uint64_t value;
        std::memcpy(&value, bytes, word);
        std::atomic_ref<std::uint64_t>(*reinterpret_cast<std::uint64_t *>(_memory + at))
            .store(value, std::memory_order_release);
    }
    for (; at <= length && at < _size; ++at)
        _memory[at] = at < length ? text[at] : '\0';
}

std::string ShmString::get() const
{
    if (!_memory)
        return std::string();
    return std::string(_memory, strnlen(_memory, _size));
}
