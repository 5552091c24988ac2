#include "services/rvctl/datarate.h"

#include "libprores/format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <optional>

namespace
{

struct Raster {
    const char *name; ///< with which the format's name begins
    int width;
    int height;
    int fieldsOfRate = 2; ///< how many fields of an interlaced frame its rate counts
};

constexpr Raster rasters[] = {
    {"486", 720, 486},    {"576", 720, 576},    {"720", 1280, 720}, {"1080", 1920, 1080},
    {"2K", 2048, 1080},   {"UHD", 3840, 2160},  {"4K", 4096, 2160},
};

struct ProRes {
    std::uint32_t encodeType;
    prores::Profile profile;
};

constexpr ProRes proResTypes[] = {
    {0, prores::Profile::Standard}, {1, prores::Profile::Hq},    {2, prores::Profile::Lt},
    {3, prores::Profile::Proxy},    {7, prores::Profile::P4444},
};
constexpr std::uint32_t typeDnxHqx = 8;
constexpr std::uint32_t typeUncompressed = 9;

constexpr double sampleRate = 48000;
constexpr double bytesPerSample = 3;

/// Every frame has the same size: so many bytes a macroblock, rounded to blocks of 4096.
double dnxFrameBytes(const Raster &raster)
{
    constexpr double bytesPerMacroblock = 28672.0 / 255.0;
    const double macroblocks = std::ceil(raster.width / 16.0) * std::ceil(raster.height / 16.0);
    return std::max(std::floor((macroblocks * bytesPerMacroblock + 2048) / 4096) * 4096, 8192.0);
}

/// Lines are padded to whole groups of 48 samples in 128 bytes.
double uncompressedFrameBytes(const Raster &raster)
{
    return std::ceil(raster.width / 48.0) * 128 * raster.height;
}

double frameBytes(const Raster &raster, std::uint32_t encodeType, bool isInterlaced)
{
    if (encodeType == typeDnxHqx) {
        return dnxFrameBytes(raster);
    }
    if (encodeType == typeUncompressed) {
        return uncompressedFrameBytes(raster);
    }
    const auto type = std::ranges::find(proResTypes, encodeType, &ProRes::encodeType);
    if (type == std::end(proResTypes)) {
        return 0;
    }
    prores::Format format;
    format.profile = type->profile;
    format.width = raster.width;
    format.height = raster.height;
    format.scan = isInterlaced ? prores::Scan::TopFirst : prores::Scan::Progressive;
    return static_cast<double>(prores::usualFrameBytes(format));
}

/// The raster that a format's name begins with, and what stands behind it.
std::optional<Raster> rasterOf(const std::string &name, std::string &rest)
{
    Raster raster{"", 0, 0, 1};
    const char *end = name.data() + name.size();
    const auto width = std::from_chars(name.data(), end, raster.width);
    if (width.ec == std::errc() && width.ptr != end && *width.ptr == 'x') {
        const auto height = std::from_chars(width.ptr + 1, end, raster.height);
        rest.assign(height.ptr, end);
        const bool isSane = std::min(raster.width, raster.height) > 0 && std::max(raster.width, raster.height) < 65536;
        return height.ec == std::errc() && isSane ? std::optional(raster) : std::nullopt;
    }
    const auto row = std::ranges::find_if(rasters, [&](const Raster &r) { return name.starts_with(r.name); });
    if (row == std::end(rasters)) {
        return std::nullopt;
    }
    rest = name.substr(std::string(row->name).size());
    return *row;
}

} // namespace

DataRate dataRateOf(const std::string &raster, std::uint32_t encodeType, const std::string &encodeName,
                    int channels)
{
    std::string rest;
    const auto found = rasterOf(raster, rest);
    if (!found) {
        return {};
    }
    const std::size_t digits = rest.find_first_of("0123456789");
    const std::string scan = rest.substr(0, digits);
    double rate = 0;
    if (digits != std::string::npos) {
        std::from_chars(rest.data() + digits, rest.data() + rest.size(), rate);
    }
    const bool isInterlaced = scan == "i";
    if (rate <= 0 || (!isInterlaced && scan != "p" && scan != "psf")) {
        return {};
    }
    const double frames = isInterlaced ? rate / found->fieldsOfRate : rate;
    const double picture = frameBytes(*found, encodeType, isInterlaced) * frames;
    return {picture > 0 ? picture + channels * sampleRate * bytesPerSample : 0, raster + " " + encodeName};
}
