#pragma once

#include <cstdint>
#include <string>

/// What a recording of a format takes in its usual course.
struct DataRate {
    double bytesPerSecond = 0; ///< picture and sound; 0 when the format is none or has no name
    std::string format;        ///< "1080p25 ProRes 422 HQ"
};

/// The rate of recordings: the raster and rate as eParamMediaFormat names them ("1080i59.94" with fields a second,
/// "UHDp50") or as lists of clips do ("1280x720p25", "1920x1080i29.97" with frames), the value of eParamEncodeType and
/// its name, and the number of sound channels.
DataRate dataRateOf(const std::string &raster, std::uint32_t encodeType, const std::string &encodeName,
                    int channels);
