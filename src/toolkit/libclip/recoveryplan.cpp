// The head is believed only when it is, byte by byte, what this writer makes of the format that the
// head states; so nothing of it is lost when the movie of the whole clip takes its place. Behind it
// stands a chain of fragments, each of which says where it belongs. The chain is believed up to the
// last fragment that is committed; one before it whose commit did not reach the medium is whole,
// because all that stands before a commit was durable first.

#include "libclip/recoveryplan.h"

#include "libclip/movhead.h"
#include "libclip/movindex.h"
#include "libclip/movsample.h"
#include "libclip/writtenfragment.h"

#include <algorithm>
#include <array>

namespace clip {

namespace {

constexpr std::uint64_t firstBoxes = placeholderOffset + placeholderSize;
constexpr std::uint64_t maxHeadBytes = 65536;

/// One clip being looked at.
struct Patient
{
    explicit Patient(const RawFile &opened) : file(opened) { }

    const RawFile &file;
    std::uint64_t fileSize = 0;
    std::uint64_t headSize = 0;
    ClipInfo info;
    MovieTables tables;
    std::uint64_t end = 0;              ///< of the last committed fragment
    std::vector<std::byte> bytes;       ///< of the fragment being read

    bool readHead();
    bool setInfo(const MovIndex &index, std::span<const std::byte> head);
    void readFragments();
    bool append(const WrittenFragment &fragment);
};

/// Finds the format of the clip; false when the head is not this writer's.
bool Patient::readHead()
{
    std::vector<std::byte> head(std::size_t(std::min(fileSize, maxHeadBytes)));
    if (head.size() <= firstBoxes || file.readAt(0, head)) {
        return false;
    }
    BoxCursor boxes(std::span<const std::byte>(head).subspan(firstBoxes));
    const auto movie = boxes.nextBox();
    if (!movie || movie->type != fourcc("moov")) {
        return false;
    }
    MovIndex index;
    parseMovie(movie->content, fileSize, index);
    return index.isFragmented && setInfo(index, head);
}

bool Patient::setInfo(const MovIndex &index, std::span<const std::byte> head)
{
    const MovTrack *video = index.first(MovTrack::Kind::Video);
    if (!video || video->video.codec == Codec::Unknown || video->timeScale > 1'000'000) {
        return false;
    }
    info.video = video->video;
    info.video.rateNum = int(video->timeScale);
    if (index.isSegmented) {
        info.video.scan = Scan::Segmented;
    }
    if (const MovTrack *sound = index.first(MovTrack::Kind::Sound)) {
        info.audio = AudioFormat { sound->channels, int(sound->timeScale) };
    }
    info.reel = index.reel;
    if (const MovTrack *timecode = index.first(MovTrack::Kind::Timecode)) {
        info.timecode = timecode->timecode;
        info.reel = timecode->reel;
    }
    // The duration of a frame stands in the fragments. Where there is none it does not matter which
    // of those that make this very head it is.
    std::vector<int> durations { 1, 1001 };
    for (std::uint64_t offset = firstBoxes; offset + 8 <= head.size();) {
        BoxCursor box(head.subspan(std::size_t(offset)));
        offset += std::max<std::uint64_t>(box.u32(), 8);
        WrittenFragment first;
        if (readWrittenFragment(file, offset, fileSize, bytes, first)) {
            const std::uint32_t duration = first.part(VideoTrack).duration;
            durations.insert(durations.begin(), int(std::min(duration, 1'000'000u)));
            break;
        }
    }
    return std::ranges::any_of(durations, [&](int duration) {
        info.video.rateDen = duration;
        if (duration < 1 || duration > info.video.rateNum) {
            return false;
        }
        const auto own = movieHead(info);
        headSize = own.size();
        return own.size() <= head.size() && std::ranges::equal(own, head.first(own.size()));
    });
}

/// Takes the fragments up to the last committed one.
void Patient::readFragments()
{
    end = headSize;
    std::vector<WrittenFragment> waiting;
    WrittenFragment fragment;
    std::uint64_t offset = headSize;
    while (readWrittenFragment(file, offset, fileSize, bytes, fragment)) {
        offset = fragment.end;
        waiting.push_back(std::move(fragment));
        if (!waiting.back().isCommitted) {
            continue;
        }
        for (const WrittenFragment &one : waiting) {
            if (!append(one)) {
                return;
            }
        }
        waiting.clear();
    }
}

/// False when \a fragment is not the next one.
bool Patient::append(const WrittenFragment &fragment)
{
    const WrittenPart &video = fragment.part(VideoTrack);
    const WrittenPart &sound = fragment.part(SoundTrack);
    const WrittenPart &timecode = fragment.part(TimecodeTrack);
    const std::uint64_t time = tables.pictureSizes.size() * std::uint64_t(info.video.rateDen);
    const bool isFirst = tables.pictureChunks.empty();
    if (fragment.sequence != tables.pictureChunks.size() + 1 || !video.isThere
        || video.sizes.empty() || video.time != time
        || timecode.isThere != (isFirst && info.timecode.has_value())
        || (sound.isThere && (!info.audio || sound.time != tables.soundSamples
                              || sound.size != soundBlock(info.audio->channels)))) {
        return false;
    }
    if (isFirst && info.video.codec == Codec::DnxHqx) {
        std::array<std::byte, 64> start { };
        const auto length = std::min<std::size_t>(start.size(), video.sizes[0]);
        if (file.readAt(video.offset, std::span(start).first(length))) {
            return false;
        }
        tables.dnxCompression = dnxCompressionOf(std::span(start).first(length));
    }
    tables.pictureSizes.insert(tables.pictureSizes.end(), video.sizes.begin(), video.sizes.end());
    tables.pictureChunks.push_back({ video.offset, video.samples });
    if (sound.isThere) {
        tables.soundChunks.push_back({ sound.offset, sound.samples });
        tables.soundSamples += sound.samples;
    }
    if (timecode.isThere) {
        tables.timecodeOffset = timecode.offset;
    }
    end = fragment.end;
    return true;
}

} // namespace

ClipLook lookAt(const RawFile &file, std::uint64_t fileSize)
{
    std::array<std::byte, 64> start { };
    if (fileSize < start.size() || file.readAt(0, start)) {
        return ClipLook::Foreign;
    }
    BoxCursor cursor(start);
    const std::uint32_t firstSize = cursor.u32();
    if (cursor.u32() == fourcc("free")) {
        const auto mark = std::as_bytes(std::span(reservedMark));
        const bool isReserved = firstSize == fileSize
            && std::ranges::equal(cursor.rest().first(mark.size()), mark);
        return isReserved ? ClipLook::Reserved : ClipLook::Foreign;
    }
    BoxWriter fileType;
    fileType.box("ftyp", [&] { fileType.code("qt  ").u32(0x200).code("qt  "); });
    BoxWriter placeholder;
    placeholder.box("wide", [&] { placeholder.u64(0); });
    const std::span<const std::byte> bytes(start);
    if (!std::ranges::equal(fileType.bytes(), bytes.first(placeholderOffset))) {
        return ClipLook::Foreign;
    }
    const auto second = bytes.subspan(placeholderOffset, placeholderSize);
    if (std::ranges::equal(placeholder.bytes(), second)) {
        return ClipLook::Unfinished;
    }
    BoxCursor header(second);
    return header.u32() == 1 && header.u32() == fourcc("mdat") ? ClipLook::Complete : ClipLook::Foreign;
}

RecoveryPlan planRecovery(const RawFile &file)
{
    RecoveryPlan plan;
    Patient patient(file);
    if (file.size(patient.fileSize) || lookAt(file, patient.fileSize) != ClipLook::Unfinished
        || !patient.readHead()) {
        return plan;
    }
    patient.readFragments();
    plan.frames = std::int64_t(patient.tables.pictureSizes.size());
    plan.end = patient.end;
    plan.kind = plan.frames == 0 ? RecoveryPlan::Kind::Empty : RecoveryPlan::Kind::Completed;
    if (plan.kind == RecoveryPlan::Kind::Completed) {
        plan.movie = completeMovie(patient.info, patient.tables);
    }
    return plan;
}

} // namespace clip
