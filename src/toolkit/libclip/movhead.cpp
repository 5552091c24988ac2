#include "libclip/movhead.h"

#include "libclip/movsample.h"

#include <algorithm>
#include <limits>

namespace clip {

namespace {

constexpr std::uint32_t language = 0x7fff; // unspecified

/// Time units of the movie and of its picture and timecode tracks: rateNum a second, rateDen a
/// frame.
std::uint32_t timeScale(const ClipInfo &info)
{
    return std::uint32_t(info.video.rateNum);
}

struct Durations
{
    std::uint64_t pictures = 0;     ///< in units of the movie
    std::uint64_t soundSamples = 0;
    std::uint64_t sound = 0;        ///< in units of the movie
};

Durations durationsOf(const ClipInfo &info, const MovieTables &tables)
{
    Durations result;
    result.pictures = tables.pictureSizes.size() * std::uint64_t(info.video.rateDen);
    result.soundSamples = tables.soundSamples;
    if (info.audio) {
        const auto rate = std::uint64_t(info.audio->sampleRate);
        const std::uint64_t scale = timeScale(info);
        const std::uint64_t seconds = tables.soundSamples / rate;
        result.sound = seconds * scale + tables.soundSamples % rate * scale / rate;
    }
    return result;
}

void writeMatrix(BoxWriter &writer)
{
    for (const std::uint32_t value : { 0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u }) {
        writer.u32(value);
    }
}

/// Durations take 64 bits only where they must: not every reader knows version 1.
bool needs64(std::uint64_t duration)
{
    return duration > std::numeric_limits<std::uint32_t>::max();
}

void writeDuration(BoxWriter &writer, std::uint64_t duration)
{
    needs64(duration) ? writer.u64(duration) : writer.u32(std::uint32_t(duration));
}

/// Created and changed, unset: a clip's bytes depend on its content alone.
void writeDates(BoxWriter &writer, std::uint64_t duration)
{
    writer.zeros(needs64(duration) ? 16 : 8);
}

void writeMovieHeader(BoxWriter &writer, const ClipInfo &info, std::uint64_t duration)
{
    writer.full("mvhd", needs64(duration) ? 1 : 0, 0, [&] {
        writeDates(writer, duration);
        writer.u32(timeScale(info));
        writeDuration(writer, duration);
        writer.u32(0x10000).u16(0x100).zeros(10);
        writeMatrix(writer);
        writer.zeros(24).u32(TimecodeTrack + 1);
    });
}

struct TrackHead
{
    TrackId id;
    std::uint32_t flags;    ///< 1 enabled, 2 in the movie
    std::uint32_t volume;
    std::uint32_t width;
    std::uint32_t height;
};

void writeTrackHeader(BoxWriter &writer, const TrackHead &head, std::uint64_t duration)
{
    writer.full("tkhd", needs64(duration) ? 1 : 0, head.flags, [&] {
        writeDates(writer, duration);
        writer.u32(head.id).u32(0);
        writeDuration(writer, duration);
        writer.zeros(8).u16(0).u16(0).u16(head.volume).u16(0);
        writeMatrix(writer);
        writer.u32(head.width << 16).u32(head.height << 16);
    });
}

void writeMediaHeader(BoxWriter &writer, std::uint32_t scale, std::uint64_t duration)
{
    writer.full("mdhd", needs64(duration) ? 1 : 0, 0, [&] {
        writeDates(writer, duration);
        writer.u32(scale);
        writeDuration(writer, duration);
        writer.u16(language).u16(0);
    });
}

void writeHandler(BoxWriter &writer, const char (&kind)[5], const char (&type)[5], const char *name)
{
    writer.full("hdlr", 0, 0, [&] { writer.code(kind).code(type).zeros(12).pascal(name); });
}

/// The media's data stand in this very file.
void writeDataReference(BoxWriter &writer)
{
    writeHandler(writer, "dhlr", "url ", "DataHandler");
    writer.box("dinf", [&] {
        writer.full("dref", 0, 0, [&] {
            writer.u32(1);
            writer.full("url ", 0, 1, [] { });
        });
    });
}

void writeVideoTrack(BoxWriter &writer, const ClipInfo &info, const MovieTables &tables,
                     bool growing)
{
    const std::uint64_t duration = durationsOf(info, tables).pictures;
    const auto [aspectX, aspectY] = pixelAspect(info.video);
    // The track is as wide as it is shown, the sample entry as wide as it is coded.
    const auto shownWidth = std::uint32_t(info.video.width * aspectX / aspectY);
    writer.box("trak", [&] {
        writeTrackHeader(writer, { VideoTrack, 3, 0, shownWidth, std::uint32_t(info.video.height) },
                         duration);
        if (info.timecode) {
            writer.box("tref", [&] { writer.box("tmcd", [&] { writer.u32(TimecodeTrack); }); });
        }
        writer.box("mdia", [&] {
            writeMediaHeader(writer, timeScale(info), duration);
            writeHandler(writer, "mhlr", "vide", "VideoHandler");
            writer.box("minf", [&] {
                writer.full("vmhd", 0, 1, [&] {
                    writer.u16(0x40).u16(0x8000).u16(0x8000).u16(0x8000);
                });
                writeDataReference(writer);
                writer.box("stbl", [&] {
                    writeVideoDescription(writer, info.video, tables.dnxCompression);
                    growing ? writeEmptyTables(writer)
                            : writePictureTables(writer, tables, std::uint32_t(info.video.rateDen));
                });
            });
        });
    });
}

void writeSoundTrack(BoxWriter &writer, const ClipInfo &info, const MovieTables &tables,
                     bool growing)
{
    const Durations durations = durationsOf(info, tables);
    writer.box("trak", [&] {
        writeTrackHeader(writer, { SoundTrack, 3, 0x100, 0, 0 }, durations.sound);
        writer.box("mdia", [&] {
            writeMediaHeader(writer, std::uint32_t(info.audio->sampleRate), durations.soundSamples);
            writeHandler(writer, "mhlr", "soun", "SoundHandler");
            writer.box("minf", [&] {
                writer.full("smhd", 0, 0, [&] { writer.u32(0); });
                writeDataReference(writer);
                writer.box("stbl", [&] {
                    writeSoundDescription(writer, *info.audio);
                    growing ? writeEmptyTables(writer)
                            : writeSoundTables(writer, tables, soundBlock(info.audio->channels));
                });
            });
        });
    });
}

void writeTimecodeMediaHeader(BoxWriter &writer)
{
    writer.box("gmhd", [&] {
        writer.full("gmin", 0, 0, [&] {
            writer.u16(0x40).u16(0x8000).u16(0x8000).u16(0x8000).u16(0).u16(0);
        });
        writer.box("tmcd", [&] {
            writer.full("tcmi", 0, 0, [&] {
                writer.u16(0).u16(0).u16(12).u16(0);                    // font, face, size
                writer.u16(0).u16(0).u16(0).u16(0xffff).u16(0xffff).u16(0xffff);
                writer.pascal("Lucida Grande");
            });
        });
    });
}

void writeTimecodeTrack(BoxWriter &writer, const ClipInfo &info, const MovieTables &tables,
                        bool growing)
{
    const std::uint64_t duration = durationsOf(info, tables).pictures;
    writer.box("trak", [&] {
        // In the movie but not enabled: it is looked up, not presented.
        writeTrackHeader(writer, { TimecodeTrack, 2, 0, 0, 0 }, duration);
        writer.box("mdia", [&] {
            writeMediaHeader(writer, timeScale(info), duration);
            writeHandler(writer, "mhlr", "tmcd", "TimeCodeHandler");
            writer.box("minf", [&] {
                writeTimecodeMediaHeader(writer);
                writeDataReference(writer);
                writer.box("stbl", [&] {
                    writeTimecodeDescription(writer, info);
                    growing ? writeEmptyTables(writer)
                            : writeTimecodeTables(writer, tables, duration);
                });
            });
        });
    });
}

void writeMarks(BoxWriter &writer, const ClipInfo &info)
{
    const bool segmented = info.video.scan == Scan::Segmented;
    const bool reel = !info.timecode && !info.reel.empty();
    if (!segmented && !reel) {
        return;
    }
    writer.box("udta", [&] {
        if (segmented) {
            writer.box(segmentedMark, [&] { writer.u32(1); });
        }
        if (reel) {
            writer.box(reelMark, [&] { writer.text(info.reel); });
        }
    });
}

void writeMovie(BoxWriter &writer, const ClipInfo &info, const MovieTables &tables, bool growing)
{
    const Durations durations = durationsOf(info, tables);
    writer.box("moov", [&] {
        writeMovieHeader(writer, info, std::max(durations.pictures, durations.sound));
        writeVideoTrack(writer, info, tables, growing);
        if (info.audio) {
            writeSoundTrack(writer, info, tables, growing);
        }
        if (info.timecode) {
            writeTimecodeTrack(writer, info, tables, growing);
        }
        writeMarks(writer, info);
        if (!growing) {
            return;
        }
        writer.box("mvex", [&] {
            const auto defaults = [&](std::uint32_t track) {
                writer.full("trex", 0, 0, [&] { writer.u32(track).u32(1).u32(0).u32(0).u32(0); });
            };
            defaults(VideoTrack);
            if (info.audio) {
                defaults(SoundTrack);
            }
            if (info.timecode) {
                defaults(TimecodeTrack);
            }
        });
    });
}

} // namespace

BoxWriter::Bytes movieHead(const ClipInfo &info)
{
    BoxWriter writer;
    writer.box("ftyp", [&] { writer.code("qt  ").u32(0x200).code("qt  "); });
    writer.box("wide", [&] { writer.u64(0); });
    writeMovie(writer, info, { }, true);
    const std::size_t padding = (8 - writer.size() % 8) % 8;
    if (padding != 0) {
        writer.box("free", [&] { writer.zeros(padding); });
    }
    return writer.take();
}

BoxWriter::Bytes completeMovie(const ClipInfo &info, const MovieTables &tables)
{
    BoxWriter writer;
    writeMovie(writer, info, tables, false);
    return writer.take();
}

} // namespace clip
