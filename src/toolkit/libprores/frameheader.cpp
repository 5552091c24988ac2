#include "libprores/frameheader.h"

#include "libprores/tables.h"

#include <algorithm>

namespace prores {

namespace {

struct Rate {
    int numerator;
    int denominator;
};

// By code, from 1.
constexpr Rate rates[] = {{24000, 1001}, {24, 1}, {25, 1}, {30000, 1001}, {30, 1}, {50, 1}, {60000, 1001},
                          {60, 1}, {100, 1}, {120000, 1001}, {120, 1}};

int rateCode(const Format &format)
{
    const auto rate = std::ranges::find_if(rates, [&format](const Rate &row) {
        return std::int64_t {row.numerator} * format.rateDenominator
            == std::int64_t {format.rateNumerator} * row.denominator;
    });
    return rate == std::end(rates) ? 0 : static_cast<int>(rate - std::begin(rates)) + 1;
}

} // namespace

void writeFrameHeader(const Format &format, std::size_t frameBytes, std::uint8_t *to)
{
    std::fill_n(to, frameHeaderBytes, std::uint8_t {0});
    writeBig32(to, frameBytes);
    writeBig32(to + 4, 0x69637066); // icpf
    std::uint8_t *header = to + 8;
    writeBig16(header, 148);
    writeBig16(header + 2, format.is444() ? 1 : 0);
    writeBig32(header + 4, 0x72766431); // the encoder: rvd1
    writeBig16(header + 8, static_cast<std::size_t>(format.width));
    writeBig16(header + 10, static_cast<std::size_t>(format.height));
    const int chroma = format.is444() ? 3 : 2;
    header[12] = static_cast<std::uint8_t>(chroma << 6 | static_cast<int>(format.scan) << 2);
    header[13] = static_cast<std::uint8_t>((format.aspect & 15) << 4 | rateCode(format));
    header[14] = format.primaries;
    header[15] = format.transfer;
    header[16] = format.matrix;
    header[17] = format.hasAlpha ? 2 : 0;
    header[19] = 3;
    std::ranges::copy(lumaMatrix(format.profile), header + 20);
    std::ranges::copy(chromaMatrix(format.profile), header + 84);
}

void writePictureHeader(int slices, std::size_t pictureBytes, std::uint8_t *to)
{
    to[0] = pictureHeaderBytes << 3;
    writeBig32(to + 1, pictureBytes);
    writeBig16(to + 5, static_cast<std::size_t>(slices));
    to[7] = 3 << 4; // slices are up to 8 macroblocks wide
}

} // namespace prores
