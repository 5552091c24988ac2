// The recorder's clip writer and reader by themselves.
//
//   clip_copy paced FROM TO      the frames of a clip written in real time, as the recorder writes them; for killing
//   clip_copy fast FROM TO       the same as fast as it goes, by the writer alone
//   clip_copy long TO FRAMES     a clip of so many small frames
//   clip_copy open CLIP          how long it takes to open and to read its middle frame
//
// FROM is a clip of one video and one sound track.

#include "figures.h"

#include "libclip/clipreader.h"
#include "libclip/clipwriter.h"
#include "liborb/orb.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

int failed(const clip::Error &error)
{
    std::fprintf(stderr, "clip_copy: %s\n", error.text.c_str());
    return 1;
}

int copyFast(const std::string &from, const std::string &to)
{
    clip::ClipReader reader;
    if (const clip::Error error = reader.open(from))
        return failed(error);
    clip::ClipWriter writer;
    if (const clip::Error error = writer.open(to, reader.info()))
        return failed(error);
    std::vector<std::byte> picture, sound;
    for (std::int64_t frame = 0; frame < reader.info().frames; ++frame) {
        picture.resize(reader.pictureSize(frame));
        clip::Error error = reader.readPicture(frame, picture);
        if (!error)
            error = reader.readSound(frame, sound);
        if (!error)
            error = writer.write(picture, sound);
        if (error)
            return failed(error);
    }
    const clip::Error error = writer.close();
    return error ? failed(error) : 0;
}

/// Reads a stream a frame a tick and writes each to another one, with the flush a second that the engine asks for.
class Paced : public QObject
{
public:
    int run(const QString &from, const QString &to)
    {
        _in.setDesc(from);
        connect(&_in, &OrbStream::openIsDone, this, [this, to](int, const OrbError &error) {
            if (error.isError())
                return QCoreApplication::exit(1);
            _out.setInfo(_in.info());
            _out.setType(OrbId(OrbIdStreamTypeRecord));
            _out.setDesc(to);
            _cache.setStream(&_out);
            if (!_out.open(2))
                QCoreApplication::exit(1);
        });
        connect(&_out, &OrbStream::openIsDone, this, [this](int, const OrbError &error) {
            if (error.isError())
                return QCoreApplication::exit(1);
            _began = Clock::now();
            _tick.start(5);
            _flush.start(1000);
        });
        connect(&_tick, &QTimer::timeout, this, [this] { tick(); });
        connect(&_flush, &QTimer::timeout, this, [this] { _out.flush(); });
        connect(&_in, &OrbStream::readIsDone, this,
                [this](int, const OrbFrame &frame) { _cache.write(frame); });
        return _in.open(1) ? QCoreApplication::exec() : 1;
    }

private:
    void tick()
    {
        const std::chrono::duration<double> seconds = Clock::now() - _began;
        const int due = int(seconds.count() * _in.info().frameRate().toDouble());
        for (; _next < due && _next < _in.info().length(); ++_next)
            _in.read(_next, nullptr);
    }

    OrbStream _in, _out;
    OrbStreamCache _cache;
    QTimer _tick, _flush;
    Clock::time_point _began;
    int _next = 0;
};

int writeLong(const std::string &to, int frames)
{
    clip::ClipInfo info;
    info.video = {clip::Codec::ProRes422, 1920, 1080, 25, 1, clip::Scan::Progressive, true};
    clip::ClipWriter writer;
    writer.setSyncing(clip::ClipWriter::Syncing::BySync);
    if (const clip::Error error = writer.open(to, info))
        return failed(error);
    std::vector<std::byte> picture(64);
    for (int frame = 0; frame < frames; ++frame) {
        picture.resize(64 + std::size_t(frame % 7)); // of unequal sizes, as coded pictures are
        if (const clip::Error error = writer.write(picture, {}))
            return failed(error);
    }
    const clip::Error error = writer.close();
    return error ? failed(error) : 0;
}

int openOften(const std::string &path)
{
    std::vector<double> times;
    for (int i = 0; i < 50; ++i) {
        const Clock::time_point began = Clock::now();
        clip::ClipReader reader;
        if (const clip::Error error = reader.open(path))
            return failed(error);
        const std::int64_t middle = reader.info().frames / 2;
        std::vector<std::byte> picture(reader.pictureSize(middle));
        if (const clip::Error error = reader.readPicture(middle, picture))
            return failed(error);
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - began).count());
    }
    return printFigures("open", "opens", std::move(times), "ms", 3) ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Orb::init(0);
    const QStringList words = QCoreApplication::arguments().mid(1);
    if (words.size() == 3 && words[0] == "paced") {
        Paced paced;
        return paced.run(words[1], words[2]);
    }
    if (words.size() == 3 && words[0] == "fast")
        return copyFast(words[1].toStdString(), words[2].toStdString());
    if (words.size() == 3 && words[0] == "long")
        return writeLong(words[1].toStdString(), words[2].toInt());
    if (words.size() == 2 && words[0] == "open")
        return openOften(words[1].toStdString());
    std::fprintf(stderr, "usage: clip_copy paced|fast FROM TO | long TO FRAMES | open CLIP\n");
    return 2;
}
