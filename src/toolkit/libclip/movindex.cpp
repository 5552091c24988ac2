#include "libclip/movindex.h"

#include "libclip/movhead.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace clip {

namespace {

constexpr std::uint64_t maxMovieBytes = std::uint64_t(256) << 20;
constexpr std::uint64_t maxFragmentHeadBytes = std::uint64_t(16) << 20;
/// Hops over boxes at the top of a file: three for each fragment of 160 hours.
constexpr int maxTopBoxes = 4'000'000;
constexpr std::size_t maxTracks = 64;

struct TopBox
{
    std::uint32_t type = 0;
    std::uint64_t offset = 0;
    std::uint64_t headSize = 0;
    std::uint64_t size = 0;
};

/// The box at \a offset; false when no box's header stands there.
bool readTopBox(const RawFile &file, std::uint64_t offset, std::uint64_t fileSize, TopBox &box)
{
    if (offset > fileSize || fileSize - offset < 8) {
        return false;
    }
    std::array<std::byte, 16> head { };
    const std::size_t length = std::size_t(std::min<std::uint64_t>(head.size(), fileSize - offset));
    if (file.readAt(offset, std::span(head).first(length))) {
        return false;
    }
    BoxCursor cursor { std::span<const std::byte>(head).first(length) };
    box.offset = offset;
    box.size = cursor.u32();
    box.type = cursor.u32();
    box.headSize = 8;
    if (box.size == 1) {
        box.size = cursor.u64();
        box.headSize = 16;
    } else if (box.size == 0) {
        box.size = fileSize - offset;
    }
    return !cursor.failed() && box.size >= box.headSize;
}

/// Reads the content of a box that is wholly in the file and not longer than \a most.
bool readContent(const RawFile &file, const TopBox &box, std::uint64_t fileSize, std::uint64_t most,
                 std::vector<std::byte> &bytes)
{
    if (box.size > most || box.size > fileSize - box.offset) {
        return false;
    }
    bytes.resize(std::size_t(box.size - box.headSize));
    return !file.readAt(box.offset + box.headSize, bytes);
}

void parseMarks(BoxCursor udta, MovIndex &index)
{
    index.isSegmented = udta.find(segmentedMark).u32() == 1;
    const BoxCursor reel = udta.find(reelMark);
    for (const std::byte letter : reel.rest().first(std::min<std::size_t>(reel.left(), 255))) {
        index.reel.push_back(char(letter));
    }
}

void parseFragmentDefaults(BoxCursor mvex, MovIndex &index)
{
    while (auto box = mvex.nextBox()) {
        if (box->type != fourcc("trex")) {
            continue;
        }
        BoxCursor &trex = box->content;
        trex.skip(4);
        const std::uint32_t id = trex.u32();
        trex.skip(4);
        const std::uint32_t duration = trex.u32();
        const std::uint32_t size = trex.u32();
        for (MovTrack &track : index.tracks) {
            if (track.id == id && !trex.failed()) {
                track.defaultDuration = duration;
                track.defaultSize = size;
            }
        }
    }
}

} // namespace

const MovTrack *MovIndex::first(MovTrack::Kind kind) const
{
    const auto track = std::ranges::find(tracks, kind, &MovTrack::kind);
    return track == tracks.end() ? nullptr : &*track;
}

void parseMovie(BoxCursor moov, std::uint64_t fileSize, MovIndex &index)
{
    BoxCursor head = moov.find("mvhd");
    head.skip(head.u8() == 1 ? 19 : 11);
    index.timeScale = head.u32();
    for (BoxCursor walk = moov; const auto box = walk.nextBox();) {
        if (box->type != fourcc("trak") || index.tracks.size() >= maxTracks) {
            continue;
        }
        MovTrack track = parseTrack(box->content, fileSize);
        if (track.kind != MovTrack::Kind::Other) {
            index.tracks.push_back(std::move(track));
        }
    }
    parseMarks(moov.find("udta"), index);
    const BoxCursor mvex = moov.find("mvex");
    index.isFragmented = !mvex.failed();
    parseFragmentDefaults(mvex, index);
}

namespace {

/// Those behind what \a index has already.
void addFragments(const RawFile &file, std::uint64_t fileSize, MovIndex &index)
{
    std::vector<std::byte> bytes;
    TopBox box;
    std::uint64_t offset = index.end;
    for (int i = 0; i < maxTopBoxes && readTopBox(file, offset, fileSize, box); ++i) {
        // A head that is not one yet is looked at again until its fragment is committed.
        if (box.type == fourcc("moof")
            && readContent(file, box, fileSize, maxFragmentHeadBytes, bytes)) {
            addFragment(BoxCursor(bytes), offset, fileSize, index);
            index.end = offset + box.size;
        }
        if (box.size > fileSize - offset) {
            return;
        }
        offset += box.size;
    }
}

} // namespace

Error readIndex(const RawFile &file, MovIndex &index)
{
    std::uint64_t fileSize = 0;
    if (const Error error = file.size(fileSize)) {
        return error;
    }
    TopBox box;
    std::uint64_t offset = 0;
    for (int i = 0; i < maxTopBoxes && readTopBox(file, offset, fileSize, box); ++i) {
        // The first movie in the file rules; fragments count only behind one that announces them.
        if (box.type == fourcc("moov")) {
            std::vector<std::byte> bytes;
            if (!readContent(file, box, fileSize, maxMovieBytes, bytes)) {
                break;
            }
            index.movie = offset;
            index.end = offset + box.size;
            parseMovie(BoxCursor(bytes), fileSize, index);
            if (index.isFragmented) {
                addFragments(file, fileSize, index);
            }
            return { };
        }
        if (box.size > fileSize - offset) {
            break;
        }
        offset += box.size;
    }
    return systemError(EINVAL, "read index");
}

bool readMore(const RawFile &file, MovIndex &index)
{
    std::uint64_t fileSize = 0;
    if (file.size(fileSize)) {
        return false;
    }
    addFragments(file, fileSize, index);
    // The writer covers the movie that was there first when it closes the clip.
    TopBox box;
    std::uint64_t offset = 0;
    while (offset < index.movie && readTopBox(file, offset, fileSize, box)) {
        offset += std::min(box.size, fileSize - offset);
    }
    return offset > index.movie;
}

} // namespace clip
