#include "libprores/alpha.h"

#include "libprores/bitwriter.h"

namespace prores {

// Each new value is told by its difference to the one before, then how often it repeats. The value before the
// first is opaque.
std::uint8_t *codeAlpha(const std::uint16_t *samples, std::size_t count, std::uint8_t *to)
{
    constexpr int smallest = 64;
    constexpr std::size_t mostRepeats = 2047;
    BitWriter writer(to);
    std::uint16_t last = 0xffff;
    for (std::size_t i = 0; i < count;) {
        const auto difference = static_cast<std::int16_t>(static_cast<std::uint16_t>(samples[i] - last));
        const int magnitude = difference < 0 ? -difference : difference;
        if (magnitude != 0 && magnitude <= smallest)
            writer.put(static_cast<std::uint64_t>(magnitude - 1) << 1 | (difference < 0 ? 1 : 0), 8);
        else
            writer.put(0x10000 | static_cast<std::uint16_t>(difference), 17);
        last = samples[i++];
        std::size_t repeats = 0;
        while (i < count && repeats < mostRepeats && samples[i] == last) {
            ++repeats;
            ++i;
        }
        if (repeats == 0)
            writer.put(1, 1);
        else if (repeats < 16)
            writer.put(repeats, 5);
        else
            writer.put(repeats, 16);
    }
    return writer.end();
}

} // namespace prores
