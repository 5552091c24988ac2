#include "libprores/tables.h"

namespace prores {

namespace {

// clang-format off
constexpr Matrix fineMatrix = {
     4,  4,  4,  4,  4,  4,  4,  4,
     4,  4,  4,  4,  4,  4,  4,  4,
     4,  4,  4,  4,  4,  4,  4,  4,
     4,  4,  4,  4,  4,  4,  4,  5,
     4,  4,  4,  4,  4,  4,  5,  5,
     4,  4,  4,  4,  4,  5,  5,  6,
     4,  4,  4,  4,  5,  5,  6,  7,
     4,  4,  4,  4,  5,  6,  7,  7,
};

constexpr Matrix standardMatrix = {
     4,  4,  5,  5,  6,  7,  7,  9,
     4,  4,  5,  6,  7,  7,  9,  9,
     5,  5,  6,  7,  7,  9,  9, 10,
     5,  5,  6,  7,  7,  9,  9, 10,
     5,  6,  7,  7,  8,  9, 10, 12,
     6,  7,  7,  8,  9, 10, 12, 15,
     6,  7,  7,  9, 10, 11, 14, 17,
     7,  7,  9, 10, 11, 14, 17, 21,
};

constexpr Matrix ltMatrix = {
     4,  5,  6,  7,  9, 11, 13, 15,
     5,  5,  7,  8, 11, 13, 15, 17,
     6,  7,  9, 11, 13, 15, 15, 17,
     7,  7,  9, 11, 13, 15, 17, 19,
     7,  9, 11, 13, 14, 16, 19, 23,
     9, 11, 13, 14, 16, 19, 23, 29,
     9, 11, 13, 15, 17, 21, 28, 35,
    11, 13, 16, 17, 21, 28, 35, 41,
};

constexpr Matrix proxyLumaMatrix = {
     4,  7,  9, 11, 13, 14, 15, 63,
     7,  7, 11, 12, 14, 15, 63, 63,
     9, 11, 13, 14, 15, 63, 63, 63,
    11, 11, 13, 14, 63, 63, 63, 63,
    11, 13, 14, 63, 63, 63, 63, 63,
    13, 14, 63, 63, 63, 63, 63, 63,
    13, 63, 63, 63, 63, 63, 63, 63,
    63, 63, 63, 63, 63, 63, 63, 63,
};

constexpr Matrix proxyChromaMatrix = {
     4,  7,  9, 11, 13, 14, 63, 63,
     7,  7, 11, 12, 14, 63, 63, 63,
     9, 11, 13, 14, 63, 63, 63, 63,
    11, 11, 13, 14, 63, 63, 63, 63,
    11, 13, 14, 63, 63, 63, 63, 63,
    13, 14, 63, 63, 63, 63, 63, 63,
    13, 63, 63, 63, 63, 63, 63, 63,
    63, 63, 63, 63, 63, 63, 63, 63,
};

constexpr std::array<std::uint8_t, 64> progressiveScan = {
     0,  1,  8,  9,  2,  3, 10, 11,
    16, 17, 24, 25, 18, 19, 26, 27,
     4,  5, 12, 20, 13,  6,  7, 14,
    21, 28, 29, 22, 15, 23, 30, 31,
    32, 33, 40, 48, 41, 34, 35, 42,
    49, 56, 57, 50, 43, 36, 37, 44,
    51, 58, 59, 52, 45, 38, 39, 46,
    53, 60, 61, 54, 47, 55, 62, 63,
};

constexpr std::array<std::uint8_t, 64> interlacedScan = {
     0,  8,  1,  9, 16, 24, 17, 25,
     2, 10,  3, 11, 18, 26, 19, 27,
    32, 40, 33, 34, 41, 48, 56, 49,
    42, 35, 43, 50, 57, 58, 51, 59,
     4, 12,  5,  6, 13, 20, 28, 21,
    14,  7, 15, 22, 29, 36, 44, 37,
    30, 23, 31, 38, 45, 52, 60, 53,
    46, 39, 47, 54, 61, 62, 55, 63,
};

// clang-format on

constexpr std::array<std::uint8_t, 64> inverseOf(const std::array<std::uint8_t, 64> &order)
{
    std::array<std::uint8_t, 64> positions {};
    for (std::size_t i = 0; i < 64; ++i)
        positions[order[i]] = static_cast<std::uint8_t>(i);
    return positions;
}

constexpr auto progressivePositions = inverseOf(progressiveScan);
constexpr auto interlacedPositions = inverseOf(interlacedScan);
static_assert(inverseOf(progressivePositions) == progressiveScan);
static_assert(inverseOf(interlacedPositions) == interlacedScan);

} // namespace

const Matrix &lumaMatrix(Profile profile)
{
    switch (profile) {
    case Profile::Proxy: return proxyLumaMatrix;
    case Profile::Lt: return ltMatrix;
    case Profile::Standard: return standardMatrix;
    case Profile::Hq:
    case Profile::P4444: break;
    }
    return fineMatrix;
}

const Matrix &chromaMatrix(Profile profile)
{
    return profile == Profile::Proxy ? proxyChromaMatrix : lumaMatrix(profile);
}

const std::array<std::uint8_t, 64> &scanOrder(bool interlaced)
{
    return interlaced ? interlacedScan : progressiveScan;
}

const std::array<std::uint8_t, 64> &scanPositions(bool interlaced)
{
    return interlaced ? interlacedPositions : progressivePositions;
}

} // namespace prores
