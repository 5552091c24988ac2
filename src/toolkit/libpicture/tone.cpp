#include "libpicture/tone.h"

#include <array>
#include <cmath>
#include <numbers>

namespace picture {

namespace {

constexpr int sampleRate = 48000;
constexpr int toneHertz = 1000;
constexpr int period = sampleRate / toneHertz; // a whole number of samples: one period is the table
static_assert(period * toneHertz == sampleRate);

constexpr int rateLimit = 1'000'000; // keeps every product below within 64 bits

std::int64_t floorDivide(std::int64_t a, std::int64_t b)
{
    const std::int64_t quotient = a / b;
    return a % b < 0 ? quotient - 1 : quotient;
}

} // namespace

void writeTone(std::uint8_t *out, std::int64_t firstSample, int samples, int channels,
               double levelDbfs)
{
    if (out == nullptr || samples <= 0 || channels <= 0)
        return;

    const double fullScale = 8388607.0;
    const double peak = std::fmin(std::pow(10.0, levelDbfs / 20.0), 1.0) * fullScale;
    std::array<std::uint32_t, period> table {};
    for (int i = 0; i < period; ++i) {
        const double value = peak * std::sin(2.0 * std::numbers::pi * i / period);
        table[static_cast<std::size_t>(i)] = static_cast<std::uint32_t>(
            static_cast<std::int32_t>(std::lround(value)));
    }

    auto phase = static_cast<std::size_t>(((firstSample % period) + period) % period);
    for (int i = 0; i < samples; ++i) {
        const std::uint32_t value = table[phase];
        if (++phase == period)
            phase = 0;
        for (int c = 0; c < channels; ++c) {
            *out++ = static_cast<std::uint8_t>(value & 0xffU);
            *out++ = static_cast<std::uint8_t>((value >> 8) & 0xffU);
            *out++ = static_cast<std::uint8_t>((value >> 16) & 0xffU);
        }
    }
}

std::int64_t samplesBeforeFrame(std::int64_t frame, int num, int den)
{
    if (num <= 0 || den <= 0 || num > rateLimit || den > rateLimit)
        return 0;
    // frame = whole * num + rest, so that no product grows with the running time.
    const std::int64_t whole = floorDivide(frame, num);
    const std::int64_t rest = frame - whole * num;
    return whole * sampleRate * den + rest * sampleRate * den / num;
}

int samplesOfFrame(std::int64_t frame, int num, int den)
{
    return static_cast<int>(samplesBeforeFrame(frame + 1, num, den)
                            - samplesBeforeFrame(frame, num, den));
}

} // namespace picture
