#pragma once

#include "libprores/encoder.h"

#include <cstdint>
#include <vector>

// Frames of every kind from pictures made in integers, as one number. It is the same on every path and on
// every machine; without Qt, so that it can be asked of foreign ones.

namespace prorestest {

inline std::uint64_t goldenHash(const prores::Format &format, prores::Path path)
{
    prores::Settings settings;
    settings.path = path;
    prores::Encoder encoder(format, settings);
    std::vector<std::uint8_t> frame(encoder.room());
    const auto samples = static_cast<std::size_t>(format.width) * static_cast<std::size_t>(format.height);
    std::vector<std::uint16_t> planes[4];
    std::uint64_t hash = 0xcbf29ce484222325;
    std::uint32_t random = 1;
    for (std::uint32_t i = 0; i < 6; ++i) {
        prores::Picture picture;
        for (std::uint32_t p = 0; p < (format.hasAlpha ? 4 : 3); ++p) {
            planes[p].resize(samples);
            for (std::uint32_t k = 0; k < samples; ++k) {
                random = random * 1664525 + 1013904223;
                const std::uint32_t at = k % static_cast<std::uint32_t>(format.width) + i * 3;
                const std::uint32_t slope = at * (p + 2) + (at / 37 % 3) * 90 + (random >> 24) * i / 2;
                const std::uint32_t largest = (1u << format.bitDepth) - 1;
                planes[p][k] = static_cast<std::uint16_t>(slope << (format.bitDepth - 10) & largest);
            }
            picture.plane[p] = planes[p].data();
            picture.stride[p] = format.width;
        }
        const std::size_t bytes = encoder.encode(picture, frame.data(), frame.size()).bytes;
        for (std::size_t k = 0; k < bytes; ++k)
            hash = (hash ^ frame[k]) * 0x100000001b3;
    }
    return hash;
}

struct GoldenRow {
    prores::Profile profile;
    prores::Scan scan;
    int bitDepth;
    bool hasAlpha;
    std::uint64_t hash;
};

// clang-format off
constexpr GoldenRow goldenRows[] = {
    // profile                   lines                      depth alpha  hash
    {prores::Profile::Proxy,    prores::Scan::Progressive, 10, false, 0x4c8e0dcb563843ee},
    {prores::Profile::Lt,       prores::Scan::TopFirst,    10, false, 0x434bb2106cb084b6},
    {prores::Profile::Standard, prores::Scan::BottomFirst, 10, false, 0xb3cb39f7e567fb81},
    {prores::Profile::Hq,       prores::Scan::Progressive, 10, false, 0x4c7212fae1703d3b},
    {prores::Profile::P4444,    prores::Scan::Progressive, 12, true,  0xb2c26b7919cdeabc},
};
// clang-format on

inline prores::Format goldenFormat(const GoldenRow &row)
{
    prores::Format format;
    format.profile = row.profile;
    format.width = 434;
    format.height = 150;
    format.scan = row.scan;
    format.bitDepth = row.bitDepth;
    format.hasAlpha = row.hasAlpha;
    return format;
}

} // namespace prorestest
