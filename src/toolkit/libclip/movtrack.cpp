#include "libclip/movtrack.h"

#include <algorithm>
#include <limits>

namespace clip {

namespace {

/// 74 hours at 60 frames a second.
constexpr std::size_t maxPictures = 16'000'000;
constexpr std::size_t maxRuns = 8'000'000;

bool fits(std::uint64_t offset, std::uint64_t bytes, std::uint64_t fileSize)
{
    return offset <= fileSize && bytes <= fileSize - offset;
}

MovTrack::Kind kindOf(BoxCursor handler)
{
    handler.skip(8);
    switch (handler.u32()) {
    case fourcc("vide"):
        return MovTrack::Kind::Video;
    case fourcc("soun"):
        return MovTrack::Kind::Sound;
    case fourcc("tmcd"):
        return MovTrack::Kind::Timecode;
    default:
        return MovTrack::Kind::Other;
    }
}

/// The tables of a track's samples, entry by entry as they are needed.
struct SampleTables
{
    BoxCursor chunkOffsets;
    bool is64 = false;
    std::uint32_t chunks = 0;
    BoxCursor runs;
    std::uint32_t runsLeft = 0;
    BoxCursor sizes;
    std::uint32_t sameSize = 0;
    std::uint32_t samples = 0;

    explicit SampleTables(const BoxCursor &stbl)
    {
        chunkOffsets = stbl.find("co64");
        is64 = !chunkOffsets.failed();
        if (!is64) {
            chunkOffsets = stbl.find("stco");
        }
        chunkOffsets.skip(4);
        chunks = chunkOffsets.u32();
        runs = stbl.find("stsc");
        runs.skip(4);
        runsLeft = runs.u32();
        sizes = stbl.find("stsz");
        sizes.skip(4);
        sameSize = sizes.u32();
        samples = sizes.u32();
    }

    /// Calls \a take with offset and number of samples of each chunk until it answers false.
    template<typename Take>
    void forEachChunk(Take take)
    {
        std::uint32_t perChunk = 0;
        std::uint64_t nextRun = runsLeft > 0 ? runs.u32() : 0;
        for (std::uint64_t chunk = 1; chunk <= chunks; ++chunk) {
            while (runsLeft > 0 && nextRun <= chunk && !runs.failed()) {
                perChunk = runs.u32();
                runs.skip(4);
                --runsLeft;
                nextRun = runsLeft > 0 ? runs.u32() : 0;
            }
            const std::uint64_t offset = chunkOffsets.wide(is64);
            if (chunkOffsets.failed() || !take(offset, perChunk)) {
                return;
            }
        }
    }
};

void parseTimes(BoxCursor stts, MovTrack &track)
{
    stts.skip(4);
    const std::uint32_t entries = stts.u32();
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint32_t samples = stts.u32();
        const std::uint32_t duration = stts.u32();
        if (stts.failed()) {
            return;
        }
        track.durations.count(duration, samples);
    }
}

void parseSamples(const BoxCursor &stbl, MovTrack &track, std::uint64_t fileSize)
{
    SampleTables tables(stbl);
    std::uint32_t left = tables.samples;
    if (tables.sameSize == 0) {
        // No more than the table has sizes, whatever it says.
        const std::size_t stated = tables.sizes.left() / sizeof(std::uint32_t);
        const std::size_t held = std::min({ std::size_t(left), stated, maxPictures });
        track.offsets.reserve(held);
        track.sizes.reserve(held);
    }
    tables.forEachChunk([&](std::uint64_t offset, std::uint32_t samples) {
        for (; samples > 0 && left > 0; --samples, --left) {
            const std::uint32_t size = tables.sameSize != 0 ? tables.sameSize : tables.sizes.u32();
            if (tables.sizes.failed() || !track.addSample(offset, size, fileSize)) {
                return false;
            }
            offset += size;
        }
        return left > 0;
    });
}

void parseSound(const BoxCursor &stbl, MovTrack &track, std::uint64_t fileSize)
{
    SampleTables tables(stbl);
    std::uint64_t left = tables.samples;
    // The size of a sample is the description's affair: writers disagree about what the table
    // holds.
    tables.forEachChunk([&](std::uint64_t offset, std::uint32_t samples) {
        const std::uint64_t taken = std::min<std::uint64_t>(samples, left);
        left -= taken;
        return track.addSound(offset, taken * track.soundBlock(), fileSize) && left > 0;
    });
}

/// A first empty edit delays the track, the first real one says where in the media it begins and, when it is
/// the only one, how much of it is shown. A clip put together of several pieces is shown whole.
void parseEdits(BoxCursor elst, MovTrack &track)
{
    const bool is64 = elst.u8() == 1;
    elst.skip(3);
    const std::uint32_t entries = std::min<std::uint32_t>(elst.u32(), 16);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint64_t duration = elst.wide(is64);
        const std::int64_t mediaTime = elst.signedWide(is64);
        elst.skip(4);
        if (elst.failed()) {
            return;
        }
        if (mediaTime >= 0) {
            track.start = mediaTime;
            track.shown = i + 1 == entries ? duration : 0;
            return;
        }
        track.delay = duration;
    }
}

} // namespace

