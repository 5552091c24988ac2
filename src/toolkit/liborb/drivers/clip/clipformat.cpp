#include "liborb/drivers/clip/clipformat.h"

#include <QFileInfo>

#include <algorithm>
#include <iterator>
#include <limits>

namespace clipformat {

namespace {

struct CodecRow
{
    clip::Codec codec;
    OrbIdValue dataType;
};

// clang-format off
constexpr CodecRow codecs[] = {
    // codec                       data type
    {clip::Codec::ProRes422,       OrbIdImageProRes422},
    {clip::Codec::ProRes422Hq,     OrbIdImageProRes422Hq},
    {clip::Codec::ProRes422Lt,     OrbIdImageProRes422Lt},
    {clip::Codec::ProRes422Proxy,  OrbIdImageProRes422Proxy},
    {clip::Codec::ProRes4444,      OrbIdImageProRes4444},
    {clip::Codec::DnxHqx,          OrbIdImageDnxHqx},
    {clip::Codec::V210,            OrbIdImageV210},
};
// clang-format on

constexpr int sampleRate = 48000;

/// Bottom lines come first in 525-line pictures and nowhere else.
constexpr bool isTopFieldFirst(int height)
{
    return height != 480 && height != 486;
}

} // namespace

clip::Codec codecOf(const OrbId &dataType)
{
    const auto row = std::ranges::find(codecs, dataType.value(), &CodecRow::dataType);
    return row == std::end(codecs) ? clip::Codec::Unknown : row->codec;
}

OrbId dataTypeOf(clip::Codec codec)
{
    const auto row = std::ranges::find(codecs, codec, &CodecRow::codec);
    return row == std::end(codecs) ? OrbId() : OrbId(row->dataType);
}

OrbImageDesc imageDescOf(const clip::VideoFormat &video)
{
    OrbImageDesc desc;
    desc.setSize(video.width, video.height);
    desc.setAspectRatio(video.width, video.height);
    desc.setFrameRate(video.rateNum, video.rateDen);
    desc.setScanMode(int(video.scan));
    desc.setDataType(dataTypeOf(video.codec));
    return desc;
}

OrbAudioDesc audioDescOf(const clip::AudioFormat &audio, const clip::VideoFormat &video)
{
    OrbAudioDesc desc;
    desc.setDataType(OrbId(OrbIdAudioDataType));
    desc.setChans(audio.channels);
    desc.setSampleRate(audio.sampleRate, 1);
    desc.setFrameRate(video.rateNum, video.rateDen);
    return desc;
}

OrbStreamInfo streamInfoOf(const clip::ClipInfo &info, const QString &path)
{
    OrbStreamInfo stream;
    stream.setName(QFileInfo(path).fileName());
    stream.setReelName(QString::fromUtf8(info.reel.data(), qsizetype(info.reel.size())));
    stream.vids().append(imageDescOf(info.video));
    if (info.audio)
        stream.auds().append(audioDescOf(*info.audio, info.video));
    stream.setFrameRate(OrbVideoRate(info.video.rateNum, info.video.rateDen));
    constexpr std::int64_t maxFrames = std::numeric_limits<int>::max();
    stream.setLength(int(std::min(info.frames, maxFrames)));
    stream.setGrowing(!info.isComplete);
    return stream;
}

std::optional<clip::ClipInfo> clipInfoOf(const OrbStreamInfo &info)
{
    if (info.vids().size() != 1 || info.auds().size() > 1)
        return std::nullopt;
    const OrbImageDesc &image = info.vids().first();
    clip::ClipInfo result;
    result.video.codec = codecOf(image.dataType());
    result.video.width = image.width();
    result.video.height = image.height();
    result.video.rateNum = image.frameRate().num();
    result.video.rateDen = image.frameRate().den();
    result.video.scan = clip::Scan(std::clamp(int(image.scanMode()), 0, 2));
    result.video.topFieldFirst = isTopFieldFirst(result.video.height);
    if (result.video.codec == clip::Codec::Unknown || result.video.width < 1
        || result.video.height < 1 || result.video.rateNum < 1 || result.video.rateDen < 1) {
        return std::nullopt;
    }
    if (!info.auds().isEmpty()) {
        const OrbAudioDesc &sound = info.auds().first();
        if (sound.dataType() != OrbId(OrbIdAudioDataType) || sound.chans() < 1
            || sound.sampleRate() != OrbRational(sampleRate, 1)) {
            return std::nullopt;
        }
        result.audio = clip::AudioFormat{sound.chans(), sampleRate};
    }
    result.reel = info.reelName().toStdString();
    return result;
}

OrbTimecode timecodeOf(const clip::StartTimecode &start, qint64 frame)
{
    return OrbTimecode(qint64(start.frameCount) + frame, start.fps, start.dropFrame);
}

std::optional<clip::StartTimecode> startTimecodeOf(const OrbTimecode &timecode)
{
    if (!timecode.isValid() || timecode.fps() < 1)
        return std::nullopt;
    return clip::StartTimecode{std::uint32_t(timecode.frameCount()), timecode.fps(),
                               timecode.isDropFrame()};
}

} // namespace clipformat
