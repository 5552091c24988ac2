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

/// Memory for a picture, \a bytes long from a border of 64 bytes at least; in large pages where the system has them,
/// which come in a fraction of the time and are found faster. Nothing when there is none. Not set to anything.
LargeMemory allocateLarge(std::size_t bytes);

} // namespace ferin
