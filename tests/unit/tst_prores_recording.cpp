#include "prorestools.h"

#include "libclip/clipwriter.h"
#include "liborb/drivers/software/codedmemory.h"
#include "liborb/drivers/software/encoder.h"
#include "liborb/drivers/software/latencies.h"
#include "libpicture/patterns.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>

// The recorder's own ProRes: what it records of the same pictures is the same, and FFmpeg's decoder reads it.

using namespace ferin;

namespace {

struct Shape {
    int width;
    int height;
    OrbImageDesc::ScanMode scan;
    OrbIdValue type;
};

OrbImageDesc descOf(const Shape &shape)
{
    OrbImageDesc desc;
    desc.setSize(shape.width, shape.height);
    desc.setAspectRatio(shape.width, shape.height);
    desc.setFrameRate(25, 1);
    desc.setScanMode(shape.scan);
    desc.setDataType(shape.type);
    return desc;
}

/// The moving card under grain, with a cut after every third picture.
RawPictureRef pictureOf(const OrbImageDesc &desc, int number)
{
    RawPicturePool pool(desc.width(), desc.height(), 1);
    RawPictureRef raw = pool.take();
    const picture::MovingPattern pattern(desc.width(), desc.height());
    pattern.draw(raw->view, static_cast<std::uint32_t>(number));
    std::minstd_rand random(static_cast<unsigned>(number + 1));
    const unsigned grain = number / 3 % 2 == 0 ? 12 : 90;
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < desc.height(); ++y) {
            std::uint16_t *line = raw->view.line(p, y);
            for (int x = 0; x < (p == 0 ? desc.width() : desc.width() / 2); ++x)
                line[x] = static_cast<std::uint16_t>(std::clamp<unsigned>(line[x] + random() % grain, 64, 940));
        }
    }
    return raw;
}

QByteArray bytesOf(const OrbBuffer &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer.data()), static_cast<qsizetype>(buffer.size()));
}

/// Codes pictures with a pool of its own, all of them asked for at once. \a first is the first one's number.
QByteArrayList recorded(const std::vector<RawPictureRef> &pictures, const OrbImageDesc &desc, int workers,
                        std::int64_t first = 100)
{
    EncoderPool coders(workers);
    std::vector<OrbBuffer> buffers;
    for (const RawPictureRef &raw : pictures) {
        buffers.push_back(coders.promise(raw, desc, first++));
        buffers.back().request();
    }
    QByteArrayList frames;
    for (const OrbBuffer &buffer : buffers)
        frames.append(buffer.wait() ? bytesOf(buffer) : QByteArray());
    return frames;
}

/// The media data of a clip of \a frames.
QByteArray mediaData(const QByteArrayList &frames, const OrbImageDesc &desc, const QString &path)
{
    clip::ClipInfo info;
    info.video = {clip::Codec::ProRes422Hq, desc.width(), desc.height(), 25, 1, clip::Scan::Progressive, true};
    clip::ClipWriter writer;
    bool isWritten = !writer.open(path.toStdString(), info);
    for (const QByteArray &frame : frames)
        isWritten = isWritten
                    && !writer.write({reinterpret_cast<const std::byte *>(frame.constData()),
                                      static_cast<std::size_t>(frame.size())},
                                     {});
    isWritten = isWritten && !writer.close();
    QFile file(path);
    if (!isWritten || !file.open(QFile::ReadOnly))
        return QByteArray();
    const QByteArray all = file.readAll();
    // Boxes of 32-bit sizes, but for the media data, which may have a 64-bit one.
    for (qsizetype at = 0; at + 16 <= all.size();) {
        const auto number = [&all](qsizetype from, int bytes) {
            quint64 value = 0;
            for (int i = 0; i < bytes; ++i)
                value = value << 8 | static_cast<uchar>(all[from + i]);
            return static_cast<qsizetype>(value);
        };
        const qsizetype size = number(at, 4) == 1 ? number(at + 8, 8) : number(at, 4);
        if (all.mid(at + 4, 4) == "mdat")
            return all.mid(at, size);
        if (size < 8)
            break;
        at += size;
    }
    return QByteArray();
}

