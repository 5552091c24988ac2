#include "liborb/drivers/software/largememory.h"

#include <sys/mman.h>

namespace ferin {

namespace {

constexpr std::size_t lineBytes = 64;
constexpr std::size_t largePage = std::size_t(2) << 20;

} // namespace

LargeMemory allocateLarge(std::size_t bytes)
{
    const std::size_t alignment = bytes < largePage ? lineBytes : largePage;
    const std::size_t whole = (bytes + alignment - 1) / alignment * alignment;
    LargeMemory memory(static_cast<std::uint8_t *>(std::aligned_alloc(alignment, whole)));
#ifdef MADV_HUGEPAGE
    if (memory && alignment == largePage)
        (void)::madvise(memory.get(), whole, MADV_HUGEPAGE); // refused: small pages it is
#endif
    return memory;
}

} // namespace ferin
