#include "libclip/movindex.h"

namespace clip {

namespace {

/// What a part of a fragment states for its runs.
struct Part
{
    std::uint64_t base = 0;
    std::uint64_t next = 0;     ///< where a run that states no offset begins
    std::uint32_t duration = 0;
    std::uint32_t size = 0;
};

// Flags of a part's head and of a run.
enum PartFlag : std::uint32_t { HasBase = 1, HasDescription = 2, HasDuration = 8, HasSize = 0x10 };
enum RunFlag : std::uint32_t {
    RunOffset = 1,
    RunFirstFlags = 4,
    RunDurations = 0x100,
    RunSizes = 0x200,
    RunFlags = 0x400,
    RunCompositions = 0x800,
};

MovTrack *trackWith(MovIndex &index, std::uint32_t id)
{
    for (MovTrack &track : index.tracks) {
        if (track.id == id) {
            return &track;
        }
    }
    return nullptr;
}

/// Adds the samples of one run. The run is left where it leaves the file or stops to make sense.
void addRun(BoxCursor trun, std::uint64_t fileSize, Part &part, MovTrack &track)
{
    const std::uint32_t flags = trun.u32() & 0xffffff;
    const std::uint32_t samples = trun.u32();
    if (flags & RunOffset) {
        // An offset below the base wraps around, as signed numbers do; the sum is checked with the
        // file.
        part.next = part.base + std::uint64_t(std::int64_t(std::int32_t(trun.u32())));
    }
    if (flags & RunFirstFlags) {
        trun.skip(4);
    }
    const bool isSound = track.kind == MovTrack::Kind::Sound;
    if (!(flags & (RunDurations | RunSizes | RunFlags | RunCompositions)) && isSound) {
        const std::uint64_t bytes = std::uint64_t(samples) * part.size;
        if (!trun.failed()) {
            track.addSound(part.next, bytes, fileSize);
            part.next += bytes;
        }
        return;
    }
    for (std::uint32_t i = 0; i < samples; ++i) {
        const std::uint32_t duration = flags & RunDurations ? trun.u32() : part.duration;
        const std::uint32_t size = flags & RunSizes ? trun.u32() : part.size;
        trun.skip((flags & RunFlags ? 4 : 0) + (flags & RunCompositions ? 4 : 0));
        // Without a size a small run could claim any number of samples.
        if (trun.failed() || size == 0) {
            return;
        }
        const bool isTaken = isSound ? track.addSound(part.next, size, fileSize)
                                     : track.addSample(part.next, size, fileSize);
        if (!isTaken) {
            return;
        }
        track.durations.count(duration, 1);
        part.next += size;
    }
}

} // namespace

void addFragment(BoxCursor moof, std::uint64_t offset, std::uint64_t fileSize, MovIndex &index)
{
    std::uint64_t next = offset;
    while (auto box = moof.nextBox()) {
        if (box->type != fourcc("traf")) {
            continue;
        }
        BoxCursor head = box->content.find("tfhd");
        const std::uint32_t flags = head.u32() & 0xffffff;
        MovTrack *track = trackWith(index, head.u32());
        if (head.failed() || !track) {
            continue;
        }
        Part part { next, next, track->defaultDuration, track->defaultSize };
        if (flags & HasBase) {
            part.base = head.u64();
        } else if (flags & 0x20000) {
            part.base = offset;
        }
        part.next = part.base;
        if (flags & HasDescription) {
            head.skip(4);
        }
        if (flags & HasDuration) {
            part.duration = head.u32();
        }
        if (flags & HasSize) {
            part.size = head.u32();
        }
        if (head.failed()) {
            continue;
        }
        while (auto run = box->content.nextBox()) {
            if (run->type == fourcc("trun")) {
                addRun(run->content, fileSize, part, *track);
            }
        }
        next = part.next;
    }
}

} // namespace clip
