#include "libprores/slicedecoder.h"

#include "libprores/alphareader.h"

#include <algorithm>
#include <utility>

namespace prores {

namespace {

constexpr std::uint16_t middleSample = 512;
constexpr std::uint16_t absentChroma = 511; // what other decoders show where a slice has none
constexpr std::uint16_t opaque = 1023;
constexpr int leastSliceHeader = 6;
constexpr int longSliceHeader = 8; // tells the size of Cr, too

// The low scan positions are the same in both scans: the lowest 2x2 coefficients, then the lowest 4x4.
constexpr int positionsOf(Reduction reduction)
{
    switch (reduction) {
    case Reduction::None: break;
    case Reduction::Half: return 16;
    case Reduction::Quarter: return 4;
    case Reduction::Eighth: return 1;
    }
    return 64;
}

Matrix inScanOrder(const Matrix &matrix, const std::array<std::uint8_t, 64> &order)
{
    Matrix weights {};
    for (std::size_t i = 0; i < 64; ++i)
        weights[i] = matrix[order[i]];
    return weights;
}

void multiply(const Matrix &weights, int scale, Dequantiser &to)
{
    for (std::size_t i = 0; i < 64; ++i)
        to.scale[i] = static_cast<std::int16_t>(static_cast<std::uint16_t>(weights[i] * scale));
}

} // namespace

/// Where the planes of a slice stand.
struct SliceDecoder::Parts {
    int index = 0;
    PlaneBits plane[4];
    SlicePlace place;
    ReadLevels *levels[3] = {}; // null for planes without any

    bool hasChroma() const { return plane[1].bytes + plane[2].bytes != 0; }
};

/// Where a slice lies in a plane.
struct SliceDecoder::Area {
    std::uint16_t *at = nullptr; ///< the first sample
    std::ptrdiff_t stride = 0;
    int columns = 0; ///< inside of the picture
    int lines = 0;   ///< the same
    bool isWhole = false; ///< nothing of the slice lies outside

