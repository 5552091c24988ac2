#include "liborb/drivers/software/signalgenerator.h"

#include "liborb/drivers/software/soundfifo.h"
#include "libpicture/tone.h"

namespace ferin {

namespace {

constexpr double lineUpLevel = -20.0; // dB below full scale

} // namespace

SignalGenerator::SignalGenerator(const OrbId &mode, const QSize &raster)
    : _mode(mode), _raster(raster)
{
    if (_mode == OrbIdVideoGenMoving) {
        _pattern = std::make_unique<picture::MovingPattern>(raster.width(), raster.height());
        return;
    }
    _stillPool = std::make_unique<RawPicturePool>(raster.width(), raster.height(), 1);
    _still = _stillPool->take();
    if (_still)
        draw(_still->view);
}

RawPictureRef SignalGenerator::picture(RawPicturePool &pool)
{
    ++_next;
    if (isStill())
        return _still;
    RawPictureRef raw = pool.take();
    if (raw)
        draw(raw->view);
    return raw;
}

void SignalGenerator::draw(const picture::View &view) const
{
    if (_pattern)
        _pattern->draw(view, _next - 1);
    else if (_mode == OrbIdVideoGenBars)
        picture::drawBars(view);
    else
        picture::drawBlack(view);
}

QByteArray SoundGenerator::block(const OrbId &mode, int samples, int channels)
{
    const qsizetype bytes = qsizetype {samples} * channels * sampleBytes;
    if (bytes <= 0)
        return QByteArray();
    QByteArray sound(bytes, '\0');
    if (mode == OrbIdAudioGenTone) {
        picture::writeTone(reinterpret_cast<std::uint8_t *>(sound.data()), _sample, samples,
                           channels, lineUpLevel);
    }
    _sample += samples;
    return sound;
}

} // namespace ferin
