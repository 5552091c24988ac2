#include "frame_law_clips.h"

#include "libclip/clipwriter.h"
#include "liborb/drivers/software/encoder.h"
#include "libpicture/framebar.h"
#include "libpicture/patterns.h"

#include <cstdio>
#include <deque>

#include <fcntl.h>
#include <unistd.h>

namespace law {

namespace {

constexpr int codedAhead = 8;
constexpr int channels = 2;
constexpr int sampleRate = 48'000;

std::vector<std::byte> soundOf(const clip::VideoFormat &video, int frame, std::uint32_t value)
{
    const std::int64_t samples = clip::samplesBeforeFrame(frame + 1, video, sampleRate)
                                 - clip::samplesBeforeFrame(frame, video, sampleRate);
    std::vector<std::byte> sound;
    for (std::int64_t i = 0; i < samples * channels; ++i) {
        for (int shift = 0; shift < 24; shift += 8)
            sound.push_back(static_cast<std::byte>(value >> shift & 0xff));
    }
    return sound;
}

OrbImageDesc descOf(const ClipFormat &format)
{
    OrbImageDesc desc;
    desc.setSize(format.width, format.height);
    desc.setAspectRatio(format.width, format.height);
    desc.setFrameRate(format.rateNum, format.rateDen);
    desc.setScanMode(format.scan);
    desc.setDataType(OrbId(format.isHeavy ? OrbIdImageProRes422Hq : OrbIdImageProRes422Proxy));
    return desc;
}

} // namespace

QString makeClip(const TestClip &test, const ClipFormat &format)
{
    clip::ClipInfo info;
    info.video = {format.isHeavy ? clip::Codec::ProRes422Hq : clip::Codec::ProRes422Proxy,
                  format.width, format.height, format.rateNum, format.rateDen,
                  format.scan == OrbImageDesc::Interlaced ? clip::Scan::Interlaced
                                                          : clip::Scan::Progressive,
                  true};
    info.audio = clip::AudioFormat {channels, sampleRate};
    info.timecode =
        clip::StartTimecode {static_cast<std::uint32_t>(test.startLabel), format.fps, false};
    clip::ClipWriter writer;
    writer.setSyncing(clip::ClipWriter::Syncing::BySync);
    if (const clip::Error error = writer.open(test.path.toStdString(), info))
        return QString::fromStdString(error.text);

    const OrbImageDesc desc = descOf(format);
    ferin::RawPicturePool pool(format.width, format.height, codedAhead + 2);
    ferin::EncoderPool encoder;
    const picture::MovingPattern pattern(format.width, format.height);
    std::deque<OrbBuffer> coded;
    int drawn = 0;
    for (int frame = 0; frame < test.length; ++frame) {
        for (; drawn < test.length && coded.size() < codedAhead; ++drawn) {
            const ferin::RawPictureRef raw = pool.take(5000);
            if (!raw)
                return QStringLiteral("no picture memory");
            pattern.draw(raw->view, test.pictureOf(drawn));
            coded.push_back(encoder.promise(raw, desc));
            coded.back().request();
        }
        const OrbBuffer picture = coded.front();
        coded.pop_front();
        if (!picture.wait())
            return QStringLiteral("the pictures cannot be coded");
        const auto *bytes = reinterpret_cast<const std::byte *>(picture.data());
        const std::vector<std::byte> sound = soundOf(info.video, frame, test.pictureOf(frame));
        if (const clip::Error error = writer.write({bytes, picture.size()}, sound))
            return QString::fromStdString(error.text);
    }
    if (const clip::Error error = writer.close())
        return QString::fromStdString(error.text);
    return QString();
}

void forgetPages(const TestClip &clip)
{
    const int fd = ::open(clip.path.toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    if (::fdatasync(fd) != 0 || ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED) != 0)
        std::fprintf(stderr, "%s stays in memory\n", qPrintable(clip.path));
    ::close(fd);
}

} // namespace law
