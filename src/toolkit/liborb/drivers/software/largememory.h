#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace ferin {

struct FreeMemory {
    void operator()(std::uint8_t *memory) const { std::free(memory); }
};
using LargeMemory = std::unique_ptr<std::uint8_t, FreeMemory>;

/// Memory for a picture, \a bytes long from a border of 64 bytes at least; in large pages where the system has them: a
/// picture of 2160p that is touched for the first time takes 3 to 5 ms in them, and 16 to 22 ms in small ones while the
/// machine has had no use for the memory. Nothing when there is none. Not set to anything.
LargeMemory allocateLarge(std::size_t bytes);

} // namespace ferin
