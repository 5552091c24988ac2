#pragma once

#include "libprores/decoder.h"
#include "libprores/geometry.h"
#include "libprores/inverse.h"
#include "libprores/levelreader.h"

namespace prores {

/// The lines of one picture that is decoded into: a frame, or one field of it. All sizes are the reduced ones.
struct DecodedLines {
    std::uint16_t *plane[4] = {};
    std::ptrdiff_t stride[4] = {};
    int width[4] = {};
    int height = 0;
    bool isStreamed[4] = {}; ///< past the caches, where a slice lies inside of the picture
};

/// The bytes of one slice, its header included.
struct SliceBytes {
    SlicePlace place;
    const std::uint8_t *begin = nullptr; ///< null where the slice lies outside of the frame
    std::size_t bytes = 0;
};

/// One thread's memory for the slices in work.
struct DecodeScratch {
    ReadLevels levels[mostPlanesAtOnce];
    Dequantiser luma;
    Dequantiser chroma;
    int index = 0; ///< of the dequantisers; 0: none yet
    alignas(64) std::uint16_t samples[16 * 16 * widestSlice];
};

/// Decodes the slices of one frame. Holds tables only: any number of threads may use it, each with scratch of its
/// own.
class SliceDecoder
{
public:
    SliceDecoder(const FrameHead &head, const DecoderSettings &settings, const InverseKernels &kernels);

    /// Two slices of the same width side by side, or one where \a count is 1; how many were damaged.
    int decode(const SliceBytes *slices, int count, const DecodedLines &to, DecodeScratch &scratch) const;

private:
    struct Parts;
    struct Area;
    bool split(const SliceBytes &slice, Parts &parts) const;
    void dequantisers(int index, DecodeScratch &scratch) const;
    void transformAll(const Parts &parts, const DecodedLines &to, DecodeScratch &scratch) const;
    void transform(const LevelTiles &levels, const Dequantiser &dequantiser, Order order, SlicePlace place,
                   int firstPlane, int planes, const DecodedLines &to, DecodeScratch &scratch) const;
    bool decodeAlpha(const Parts &parts, const DecodedLines &to, DecodeScratch &scratch) const;
    Area areaOf(SlicePlace place, int plane, const DecodedLines &to) const;
    void prefetch(SlicePlace place, int plane, const DecodedLines &to) const;
    void fill(SlicePlace place, int plane, std::uint16_t sample, const DecodedLines &to) const;
    void conceal(SlicePlace place, const DecodedLines &to) const;
    bool isHalf(int plane) const { return !_head.info.is444 && (plane == 1 || plane == 2); }

    const FrameHead &_head;
    DecoderSettings _settings;
    const InverseKernels &_kernels;
    const ScanPositions &_positions;
    Matrix _luma; // by scan position
    Matrix _chroma;
    int _shift; // of all sizes, by the reduction
};

} // namespace prores
