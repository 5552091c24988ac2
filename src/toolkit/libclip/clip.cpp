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

} // namespace clip
