#include "libclip/soundrate.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace clip {

namespace {

constexpr int targetRate = 48'000;
constexpr int leastRate = 8'000;
constexpr int highestRate = 192'000;
constexpr std::int64_t mostPhases = 640;

// 100 dB of attenuation over a transition band of a tenth of the lower rate's band.
constexpr double zeroCrossings = 32;
constexpr double kaiserBeta = 10.0;
constexpr double pass = 0.95;

/// The modified Bessel function of the first kind and order 0.
double bessel(double x)
{
    double sum = 1.0;
    double term = 1.0;
    for (int k = 1; k < 60; ++k) {
        term *= x / (2.0 * k) * (x / (2.0 * k));
        sum += term;
    }
    return sum;
}

double sinc(double x)
{
    const double angle = std::numbers::pi * x;
    return std::abs(angle) < 1e-9 ? 1.0 : std::sin(angle) / angle;
}

} // namespace

bool SoundRate::canTurn(int rate)
{
    return rate >= leastRate && rate <= highestRate && targetRate / std::gcd(rate, targetRate) <= mostPhases;
}

SoundRate::SoundRate(int rate)
{
    const int divisor = std::gcd(rate, targetRate);
    _up = targetRate / divisor;
    _down = rate / divisor;
    const double cutoff = pass * std::min(1.0, double(_up) / double(_down));
    _half = std::int64_t(std::ceil(zeroCrossings / cutoff));
    const auto taps = std::size_t(2 * _half);
    _weights.resize(taps * std::size_t(_up));
    for (std::size_t phase = 0; phase < std::size_t(_up); ++phase) {
        const std::span weights = std::span(_weights).subspan(phase * taps, taps);
        double sum = 0.0;
        for (std::size_t tap = 0; tap < taps; ++tap) {
            const double distance = double(tap) - double(_half - 1) - double(phase) / double(_up);
            const double place = distance / double(_half);
            const double window = bessel(kaiserBeta * std::sqrt(std::max(0.0, 1.0 - place * place)));
            weights[tap] = float(sinc(distance * cutoff) * window);
            sum += double(weights[tap]);
        }
        for (float &weight : weights) {
            weight = float(double(weight) / sum);
        }
    }
}

std::int64_t SoundRate::floorOf(std::int64_t out) const
{
    const std::int64_t scaled = out * _down;
    return scaled >= 0 ? scaled / _up : -((-scaled + _up - 1) / _up);
}

double SoundRate::at(std::int64_t out, std::span<const float> in) const
{
    const auto taps = std::size_t(2 * _half);
    const auto phase = std::size_t(out * _down - floorOf(out) * _up);
    const float *weights = _weights.data() + phase * taps;
    double sum = 0.0;
    for (std::size_t tap = 0; tap < std::min(taps, in.size()); ++tap) {
        sum += double(weights[tap]) * double(in[tap]);
    }
    return sum;
}

} // namespace clip
