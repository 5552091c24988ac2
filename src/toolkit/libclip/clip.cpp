#include "libclip/clip.h"

namespace clip {

std::int64_t samplesBeforeFrame(std::int64_t frame, const VideoFormat &video, int sampleRate)
{
    if (frame <= 0 || video.rateNum <= 0 || video.rateDen <= 0 || sampleRate <= 0) {
        return 0;
    }
    // Whole groups of rateNum frames are rateDen seconds exactly; only the rest is divided, which
    // keeps every product within 64 bits for clips of any length.
    const std::uint64_t num = std::uint64_t(video.rateNum);
    const std::uint64_t perGroup = std::uint64_t(sampleRate) * std::uint64_t(video.rateDen);
    const std::uint64_t groups = std::uint64_t(frame) / num;
    const std::uint64_t rest = std::uint64_t(frame) % num;
    return std::int64_t(groups * perGroup + rest * perGroup / num);
}

bool isWritable(const ClipInfo &info)
{
    const VideoFormat &video = info.video;
    constexpr int maxRaster = 16384;
    constexpr int maxRateTerm = 1'000'000;
    constexpr std::int64_t maxFps = 1000;
    if (video.codec == Codec::Unknown || video.width < 1 || video.width > maxRaster
        || video.height < 1 || video.height > maxRaster) {
        return false;
    }
    if (video.rateNum < 1 || video.rateDen < 1 || video.rateNum > maxRateTerm
        || video.rateDen > video.rateNum || video.rateNum > maxFps * video.rateDen) {
        return false;
    }
    if (info.audio
        && (info.audio->channels < 1 || info.audio->channels > 16
            || info.audio->sampleRate != 48000)) {
        return false;
    }
    if (info.timecode && (info.timecode->fps < 1 || info.timecode->fps > 255)) {
        return false;
    }
    return info.reel.size() <= 255;
}

} // namespace clip
