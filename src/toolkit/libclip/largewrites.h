#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include <sys/types.h>

namespace clip {

/// Writes the whole blocks of large pieces past the system's page cache, where the file system can: at 200 MB/s finding
/// new pages all the time takes longer than writing, and a clip is read much later. The rest of a piece, and all of it
/// elsewhere, goes the usual way. One thread at a time.
class LargeWrites
{
public:
    LargeWrites() = default;
    ~LargeWrites() { close(); }
    LargeWrites(const LargeWrites &) = delete;
    LargeWrites &operator=(const LargeWrites &) = delete;

    /// Bytes from which on a piece is large. Smaller ones, such as pictures in HD, are better gathered by the system.
    static constexpr std::size_t least = std::size_t(1) << 20;
    /// What is written past the cache begins at a multiple of this, in memory and in the file, and is one itself.
    static constexpr std::size_t block = 4096;

    /// As pwrite(), for a large piece or what is left of one; always the same file until close().
    ssize_t write(int descriptor, std::uint64_t offset, std::span<const std::byte> bytes);
    /// The next file is another one.
    void close();

private:
    enum class State { Untried, Open, Unable };
    struct Free
    {
        void operator()(std::byte *memory) const { std::free(memory); }
    };
    void open(int descriptor);
    ssize_t writeBlocks(std::uint64_t offset, std::span<const std::byte> bytes);

    State _state = State::Untried;
    int _descriptor = -1;                        ///< of the same file, past the cache
    std::unique_ptr<std::byte[], Free> _aligned; ///< all goes through here
};

} // namespace clip