bool MovTrack::addSample(std::uint64_t offset, std::uint32_t size, std::uint64_t fileSize)
{
    if (!fits(offset, size, fileSize)) {
        isCut = true;
        return false;
    }
    if (offsets.size() >= maxPictures) {
        return false;
    }
    offsets.push_back(offset);
    sizes.push_back(size);
    return true;
}

bool MovTrack::addSound(std::uint64_t offset, std::uint64_t bytes, std::uint64_t fileSize)
{
    const std::uint64_t block = soundBlock();
    if (block == 0 || offset > fileSize) {
        isCut = isCut || block != 0;
        return false;
    }
    const bool isWhole = fits(offset, bytes, fileSize);
    isCut = isCut || !isWhole;
    const std::uint64_t samples = (isWhole ? bytes : fileSize - offset) / block;
    const std::uint64_t first = soundSamples();
    // Chunks may overlap in a hostile file; more samples than this no counter can hold.
    if (samples > (std::uint64_t(1) << 60) - first) {
        return false;
    }
    if (!runs.empty() && runs.back().offset + runs.back().samples * block == offset) {
        runs.back().samples += samples;
    } else if (samples > 0) {
        if (runs.size() >= maxRuns) {
            return false;
        }
        runs.push_back({ first, samples, offset });
    }
    return isWhole;
}

MovTrack parseTrack(BoxCursor trak, std::uint64_t fileSize)
{
    MovTrack track;
    BoxCursor head = trak.find("tkhd");
    const bool is64 = head.u8() == 1;
    head.skip(is64 ? 19 : 11);
    track.id = head.u32();
    const BoxCursor media = trak.find("mdia");
    BoxCursor mediaHead = media.find("mdhd");
    const bool isMedia64 = mediaHead.u8() == 1;
    mediaHead.skip(isMedia64 ? 19 : 11);
    track.timeScale = mediaHead.u32();
    const BoxCursor stbl = media.find("minf").find("stbl");
    if (head.failed() || mediaHead.failed() || track.timeScale == 0 || stbl.failed()) {
        return { };
    }
    track.kind = kindOf(media.find("hdlr"));
    if (track.kind == MovTrack::Kind::Other) {
        return { };
    }
    parseDescription(stbl.find("stsd"), track);
    parseEdits(trak.find("edts").find("elst"), track);
    parseTimes(stbl.find("stts"), track);
    if (track.kind == MovTrack::Kind::Sound) {
        parseSound(stbl, track, fileSize);
    } else {
        parseSamples(stbl, track, fileSize);
    }
    return track;
}

} // namespace clip