double lumaDecibels(const AVFrame &frame, const picture::View &view, int up)
{
    double sum = 0;
    for (int y = 0; y < view.height; ++y) {
        for (int x = 0; x < view.width; ++x) {
            const double difference
                = prorestest::decodedAt(frame, 0, x, y) / static_cast<double>(1 << up) - view.line(0, y)[x];
            sum += difference * difference;
        }
    }
    return 10 * std::log10(1023.0 * 1023.0 * view.width * view.height / std::max(sum, 1.0));
}

} // namespace

class ProresRecording : public QObject
{
    Q_OBJECT
private slots:
    void theSamePicturesGiveTheSameClipOnAnyNumberOfThreads_data();
    void theSamePicturesGiveTheSameClipOnAnyNumberOfThreads();
    void aGapInTheNumbersBeginsAnotherStream();
    void whatWasCodedBeforeLeavesNoTrace();
    void ffmpegReadsWhatIsRecorded_data();
    void ffmpegReadsWhatIsRecorded();
    void ffmpegsEncoderCanBeChosen();
    void expectedFormatsAreCodedLikeOthers();
    void codedMemoryIsUsedAgain();
    void codedPicturesAreCounted();
    void latenciesAreThoseOfTheLastSeconds();
    void latenciesAreBounded();
};

void ProresRecording::theSamePicturesGiveTheSameClipOnAnyNumberOfThreads_data()
{
    QTest::addColumn<OrbImageDesc>("desc");
    QTest::newRow("1080p HQ") << descOf({1920, 1080, OrbImageDesc::Progressive, OrbIdImageProRes422Hq});
    QTest::newRow("1080i 422") << descOf({1920, 1080, OrbImageDesc::Interlaced, OrbIdImageProRes422});
    QTest::newRow("525 Proxy") << descOf({720, 486, OrbImageDesc::Interlaced, OrbIdImageProRes422Proxy});
    QTest::newRow("720p 4444") << descOf({1280, 720, OrbImageDesc::Progressive, OrbIdImageProRes4444});
}

void ProresRecording::theSamePicturesGiveTheSameClipOnAnyNumberOfThreads()
{
    QFETCH(const OrbImageDesc, desc);
    const QTemporaryDir folder;
    std::vector<RawPictureRef> pictures;
    for (int i = 0; i < 8; ++i)
        pictures.push_back(pictureOf(desc, i));
    QByteArray first;
    for (const int workers : {1, 1, 2, 4}) {
        const QByteArrayList frames = recorded(pictures, desc, workers);
        QVERIFY(!frames.contains(QByteArray()));
        const QByteArray data = mediaData(frames, desc, folder.filePath(QStringLiteral("clip.mov")));
        QVERIFY(data.size() > frames.join().size());
        if (first.isEmpty())
            first = data;
        QVERIFY(data == first);
        QVERIFY(QFile::remove(folder.filePath(QStringLiteral("clip.mov"))));
    }
}

void ProresRecording::aGapInTheNumbersBeginsAnotherStream()
{
    const OrbImageDesc desc = descOf({720, 576, OrbImageDesc::Progressive, OrbIdImageProRes422Lt});
    const std::vector<RawPictureRef> pictures = {pictureOf(desc, 3), pictureOf(desc, 4), pictureOf(desc, 5)};
    EncoderPool coders(2);
    const auto coded = [&](std::size_t index, std::int64_t number) {
        const OrbBuffer buffer = coders.promise(pictures[index], desc, number);
        return buffer.wait() ? bytesOf(buffer) : QByteArray();
    };
    const QByteArrayList joined = {coded(0, 7), coded(1, 8), coded(2, 9)};
    const QByteArrayList apart = {coded(0, 20), coded(1, 22), coded(2, standalone)};
    const QByteArrayList again = {coded(2, 50), coded(1, 49), coded(0, standalone)};
    QCOMPARE(apart.at(0), joined.at(0));
    QVERIFY(apart.at(1) != joined.at(1)); // the rate had been followed there
    QCOMPARE(again.at(1), apart.at(1));
    QCOMPARE(again.at(0), apart.at(2));
    QCOMPARE(again.at(2), joined.at(0));
}

