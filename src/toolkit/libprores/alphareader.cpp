#include "libprores/alphareader.h"

#include "libprores/bitreader.h"

#include <algorithm>

namespace prores {

// A value is told by its difference to the one before, in few bits where it is small; then how often it repeats.
bool readAlpha(const PlaneBits &bits, int codedBits, std::uint16_t *to, std::size_t count)
{
    BitReader reader {bits.begin, bits.begin + bits.bytes};
    const bool isWide = codedBits == 16;
    const std::uint32_t opaque = isWide ? 0xffff : 0xff;
    const int smallBits = isWide ? 7 : 4;
    std::uint32_t value = opaque;
    for (std::size_t i = 0; i < count;) {
        if (reader.read(1) != 0) {
            value += reader.read(codedBits);
        } else {
            const std::uint32_t small = reader.read(smallBits);
            const std::uint32_t magnitude = (small >> 1) + 1;
            value += (small & 1) != 0 ? 0 - magnitude : magnitude;
        }
        value &= opaque;
        const auto sample = static_cast<std::uint16_t>(isWide ? value >> 6 : value << 2 | value >> 6);
        to[i++] = sample;
        reader.refill();
        // The last value's repeats may be left out.
        if (i == count || (reader.next == reader.end && reader.count <= 0))
            continue;
        if (reader.read(1) != 0)
            continue;
        std::size_t repeats = reader.read(4);
        if (repeats == 0)
            repeats = reader.read(11);
        repeats = std::min(repeats, count - i);
        std::fill_n(to + i, repeats, sample);
        i += repeats;
    }
    return reader.count >= 0;
}

} // namespace prores
