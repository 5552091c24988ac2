#include "libpicture/picture.h"

#include <cstring>

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

void copy(const View &from, const View &to)
{
    if (!from.isValid() || !to.isValid() || from.width != to.width || from.height != to.height)
        return;

    for (int p = 0; p < 3; ++p) {
        const std::size_t samples = static_cast<std::size_t>(p == 0 ? from.width : from.width / 2);
        const std::size_t lineBytes = samples * sizeof(std::uint16_t);
        if (from.stride[p] == to.stride[p] && static_cast<std::size_t>(from.stride[p]) == samples) {
            const auto lines = static_cast<std::size_t>(from.height);
            std::memcpy(to.plane[p], from.plane[p], lineBytes * lines);
            continue;
        }
        for (int y = 0; y < from.height; ++y)
            std::memcpy(to.line(p, y), from.line(p, y), lineBytes);
    }
}

} // namespace picture
