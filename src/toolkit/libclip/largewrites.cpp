#include "libclip/largewrites.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace clip {

namespace {

constexpr std::size_t atOnce = std::size_t(1) << 20;

} // namespace

void LargeWrites::open(int descriptor)
{
    _state = State::Unable;
    _aligned.reset(static_cast<std::byte *>(std::aligned_alloc(block, atOnce)));
    if (!_aligned) {
        return;
    }
    // Not by its name, which may be another file's by now.
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    _descriptor = ::open(path.c_str(), O_WRONLY | O_DIRECT | O_CLOEXEC);
    if (_descriptor >= 0) {
        _state = State::Open;
    }
}

void LargeWrites::close()
{
    if (_descriptor >= 0) {
        ::close(_descriptor);
    }
    _descriptor = -1;
    _aligned.reset();
    _state = State::Untried;
}

ssize_t LargeWrites::writeBlocks(std::uint64_t offset, std::span<const std::byte> bytes)
{
    const std::size_t length = std::min(atOnce, bytes.size() / block * block);
    std::memcpy(_aligned.get(), bytes.data(), length);
    return ::pwrite(_descriptor, _aligned.get(), length, off_t(offset));
}

ssize_t LargeWrites::write(int descriptor, std::uint64_t offset, std::span<const std::byte> bytes)
{
    if (_state == State::Untried) {
        open(descriptor);
    }
    std::size_t length = bytes.size();
    if (_state == State::Open) {
        const auto ahead = std::size_t((block - offset % block) % block); // of the first whole block
        if (ahead == 0 && length >= block) {
            const ssize_t done = writeBlocks(offset, bytes);
            if (done >= 0 || (errno != EINVAL && errno != EOPNOTSUPP)) {
                return done;
            }
            close();
            _state = State::Unable;
        } else if (ahead != 0) {
            length = std::min(length, ahead);
        }
    }
    return ::pwrite(descriptor, bytes.data(), length, off_t(offset));
}

} // namespace clip
