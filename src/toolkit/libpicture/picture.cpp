#include "libpicture/picture.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace picture {

View viewOf(void *memory, int width, int height)
{
    View view;
    view.width = width;
    view.height = height;
    if (memory == nullptr || width <= 0 || height <= 0)
        return view;

    const std::ptrdiff_t lines = height;
    const int chromaWidth = width / 2;
    view.plane[0] = static_cast<std::uint16_t *>(memory);
    view.plane[1] = view.plane[0] + lines * width;
    view.plane[2] = view.plane[1] + lines * chromaWidth;
    view.stride[0] = width;
    view.stride[1] = chromaWidth;
    view.stride[2] = chromaWidth;
    return view;
}

namespace {

void copyBytes(void *to, const void *from, std::size_t count)
{
    std::memcpy(to, from, count);
}

/// A line that is overwritten whole need not be fetched first: a third less goes over the memory bus.
void streamBytes(void *to, const void *from, std::size_t count)
{
#ifdef __SSE2__
    auto *target = static_cast<unsigned char *>(to);
    const auto *source = static_cast<const unsigned char *>(from);
    const std::size_t ahead = std::min(count, (64 - reinterpret_cast<std::uintptr_t>(to) % 64) % 64);
    std::memcpy(target, source, ahead);
    std::size_t i = ahead;
    for (; i + 64 <= count; i += 64) {
        __m128i part[4];
        std::memcpy(part, source + i, sizeof part);
        for (std::size_t k = 0; k < 4; ++k)
            _mm_stream_si128(reinterpret_cast<__m128i *>(target + i + 16 * k), part[k]);
    }
    std::memcpy(target + i, source + i, count - i);
#else
    std::memcpy(to, from, count);
#endif
}

template <typename Copy>
void copyPlanes(const View &from, const View &to, const Copy &copyLine)
{
    if (!from.isValid() || !to.isValid() || from.width != to.width || from.height != to.height)
        return;

    for (int p = 0; p < 3; ++p) {
        const std::size_t samples = static_cast<std::size_t>(p == 0 ? from.width : from.width / 2);
        const std::size_t lineBytes = samples * sizeof(std::uint16_t);
        if (from.stride[p] == to.stride[p] && static_cast<std::size_t>(from.stride[p]) == samples) {
            copyLine(to.plane[p], from.plane[p], lineBytes * static_cast<std::size_t>(from.height));
            continue;
        }
        for (int y = 0; y < from.height; ++y)
            copyLine(to.line(p, y), from.line(p, y), lineBytes);
    }
}

} // namespace

void copy(const View &from, const View &to)
{
    copyPlanes(from, to, copyBytes);
}

void copyOut(const View &from, const View &to)
{
    copyPlanes(from, to, streamBytes);
#ifdef __SSE2__
    _mm_sfence(); // others see these stores before what is stored from here on
#endif
}

} // namespace picture
