// A clip file: whatever it holds, the reader refuses it or reads what it says of itself, and following its growth
// never takes a frame away.
// links: clip
// at most: 20

#include "libclip/clipreader.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr std::int64_t maxFramesRead = 40;
constexpr std::size_t maxPictureBytes = 1 << 22;

void readFrame(const clip::ClipReader &reader, std::int64_t frame)
{
    const std::size_t size = reader.pictureSize(frame);
    std::vector<std::byte> picture(std::min(size, maxPictureBytes));
    if (!reader.readPicture(frame, picture) && picture.size() != size)
        std::abort();
    std::vector<std::byte> sound;
    const bool isRead = !reader.readSound(frame, sound);
    const auto channels = static_cast<std::size_t>(reader.info().audio ? reader.info().audio->channels : 0);
    if (!sound.empty() && (!isRead || channels == 0 || sound.size() % (channels * 3) != 0))
        std::abort();
}

void readAll(const clip::ClipReader &reader)
{
    const clip::ClipInfo &info = reader.info();
    const bool isSound = !info.audio || (info.audio->channels > 0 && info.audio->channels <= 32);
    if (info.frames < 1 || info.video.rateNum < 1 || info.video.rateDen < 1 || info.video.width < 1
        || info.video.height < 1 || info.video.codec == clip::Codec::Unknown || !isSound)
        std::abort();
    for (std::int64_t frame = -1; frame < std::min(info.frames, maxFramesRead); frame++)
        readFrame(reader, frame);
    readFrame(reader, info.frames - 1);
    readFrame(reader, info.frames);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // The first byte says how much of the file is there when it is opened; the rest comes later.
    static const int file = memfd_create("clip", MFD_CLOEXEC);
    if (size == 0 || file < 0 || ftruncate(file, 0) != 0)
        return 0;
    const std::size_t whole = size - 1;
    const std::size_t early = data[0] == 0 ? whole : whole * data[0] / 256;
    if (pwrite(file, data + 1, early, 0) != static_cast<ssize_t>(early))
        return 0;
    clip::ClipReader reader;
    if (reader.open(fcntl(file, F_DUPFD_CLOEXEC, 0)))
        return 0;
    readAll(reader);
    const std::int64_t frames = reader.info().frames;
    if (pwrite(file, data + 1 + early, whole - early, static_cast<off_t>(early)) < 0)
        return 0;
    (void)reader.lookAgain();
    if (reader.info().frames < frames)
        std::abort();
    readAll(reader);
    return 0;
}
