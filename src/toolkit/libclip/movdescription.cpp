#include "libclip/movtrack.h"
#include "libclip/soundrate.h"

#include <algorithm>
#include <bit>
#include <iterator>

namespace clip {

namespace {

struct EntryRow
{
    char entry[5];
    Codec codec;
};

// clang-format off
constexpr EntryRow entryRows[] = {
    // entry   codec
    { "apcn",  Codec::ProRes422 },
    { "apch",  Codec::ProRes422Hq },
    { "apcs",  Codec::ProRes422Lt },
    { "apco",  Codec::ProRes422Proxy },
    { "ap4h",  Codec::ProRes4444 },
    { "AVdn",  Codec::DnxHqx },
    { "AVdh",  Codec::DnxHqx },
    { "v210",  Codec::V210 },
};
// clang-format on

void parseVideo(std::uint32_t entry, BoxCursor content, MovTrack &track)
{
    const auto row = std::ranges::find_if(
        entryRows, [&](const EntryRow &r) { return fourcc(r.entry) == entry; });
    content.skip(24);
    track.video.width = int(content.u16());
    track.video.height = int(content.u16());
    content.skip(50);
    if (content.failed() || row == std::end(entryRows)) {
        return;
    }
    track.video.codec = row->codec;
    BoxCursor fields = content.find("fiel");
    const std::uint32_t count = fields.u8();
    const std::uint32_t detail = fields.u8();
    if (fields.failed() || count < 1 || count > 2) {
        return;
    }
    track.hasFields = true;
    track.video.scan = count == 2 ? Scan::Interlaced : Scan::Progressive;
    track.video.topFieldFirst = detail != 6 && detail != 14;
}

PcmFormat pcmOf(std::uint32_t entry, std::uint32_t bits, bool isLittleMarked)
{
    switch (entry) {
    case fourcc("sowt"):
        return { bits == 16 ? 2 : 0, false };
    case fourcc("twos"):
        return { bits == 16 ? 2 : 0, true };
    case fourcc("in24"):
        return { 3, !isLittleMarked };
    case fourcc("in32"):
        return { 4, !isLittleMarked };
    case fourcc("fl32"):
        return { 4, !isLittleMarked, true };
    case fourcc("fl64"):
        return { 8, !isLittleMarked, true };
    default:
        return { };
    }
}

/// Version 2 of a sound description, which states the samples' form by itself.
void parseLinearPcm(std::uint32_t entry, BoxCursor content, MovTrack &track)
{
    content.skip(4);
    const double rate = std::bit_cast<double>(content.u64());
    const std::uint32_t channels = content.u32();
    content.skip(4);
    const std::uint32_t bits = content.u32();
    const std::uint32_t flags = content.u32();
    constexpr std::uint32_t isFloat = 1;
    constexpr std::uint32_t isBigEndian = 2;
    constexpr std::uint32_t isSigned = 4;
    const bool isWhole = (flags & isSigned) && (bits == 16 || bits == 24 || bits == 32);
    const bool isFraction = (flags & isFloat) && (bits == 32 || bits == 64);
    const bool isRate = rate >= 1.0 && rate <= 1e6 && SoundRate::canTurn(int(rate));
    if (!content.failed() && entry == fourcc("lpcm") && (isWhole || isFraction) && isRate && channels <= 32) {
        track.channels = int(channels);
        track.sampleRate = int(rate);
        track.pcm = { int(bits / 8), (flags & isBigEndian) != 0, isFraction };
    }
}

void parseSoundEntry(std::uint32_t entry, BoxCursor content, MovTrack &track)
{
    content.skip(8);
    const std::uint32_t version = content.u16();
    content.skip(6);
    const std::uint32_t channels = content.u16();
    const std::uint32_t bits = content.u16();
    content.skip(4);
    const std::uint32_t rate = content.u32() >> 16;
    if (version == 2) {
        parseLinearPcm(entry, content, track);
        return;
    }
    if (version == 1) {
        content.skip(16);
    }
    // A rate that does not fit its place is that of the track's time.
    const std::uint32_t exact = rate != 0 ? rate : track.timeScale;
    if (content.failed() || exact > 1'000'000 || !SoundRate::canTurn(int(exact)) || channels > 32) {
        return;
    }
    track.sampleRate = int(exact);
    BoxCursor endian = content.find("enda");
    if (endian.failed()) {
        endian = content.find("wave").find("enda");
    }
    track.pcm = pcmOf(entry, bits, endian.u16() == 1);
    track.channels = int(channels);
}

void parseTimecodeEntry(std::uint32_t entry, BoxCursor content, MovTrack &track)
{
    content.skip(12);
    const std::uint32_t flags = content.u32();
    const std::uint32_t scale = content.u32();
    const std::uint32_t duration = content.u32();
    std::uint32_t fps = content.u8();
    content.skip(1);
    if (entry != fourcc("tmcd") || content.failed()) {
        return;
    }
    if (fps == 0 && duration != 0) {
        fps = std::uint32_t(std::min<std::uint64_t>(
            (std::uint64_t(scale) + duration - 1) / duration, 255));
    }
    track.timecode.fps = int(fps);
    track.timecode.dropFrame = (flags & 1) != 0;

    BoxCursor name = content.find("name");
    const std::size_t length = name.u16();
    name.skip(2);
    if (name.failed()) {
        return;
    }
    for (const std::byte letter : name.rest().first(std::min(length, name.left()))) {
        if (letter == std::byte(0)) {
            break;
        }
        track.reel.push_back(char(letter));
    }
}

} // namespace

void parseDescription(BoxCursor stsd, MovTrack &track)
{
    stsd.skip(8);
    const auto entry = stsd.nextBox();
    if (!entry) {
        return;
    }
    switch (track.kind) {
    case MovTrack::Kind::Video:
        parseVideo(entry->type, entry->content, track);
        break;
    case MovTrack::Kind::Sound:
        parseSoundEntry(entry->type, entry->content, track);
        break;
    case MovTrack::Kind::Timecode:
        parseTimecodeEntry(entry->type, entry->content, track);
        break;
    case MovTrack::Kind::Other:
        break;
    }
}

} // namespace clip
