#pragma once

#include <cstddef>
#include <cstdint>

namespace prores {

/// Chooses how coarsely each frame is quantised, so that frames take the bytes wanted. One fractional scale
/// holds for the whole frame; slices take the index below or above it in a fixed scattered pattern. It
/// follows the bytes of the frames before, and predictions where the picture has changed. All in integers:
/// the same frames give the same choice everywhere.
class RateControl
{
public:
    explicit RateControl(std::size_t wantedBytes) : _wanted(wantedBytes) {}

    /// The quantisation index of slice number \a slice.
    int index(int slice) const;

    /// True when the frame predicted to take \a bytes, from a sample of its slices, is so far off that
    /// the scale must move before it is coded.
    bool isOff(std::size_t predictedBytes) const;
    /// Moves the scale for a frame predicted to take \a bytes as it is. False when it cannot move on.
    bool aim(std::size_t predictedBytes);
    /// Moves the scale for a frame that took \a bytes and may take \a largest. False at the coarsest.
    bool tighten(std::size_t bytes, std::size_t largest);
    /// The frame was coded, and took \a bytes where the sample had predicted \a predictedBytes.
    void coded(std::size_t bytes, std::size_t predictedBytes);

    double scale() const;

private:
    bool moveTo(std::int64_t logScale);

    std::size_t _wanted;
    std::int64_t _logScale = 131072; // 65536 * log2(scale), of scales 1 to 512
    std::int64_t _bias = 0;          // what the sample of the last frame missed, 65536 * log2
};

} // namespace prores
