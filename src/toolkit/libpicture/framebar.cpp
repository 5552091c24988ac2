#include "libpicture/framebar.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace picture {

// The strip, from the left: one white cell, the number's 32 bits from the highest, the checksum's
// 16 bits from the highest, one black cell. White is a one. Cells divide the width evenly, so that
// the bar scales with the picture; the two outer cells always show both levels, so that the reader
// can set its threshold from the picture itself, whatever a look-up table did to it.

namespace {

constexpr int dataBits = 48;
constexpr int cells = dataBits + 2;
constexpr int narrowest = 128;
constexpr std::uint16_t black = 64;
constexpr std::uint16_t white = 940;
constexpr std::uint16_t neutral = 512;

std::uint16_t checksum(std::uint32_t number)
{
    // CRC-16 with polynomial 0x1021. The start value keeps number 0 from being all black.
    std::uint32_t crc = 0xffff;
    for (int shift = 24; shift >= 0; shift -= 8) {
        crc ^= ((number >> shift) & 0xffU) << 8;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000U) != 0 ? (crc << 1) ^ 0x1021U : crc << 1;
        crc &= 0xffffU;
    }
    return static_cast<std::uint16_t>(crc);
}

/// Where cell \a index begins; cell \a cells begins at the right edge.
int cellStart(int width, int index)
{
    return static_cast<int>(static_cast<std::int64_t>(width) * index / cells);
}

/// The mean of the inner half of a cell over some lines; the edges are left to the codec's ringing.
int cellMean(const View &view, int index, int firstLine, int endLine)
{
    const int start = cellStart(view.width, index);
    const int end = cellStart(view.width, index + 1);
    const int margin = (end - start) / 4;
    const int first = start + margin;
    const int last = std::max(first + 1, end - margin);
    const int step = std::max(1, (last - first) / 8);

    int sum = 0;
    int count = 0;
    for (int y = firstLine; y < endLine; ++y) {
        const std::uint16_t *line = view.line(0, y);
        for (int x = first; x < last; x += step) {
            sum += line[x];
            ++count;
        }
    }
    return sum / count;
}

std::optional<std::uint32_t> readLines(const View &view, int firstLine, int endLine)
{
    std::array<int, cells> level {};
    for (int i = 0; i < cells; ++i)
        level[static_cast<std::size_t>(i)] = cellMean(view, i, firstLine, endLine);

    const int contrast = level.front() - level.back();
    if (contrast < 128)
        return std::nullopt;
    const int threshold = level.back() + contrast / 2;
    const int doubt = contrast / 8; // no cell of a real bar comes this near to the threshold

    std::uint64_t bits = 0;
    for (int i = 1; i <= dataBits; ++i) {
        const int above = level[static_cast<std::size_t>(i)] - threshold;
        if (above > -doubt && above < doubt)
            return std::nullopt;
        bits = bits << 1 | (above > 0 ? 1U : 0U);
    }

    const auto number = static_cast<std::uint32_t>(bits >> 16);
    if (static_cast<std::uint16_t>(bits & 0xffffU) != checksum(number))
        return std::nullopt;
    return number;
}

} // namespace

void writeFrameNumber(const View &view, std::uint32_t number)
{
    if (!view.isValid() || view.width < narrowest || view.height < frameBarHeight)
        return;

    const std::uint64_t bits = static_cast<std::uint64_t>(number) << 16 | checksum(number);
    std::uint16_t *luma = view.line(0, 0);
    for (int i = 0; i < cells; ++i) {
        const bool one = i == 0 || (i <= dataBits && ((bits >> (dataBits - i)) & 1U) != 0);
        std::fill(luma + cellStart(view.width, i), luma + cellStart(view.width, i + 1),
                  one ? white : black);
    }
    const std::size_t lumaBytes = static_cast<std::size_t>(view.width) * sizeof(std::uint16_t);
    for (int y = 1; y < frameBarHeight; ++y)
        std::memcpy(view.line(0, y), luma, lumaBytes);
    for (int p = 1; p < 3; ++p) {
        for (int y = 0; y < frameBarHeight; ++y)
            std::fill_n(view.line(p, y), view.width / 2, neutral);
    }
}

std::optional<std::uint32_t> readFrameNumber(const View &view)
{
    // The bar as drawn, in a picture scaled to a half, in one scaled to a quarter. The first rung
    // takes the most samples; the others lie inside a bar that has shrunk with its picture.
    static constexpr int rungs[][2] = {{8, 24}, {4, 12}, {2, 6}};

    if (!view.isValid() || view.width < cells)
        return std::nullopt;
    for (const auto &rung : rungs) {
        if (rung[1] > view.height)
            continue;
        if (const auto number = readLines(view, rung[0], rung[1]))
            return number;
    }
    return std::nullopt;
}

} // namespace picture
