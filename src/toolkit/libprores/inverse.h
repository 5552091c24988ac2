#pragma once

#include "libprores/kernels.h"

#include <array>
#include <cstddef>
#include <cstdint>

// From levels back to samples. Each path (portable, AVX2, AVX-512) does the same integer arithmetic: an
// eight-point transform of rows, then of columns, with 32-bit sums and results that are cut to 16 bits. It is the
// one that is usual among decoders, to the last bit, so that a picture does not depend on who decodes it.

namespace prores {

constexpr int inverseRowShift = 15;
constexpr int inverseColumnShift = 18;
constexpr int inverseRowRounding = 1 << (inverseRowShift - 1);
/// Half of the sample range and the rounding, as a multiple of the weight of 0: added before the columns.
constexpr std::int16_t inverseMiddle = (512 << (inverseColumnShift - 14)) + 8;
constexpr int leastSample = 4; ///< lower and higher codes belong to the interface's timing
constexpr int largestSample = 1019;

// By output, then input: sample k is even + odd, sample 7 - k even - odd. Weights are
// 16384 * sqrt(2) * cos(k * pi / 16).
constexpr short inverseEven[4][4] = {
    {16384, 21407, 16384, 8867},
    {16384, 8867, -16384, -21407},
    {16384, -8867, -16384, 21407},
    {16384, -21407, 16384, -8867},
};
constexpr short inverseOdd[4][4] = {
    {22725, 19265, 12873, 4520},
    {19265, -4520, -22725, -12873},
    {12873, -22725, 4520, 19265},
    {4520, -12873, 19265, -22725},
};

/// The levels of two tiles of 16 blocks each, of one plane or two. Those of 16 blocks at each scan position can be
/// read even where there are fewer blocks.
struct LevelTiles {
    const std::int16_t *tile[2] = {};
    int stride = 0;    ///< levels from scan position to scan position
    int positions = 0; ///< all levels from this scan position on are 0
};

/// What the samples of two tiles are written to: 64 columns and 16 lines each, less where they are reduced.
struct SampleTiles {
    std::uint16_t *tile[2] = {};
    std::ptrdiff_t stride = 0; ///< samples from line to line
    bool isStreamed = false;   ///< past the caches: whole lines of them then, see streamedBytes
};

/// What is written past the caches begins and goes on, line by line, at multiples of so many bytes.
constexpr std::size_t streamedBytes = 64;

/// What levels are multiplied with, by scan position; products are cut to their low 16 bits.
struct alignas(64) Dequantiser {
    std::int16_t scale[64];
};

using ScanPositions = std::array<std::uint8_t, 64>; ///< by raster index

struct InverseKernels {
    const char *name;
    bool canStream; ///< at full size
    void (*full)(const LevelTiles &, const Dequantiser &, const ScanPositions &, Order, const SampleTiles &);
    /// From the 4x4 lowest coefficients: tiles of 32 columns and 8 lines.
    void (*half)(const LevelTiles &, const Dequantiser &, const ScanPositions &, Order, const SampleTiles &);
    /// From the 2x2 lowest: 16 columns, 4 lines.
    void (*quarter)(const LevelTiles &, const Dequantiser &, const ScanPositions &, Order, const SampleTiles &);
    /// The blocks' means: 8 columns, 2 lines.
    void (*eighth)(const LevelTiles &, const Dequantiser &, const ScanPositions &, Order, const SampleTiles &);
    /// Before another thread may look at what this one streamed.
    void (*publish)();
};

const InverseKernels &portableInverse();
/// Null when the processor, or the compiler's target, does not have it.
const InverseKernels *avx2Inverse();
const InverseKernels *avx512Inverse();
/// The fastest that this processor has.
const InverseKernels &bestInverse();

} // namespace prores
