#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace clip {

/// The outcome of a clip operation: 0 is success, otherwise an errno value and a text for the log.
struct [[nodiscard]] Error {
    int code = 0;
    std::string text;
    explicit operator bool() const { return code != 0; }
};

enum class Codec {
    Unknown,
    ProRes422,
    ProRes422Hq,
    ProRes422Lt,
    ProRes422Proxy,
    ProRes4444,
    DnxHqx,
    V210,
};
enum class Scan { Progressive = 0, Interlaced = 1, Segmented = 2 };

struct VideoFormat {
    Codec codec = Codec::Unknown;
    int width = 0;      ///< luma samples
    int height = 0;     ///< lines of the frame
    int rateNum = 0;    ///< frames a second, exact
    int rateDen = 0;
    Scan scan = Scan::Progressive;
    bool topFieldFirst = true;
};

/// PCM, 48 kHz, 24 bit; interleaved little-endian in memory.
struct AudioFormat {
    int channels = 0;
    int sampleRate = 48000;
};

/// A timecode as the timecode track holds it: a frame count at a whole rate.
struct StartTimecode {
    std::uint32_t frameCount = 0;
    int fps = 0;          ///< 24, 25, 30, 48, 50 or 60
    bool dropFrame = false;
};

struct ClipInfo {
    VideoFormat video;
    std::optional<AudioFormat> audio;
    std::optional<StartTimecode> timecode;
    std::string reel;
    std::int64_t frames = 0;
    bool isComplete = true; ///< false while it is being recorded or after a crash
};

/// Whether a clip can hold what \a info describes.
bool isWritable(const ClipInfo &info);

/// Audio samples of frames 0 .. frame-1, each channel: floor(frame * rate * den / num). No drift.
std::int64_t samplesBeforeFrame(std::int64_t frame, const VideoFormat &video, int sampleRate);

} // namespace clip
