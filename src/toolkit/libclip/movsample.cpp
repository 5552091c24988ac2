#include "libclip/movsample.h"

#include "libclip/boxcursor.h"
#include "libclip/movhead.h"

#include <algorithm>
#include <iterator>

namespace clip {

namespace {

/// DNxHR compressions are numbered from here up, those of DNxHD below.
constexpr std::uint32_t firstDnxHr = 1270;
constexpr std::uint32_t dnxHrHqx = 1271;

struct CodecRow
{
    Codec codec;
    char entry[5];
    std::uint32_t quality;
    const char *name;
};

// clang-format off
constexpr CodecRow codecRows[] = {
    // codec                   entry   quality  name
    { Codec::ProRes422,        "apcn", 0x200,   "ProRes 422" },
    { Codec::ProRes422Hq,      "apch", 0x200,   "ProRes 422 HQ" },
    { Codec::ProRes422Lt,      "apcs", 0x200,   "ProRes 422 LT" },
    { Codec::ProRes422Proxy,   "apco", 0x200,   "ProRes 422 Proxy" },
    { Codec::ProRes4444,       "ap4h", 0x200,   "ProRes 4444" },
    { Codec::DnxHqx,           "AVdh", 0x200,   "DNxHR HQX" },
    { Codec::V210,             "v210", 0x400,   "Uncompressed 10-bit 4:2:2" },
};
// clang-format on

void writeFields(BoxWriter &writer, const VideoFormat &video)
{
    writer.box("fiel", [&] {
        if (video.scan == Scan::Interlaced) {
            // Lines interleaved, the top line in the earlier (9) or the later (14) field.
            writer.u8(2).u8(video.topFieldFirst ? 9 : 14);
        } else {
            writer.u8(1).u8(0);
        }
    });
}

void writeColour(BoxWriter &writer, const VideoFormat &video)
{
    const bool isStandardDefinition = video.height <= 576;
    writer.box("colr", [&] {
        writer.code("nclc");
        if (!isStandardDefinition) {
            writer.u16(1).u16(1).u16(1);
        } else {
            writer.u16(video.height > 486 ? 5 : 6).u16(1).u16(6);
        }
    });
}

void writeCleanAperture(BoxWriter &writer, const VideoFormat &video)
{
    writer.box("clap", [&] {
        writer.u32(std::uint32_t(video.width)).u32(1).u32(std::uint32_t(video.height)).u32(1);
        writer.u32(0).u32(1).u32(0).u32(1);
    });
}

/// The extensions readers of DNx pictures look for: colour range, compression number, picture size.
void writeDnxExtensions(BoxWriter &writer, const VideoFormat &video, std::uint32_t compression)
{
    writer.box("ACLR", [&] { writer.code("ACLR").code("0001").u32(1).u32(0); });
    if (compression >= firstDnxHr) {
        writer.box("ADHR", [&] {
            writer.code("ADHR").code("0001").u32(compression).u32(0).u32(1).u32(0);
        });
        return;
    }
    const bool interlaced = video.scan == Scan::Interlaced;
    writer.box("APRG", [&] { writer.code("APRG").code("0001").u32(interlaced ? 2 : 1).u32(0); });
    writer.box("ARES", [&] {
        writer.code("ARES").code("0001").u32(compression).u32(std::uint32_t(video.width));
        writer.u32(std::uint32_t(interlaced ? video.height / 2 : video.height));
        writer.u32(interlaced ? 2 : 1).u32(0);
        writer.u32(interlaced ? 4 : video.height == 1080 ? 5 : 6).zeros(80);
    });
}

} // namespace

std::pair<int, int> pixelAspect(const VideoFormat &video)
{
    if (video.width == 720 && (video.height == 486 || video.height == 480)) {
        return { 10, 11 };
    }
    if (video.width == 720 && video.height == 576) {
        return { 12, 11 };
    }
    return { 1, 1 };
}

std::uint32_t dnxCompressionOf(std::span<const std::byte> picture)
{
    BoxCursor cursor(picture);
    const bool isDnx = cursor.u32() == 0x00000280;
    cursor.skip(0x24);
    const std::uint32_t compression = cursor.u32();
    return isDnx && !cursor.failed() ? compression : 0;
}

void writeVideoDescription(BoxWriter &writer, const VideoFormat &video,
                           std::uint32_t dnxCompression)
{
    const auto row = std::ranges::find(codecRows, video.codec, &CodecRow::codec);
    if (row == std::end(codecRows)) {
        return;
    }
    const bool isDnx = video.codec == Codec::DnxHqx;
    const std::uint32_t compression = dnxCompression != 0 ? dnxCompression : dnxHrHqx;
    const bool isDnxHd = isDnx && compression < firstDnxHr;
    const std::string name = isDnxHd ? "DNxHD" : row->name;
    writer.full("stsd", 0, 0, [&] {
        writer.u32(1);
        writer.box(isDnxHd ? fourcc("AVdn") : fourcc(row->entry), [&] {
            writer.zeros(6).u16(1);
            writer.u16(video.codec == Codec::V210 ? 2 : 0).u16(0).u32(0);
            writer.u32(0).u32(row->quality);
            writer.u16(std::uint32_t(video.width)).u16(std::uint32_t(video.height));
            writer.u32(0x480000).u32(0x480000).u32(0).u16(1);
            writer.pascal(name).zeros(31 - name.size());
            writer.u16(24).u16(0xffff);
            if (isDnx) {
                writeDnxExtensions(writer, video, compression);
            }
            writeFields(writer, video);
            writeColour(writer, video);
            writer.box("pasp", [&] {
                const auto [x, y] = pixelAspect(video);
                writer.u32(std::uint32_t(x)).u32(std::uint32_t(y));
            });
            if (video.codec == Codec::V210) {
                writeCleanAperture(writer, video);
            }
            // Four zero bytes end the list of extensions for readers that look for its end.
            writer.u32(0);
        });
    });
}

void writeSoundDescription(BoxWriter &writer, const AudioFormat &audio)
{
    const auto channels = std::uint32_t(audio.channels);
    constexpr std::uint32_t stereo = 101 << 16 | 2;
    constexpr std::uint32_t mono = 100 << 16 | 1;
    constexpr std::uint32_t discreteInOrder = 147u << 16;
    const std::uint32_t layout =
        channels == 1 ? mono : channels == 2 ? stereo : discreteInOrder | channels;
    writer.full("stsd", 0, 0, [&] {
        writer.u32(1);
        writer.box("in24", [&] {
            writer.zeros(6).u16(1);
            writer.u16(1).u16(0).u32(0);
            // Version 1 keeps 16 here; the true width is in the bytes per sample that follow.
            writer.u16(channels).u16(16).u16(0).u16(0).u32(std::uint32_t(audio.sampleRate) << 16);
            writer.u32(1).u32(3).u32(soundBlock(audio.channels)).u32(2);
            writer.box("wave", [&] {
                writer.box("frma", [&] { writer.code("in24"); });
                writer.box("enda", [&] { writer.u16(1); });
                writer.u32(8).u32(0);
            });
            writer.full("chan", 0, 0, [&] { writer.u32(layout).u32(0).u32(0); });
        });
    });
}

void writeTimecodeDescription(BoxWriter &writer, const ClipInfo &info)
{
    const StartTimecode &timecode = *info.timecode;
    const VideoFormat &video = info.video;
    constexpr std::uint32_t dropFrame = 1;
    constexpr std::uint32_t wrapsAt24Hours = 2;
    // A picture rate of twice the timecode's counts every second frame.
    const int nominal = (video.rateNum + video.rateDen - 1) / video.rateDen;
    const int framesPerCount = std::max(1, nominal / std::max(1, timecode.fps));
    writer.full("stsd", 0, 0, [&] {
        writer.u32(1);
        writer.box("tmcd", [&] {
            writer.zeros(6).u16(1).u32(0);
            writer.u32(wrapsAt24Hours | (timecode.dropFrame ? dropFrame : 0));
            writer.u32(std::uint32_t(video.rateNum));
            writer.u32(std::uint32_t(video.rateDen * framesPerCount));
            writer.u8(std::uint32_t(timecode.fps)).u8(0);
            if (!info.reel.empty()) {
                writer.box("name", [&] {
                    writer.u16(std::uint32_t(info.reel.size())).u16(0).text(info.reel);
                });
            }
        });
    });
}

} // namespace clip
