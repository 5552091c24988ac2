#include "libclip/pcm.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace clip {

namespace {

/// A fraction of full scale as a whole number of 24 bits; what is beyond full scale is cut off.
std::int32_t wholeOf(const PcmFormat &format, std::span<const std::byte> bytes)
{
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bits = bits << 8 | std::to_integer<std::uint64_t>(bytes[format.isBigEndian ? i : bytes.size() - 1 - i]);
    }
    const double value = bytes.size() == 8 ? std::bit_cast<double>(bits)
                                           : double(std::bit_cast<float>(std::uint32_t(bits)));
    constexpr double fullScale = 8'388'608.0;
    return std::isnan(value) ? 0 : std::int32_t(std::lround(std::clamp(value * fullScale, -fullScale, fullScale - 1)));
}

void floatsToLittle24(const PcmFormat &format, std::span<const std::byte> in, std::span<std::byte> out)
{
    const auto width = std::size_t(format.bytes);
    for (std::size_t from = 0, to = 0; in.size() - from >= width && to + 3 <= out.size(); from += width, to += 3) {
        const auto whole = std::uint32_t(wholeOf(format, in.subspan(from, width)));
        for (std::size_t i = 0; i < 3; ++i) {
            out[to + i] = std::byte(whole >> (8 * i) & 0xff);
        }
    }
}

} // namespace

void toLittle24(const PcmFormat &format, std::span<const std::byte> in, std::span<std::byte> out)
{
    const auto width = std::size_t(format.bytes);
    if (format.isFloat && (width == 4 || width == 8)) {
        floatsToLittle24(format, in, out);
        return;
    }
    if (format.isFloat || width < 2 || width > 4) {
        return;
    }
    for (std::size_t from = 0, to = 0; in.size() - from >= width && to + 3 <= out.size();
         from += width, to += 3) {
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
