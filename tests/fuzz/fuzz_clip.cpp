// A clip file of any content, as the media service and playback read it, and as one whose writer died is completed.
// links: vanta
// at most: 20

#include "driver.h"
#include "libclip/clipreader.h"
#include "libclip/cliprecovery.h"
#include "libvanta/cliprecord.h"
#include "libvanta/mediacache.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

const std::string &scratch()
{
    static const std::string path = "/dev/shm/fuzz_clip." + std::to_string(::getpid());
    return path;
}

void removeScratch()
{
    (void)::unlink(scratch().c_str());
}

void write(const std::uint8_t *data, std::size_t size)
{
    [[maybe_unused]] static const bool isFirst = std::atexit(removeScratch) == 0;
    const int file = ::open(scratch().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    fuzzCheck(file >= 0 && (size == 0 || ::write(file, data, size) == static_cast<ssize_t>(size)));
    ::close(file);
}

/// The frames of the clip, all of it read that may be; 0 for what is no clip.
std::int64_t framesRead(bool &isComplete)
{
    clip::ClipReader reader;
    if (reader.open(scratch()))
        return 0;
    const clip::ClipInfo info = reader.info();
    fuzzCheck(info.frames > 0 && info.video.rateNum > 0 && info.video.rateDen > 0);
    std::vector<std::byte> bytes;
    const auto read = [&](std::int64_t frame) {
        const std::size_t size = reader.pictureSize(frame);
        bytes.resize(std::min<std::size_t>(size, 1 << 20));
        if (size <= bytes.size())
            (void)reader.readPicture(frame, bytes);
        (void)reader.readSound(frame, bytes);
    };
    for (std::int64_t frame = 0; frame < std::min<std::int64_t>(info.frames, 20); ++frame)
        read(frame);
    read(info.frames - 1);
    read(info.frames);
    isComplete = info.isComplete;
    return info.frames;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    write(data, size);
    bool isComplete = false;
    const std::int64_t frames = framesRead(isComplete);

    Clip facts;
    const int file = ::open(scratch().c_str(), O_RDONLY | O_CLOEXEC);
    if (lumo::media::MediaCache::GrokDescriptor(facts, file, false)) {
        fuzzCheck(facts.getFrameCount() == frames && facts.isComplete() == isComplete);
        facts.setName("clip");
        Clip told;
        fuzzCheck(lumo::media::clipOf(lumo::media::recordOf(facts), told) && told == facts);
    }

    const clip::Recovery recovery = clip::recover(scratch());
    if (recovery.outcome == clip::Recovery::Outcome::Recovered) {
        fuzzCheck(framesRead(isComplete) == recovery.frames && isComplete);
        fuzzCheck(clip::recover(scratch()).outcome == clip::Recovery::Outcome::Complete);
    }
    return 0;
}
