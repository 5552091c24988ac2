#pragma once

#include <cstdint>

namespace picture {

/// A sine tone as interleaved 24-bit little-endian PCM at 48 kHz, the same on every channel.
/// Phase follows from the absolute sample position, so consecutive blocks join without a click.
/// \a firstSample is that of the block; \a out takes samples * channels * 3 bytes.
/// \a levelDbfs is the peak level in dB below full scale (-20 for the line-up tone); 1 kHz.
void writeTone(std::uint8_t *out, std::int64_t firstSample, int samples, int channels,
               double levelDbfs);

/// Samples that frame \a frame (counted from 0) carries at num/den frames a second and 48 kHz: the
/// difference of the exact running totals, so nothing drifts.
int samplesOfFrame(std::int64_t frame, int num, int den);
/// Samples of all frames before \a frame: floor(frame * 48000 * den / num).
std::int64_t samplesBeforeFrame(std::int64_t frame, int num, int den);

} // namespace picture
