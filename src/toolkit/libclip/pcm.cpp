#include "libclip/pcm.h"

namespace clip {

void toLittle24(const PcmFormat &format, std::span<const std::byte> in, std::span<std::byte> out,
                std::size_t stride)
{
    const auto width = std::size_t(format.bytes);
    if (width < 2 || width > 4 || stride < 1) {
        return;
    }
    for (std::size_t from = 0, to = 0; in.size() - from >= width && to + 3 <= out.size();
         from += width, to += 3 * stride) {
        for (std::size_t i = 0; i < 3; ++i) {
            // Byte i of the result, least significant first, is this many below the top one.
            const std::size_t belowTop = 2 - i;
            if (belowTop >= width) {
                out[to + i] = std::byte(0);
            } else {
                out[to + i] = in[from + (format.isBigEndian ? belowTop : width - 1 - belowTop)];
            }
        }
    }
}

} // namespace clip
