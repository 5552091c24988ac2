// Writes clips as the recorder does, and beside each one what went into it.
//
//   clip_maker formats                                    every format of the recorder, a JSON array a line
//   clip_maker clip FOLDER WIDTH HEIGHT SCAN KEY TYPE CHANNELS DROP FRAMES
//
// The second one makes FOLDER/clip.mov through the encoder, the stream cache and the clip driver that the recorder
// uses, FOLDER/pictures.yuv (4:2:2, 10 bits in 16, planar) and FOLDER/sound.pcm (24 bits).

#include "app/formatrows.h"
#include "liborb/drivers/software/encoder.h"
#include "liborb/orb.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbtimecode.h"
#include "libpicture/framebar.h"
#include "libpicture/patterns.h"
#include "libpicture/tone.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>
#include <cstring>

namespace {

struct Spec
{
    QString folder;
    int width, height, scan, rateKey, type, channels;
    bool isDropFrame;
    int frames;
};

OrbVideoRate rateOf(int key)
{
    switch (key) {
    case 23: return OrbVideoRate(24000, 1001);
    case 29: return OrbVideoRate(30000, 1001);
    case 59: return OrbVideoRate(60000, 1001);
    default: return OrbVideoRate(key, 1);
    }
}

int timecodeRateOf(int key)
{
    return key == 23 || key == 29 || key == 59 ? key + 1 : key;
}

int listFormats()
{
    for (const FormatRow &row : formatRows)
        std::printf("[%d, %d, %d, %d]\n", row.width, row.height, row.scanMode, row.rateKey);
    return 0;
}

/// The moving pattern; interlaced, each field shows its own instant.
void draw(const picture::MovingPattern &pattern, const picture::View &view, std::uint32_t number, bool isInterlaced)
{
    pattern.draw(view, number);
    if (!isInterlaced)
        return;
    ferin::RawPicturePool pool(view.width, view.height, 1);
    const ferin::RawPictureRef next = pool.take();
    pattern.draw(next->view, number + 1);
    for (int p = 0; p < 3; ++p) {
        const auto bytes = std::size_t(p == 0 ? view.width : view.width / 2) * sizeof(std::uint16_t);
        for (int y = picture::frameBarHeight + 1; y < view.height; y += 2)
            std::memcpy(view.line(p, y), next->view.line(p, y), bytes);
    }
}

bool save(QFile &file, const picture::View &view)
{
    bool isGood = true;
    for (int p = 0; p < 3; ++p) {
        const qint64 bytes = qint64(p == 0 ? view.width : view.width / 2) * 2;
        for (int y = 0; y < view.height; ++y)
            isGood = file.write(reinterpret_cast<const char *>(view.line(p, y)), bytes) == bytes && isGood;
    }
    return isGood;
}

OrbBuffer noise(int bytes, quint32 seed)
{
    OrbBuffer buffer(quint32(bytes), 64);
    for (int i = 0; i < bytes; ++i) {
        seed = seed * 1664525U + 1013904223U;
        buffer.data()[i] = uchar(seed >> 24);
    }
    return buffer;
}

class Maker
{
public:
    explicit Maker(const Spec &spec) : _spec(spec) {}

    int make()
    {
        _pictures.setFileName(_spec.folder + "/pictures.yuv");
        _sound.setFileName(_spec.folder + "/sound.pcm");
        if (!_pictures.open(QIODevice::WriteOnly) || !_sound.open(QIODevice::WriteOnly))
            return failed("the folder cannot be written");
        describe();
        _cache.setStream(&_stream);
        QObject::connect(&_stream, &OrbStream::openIsDone, &_stream, [this](int, const OrbError &error) {
            if (error.isError() || !writeFrames())
                QCoreApplication::exit(failed("the clip cannot be written"));
            else
                _stream.close();
        });
        QObject::connect(&_cache, &OrbStreamCache::error, &_cache,
                         [this] { QCoreApplication::exit(failed("a frame is lost")); });
        QObject::connect(&_stream, &OrbStream::closeIsDone, &_stream, [] { QCoreApplication::quit(); },
                         Qt::QueuedConnection);
        _stream.setDesc(_spec.folder + "/clip.mov");
        _stream.setType(OrbId(OrbIdStreamTypeRecord));
        if (!_stream.open(2))
            return failed("the clip cannot be opened");
        return QCoreApplication::exec();
    }

private:
    static int failed(const char *text)
    {
        std::fprintf(stderr, "clip_maker: %s\n", text);
        return 1;
    }

    void describe()
    {
        _image.setSize(_spec.width, _spec.height);
        _image.setAspectRatio(_spec.width, _spec.height);
        _image.setFrameRate(rateOf(_spec.rateKey).num(), rateOf(_spec.rateKey).den());
        _image.setScanMode(_spec.scan);
        _image.setDataType(OrbId(OrbIdValue(_spec.type)));
        _audio.setDataType(OrbId(OrbIdAudioDataType));
        _audio.setChans(_spec.channels);
        _audio.setSampleRate(48000, 1);
        _audio.setFrameRate(rateOf(_spec.rateKey).num(), rateOf(_spec.rateKey).den());
        OrbStreamInfo info;
        info.setReelName(QStringLiteral("Rolle ü 7"));
        info.vids().append(_image);
        info.auds().append(_audio);
        _stream.setInfo(info);
    }

    bool writeFrames()
    {
        ferin::RawPicturePool pool(_spec.width, _spec.height, _spec.frames);
        const picture::MovingPattern pattern(_spec.width, _spec.height);
        const OrbTimecode start(10, 20, 30, 12, timecodeRateOf(_spec.rateKey),
                                _spec.isDropFrame ? OrbTimecode::DropFrame : 0);
        const OrbVideoRate rate = rateOf(_spec.rateKey);
        for (int number = 0; number < _spec.frames; ++number) {
            const ferin::RawPictureRef raw = pool.take();
            if (!raw)
                return false;
            draw(pattern, raw->view, std::uint32_t(number), _spec.scan == OrbImageDesc::Interlaced);
            const int samples = picture::samplesOfFrame(number, rate.num(), rate.den());
            const OrbBuffer sound = noise(samples * _spec.channels * 3, quint32(number + 1));
            if (!save(_pictures, raw->view)
                || _sound.write(reinterpret_cast<const char *>(sound.data()), sound.size()) != sound.size())
                return false;
            OrbFrame frame;
            frame.vids().append(OrbImage(_image, _encoder.promise(raw, _image)));
            frame.auds().append(OrbAudio(_audio, sound));
            frame.meta().insert(OrbId(OrbIdTimecode), QVariant::fromValue(start.advanced(number)));
            _cache.write(frame);
        }
        return true;
    }

    Spec _spec;
    QFile _pictures;
    QFile _sound;
    OrbImageDesc _image;
    OrbAudioDesc _audio;
    ferin::EncoderPool _encoder {1};
    OrbStream _stream;
    OrbStreamCache _cache;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList words = QCoreApplication::arguments().mid(1);
    if (words == QStringList {"formats"})
        return listFormats();
    if (words.size() != 10 || words[0] != "clip") {
        std::fprintf(stderr, "usage: clip_maker formats | "
                             "clip FOLDER WIDTH HEIGHT SCAN KEY TYPE CHANNELS DROP FRAMES\n");
        return 2;
    }
    Orb::init(0);
    return Maker({words[1], words[2].toInt(), words[3].toInt(), words[4].toInt(), words[5].toInt(), words[6].toInt(),
                  words[7].toInt(), words[8] == "1", words[9].toInt()})
        .make();
}
