#pragma once

#include "libprores/decoder.h"

#include "proresgolden.h"

// The frames of proresgolden.h decoded at every size, some of them damaged on the way, as one number. It is the same
// on every path and on every machine.

namespace prorestest {

struct DecodedHash {
    std::uint64_t value = 0xcbf29ce484222325;

    void add(std::uint64_t number) { value = (value ^ number) * 0x100000001b3; }

    void addDecoded(prores::Decoder &decoder, prores::Reduction reduction, const std::vector<std::uint8_t> &frame)
    {
        const auto info = prores::readFrameInfo(frame.data(), frame.size());
        if (!info || info->width > 1000 || info->height > 1000) {
            add(1);
            return;
        }
        prores::DecodedPicture picture;
        picture.width = info->planeWidth(0, reduction);
        picture.height = info->planeHeight(reduction);
        picture.is444 = info->is444;
        std::vector<std::uint16_t> planes[4];
        for (int p = 0; p < (info->alphaBits > 0 ? 4 : 3); ++p) {
            picture.stride[p] = info->planeWidth(p, reduction);
            planes[p].resize(static_cast<std::size_t>(picture.stride[p]) * static_cast<std::size_t>(picture.height));
            picture.plane[p] = planes[p].data();
        }
        const prores::DecodeReport report = decoder.decode(frame.data(), frame.size(), picture);
        add(static_cast<std::uint64_t>(report.slices));
        add(static_cast<std::uint64_t>(report.damaged));
        for (const auto &plane : planes) {
            for (const std::uint16_t sample : plane)
                add(sample);
        }
    }
};

inline std::uint64_t decodedHash(const prores::Format &format, prores::Path path)
{
    prores::Settings coding;
    coding.index = 3;
    prores::Encoder encoder(format, coding);
    std::vector<std::uint8_t> frame(encoder.room());
    const auto samples = static_cast<std::size_t>(format.width) * static_cast<std::size_t>(format.height);
    std::vector<std::uint16_t> planes[4];
    std::uint32_t random = 5;
    const auto next = [&random] { return (random = random * 1664525 + 1013904223) >> 8; };
    prores::Picture picture;
    for (std::uint32_t p = 0; p < (format.hasAlpha ? 4 : 3); ++p) {
        planes[p].resize(samples);
        for (std::uint32_t k = 0; k < samples; ++k) {
            const std::uint32_t at = k % static_cast<std::uint32_t>(format.width);
            planes[p][k] = static_cast<std::uint16_t>((at * (p + 2) + at / 37 % 3 * 90 + next() % 64)
                                                      & ((1u << format.bitDepth) - 1));
        }
        picture.plane[p] = planes[p].data();
        picture.stride[p] = format.width;
    }
    frame.resize(encoder.encode(picture, frame.data(), frame.size()).bytes);
    DecodedHash hash;
    for (int shift = 0; shift < 4; ++shift) {
        prores::DecoderSettings settings;
        settings.path = path;
        settings.reduction = static_cast<prores::Reduction>(shift);
        prores::Decoder decoder(settings);
        hash.addDecoded(decoder, settings.reduction, frame);
        for (int round = 0; round < 4; ++round) {
            std::vector<std::uint8_t> broken = frame;
            for (int i = 0; i < 6; ++i)
                broken[next() % broken.size()] = static_cast<std::uint8_t>(next());
            hash.addDecoded(decoder, settings.reduction, broken);
        }
    }
    return hash.value;
}

/// By the rows of goldenRows.
constexpr std::uint64_t decodedHashes[] = {
    0x79af1ca5bd12f561,
    0x6bff0dad35376e0e,
    0x7f15d2b4964dc961,
    0x1403c64ebc0ca3b9,
    0x4ae9c5221d9e992d,
};

} // namespace prorestest
