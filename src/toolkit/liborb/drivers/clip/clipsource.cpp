#include "liborb/drivers/clip/clipsource.h"

#include "liborb/drivers/clip/clipformat.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace {

constexpr quint32 pictureAlignment = 64;
constexpr quint32 decoderPadding = 64; ///< zeroed bytes behind a picture that decoders may read
constexpr std::int64_t soundBytesASample = 3;

} // namespace

OrbError ClipSource::open(OrbStreamInfo &info)
{
    if (const clip::Error error = _reader.open(QFile::encodeName(_path).toStdString()))
        return clipformat::errorOf(error);
    _info = clipformat::streamInfoOf(_reader.info(), _path);
    info = _info;
    return OrbError();
}

OrbError ClipSource::read(int number, OrbFrame &frame)
{
    if (number >= _info.length())
        (void)follow();
    if (number < 0 || number >= _info.length())
        return OrbError(EINVAL);
    OrbError error = readPicture(number, frame);
    if (!error.isError() && !_info.auds().isEmpty())
        error = readSound(number, frame);
    if (error.isError())
        return error;
    OrbMetadataHash &meta = frame.meta();
    meta.insert(OrbId(OrbIdFrameNumber), number);
    meta.insert(OrbId(OrbIdStartOfStream), number == 0);
    meta.insert(OrbId(OrbIdEndOfStream), number == _info.length() - 1);
    if (const auto &start = _reader.info().timecode)
        meta.insert(OrbId(OrbIdTimecode),
                    QVariant::fromValue(clipformat::timecodeOf(*start, number)));
    return OrbError();
}

bool ClipSource::follow()
{
    if (!_reader.lookAgain())
        return false;
    const OrbStreamInfo now = clipformat::streamInfoOf(_reader.info(), _path);
    _info.setLength(now.length());
    _info.setGrowing(now.isGrowing());
    return true;
}

bool ClipSource::lookAgain(OrbStreamInfo &info)
{
    const bool isNews = follow();
    info = _info;
    return isNews;
}

OrbError ClipSource::readPicture(int number, OrbFrame &frame) const
{
    const std::size_t size = _reader.pictureSize(number);
    if (size == 0 || size > std::numeric_limits<quint32>::max() - decoderPadding)
        return OrbError(EIO);
    OrbBuffer buffer(quint32(size) + decoderPadding, pictureAlignment);
    if (!buffer.isValid())
        return OrbError(ENOMEM);
    const std::span bytes(reinterpret_cast<std::byte *>(buffer.data()), size);
    if (const clip::Error error = _reader.readPicture(number, bytes))
        return clipformat::errorOf(error);
    std::memset(buffer.data() + size, 0, decoderPadding);
    buffer.truncate(quint32(size));
    frame.vids().append(OrbImage(_info.vids().first(), buffer));
    return OrbError();
}

OrbError ClipSource::readSound(int number, OrbFrame &frame)
{
    if (const clip::Error error = _reader.readSound(number, _sound))
        return clipformat::errorOf(error);
    const clip::ClipInfo &info = _reader.info();
    const std::int64_t samples =
        clip::samplesBeforeFrame(number + 1, info.video, info.audio->sampleRate)
        - clip::samplesBeforeFrame(number, info.video, info.audio->sampleRate);
    const std::int64_t size = samples * info.audio->channels * soundBytesASample;
    constexpr std::int64_t maxSize = 64 << 20;
    if (size < 1 || size > maxSize)
        return OrbError(EINVAL);
    OrbBuffer buffer(quint32(size), pictureAlignment);
    if (!buffer.isValid())
        return OrbError(ENOMEM);
    const auto held = std::min(size_t(size), _sound.size());
    if (held > 0)
        std::memcpy(buffer.data(), _sound.data(), held);
    std::memset(buffer.data() + held, 0, size_t(size) - held);
    frame.auds().append(OrbAudio(_info.auds().first(), buffer));
    return OrbError();
}