void ProresRecording::whatWasCodedBeforeLeavesNoTrace()
{
    const OrbImageDesc desc = descOf({1280, 720, OrbImageDesc::Progressive, OrbIdImageProRes422Hq});
    std::vector<RawPictureRef> pictures;
    for (int i = 0; i < 6; ++i)
        pictures.push_back(pictureOf(desc, i));
    const std::vector<RawPictureRef> other = {pictures[4], pictures[5]};
    EncoderPool coders(2);
    QByteArrayList rounds[2];
    std::int64_t number = 1000;
    for (QByteArrayList &round : rounds) {
        for (const RawPictureRef &raw : pictures) {
            const OrbBuffer buffer = coders.promise(raw, desc, number++);
            QVERIFY(buffer.wait());
            round.append(bytesOf(buffer));
        }
        for (const RawPictureRef &raw : other)
            QVERIFY(coders.promise(raw, desc, number++).wait());
        ++number; // a frame that nobody recorded
    }
    QVERIFY(rounds[0] == rounds[1]);
}

void ProresRecording::ffmpegReadsWhatIsRecorded_data()
{
    QTest::addColumn<OrbImageDesc>("desc");
    constexpr Shape shapes[] = {
        {1920, 1080, OrbImageDesc::Progressive, OrbIdImageProRes422Hq},
        {1920, 1080, OrbImageDesc::SegmentedFrame, OrbIdImageProRes422},
        {1920, 1080, OrbImageDesc::Interlaced, OrbIdImageProRes422Hq},
        {720, 576, OrbImageDesc::Interlaced, OrbIdImageProRes422},
        {720, 486, OrbImageDesc::Interlaced, OrbIdImageProRes422Lt},
        {720, 480, OrbImageDesc::Interlaced, OrbIdImageProRes422Proxy},
        {1366, 770, OrbImageDesc::Progressive, OrbIdImageProRes422Hq},
        {1918, 1078, OrbImageDesc::Interlaced, OrbIdImageProRes422},
        {130, 66, OrbImageDesc::Progressive, OrbIdImageProRes422Hq},
        {1920, 1080, OrbImageDesc::Progressive, OrbIdImageProRes4444},
        {1920, 1080, OrbImageDesc::Interlaced, OrbIdImageProRes4444},
        {1366, 770, OrbImageDesc::Progressive, OrbIdImageProRes4444},
        {720, 486, OrbImageDesc::Interlaced, OrbIdImageProRes4444},
    };
    for (const Shape &shape : shapes) {
        const OrbImageDesc desc = descOf(shape);
        QTest::newRow(qPrintable(desc.toString())) << desc;
    }
}

