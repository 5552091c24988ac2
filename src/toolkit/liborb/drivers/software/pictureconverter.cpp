#include "liborb/drivers/software/pictureconverter.h"

#include "liborb/drivers/software/picturecoder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace ferin {

namespace {

template <typename Sample>
const Sample *lineOf(const AVFrame &frame, int plane, int y)
{
    return reinterpret_cast<const Sample *>(frame.data[plane]
                                            + static_cast<std::ptrdiff_t>(frame.linesize[plane]) * y);
}

/// To 10 bits: 8-bit samples are shifted up, 10-bit ones are as they should be.
template <typename Sample>
void copyLine(const Sample *from, std::uint16_t *to, int samples)
{
    if constexpr (sizeof(Sample) == sizeof(std::uint16_t)) {
        std::memcpy(to, from, sizeof(Sample) * static_cast<std::size_t>(samples));
    } else {
        for (int x = 0; x < samples; ++x)
            to[x] = static_cast<std::uint16_t>(from[x] << 2);
    }
}

/// A line between two others, \a near eighths of the way from \a b to \a a, at 10 bits.
template <typename Sample>
void mixLine(const Sample *a, const Sample *b, int near, std::uint16_t *to, int samples)
{
    constexpr int shift = sizeof(Sample) == 1 ? 1 : 3;
    const int far = 8 - near;
    for (int x = 0; x < samples; ++x)
        to[x] = static_cast<std::uint16_t>((a[x] * near + b[x] * far + (1 << (shift - 1))) >> shift);
}

template <typename Sample>
void copyPlane(const AVFrame &from, int plane, const picture::View &to)
{
    const int samples = plane == 0 ? to.width : to.width / 2;
    for (int y = 0; y < to.height; ++y)
        copyLine(lineOf<Sample>(from, plane, y), to.line(plane, y), samples);
}

/// Where chroma lies in 4:2:0: the eighths of the nearer line in the upper and the lower of two picture lines.
struct Siting {
    int upper, lower;
};
constexpr Siting frameSiting = { 6, 6 };
constexpr Siting topFieldSiting = { 7, 5 };
constexpr Siting bottomFieldSiting = { 5, 7 };

/// Lines \a first, \a first + \a step … of 4:2:0 chroma, twice as many of them.
template <typename Sample>
void widenLines(const AVFrame &from, int plane, const picture::View &to, int first, int step,
                const Siting &siting)
{
    const int lines = (to.height - first + step - 1) / step; // of this field, or of the frame
    const int chromaLines = ((from.height + 1) / 2 - first + step - 1) / step; // the fields may differ
    for (int y = 0; y < lines; ++y) {
        const int near = std::min(y / 2, chromaLines - 1);
        const bool isUpper = y % 2 == 0;
        const int far = std::clamp(isUpper ? near - 1 : near + 1, 0, chromaLines - 1);
        mixLine(lineOf<Sample>(from, plane, first + near * step),
                lineOf<Sample>(from, plane, first + far * step),
                isUpper ? siting.upper : siting.lower, to.line(plane, first + y * step), to.width / 2);
    }
}

template <typename Sample>
void convert420(const AVFrame &from, bool interlaced, const picture::View &to)
{
    copyPlane<Sample>(from, 0, to);
    for (int p = 1; p < 3; ++p) {
        if (interlaced) {
            widenLines<Sample>(from, p, to, 0, 2, topFieldSiting);
            widenLines<Sample>(from, p, to, 1, 2, bottomFieldSiting);
        } else {
            widenLines<Sample>(from, p, to, 0, 1, frameSiting);
        }
    }
}

template <typename Sample>
void convert422(const AVFrame &from, const picture::View &to)
{
    for (int p = 0; p < 3; ++p)
        copyPlane<Sample>(from, p, to);
}

/// Half as many samples, each with a quarter of either neighbour, so that it stays where it is.
void halveLine(const std::uint16_t *from, std::uint16_t *to, int samples)
{
    to[0] = static_cast<std::uint16_t>((3 * from[0] + from[1] + 2) / 4);
    for (int x = 1; x < samples; ++x)
        to[x] = static_cast<std::uint16_t>((from[2 * x - 1] + 2 * from[2 * x] + from[2 * x + 1] + 2) / 4);
}

void convert444(const AVFrame &from, const picture::View &to)
{
    copyPlane<std::uint16_t>(from, 0, to);
    for (int p = 1; p < 3; ++p) {
        for (int y = 0; y < to.height; ++y)
            halveLine(lineOf<std::uint16_t>(from, p, y), to.line(p, y), to.width / 2);
    }
}

int colourTable(AVColorSpace space, int height)
{
    if (space == AVCOL_SPC_UNSPECIFIED || space == AVCOL_SPC_RGB)
        return isStandardDefinition(height) ? SWS_CS_ITU601 : SWS_CS_ITU709;
    return space; // the scaler's numbers are the same
}

} // namespace

