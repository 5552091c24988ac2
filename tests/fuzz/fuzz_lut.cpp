// The text of a look-up table file: whatever it is, the answer is a table of codes or a line of plain text.
// links: vanta

#include "libvanta/lututils.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const int entries = data[0] < 250 ? data[0] : 1024;
    const auto plane = static_cast<std::size_t>(entries);
    std::vector<short> planes(plane * 3, -1);
    int entriesRead = -1;
    std::string error;
    const bool isGood = lumo::utils::LUT_Utils::parseText(text, planes.data(), planes.data() + plane,
                                                          planes.data() + 2 * plane, entries, entriesRead, error);
    const bool isPlain = error.size() < 200 && std::ranges::all_of(error, [](char c) { return c >= ' ' && c <= '~'; });
    const bool isFilled = isGood && entriesRead == entries;
    const bool isRight = std::ranges::all_of(planes, [&](short value) {
        return isFilled ? value >= 0 && value <= 1023 : value == -1;
    });
    if (isGood != error.empty() || !isPlain || !isRight || entriesRead < 0 || entriesRead > 65536)
        std::abort();
    return 0;
}