void ProresRecording::ffmpegReadsWhatIsRecorded()
{
    QFETCH(const OrbImageDesc, desc);
    const bool isWide = desc.dataType() == OrbIdImageProRes4444;
    RawPicturePool pool(desc.width(), desc.height(), 1);
    const RawPictureRef raw = pool.take();
    picture::MovingPattern(desc.width(), desc.height()).draw(raw->view, 77);
    EncoderPool coders(2);
    const OrbBuffer buffer = coders.promise(raw, desc);
    QVERIFY(buffer.wait());
    prores::Format format;
    format.profile = isWide ? prores::Profile::P4444 : prores::Profile::Hq;
    format.width = desc.width();
    format.height = desc.height();
    prorestest::Judge judge(format);
    const AVFrame *decoded = judge.decode(bytesOf(buffer));
    QVERIFY(decoded != nullptr);
    QCOMPARE(prorestest::Judge::said(), QString());
    QCOMPARE(decoded->format, static_cast<int>(isWide ? AV_PIX_FMT_YUV444P12 : AV_PIX_FMT_YUV422P10));
    QCOMPARE(decoded->width, desc.width());
    QCOMPARE(decoded->height, desc.height());
    QCOMPARE(decoded->interlaced_frame != 0, desc.isInterlaced());
    if (desc.isInterlaced())
        QCOMPARE(decoded->top_field_first != 0, desc.height() != 486 && desc.height() != 480);
    const Colour colour = colourOf(desc.height());
    QCOMPARE(static_cast<int>(decoded->color_primaries), static_cast<int>(colour.primaries));
    QCOMPARE(static_cast<int>(decoded->colorspace), static_cast<int>(colour.matrix));
    const double decibels = lumaDecibels(*decoded, raw->view, isWide ? 2 : 0);
    QVERIFY2(decibels > 30, qPrintable(QString::number(decibels)));
    for (int y = 0; isWide && y < desc.height(); y += 7) { // the samples given stand where they belong
        int most = 0;
        for (int x = 0; x < desc.width(); x += 2)
            most = std::max(most, std::abs(prorestest::decodedAt(*decoded, 1, x, y) / 4 - raw->view.line(1, y)[x / 2]));
        QVERIFY2(most < 100, qPrintable(QString::number(most)));
    }
}

void ProresRecording::ffmpegsEncoderCanBeChosen()
{
    const OrbImageDesc desc = descOf({1280, 720, OrbImageDesc::Progressive, OrbIdImageProRes422});
    const RawPictureRef raw = pictureOf(desc, 1);
    EncoderPool own(1);
    EncoderPool theirs(1, ProResBy::Ffmpeg);
    QCOMPARE(own.codecName(OrbIdImageProRes4444), QStringLiteral("own"));
    QCOMPARE(own.codecName(OrbIdImageDnxHqx), QStringLiteral("ffmpeg"));
    QCOMPARE(theirs.codecName(OrbIdImageProRes4444), QStringLiteral("ffmpeg"));
    const OrbBuffer first = own.promise(raw, desc);
    const OrbBuffer second = theirs.promise(raw, desc);
    QVERIFY(first.wait());
    QVERIFY(second.wait());
    QCOMPARE(bytesOf(first).mid(12, 4), QByteArray("rvd1"));
    QCOMPARE(bytesOf(second).mid(4, 4), QByteArray("icpf"));
    QVERIFY(bytesOf(second).mid(12, 4) != QByteArray("rvd1"));
}

/// What is expected costs nothing that is counted, and changes no byte.
void ProresRecording::expectedFormatsAreCodedLikeOthers()
{
    const OrbImageDesc desc = descOf({1280, 720, OrbImageDesc::Progressive, OrbIdImageProRes422});
    OrbImageDesc impossible = desc;
    impossible.setSize(0, 0);
    const RawPictureRef raw = pictureOf(desc, 1);
    EncoderPool plain(1);
    EncoderPool prepared(1);
    prepared.expect(desc);
    prepared.expect(impossible);
    QTRY_COMPARE(prepared.stats().waiting, 0);
    for (int number = 0; number < 3; ++number) {
        const OrbBuffer first = plain.promise(raw, desc, number);
        const OrbBuffer second = prepared.promise(raw, desc, number);
        QVERIFY(first.wait());
        QVERIFY(second.wait());
        QCOMPARE(bytesOf(first), bytesOf(second));
    }
    QCOMPARE(prepared.stats().coded, quint64(3));
    QCOMPARE(prepared.stats().failed, quint64(0));
}