bool PictureConverter::convert(const AVFrame &from, bool interlaced, const picture::View &to)
{
    const bool isSameSize = (from.width & ~1) == to.width && from.height == to.height;
    if (!isSameSize || from.color_range == AVCOL_RANGE_JPEG)
        return scale(from, interlaced, to);
    switch (from.format) {
    case AV_PIX_FMT_YUV422P10:
        convert422<std::uint16_t>(from, to);
        return true;
    case AV_PIX_FMT_YUV422P:
        convert422<std::uint8_t>(from, to);
        return true;
    case AV_PIX_FMT_YUV420P:
        convert420<std::uint8_t>(from, interlaced, to);
        return true;
    case AV_PIX_FMT_YUV420P10:
        convert420<std::uint16_t>(from, interlaced, to);
        return true;
    case AV_PIX_FMT_YUV444P10:
    case AV_PIX_FMT_YUVA444P10:
        convert444(from, to);
        return true;
    default:
        return scale(from, interlaced, to);
    }
}

bool PictureConverter::prepare(const AVFrame &from, int fromHeight, const picture::View &to, int toHeight)
{
    const auto format = static_cast<AVPixelFormat>(from.format);
    if (from.width < 1 || fromHeight < 1 || !sws_isSupportedInput(format))
        return false;
    const bool isCut = (from.width & ~1) == to.width;
    _scaler.reset(sws_getCachedContext(_scaler.release(), isCut ? to.width : from.width, fromHeight,
                                       format, to.width, toHeight, AV_PIX_FMT_YUV422P10,
                                       SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!_scaler)
        return false;
    const int *fromTable = sws_getCoefficients(colourTable(from.colorspace, from.height));
    const int *toTable =
        sws_getCoefficients(isStandardDefinition(to.height) ? SWS_CS_ITU601 : SWS_CS_ITU709);
    const bool isFullRange = from.color_range == AVCOL_RANGE_JPEG;
    sws_setColorspaceDetails(_scaler.get(), fromTable, isFullRange ? 1 : 0, toTable, 0, 0, 1 << 16,
                             1 << 16);
    return true;
}

bool PictureConverter::scale(const AVFrame &from, bool interlaced, const picture::View &to)
{
    const AVPixFmtDescriptor *kind = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
    if (kind == nullptr)
        return false;
    // Fields are scaled each on its own, if each has whole chroma lines.
    const bool mixesLines = kind->log2_chroma_h > 0 || from.height != to.height;
    const bool canSplit = from.height % (2 << kind->log2_chroma_h) == 0 && to.height % 2 == 0;
    const int fields = interlaced && mixesLines && canSplit ? 2 : 1;
    if (!prepare(from, from.height / fields, to, to.height / fields))
        return false;
    const int planes = av_pix_fmt_count_planes(static_cast<AVPixelFormat>(from.format));
    const bool hasPalette = (kind->flags & AV_PIX_FMT_FLAG_PAL) != 0;
    for (int field = 0; field < fields; ++field) {
        const std::uint8_t *source[4] = {};
        int sourceStride[4] = {};
        for (int p = 0; p < std::min(planes, 4); ++p) {
            source[p] = from.data[p] + static_cast<std::ptrdiff_t>(from.linesize[p]) * field;
            sourceStride[p] = from.linesize[p] * fields;
        }
        if (hasPalette)
            source[1] = from.data[1];
        std::uint8_t *target[4] = {};
        int targetStride[4] = {};
        for (int p = 0; p < 3; ++p) {
            target[p] = reinterpret_cast<std::uint8_t *>(to.line(p, field));
            targetStride[p] = to.stride[p] * static_cast<int>(sizeof(std::uint16_t)) * fields;
        }
        if (sws_scale(_scaler.get(), source, sourceStride, 0, from.height / fields, target, targetStride)
            != to.height / fields)
            return false;
    }
    return true;
}

} // namespace ferin
