#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace clip {

/// Turns sound of another rate into 48 kHz with a windowed sinc. Every stretch is computed by itself from the samples
/// around it, so that a frame sounds the same whichever was read before it. A value: any thread.
class SoundRate
{
public:
    /// Rates that it turns: 8 to 192 kHz, those in use among them.
    static bool canTurn(int rate);

    explicit SoundRate(int rate);

    /// The number of samples at 48 kHz that \a samples are.
    std::int64_t turned(std::int64_t samples) const { return samples * _up / _down; }
    /// The first of the samples that sample \a out at 48 kHz is made from, before the start if need be.
    std::int64_t firstFor(std::int64_t out) const { return floorOf(out) - _half + 1; }
    /// One behind the last of them.
    std::int64_t endFor(std::int64_t out) const { return floorOf(out) + _half + 1; }
    /// Sample \a out from \a in, which begins with firstFor(out) and ends with endFor(out); values 1.0 apart stay so.
    double at(std::int64_t out, std::span<const float> in) const;

private:
    std::int64_t floorOf(std::int64_t out) const;

    std::int64_t _up = 1;    ///< 48 kHz is _up / _down of the rate, in lowest terms
    std::int64_t _down = 1;
    std::int64_t _half = 0;  ///< samples on either side
    std::vector<float> _weights; ///< 2 * _half for each of _up phases
};

} // namespace clip
