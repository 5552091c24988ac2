// How long a recording is without a stream when it goes over to another medium: from the close of a long clip until
// the next one is open. The clip has the index of an hour and behind it a second of pictures of full size, whose
// bytes the close may have to wait for.
//
//     rollover_gap FROM TO FRAMES TURNS

#include "figures.h"

#include "liborb/orb.h"
#include "liborb/orbframe.h"
#include "liborb/orblog.h"
#include "liborb/orbstream.h"
#include "liborb/orbtimecode.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>

#include <cstdio>
#include <cstring>

namespace {

constexpr int rate = 25;
constexpr int shortPicture = 500;      ///< bytes: it is their number that counts
constexpr int fullPicture = 620'000;   ///< bytes, of 1080p25 in ProRes 422
constexpr int fullPictures = rate;
constexpr int soundBytes = 48000 / rate * 2 * 3;
constexpr int mostPending = 200;
constexpr int settleMs = 2000; ///< until the medium has what was written faster than in real time
constexpr int timeoutMs = 120'000;
constexpr int accessWrite = 2;

OrbStreamInfo format()
{
    OrbImageDesc image;
    image.setSize(1920, 1080);
    image.setAspectRatio(1920, 1080);
    image.setFrameRate(rate, 1);
    image.setScanMode(OrbImageDesc::Progressive);
    image.setDataType(OrbId(OrbIdImageProRes422));
    OrbAudioDesc sound;
    sound.setDataType(OrbId(OrbIdAudioDataType));
    sound.setChans(2);
    sound.setSampleRate(48000, 1);
    sound.setFrameRate(rate, 1);
    OrbStreamInfo info;
    info.vids().append(image);
    info.auds().append(sound);
    return info;
}

OrbBuffer bytes(int count)
{
    OrbBuffer buffer(quint32(count), 0);
    if (buffer.isValid())
        std::memset(buffer.data(), count & 0xff, size_t(count));
    return buffer;
}

/// One recording at a time, and the times of its end.
class Gap
{
public:
    Gap()
    {
        QObject::connect(&_stream, &OrbStream::openIsDone, [this](int, const OrbError &error) {
            _problem = error.value();
            _loopEnds = true;
        });
        QObject::connect(&_stream, &OrbStream::closeIsDone, [this] { _loopEnds = true; });
        QObject::connect(&_stream, &OrbStream::frameWritten, [this](int, const OrbError &error) {
            if (error.isError())
                _problem = error.value();
        });
    }

    bool open(const QString &path)
    {
        _stream.setInfo(format());
        _stream.setType(OrbId(OrbIdStreamTypeRecord));
        _stream.setDesc(path);
        return _stream.open(accessWrite) && wait() && _problem == 0;
    }

    bool write(int frames)
    {
        for (int i = 0; i < frames && _problem == 0; ++i) {
            const bool isFull = i >= frames - fullPictures;
            if (i == frames - fullPictures)
                pause(settleMs);
            writeFrame(i, isFull);
            if (isFull)
                pause(1000 / rate);
            while (_stream.pending() > mostPending && _problem == 0)
                QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        return _problem == 0;
    }

    bool close()
    {
        _stream.close();
        return wait() && _problem == 0;
    }

    int problem() const { return _problem; }

private:
    void writeFrame(int number, bool isFull)
    {
        static const OrbBuffer small = bytes(shortPicture);
        static const OrbBuffer full = bytes(fullPicture);
        static const OrbBuffer sound = bytes(soundBytes);
        static const OrbBuffer silence = bytes(6);
        OrbFrame frame;
        frame.vids().append(OrbImage(format().vids().first(), isFull ? full : small));
        frame.auds().append(OrbAudio(format().auds().first(), isFull ? sound : silence));
        frame.meta().insert(OrbId(OrbIdTimecode),
                            QVariant::fromValue(OrbTimecode(10, 0, 0, 0, rate, 0).advanced(number)));
        _stream.write(frame);
    }

    static void pause(int ms)
    {
        QEventLoop loop;
        QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec();
    }

    bool wait()
    {
        QElapsedTimer clock;
        clock.start();
        while (!_loopEnds && clock.elapsed() < timeoutMs)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return std::exchange(_loopEnds, false);
    }

    OrbStream _stream;
    int _problem = 0;
    bool _loopEnds = false;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 5) {
        std::fprintf(stderr, "usage: rollover_gap FROM TO FRAMES TURNS\n");
        return 2;
    }
    orbLogOpenDisplay();
    Orb::init(0);
    QTimer wake; // bounds every wait
    wake.start(1000);
    const int frames = QString(argv[3]).toInt();
    std::vector<double> closes;
    std::vector<double> gaps;
    for (int turn = 0; turn < QString(argv[4]).toInt(); ++turn) {
        const QString first = QStringLiteral("%1/long%2.mov").arg(argv[1]).arg(turn);
        const QString next = QStringLiteral("%1/next%2.mov").arg(argv[2]).arg(turn);
        Gap gap;
        if (!gap.open(first) || !gap.write(frames)) {
            std::fprintf(stderr, "%s: error %d\n", qPrintable(first), gap.problem());
            return 1;
        }
        QElapsedTimer clock;
        clock.start();
        const bool isClosed = gap.close();
        closes.push_back(double(clock.nsecsElapsed()) / 1e6);
        const bool isOpen = isClosed && gap.open(next);
        gaps.push_back(double(clock.nsecsElapsed()) / 1e6);
        if (!isOpen || !gap.close()) {
            std::fprintf(stderr, "%s: error %d\n", qPrintable(next), gap.problem());
            return 1;
        }
        QFile::remove(first);
        QFile::remove(next);
    }
    const bool hasCloses = printFigures("close", "closes", closes, "ms", 1);
    return hasCloses && printFigures("without a stream", "rollovers", gaps, "ms", 1) ? 0 : 1;
}
