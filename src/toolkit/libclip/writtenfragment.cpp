#include "libclip/writtenfragment.h"

#include "libclip/boxcursor.h"

#include <algorithm>
#include <span>

namespace clip {

namespace {

constexpr std::uint64_t maxFragmentHead = std::uint64_t(1) << 20;
/// Most fragment heads, with the header of the data behind them, are read at once.
constexpr std::size_t usualFragmentHead = 4096;
constexpr std::uint64_t dataHeaderSize = 16;

bool parsePart(BoxCursor traf, std::uint64_t offset, WrittenFragment &fragment)
{
    BoxCursor head = traf.find("tfhd");
    head.skip(4);
    const std::uint32_t track = head.u32();
    if (head.failed() || track < VideoTrack || track > TimecodeTrack) {
        return false;
    }
    WrittenPart &part = fragment.parts[track - 1];
    const std::uint64_t base = head.u64();
    part.duration = head.u32();
    part.size = head.u32();
    BoxCursor time = traf.find("tfdt");
    time.skip(4);
    part.time = time.u64();
    BoxCursor run = traf.find("trun");
    const bool hasSizes = run.u32() == 0x201;
    part.samples = run.u32();
    part.offset = base + run.u32();
    if (head.failed() || time.failed() || run.failed() || part.isThere || base != offset
        || (hasSizes && part.samples > run.left() / 4)) {
        return false;
    }
    for (std::uint32_t i = 0; hasSizes && i < part.samples; ++i) {
        part.sizes.push_back(run.u32());
    }
    part.isThere = true;
    return true;
}

/// Every sample of \a part stands in the fragment's own data.
bool isWithinData(const WrittenFragment &fragment, const WrittenPart &part)
{
    std::uint64_t bytes = std::uint64_t(part.size) * part.samples;
    for (const std::uint32_t size : part.sizes) {
        bytes += size;
    }
    return part.offset >= fragment.dataBegin && part.offset <= fragment.end
        && bytes <= fragment.end - part.offset;
}

} // namespace

bool readWrittenFragment(const RawFile &file, std::uint64_t offset, std::uint64_t fileSize,
                  std::vector<std::byte> &bytes, WrittenFragment &fragment)
{
    const auto load = [&](std::uint64_t wanted) {
        bytes.resize(std::size_t(std::min(wanted, fileSize - offset)));
        return !file.readAt(offset, bytes);
    };
    if (offset >= fileSize || !load(usualFragmentHead)) {
        return false;
    }
    BoxCursor start(bytes);
    const std::uint64_t headSize = start.u32();
    const std::uint32_t type = start.u32();
    if (headSize < 8 || headSize > maxFragmentHead || headSize + dataHeaderSize > fileSize - offset
        || (type != fourcc("moof") && type != fourcc("free"))
        || (headSize + dataHeaderSize > bytes.size() && !load(headSize + dataHeaderSize))) {
        return false;
    }
    fragment = { };
    fragment.isCommitted = type == fourcc("moof");
    BoxCursor data(std::span<const std::byte>(bytes).subspan(std::size_t(headSize)));
    const bool isData = data.u32() == 1 && data.u32() == fourcc("mdat");
    const std::uint64_t dataSize = data.u64();
    if (!isData || dataSize < dataHeaderSize || dataSize > fileSize - offset - headSize) {
        return false;
    }
    fragment.dataBegin = offset + headSize + dataHeaderSize;
    fragment.end = offset + headSize + dataSize;
    BoxCursor moof(std::span<const std::byte>(bytes).first(std::size_t(headSize)).subspan(8));
    BoxCursor sequence = moof.find("mfhd");
    sequence.skip(4);
    fragment.sequence = sequence.u32();
    while (const auto box = moof.nextBox()) {
        if (box->type == fourcc("traf") && !parsePart(box->content, offset, fragment)) {
            return false;
        }
    }
    return std::ranges::all_of(fragment.parts, [&](const WrittenPart &part) {
        return !part.isThere || isWithinData(fragment, part);
    });
}

} // namespace clip
