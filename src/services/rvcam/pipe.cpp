#include "services/rvcam/pipe.h"

#include "libpicture/framebar.h"
#include "libpicture/patterns.h"
#include "services/rvcam/frameclock.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace cam {

namespace {

bool writeAll(const void *data, std::size_t bytes)
{
    const auto *from = static_cast<const std::uint8_t *>(data);
    while (bytes > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, from, bytes);
        if (written < 0 && errno == EINTR && !isEnding())
            continue;
        if (written <= 0)
            return false;
        from += written;
        bytes -= static_cast<std::size_t>(written);
    }
    return true;
}

std::uint8_t eightBit(int sum, int terms)
{
    const int divisor = terms * 4;
    return static_cast<std::uint8_t>(std::min((sum + divisor / 2) / divisor, 255));
}

/// Appends one plane, 8 bit; \a halve takes the mean of two chroma lines of the same field.
std::uint8_t *appendPlane(std::uint8_t *out, const picture::View &view, int p, bool halve,
                          bool interlaced)
{
    const int samples = p == 0 ? view.width : view.width / 2;
    const int lines = halve ? (view.height + 1) / 2 : view.height;
    for (int y = 0; y < lines; ++y) {
        if (!halve) {
            const std::uint16_t *line = view.line(p, y);
            for (int x = 0; x < samples; ++x)
                *out++ = eightBit(line[x], 1);
            continue;
        }
        const int upper = interlaced ? y / 2 * 4 + y % 2 : y * 2;
        const int lower = upper + (interlaced ? 2 : 1);
        const std::uint16_t *a = view.line(p, std::min(upper, view.height - 1));
        const std::uint16_t *b = view.line(p, std::min(lower, view.height - 1));
        for (int x = 0; x < samples; ++x)
            *out++ = eightBit(a[x] + b[x], 2);
    }
    return out;
}

std::string streamHeader(const Settings &settings)
{
    const bus::Format &format = settings.format;
    // 525-line pictures begin with the lower field, all others with the upper one.
    const char *scan = format.scanMode != 1 ? "p" : format.height == 486 ? "b" : "t";
    const char *chroma = settings.pipeFormat == PipeFormat::Yuv420 ? "420mpeg2" : "422";
    return "YUV4MPEG2 W" + std::to_string(format.width) + " H" + std::to_string(format.height)
           + " F" + std::to_string(format.rateNum) + ":" + std::to_string(format.rateDen)
           + " I" + scan + " A0:0 C" + chroma + "\n";
}

} // namespace

int runPipe(const Settings &settings, Source &source)
{
    const bus::Format &format = settings.format;
    std::vector<std::uint16_t> samples(picture::bytesFor(format.width, format.height) / 2);
    const picture::View view = picture::viewOf(samples.data(), format.width, format.height);
    std::vector<std::uint8_t> eight(samples.size() + static_cast<std::size_t>(format.width));
    const bool halve = settings.pipeFormat == PipeFormat::Yuv420;
    const bool interlaced = format.scanMode == 1;
    const std::string header = streamHeader(settings);
    static constexpr char frameHeader[] = "FRAME\n";

    FrameClock clock(format.rateNum, format.rateDen);
    clock.start();
    bool ok = writeAll(header.data(), header.size());
    for (std::int64_t n = 0; ok && (settings.frames == 0 || n < settings.frames); ++n) {
        if (!source.draw(view, n))
            picture::drawBlack(view);
        else if (settings.stamp)
            picture::writeFrameNumber(view, settings.first + static_cast<std::uint32_t>(n));
        std::uint8_t *end = eight.data();
        for (int p = 0; p < 3; ++p)
            end = appendPlane(end, view, p, halve && p > 0, interlaced);
        if (settings.fast ? isEnding() : !clock.waitFor(n))
            return 0;
        ok = writeAll(frameHeader, sizeof frameHeader - 1)
             && writeAll(eight.data(), static_cast<std::size_t>(end - eight.data()));
    }
    if (ok || errno == EPIPE || isEnding())
        return 0;
    std::fprintf(stderr, "rvcam: cannot write: %s\n", std::strerror(errno));
    return 1;
}

} // namespace cam