void ProresRecording::codedMemoryIsUsedAgain()
{
    CodedPicture left;
    {
        CodedMemory memory(1000);
        QVERIFY(memory.room() >= 1000);
        const CodedPicture first = memory.take();
        left = memory.take();
        QVERIFY(first.bytes != nullptr);
        QVERIFY(left.bytes != first.bytes);
        std::memset(first.bytes, 1, memory.room());
        first.release();
        QCOMPARE(memory.idle(), 1);
        const CodedPicture again = memory.take();
        QCOMPARE(again.bytes, first.bytes);
        again.release();
        std::vector<CodedPicture> many;
        for (int i = 0; i < CodedMemory::mostIdle + 4; ++i)
            many.push_back(memory.take());
        for (const CodedPicture &picture : many)
            picture.release();
        QCOMPARE(memory.idle(), CodedMemory::mostIdle);
        CodedMemory ready(1000);
        ready.makeReady(3, 2000); // no more than there is room for
        QCOMPARE(ready.idle(), 3);
    }
    std::memset(left.bytes, 2, 1000); // it outlives its owner
    left.release();
}

void ProresRecording::codedPicturesAreCounted()
{
    const OrbImageDesc desc = descOf({1280, 720, OrbImageDesc::Progressive, OrbIdImageProRes422});
    const RawPictureRef raw = pictureOf(desc, 1);
    EncoderPool coders(1);
    QCOMPARE(coders.stats().worstMs, 0.0);
    std::vector<OrbBuffer> buffers;
    for (int i = 0; i < 9; ++i) {
        buffers.push_back(coders.promise(raw, desc, i));
        buffers.back().request();
    }
    for (const OrbBuffer &buffer : buffers)
        QVERIFY(buffer.wait());
    const EncoderStats stats = coders.stats();
    QCOMPARE(stats.coded, quint64 {9});
    QCOMPARE(stats.failed, quint64 {0});
    QCOMPARE(stats.waiting, 0);
    QVERIFY(stats.meanMs > 0);
}

void ProresRecording::latenciesAreThoseOfTheLastSeconds()
{
    using namespace std::chrono_literals;
    const Latencies::Clock::time_point start {1h};
    Latencies latencies;
    double median = 1;
    double worst = 1;
    latencies.read(start, median, worst);
    QCOMPARE(median, 0.0);
    QCOMPARE(worst, 0.0);
    latencies.add(start, 900ms);
    latencies.add(start + 1s, 30ms);
    latencies.add(start + 2s, 10ms);
    latencies.add(start + 3s, 20ms);
    latencies.add(start + 4s, 40ms);
    latencies.read(start + 5s, median, worst); // the first ended five seconds ago
    QCOMPARE(median, 30.0);
    QCOMPARE(worst, 900.0);
    latencies.read(start + 5001ms, median, worst);
    QCOMPARE(median, 30.0); // the upper one of two in the middle
    QCOMPARE(worst, 40.0);
    latencies.read(start + 8500ms, median, worst);
    QCOMPARE(median, 40.0);
    QCOMPARE(worst, 40.0);
    latencies.read(start + 10s, median, worst);
    QCOMPARE(median, 0.0);
    QCOMPARE(worst, 0.0);
}

void ProresRecording::latenciesAreBounded()
{
    using namespace std::chrono_literals;
    const Latencies::Clock::time_point start {1h};
    Latencies latencies;
    for (int i = 0; i < 600; ++i)
        latencies.add(start, i == 0 ? 2s : 1s);
    double median = 0;
    double worst = 0;
    latencies.read(start, median, worst);
    QCOMPARE(worst, 2000.0);
    latencies.add(start, 1s); // the oldest goes for it
    latencies.read(start, median, worst);
    QCOMPARE(median, 1000.0);
    QCOMPARE(worst, 1000.0);
}

QTEST_GUILESS_MAIN(ProresRecording)
#include "tst_prores_recording.moc"
