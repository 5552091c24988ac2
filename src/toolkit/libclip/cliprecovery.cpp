// How a clip is completed whose writer died. The head is believed only when it is, byte by byte,
// what this writer makes of the format that the head states; so nothing of it is lost when the
// movie of the whole clip takes its place. Behind it stands a chain of fragments, each of which
// says where it belongs. The chain is believed up to the last fragment that is committed; one
// before it whose commit did not reach the medium is whole, because all that stands before a commit
// was durable first. What stands behind is cut off, and the clip closed as its writer would have:
// the movie, a wait until it is durable, the placeholder. Each step leaves one view of the file
// whole and can be repeated.

#include "libclip/cliprecovery.h"

#include "libclip/movhead.h"
#include "libclip/movindex.h"
#include "libclip/movsample.h"
#include "libclip/rawfile.h"
#include "libclip/writtenfragment.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

namespace clip {

namespace {

using Outcome = Recovery::Outcome;

constexpr std::uint64_t firstBoxes = placeholderOffset + placeholderSize;
constexpr std::uint64_t maxHeadBytes = 65536;
constexpr std::string_view reservedMark = "rvrs: the name of a clip that has not begun";

/// One clip being looked at and completed.
struct Patient
{
    RawFile file;
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
    Error complete();
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

Error Patient::complete()
{
    // After a crash of the writer alone its last commits may not be durable yet, nor what it cut.
    if (end != fileSize) {
        if (const Error error = file.truncate(end)) {
            return error;
        }
    }
    const auto movie = completeMovie(info, tables);
    Error error = file.reserve(end, movie.size());
    if (!error) {
        error = file.writeAt(end, movie);
    }
    if (error) {
        (void)file.truncate(end);
        return error;
    }
    if (const Error syncError = file.sync()) {
        return syncError;
    }
    BoxWriter header;
    header.u32(1).code("mdat").u64(end - placeholderOffset);
    if (const Error headerError = file.writeAt(placeholderOffset, header.bytes())) {
        return headerError;
    }
    // What the writer had reserved behind the end is given back, also at an unchanged length.
    (void)file.truncate(end + movie.size());
    return file.sync();
}

enum class Look { Foreign, Complete, Unfinished, Reserved };

/// Tells from the first bytes what the file may be.
Look look(const RawFile &file, std::uint64_t fileSize)
{
    std::array<std::byte, 64> start { };
    if (fileSize < start.size() || file.readAt(0, start)) {
        return Look::Foreign;
    }
    BoxCursor cursor(start);
    const std::uint32_t firstSize = cursor.u32();
    if (cursor.u32() == fourcc("free")) {
        const auto mark = std::as_bytes(std::span(reservedMark));
        const bool isReserved = firstSize == fileSize
            && std::ranges::equal(cursor.rest().first(mark.size()), mark);
        return isReserved ? Look::Reserved : Look::Foreign;
    }
    BoxWriter fileType;
    fileType.box("ftyp", [&] { fileType.code("qt  ").u32(0x200).code("qt  "); });
    BoxWriter placeholder;
    placeholder.box("wide", [&] { placeholder.u64(0); });
    const std::span<const std::byte> bytes(start);
    if (!std::ranges::equal(fileType.bytes(), bytes.first(placeholderOffset))) {
        return Look::Foreign;
    }
    const auto second = bytes.subspan(placeholderOffset, placeholderSize);
    if (std::ranges::equal(placeholder.bytes(), second)) {
        return Look::Unfinished;
    }
    BoxCursor header(second);
    return header.u32() == 1 && header.u32() == fourcc("mdat") ? Look::Complete : Look::Foreign;
}

Recovery failure(const Error &error)
{
    switch (error.code) {
    case EROFS:
    case EACCES:
    case EPERM:
        return { Outcome::ReadOnly, error, 0 };
    case EWOULDBLOCK:
        return { Outcome::Busy, error, 0 };
    default:
        return { Outcome::Failed, error, 0 };
    }
}

Recovery treat(Patient &patient, const std::string &path)
{
    if (const Error error = patient.file.size(patient.fileSize)) {
        return failure(error);
    }
    const Look found = look(patient.file, patient.fileSize);
    if (found == Look::Complete) {
        return { Outcome::Complete, { }, 0 };
    }
    bool isEmpty = found == Look::Reserved;
    if (!isEmpty) {
        if (found == Look::Foreign || !patient.readHead()) {
            return { };
        }
        patient.readFragments();
        isEmpty = patient.tables.pictureSizes.empty();
    }
    if (isEmpty) {
        // The name may be that of another clip by now: a writer that takes the place of its own reserved
        // name holds the lock until the clip is there.
        if (!patient.file.isAt(path)) {
            return { };
        }
        removeFile(path);
        return { Outcome::Removed, syncDirectoryOf(path), 0 };
    }
    // Clips are listed in the order of their recording, which is that of their last change.
    if (const Error error = patient.file.keepingTime([&] { return patient.complete(); })) {
        return failure(error);
    }
    return { Outcome::Recovered, { }, std::int64_t(patient.tables.pictureSizes.size()) };
}

} // namespace

std::string reservedContent(std::size_t bytes)
{
    BoxWriter writer;
    writer.box("free", [&] {
        writer.text(reservedMark);
        writer.zeros(bytes > writer.size() ? bytes - writer.size() : 0);
    });
    return { reinterpret_cast<const char *>(writer.bytes().data()), writer.size() };
}

Recovery recover(const std::string &path)
{
    // Most clips are complete: they are not locked, and not opened for writing.
    std::uint64_t fileSize = 0;
    {
        RawFile file;
        if (const Error error = file.openToRead(path)) {
            return failure(error);
        }
        if (const Error error = file.size(fileSize)) {
            return failure(error);
        }
        switch (look(file, fileSize)) {
        case Look::Foreign:
            return { };
        case Look::Complete:
            return { Outcome::Complete, { }, 0 };
        case Look::Unfinished:
        case Look::Reserved:
            break;
        }
    }
    Patient patient;
    if (const Error error = patient.file.openToChange(path)) {
        return failure(error);
    }
    return treat(patient, path);
}

} // namespace clip