    std::uint16_t *line(int y) const { return at + y * stride; }
};

SliceDecoder::Area SliceDecoder::areaOf(SlicePlace place, int plane, const DecodedLines &to) const
{
    const int unit = (isHalf(plane) ? 8 : 16) >> _shift; // columns of a macroblock
    const int lines = 16 >> _shift;
    const int left = place.column * unit;
    const int top = place.row * lines;
    Area area;
    area.stride = to.stride[plane];
    area.at = to.plane[plane] + top * area.stride + left;
    area.columns = std::max(std::min(unit * place.width, to.width[plane] - left), 0);
    area.lines = std::max(std::min(lines, to.height - top), 0);
    area.isWhole = area.columns == unit * place.width && area.lines == lines;
    return area;
}

SliceDecoder::SliceDecoder(const FrameHead &head, const DecoderSettings &settings, const InverseKernels &kernels)
    : _head(head), _settings(settings), _kernels(kernels), _positions(scanPositions(head.info.isInterlaced())),
      _luma(inScanOrder(head.luma, scanOrder(head.info.isInterlaced()))),
      _chroma(inScanOrder(head.chroma, scanOrder(head.info.isInterlaced()))),
      _shift(static_cast<int>(settings.reduction))
{
}

bool SliceDecoder::split(const SliceBytes &slice, Parts &parts) const
{
    if (slice.begin == nullptr || slice.bytes < leastSliceHeader)
        return false;
    const std::uint8_t *header = slice.begin;
    const std::size_t headerBytes = header[0] >> 3;
    if (headerBytes > slice.bytes)
        return false;
    parts.index = std::clamp<int>(header[1], 1, largestIndex);
    std::size_t left = slice.bytes - headerBytes;
    const std::uint8_t *from = header + headerBytes;
    for (int p = 0; p < 4; ++p) {
        std::size_t bytes = left; // what no size is told of takes the rest
        if (p < 2 || (p == 2 && headerBytes >= longSliceHeader))
            bytes = readBig16(header + 2 + 2 * p);
        if (bytes > left)
            return false;
        parts.plane[p] = {from, bytes};
        from += bytes;
        left -= bytes;
    }
    return true;
}

void SliceDecoder::dequantisers(int index, DecodeScratch &scratch) const
{
    if (scratch.index == index)
        return;
    multiply(_luma, scaleOf(index), scratch.luma);
    multiply(_chroma, scaleOf(index), scratch.chroma);
    scratch.index = index;
}

// Luma goes first, having the most to read.
int SliceDecoder::decode(const SliceBytes *slices, int count, const DecodedLines &to, DecodeScratch &scratch) const
{
    Parts parts[2];
    PlaneToRead planes[mostPlanesAtOnce];
    unsigned planesOf[2] = {};
    int sound = 0;
    int damaged = 0;
    for (int i = 0; i < count; ++i) {
        parts[sound].place = slices[i].place;
        if (split(slices[i], parts[sound])) {
            ++sound;
        } else {
            conceal(slices[i].place, to);
            ++damaged;
        }
    }
    int used = 0;
    for (int p = 0; p < 3; ++p) {
        for (int i = 0; i < sound; ++i) {
            if (p > 0 && !parts[i].hasChroma())
                continue;
            prefetch(parts[i].place, p, to);
            planesOf[i] |= 1u << used;
            parts[i].levels[p] = &scratch.levels[used];
            planes[used++] = {parts[i].plane[p], parts[i].place.width * (isHalf(p) ? 2 : 4), parts[i].levels[p]};
        }
    }
    const unsigned isBad = readLevels(planes, used, positionsOf(_settings.reduction));
    for (int i = 0; i < sound; ++i) {
        if ((isBad & planesOf[i]) != 0 || !decodeAlpha(parts[i], to, scratch)) {
            conceal(parts[i].place, to);
            ++damaged;
            continue;
        }
        transformAll(parts[i], to, scratch);
    }
    for (int i = 0; i < used; ++i)
        scratch.levels[i].clear();
    return damaged;
}

void SliceDecoder::transformAll(const Parts &parts, const DecodedLines &to, DecodeScratch &scratch) const
{
    const SlicePlace place = parts.place;
    dequantisers(parts.index, scratch);
    const ReadLevels &luma = *parts.levels[0];
    transform({{luma.at, luma.at + tileBlocks}, luma.blocks, luma.positions}, scratch.luma, Order::Lines, place, 0, 1,
              to, scratch);
    if (!parts.hasChroma()) {
        fill(place, 1, absentChroma, to);
        fill(place, 2, absentChroma, to);
        return;
    }
    const ReadLevels &cb = *parts.levels[1];
    const ReadLevels &cr = *parts.levels[2];
    if (!_head.info.is444) {
        transform({{cb.at, cr.at}, cb.blocks, std::max(cb.positions, cr.positions)}, scratch.chroma, Order::Columns,
                  place, 1, 2, to, scratch);
        return;
    }
    for (int p = 1; p < 3; ++p) {
        const ReadLevels &from = *parts.levels[p];
        transform({{from.at, from.at + tileBlocks}, from.blocks, from.positions}, scratch.chroma, Order::Columns, place,
                  p, 1, to, scratch);
    }
}

// Two tiles of one plane, or one of each of two. They are written where they belong when the slice is wide and
// inside of the picture; elsewhere what is visible of them is copied.
void SliceDecoder::transform(const LevelTiles &levels, const Dequantiser &dequantiser, Order order, SlicePlace place,
                             int firstPlane, int planes, const DecodedLines &to, DecodeScratch &scratch) const
{
    constexpr decltype(InverseKernels::full) InverseKernels::*sizes[] = {
        &InverseKernels::full, &InverseKernels::half, &InverseKernels::quarter, &InverseKernels::eighth};
    const auto inverse = _kernels.*sizes[_shift];
    const int tileWidth = 64 >> _shift;
    const Area areas[2] = {areaOf(place, firstPlane, to), areaOf(place, firstPlane + planes - 1, to)};
    if (place.width == widestSlice && areas[0].isWhole && areas[0].stride == areas[1].stride) {
        const bool isStreamed = to.isStreamed[firstPlane] && to.isStreamed[firstPlane + planes - 1];
        inverse(levels, dequantiser, _positions, order,
                {{areas[0].at, planes == 1 ? areas[0].at + tileWidth : areas[1].at}, areas[0].stride, isStreamed});
        return;
    }
    const int width = 2 * tileWidth;
    inverse(levels, dequantiser, _positions, order,
            {{scratch.samples, scratch.samples + tileWidth}, width, false});
    for (int i = 0; i < planes; ++i) {
        for (int y = 0; y < areas[i].lines; ++y)
            std::copy_n(scratch.samples + i * tileWidth + y * width, areas[i].columns, areas[i].line(y));
    }
}

// Reduced, alpha is every second, fourth or eighth sample. False when it is damaged; nothing is written then.
bool SliceDecoder::decodeAlpha(const Parts &parts, const DecodedLines &to, DecodeScratch &scratch) const
{
    if (to.plane[3] == nullptr)
        return true;
    if (_head.info.alphaBits == 0 || parts.plane[3].bytes == 0) {
        fill(parts.place, 3, opaque, to);
        return true;
    }
    const int width = parts.place.width * 16;
    if (!readAlpha(parts.plane[3], _head.info.alphaBits, scratch.samples, static_cast<std::size_t>(width) * 16))
        return false;
    const Area area = areaOf(parts.place, 3, to);
    for (int y = 0; y < area.lines; ++y) {
        const std::uint16_t *from = scratch.samples + (y << _shift) * width;
        for (int x = 0; x < area.columns; ++x)
            area.line(y)[x] = from[x << _shift];
    }
    return true;
}

// Has the memory that samples will be written to on its way while levels are read: it need not be in the caches, and
// the hardware does not foresee short rows.
void SliceDecoder::prefetch(SlicePlace place, int plane, const DecodedLines &to) const
{
#ifdef __GNUC__
    if (to.isStreamed[plane])
        return;
    constexpr int cacheLine = 64 / sizeof(std::uint16_t);
    const Area area = areaOf(place, plane, to);
    for (int y = 0; y < area.lines; ++y) {
        for (int x = 0; x < area.columns; x += cacheLine)
            __builtin_prefetch(area.line(y) + x, 1, 3);
    }
    asm volatile(""); // GCC drops calls of a function that does nothing but fetch ahead
#endif
}

void SliceDecoder::fill(SlicePlace place, int plane, std::uint16_t sample, const DecodedLines &to) const
{
    const Area area = areaOf(place, plane, to);
    for (int y = 0; y < area.lines; ++y)
        std::fill_n(area.line(y), area.columns, sample);
}

void SliceDecoder::conceal(SlicePlace place, const DecodedLines &to) const
{
    if (_settings.concealment == Concealment::Keep)
        return;
    for (int p = 0; p < 3; ++p)
        fill(place, p, middleSample, to);
    if (to.plane[3] != nullptr)
        fill(place, 3, opaque, to);
}

} // namespace prores
