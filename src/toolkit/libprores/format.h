#pragma once

#include <cstddef>
#include <cstdint>

namespace prores {

enum class Profile { Proxy, Lt, Standard, Hq, P4444 };
enum class Scan { Progressive, TopFirst, BottomFirst };

/// What every frame of a stream has in common.
struct Format {
    Profile profile = Profile::Standard; ///< P4444 takes 4:4:4 pictures, all others 4:2:2
    int width = 0;                       ///< luma samples, even in 4:2:2
    int height = 0;                      ///< lines, both fields
    Scan scan = Scan::Progressive;
    int bitDepth = 10;                   ///< of the samples given: 10, or 12
    bool hasAlpha = false;               ///< a fourth plane of the same depth; P4444 only
    bool isChromaHalf = false;           ///< P4444 only: Cb and Cr are given as in 4:2:2; the means stand between
    int rateNumerator = 0;               ///< frames a second, 0 = unknown
    int rateDenominator = 1;
    std::uint8_t aspect = 0;             ///< 0 unknown, 1 square samples, 2 4:3, 3 16:9
    std::uint8_t primaries = 1;          ///< as in ITU-T H.273, 0 unknown
    std::uint8_t transfer = 1;
    std::uint8_t matrix = 1;

    bool is444() const { return profile == Profile::P4444; }
    bool isInterlaced() const { return scan != Scan::Progressive; }
};

/// A borrowed picture: planar, one sample in each host-order 16-bit word, both fields line by line.
/// Samples above the depth's maximum count as the maximum.
struct Picture {
    const std::uint16_t *plane[4] = {}; ///< Y, Cb, Cr, and alpha (full range) where the format has it
    std::ptrdiff_t stride[4] = {};      ///< samples from line to line
    /// Lines of v210 instead, of 4:2:2 and 10 bit; each is unpacked when its slice comes. Planes are then not read.
    const std::uint8_t *v210 = nullptr;
    std::ptrdiff_t v210Stride = 0;      ///< bytes from line to line
};

/// True when a stream of this format can be coded at all.
bool isValid(const Format &format);

/// The usual number of bytes in a frame: what the profile's data rate gives for the raster.
std::size_t usualFrameBytes(const Format &format);

/// The number of bytes no frame of the profile exceeds, about a twentieth more than usual. The bytes
/// that alpha takes come on top of both.
std::size_t largestFrameBytes(const Format &format);

/// The sample entry's four characters, big-endian in a number: apco, apcs, apcn, apch or ap4h.
std::uint32_t fourCharacters(Profile profile);

} // namespace prores
