#include "libprores/frameinfo.h"

#include "libprores/geometry.h"

#include <algorithm>

namespace prores {

namespace {

constexpr std::size_t boxBytes = 8;
constexpr std::size_t plainHeaderBytes = 20; ///< without matrices
constexpr std::size_t matrixBytes = 64;
constexpr std::size_t frameMark = 0x69637066; // icpf
constexpr std::size_t newestVersion = 1;

constexpr int reduced(int samples, Reduction reduction)
{
    const int shift = static_cast<int>(reduction);
    return (samples + (1 << shift) - 1) >> shift;
}

bool readMatrix(const std::uint8_t *&from, const std::uint8_t *end, Matrix &matrix)
{
    if (static_cast<std::size_t>(end - from) < matrixBytes)
        return false;
    std::copy_n(from, matrixBytes, matrix.begin());
    from += matrixBytes;
    return true;
}

} // namespace

int FrameInfo::planeWidth(int p, Reduction reduction) const
{
    const bool isHalf = !is444 && (p == 1 || p == 2);
    return reduced(isHalf ? (width + 1) / 2 : width, reduction);
}

int FrameInfo::planeHeight(Reduction reduction) const
{
    int lines = 0;
    for (int i = 0; i < pictures(); ++i)
        lines += reduced(pictureHeight(i), reduction);
    return lines;
}

int FrameInfo::pictureHeight(int index) const
{
    return isInterlaced() ? (height + 1 - firstLineOf(scan, index)) / 2 : height;
}

std::optional<FrameHead> readFrameHead(const std::uint8_t *frame, std::size_t size)
{
    if (frame == nullptr || size < boxBytes + plainHeaderBytes || readBig32(frame + 4) != frameMark)
        return std::nullopt;
    const std::uint8_t *header = frame + boxBytes;
    const std::uint8_t *end = frame + size;
    const std::size_t headerBytes = readBig16(header);
    if (headerBytes < plainHeaderBytes || headerBytes > size - boxBytes || readBig16(header + 2) > newestVersion)
        return std::nullopt;
    FrameHead head;
    head.bytes = boxBytes + headerBytes;
    FrameInfo &info = head.info;
    info.width = static_cast<int>(readBig16(header + 8));
    info.height = static_cast<int>(readBig16(header + 10));
    info.is444 = header[12] >> 6 == 3;
    const int order = header[12] >> 2 & 3;
    info.scan = order == 0 ? Scan::Progressive : order == 1 ? Scan::TopFirst : Scan::BottomFirst;
    info.aspect = header[13] >> 4;
    info.rate = header[13] & 15;
    info.primaries = header[14];
    info.transfer = header[15];
    info.matrix = header[16];
    const int alpha = header[17] & 15;
    if (info.width == 0 || info.height < info.pictures() || alpha > 2)
        return std::nullopt;
    info.alphaBits = alpha * 8;
    // A frame without matrices is flat; one with a luma matrix only has it for all planes.
    head.luma.fill(4);
    const std::uint8_t *from = header + plainHeaderBytes;
    if ((header[19] & 2) != 0 && !readMatrix(from, end, head.luma))
        return std::nullopt;
    head.chroma = head.luma;
    if ((header[19] & 1) != 0 && !readMatrix(from, end, head.chroma))
        return std::nullopt;
    return head;
}

std::optional<FrameInfo> readFrameInfo(const std::uint8_t *frame, std::size_t size)
{
    const std::optional<FrameHead> head = readFrameHead(frame, size);
    return head ? std::optional(head->info) : std::nullopt;
}

std::optional<PictureHead> readPictureHead(const std::uint8_t *picture, std::size_t size)
{
    constexpr std::size_t leastBytes = 8;
    if (size < leastBytes)
        return std::nullopt;
    PictureHead head;
    head.headerBytes = picture[0] >> 3;
    head.bytes = readBig32(picture + 1);
    const bool isWithin = head.headerBytes >= leastBytes && head.headerBytes <= head.bytes && head.bytes <= size;
    const int widthLog = picture[7] >> 4;
    const int heightLog = picture[7] & 15;
    if (!isWithin || widthLog > 3 || heightLog != 0)
        return std::nullopt;
    head.sliceWidth = 1 << widthLog;
    return head;
}

} // namespace prores
