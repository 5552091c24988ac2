#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// What a slice goes through, from samples to bits. Each path (portable, AVX2, AVX-512) does the same
// integer arithmetic, so that all give the same bytes.

namespace prores {

constexpr int tileBlocks = 16;            ///< of 8x8 samples in 64 columns and 16 lines
constexpr int mostBlocks = 2 * tileBlocks; ///< of one plane in one slice

/// The samples of 32 blocks: two tiles of 64 columns and 16 lines each, all of it readable.
struct Tiles {
    const std::uint16_t *tile[2] = {};
    std::ptrdiff_t stride = 0; ///< samples from line to line
};

/// The 64 coefficients of 32 blocks by scan position, 8 times those of the orthonormal transform of
/// 10-bit samples. Which lane holds which block is each path's own affair.
struct alignas(64) Coefficients {
    std::int16_t at[64][mostBlocks];
};

/// level = (magnitude + offset) * reciprocal / 65536, by scan position.
struct alignas(64) Quantiser {
    std::uint16_t reciprocal[64];
    std::uint16_t offset[64];
};

/// The order of the blocks of one plane: of each macroblock left before right on two lines (luma), or
/// top before bottom in two columns (chroma).
enum class Order { Lines, Columns };

/// The quantised levels of one plane in one slice.
struct Levels {
    static constexpr int lead = 2;   ///< entries before the first that stand for the start values
    static constexpr int slack = 64; ///< entries that a path may write beyond the last

    int blocks = 0;
    int count = 0; ///< of non-zero AC levels
    alignas(64) std::int16_t dc[mostBlocks + slack] = {};
    /// Where each non-zero level stands in the run of all: scan position * blocks + block.
    alignas(64) std::uint16_t position[lead + 63 * mostBlocks + slack] = {};
    /// Twice the magnitude, and 1 more for a negative level.
    alignas(64) std::uint16_t level[lead + 63 * mostBlocks + slack] = {};

    /// Forgets all levels and sets the values before the first: a run of 4, a magnitude of 2.
    void begin(int blockCount)
    {
        blocks = blockCount;
        count = 0;
        position[1] = static_cast<std::uint16_t>(blockCount - 1);
        position[0] = static_cast<std::uint16_t>(blockCount - 6);
        level[0] = level[1] = 4;
    }
};

constexpr int largestPlaneBytes = 63 * mostBlocks * 4 + mostBlocks * 4; ///< that code() writes, at 32 bits a level
constexpr int codingSlack = 64; ///< bytes that code() may write beyond its end

/// Lines of samples that are wanted soon: 64 pieces of 64 bytes, half of them from each of two places.
/// quantise() fetches one with every scan position, so that they come while there is work to do.
struct Ahead {
    std::uintptr_t place[2] = {};
    std::ptrdiff_t stride = 0; ///< bytes from line to line
    int shift = 0;             ///< 1 << shift pieces a line

    void fetch(int k) const
    {
#ifdef __GNUC__
        const int piece = k & 31;
        const std::uintptr_t at = place[k >> 5] + static_cast<std::uintptr_t>((piece >> shift) * stride)
                                  + static_cast<std::uintptr_t>((piece & ((1 << shift) - 1)) * 64);
        __builtin_prefetch(reinterpret_cast<const void *>(at), 0, 3);
#endif
    }
};

struct Kernels {
    const char *name;

    /// Samples of 13 - \a depthShift bits (3 for 10 bit, 1 for 12) into coefficients.
    /// \a positions has the scan position of each raster index.
    void (*transform)(const Tiles &tiles, int depthShift,
                      const std::array<std::uint8_t, 64> &positions, Coefficients &to);

    /// Quantises the first \a blocks blocks into \a first; where \a second is given, the first tile's
    /// go to \a first and the second tile's to \a second, \a blocks each (two planes at half width).
    void (*quantise)(const Coefficients &from, const Quantiser &quantiser, Order order, int blocks,
                     Levels &first, Levels *second, const Ahead &ahead);

    /// Writes one plane's bits, padded to a whole byte; its end.
    std::uint8_t *(*code)(const Levels &levels, std::uint8_t *to);
};

const Kernels &portableKernels();
/// Null when the processor, or the compiler's target, does not have it.
const Kernels *avx2Kernels();
const Kernels *avx512Kernels();
/// The fastest that this processor has.
const Kernels &bestKernels();

} // namespace prores
