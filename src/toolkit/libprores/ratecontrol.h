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
    /// The bytes a frame is predicted to take, from a sample of its slices: at the scale in use, and with all
    /// scales multiplied by probe.
    struct Prediction {
        std::size_t bytes = 0;
        std::size_t probedBytes = 0;
    };
    static constexpr std::int64_t noProbe = 0;
    static constexpr std::int64_t probe = 16384; ///< 65536 * log2 of the scale: a sixth more

    explicit RateControl(std::size_t wantedBytes) : _wanted(wantedBytes) {}

    /// The quantisation index of slice number \a slice, the scale multiplied by \a extra (noProbe or probe).
    int index(int slice, std::int64_t extra = noProbe) const;

    /// True when the frame is predicted to be so far off that the scale must move before it is coded.
    bool isOff(const Prediction &prediction) const;
    /// Where the right scale must lie, as far as is known; 65536 * log2.
    struct Bracket {
        std::int64_t low = -65536; // beyond the ends until one is tried
        std::int64_t high = 10 * 65536;
    };
    /// Moves the scale for a frame of which nothing is known but this, and narrows \a bracket. False when it is
    /// right, or as right as can be.
    bool aim(const Prediction &prediction, Bracket &bracket);
    /// Moves the scale for a frame that took \a bytes where this had been predicted, and must be coded again
    /// with less. False at the coarsest.
    bool tighten(std::size_t bytes, const Prediction &prediction);
    /// The frame was coded, and took \a bytes where this had been predicted.
    void coded(std::size_t bytes, const Prediction &prediction);

    double scale() const;

private:
    bool moveTo(std::int64_t logScale);
    std::int64_t stepFor(std::int64_t off, const Prediction &prediction) const;

    std::size_t _wanted;
    std::int64_t _logScale = 131072; // 65536 * log2(scale), of scales 1 to 512
    std::int64_t _bias = 0;          // what the prediction for the last frame missed, 65536 * log2
};

} // namespace prores
