#include "tst_input_media.h"
#include "tst_input_tools.h"

#include "liborb/drivers/software/frameassembler.h"
#include "liborb/drivers/software/pictureconverter.h"
#include "liborb/drivers/software/streamrate.h"
#include "liborb/orb.h"
#include "libbus/bus.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <cstring>
#include <random>

using namespace ferin;
using namespace inputtest;

namespace {

std::int16_t upperSample(const QByteArray &sound, qsizetype index)
{
    const auto low = static_cast<quint8>(sound[index * 3 + 1]);
    const auto high = static_cast<quint8>(sound[index * 3 + 2]);
    return static_cast<std::int16_t>(low | high << 8);
}

/// Interleaved 24-bit mono sound whose samples count from \a start.
std::vector<std::uint8_t> countingSound(std::int64_t start, int samples)
{
    std::vector<std::uint8_t> pcm;
    for (int i = 0; i < samples; ++i) {
        const auto value = static_cast<std::uint16_t>(countingSample(start + i));
        pcm.push_back(0);
        pcm.push_back(static_cast<std::uint8_t>(value));
        pcm.push_back(static_cast<std::uint8_t>(value >> 8));
    }
    return pcm;
}

bool makeFile(const QString &path, const MediaSpec &spec, int frames)
{
    MediaMaker maker;
    if (!maker.open(path, spec))
        return false;
    for (int i = 0; i < frames; ++i) {
        if (!maker.write(static_cast<std::uint32_t>(i), i))
            return false;
    }
    return maker.close();
}

} // namespace

class TestInput : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void nothingNeverHasASignal();

    void ratesSnapToTheStandardOnes_data();
    void ratesSnapToTheStandardOnes();
    void theRateWatchSeesAnotherRateAndNothingElse_data();
    void theRateWatchSeesAnotherRateAndNothingElse();

    void soundIsCutToThePicturesByTime();
    void soundThatBeginsLateIsSilentAtFirst();
    void aGapInTheSoundIsSilent();
    void aPictureWaitsForItsSoundButNotForEver();
    void aMissingPictureTakesItsSoundWithIt();
    void aTimeLineThatBeginsAnewIsFollowed();
    void liveFramesLeaveEvenly();

    void picturesConvertToTheSameValues_data();
    void picturesConvertToTheSameValues();
    void theFieldsOfA420PictureDoNotMix();

    void aFileLoopsWithNumbersInOrderAndExactSound_data();
    void aFileLoopsWithNumbersInOrderAndExactSound();
    void aFileThatComesLaterIsFound();
    void aFileWithoutPicturesIsPresentAndNotValid();
    void aDamagedFileNeverCrashes();
    void whatNobodyTakesGoesOldestFirst();

    void aBusDeliversPictureSoundTimecodeAndFlag();
    void aBusThatGoesAndComesBackIsFollowed();
};

void TestInput::initTestCase()
{
    Orb::init(0);
}

void TestInput::nothingNeverHasASignal()
{
    for (const char *source : {"", "none"}) {
        const auto input = createInput(QLatin1String(source));
        StatusLog log;
        input->start(log.handler());
        InputFrame frame;
        QVERIFY(!input->take(frame));
        QCOMPARE(input->waiting(), 0);
        QCOMPARE(input->overruns(), quint64 {0});
        QVERIFY(!input->isPaced());
        QVERIFY(log.all().empty());
    }
}

void TestInput::ratesSnapToTheStandardOnes_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<OrbVideoRate>("rate");
    QTest::newRow("23.976") << 24000 << 1001 << OrbVideoRate(24000, 1001);
    QTest::newRow("23976/1000") << 23976 << 1000 << OrbVideoRate(24000, 1001);
    QTest::newRow("24") << 24 << 1 << OrbVideoRate(24, 1);
    QTest::newRow("25 of milliseconds") << 1000 << 40 << OrbVideoRate(25, 1);
    QTest::newRow("29.97") << 2997 << 100 << OrbVideoRate(30000, 1001);
    QTest::newRow("30") << 30 << 1 << OrbVideoRate(30, 1);
    QTest::newRow("47.952") << 47952 << 1000 << OrbVideoRate(48000, 1001);
    QTest::newRow("48") << 48 << 1 << OrbVideoRate(48, 1);
    QTest::newRow("50") << 50 << 1 << OrbVideoRate(50, 1);
    QTest::newRow("59.94") << 5994 << 100 << OrbVideoRate(60000, 1001);
    QTest::newRow("60") << 60000 << 1000 << OrbVideoRate(60, 1);
    QTest::newRow("12.5") << 25 << 2 << OrbVideoRate();
    QTest::newRow("90000") << 90000 << 1 << OrbVideoRate();
    QTest::newRow("none") << 0 << 1 << OrbVideoRate();
    QTest::newRow("no denominator") << 25 << 0 << OrbVideoRate();
}

void TestInput::ratesSnapToTheStandardOnes()
{
    QFETCH(int, num);
    QFETCH(int, den);
    QFETCH(OrbVideoRate, rate);
    QVERIFY(snapRate(num, den) == rate);
    QCOMPARE(snapRate(num, den).num(), rate.num());
}

void TestInput::theRateWatchSeesAnotherRateAndNothingElse_data()
{
    QTest::addColumn<OrbVideoRate>("believed");
    QTest::addColumn<OrbVideoRate>("real");
    QTest::addColumn<qint64>("tick"); // of the time stamps, ns
    const OrbVideoRate all[] = {{24000, 1001}, {24, 1}, {25, 1}, {30000, 1001}, {30, 1},
                                {50, 1},       {60000, 1001}, {60, 1}};
    for (const OrbVideoRate &believed : all) {
        for (const OrbVideoRate &real : all)
            QTest::addRow("%d/%d as %d/%d", real.num(), real.den(), believed.num(), believed.den())
                << believed << real << qint64 {11'112};
    }
    QTest::addRow("milliseconds cannot tell 30 from 29.97")
        << OrbVideoRate(30000, 1001) << OrbVideoRate(30000, 1001) << qint64 {1'000'000};
    QTest::addRow("milliseconds, 60") << OrbVideoRate(60, 1) << OrbVideoRate(60, 1) << qint64 {1'000'000};
}

void TestInput::theRateWatchSeesAnotherRateAndNothingElse()
{
    QFETCH(OrbVideoRate, believed);
    QFETCH(OrbVideoRate, real);
    QFETCH(qint64, tick);
    RateWatch watch;
    watch.restart(believed, tick);
    OrbVideoRate seen = believed;
    for (qint64 i = 0; i < 200; ++i) {
        const qint64 exact = i * 1'000'000'000 * real.den() / real.num();
        const qint64 base = i > 70 ? 5'000'000'000 : 0; // one jump on the way
        if (const auto rate = watch.next((exact + base) / tick * tick))
            seen = *rate;
    }
    QCOMPARE(seen.num(), real.num());
    QCOMPARE(seen.den(), real.den());
}

void TestInput::soundIsCutToThePicturesByTime()
{
    std::vector<InputFrame> frames;
    FrameAssembler assembler([&](InputFrame &&frame) { frames.push_back(std::move(frame)); });
    assembler.setChannels(1);
    assembler.begin(30000, 1001, 10, false);
    // Sound begins before the first picture, at sample 1000, in blocks of 1152.
    constexpr std::int64_t firstPicture = 5000;
    std::int64_t at = 1000;
    for (int i = 0; i < 20; ++i) {
        assembler.addPicture(nullptr, OrbTimecode(),
                             firstPicture + picture::samplesBeforeFrame(i, 30000, 1001) + i % 3);
        for (; at < firstPicture + (i + 2) * 1602; at += 1152)
            assembler.addSound(at, countingSound(at, 1152).data(), 1152);
    }
    QVERIFY(frames.size() >= 19);
    std::int64_t position = firstPicture;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const int samples = picture::samplesOfFrame(static_cast<std::int64_t>(i), 30000, 1001);
        QCOMPARE(frames[i].number, quint64 {i});
        QCOMPARE(frames[i].channels, 1);
        QCOMPARE(frames[i].sound.size(), qsizetype {samples} * 3);
        QCOMPARE(upperSample(frames[i].sound, 0), countingSample(position));
        QCOMPARE(upperSample(frames[i].sound, samples - 1), countingSample(position + samples - 1));
        position += samples;
    }
}

void TestInput::soundThatBeginsLateIsSilentAtFirst()
{
    std::vector<InputFrame> frames;
    FrameAssembler assembler([&](InputFrame &&frame) { frames.push_back(std::move(frame)); });
    assembler.setChannels(1);
    assembler.begin(25, 1, 10, false);
    for (int i = 0; i < 3; ++i)
        assembler.addPicture(nullptr, OrbTimecode(), i * 1920);
    assembler.addSound(2000, countingSound(2000, 4000).data(), 4000);
    QCOMPARE(frames.size(), std::size_t {3});
    QCOMPARE(frames[0].sound, QByteArray(1920 * 3, '\0'));
    QCOMPARE(upperSample(frames[1].sound, 79), std::int16_t {0});
    QCOMPARE(upperSample(frames[1].sound, 80), countingSample(2000));
    QCOMPARE(upperSample(frames[2].sound, 0), countingSample(3840));
}

void TestInput::aGapInTheSoundIsSilent()
{
    std::vector<InputFrame> frames;
    FrameAssembler assembler([&](InputFrame &&frame) { frames.push_back(std::move(frame)); });
    assembler.setChannels(1);
    assembler.begin(25, 1, 10, false);
    assembler.addSound(0, countingSound(0, 1920).data(), 1920);
    assembler.addSound(5760, countingSound(5760, 1920).data(), 1920);
    for (int i = 0; i < 4; ++i)
        assembler.addPicture(nullptr, OrbTimecode(), i * 1920);
    QCOMPARE(frames.size(), std::size_t {4});
    QCOMPARE(upperSample(frames[0].sound, 1919), countingSample(1919));
    QCOMPARE(frames[1].sound, QByteArray(1920 * 3, '\0'));
    QCOMPARE(frames[2].sound, QByteArray(1920 * 3, '\0'));
    QCOMPARE(upperSample(frames[3].sound, 0), countingSample(5760));
}

void TestInput::aPictureWaitsForItsSoundButNotForEver()
{
    std::vector<InputFrame> frames;
    FrameAssembler assembler([&](InputFrame &&frame) { frames.push_back(std::move(frame)); });
    assembler.setChannels(2);
    assembler.begin(25, 1, 3, false);
    for (int i = 0; i < 3; ++i)
        assembler.addPicture(nullptr, OrbTimecode(), i * 1920);
    QVERIFY(frames.empty());
    assembler.addPicture(nullptr, OrbTimecode(), 3 * 1920);
    QCOMPARE(frames.size(), std::size_t {1});
    QCOMPARE(frames[0].sound, QByteArray(1920 * 6, '\0'));
    assembler.finish();
    QCOMPARE(frames.size(), std::size_t {4});
    assembler.setChannels(0);
    assembler.begin(25, 1, 3, false); // without sound nothing waits
    assembler.addPicture(nullptr, OrbTimecode(), 0);
    QCOMPARE(frames.size(), std::size_t {5});
    QCOMPARE(frames[4].number, quint64 {0});
    QVERIFY(frames[4].sound.isEmpty());
}

void TestInput::aMissingPictureTakesItsSoundWithIt()
{
    std::vector<InputFrame> frames;
    FrameAssembler assembler([&](InputFrame &&frame) { frames.push_back(std::move(frame)); });
    assembler.setChannels(1);
    assembler.begin(25, 1, 10, false);
    assembler.addSound(0, countingSound(0, 1920 * 5).data(), 1920 * 5);
    for (const int i : {0, 1, 3, 4})
        assembler.addPicture(nullptr, OrbTimecode(), i * 1920);
    QCOMPARE(frames.size(), std::size_t {4});
    QCOMPARE(frames[2].number, quint64 {2}); // delivered frames are counted
    QCOMPARE(upperSample(frames[2].sound, 0), countingSample(3 * 1920));
    QCOMPARE(upperSample(frames[3].sound, 0), countingSample(4 * 1920));
}

void TestInput::aTimeLineThatBeginsAnewIsFollowed()
{
    std::vector<InputFrame> frames;
    FrameAssembler assembler([&](InputFrame &&frame) { frames.push_back(std::move(frame)); });
    assembler.setChannels(1);
    assembler.begin(25, 1, 5, false);
    for (const std::int64_t base : {std::int64_t {40'000'000}, std::int64_t {96'000}}) {
        for (int i = 0; i < 4; ++i) {
            assembler.addPicture(nullptr, OrbTimecode(), base + i * 1920);
            assembler.addSound(base + i * 1920, countingSound(base + i * 1920, 1920).data(), 1920);
        }
    }
    QCOMPARE(frames.size(), std::size_t {8});
    QCOMPARE(upperSample(frames[3].sound, 5), countingSample(40'000'000 + 3 * 1920 + 5));
    QCOMPARE(upperSample(frames[4].sound, 5), countingSample(96'000 + 5));
    QCOMPARE(frames[7].number, quint64 {7});
}

void TestInput::liveFramesLeaveEvenly()
{
    std::vector<InputFrame> frames;
    FrameAssembler assembler([&](InputFrame &&frame) { frames.push_back(std::move(frame)); });
    assembler.setChannels(1);
    assembler.begin(30000, 1001, 20, true);
    std::int64_t at = 0;
    const auto addPicture = [&](int i) {
        assembler.addPicture(nullptr, OrbTimecode(), picture::samplesBeforeFrame(i, 30000, 1001));
    };
    for (int i = 0; i < 12; ++i)
        addPicture(i);
    for (; at < 1602 * 12; at += 480) // the first sound comes: no burst of all that waited
        assembler.addSound(at, countingSound(at, 480).data(), 480);
    QVERIFY(!frames.empty());
    QVERIFY(frames.size() <= 3);
    for (int i = 12; i < 40; ++i) { // then sound is missing for a while, and comes all at once
        if (i >= 20 && i < 30) {
            addPicture(i);
            continue;
        }
        const std::size_t before = frames.size();
        addPicture(i);
        for (; at < 1602 * (i + 1); at += 480)
            assembler.addSound(at, countingSound(at, 480).data(), 480);
        QVERIFY(frames.size() - before <= 4);
    }
    for (std::size_t i = 0; i < frames.size(); ++i) {
        QCOMPARE(frames[i].number, quint64 {i});
        QCOMPARE(frames[i].sound.size(),
                 qsizetype {picture::samplesOfFrame(static_cast<std::int64_t>(i), 30000, 1001)} * 3);
    }
}

void TestInput::picturesConvertToTheSameValues_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<bool>("interlaced");
    QTest::addColumn<int>("width");
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV420P10,
          AV_PIX_FMT_YUV422P10, AV_PIX_FMT_YUV444P10, AV_PIX_FMT_YUVA444P10, AV_PIX_FMT_YUV422P12,
          AV_PIX_FMT_NV12, AV_PIX_FMT_UYVY422, AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_RGB24}) {
        for (const bool interlaced : {false, true}) {
            for (const int width : {1280, 721})
                QTest::addRow("%s %s %d", av_get_pix_fmt_name(format), interlaced ? "i" : "p", width)
                    << static_cast<int>(format) << interlaced << width;
        }
    }
}

void TestInput::picturesConvertToTheSameValues()
{
    QFETCH(int, format);
    QFETCH(bool, interlaced);
    QFETCH(int, width);
    constexpr int height = 722; // an odd number of chroma lines a field
    const int even = width & ~1;
    RawPicturePool pool(even, height, 1);
    const RawPictureRef to = pool.take();
    FramePtr from(av_frame_alloc());
    from->width = width;
    from->height = height;
    from->format = format;
    from->colorspace = AVCOL_SPC_BT709;
    if (format == AV_PIX_FMT_YUVJ420P)
        from->color_range = AVCOL_RANGE_JPEG;
    QVERIFY(av_frame_get_buffer(from.get(), 0) >= 0);
    // One grey with a tint everywhere: whatever is mixed or moved, it stays what it is.
    ScalerPtr scaler(sws_getContext(even, height, AV_PIX_FMT_YUV422P10, width, height,
                                    static_cast<AVPixelFormat>(format), SWS_BILINEAR | SWS_ACCURATE_RND,
                                    nullptr, nullptr, nullptr));
    const int *table = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(scaler.get(), table, 0, table, format == AV_PIX_FMT_YUVJ420P, 0, 1 << 16,
                             1 << 16);
    constexpr std::uint16_t value[3] = {400, 480, 560};
    const std::uint8_t *planes[4] = {};
    int strides[4] = {};
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < height; ++y)
            std::fill_n(to->view.line(p, y), p == 0 ? even : even / 2, value[p]);
        planes[p] = reinterpret_cast<const std::uint8_t *>(to->view.plane[p]);
        strides[p] = to->view.stride[p] * 2;
    }
    sws_scale(scaler.get(), planes, strides, 0, height, from->data, from->linesize);
    for (int p = 0; p < 3; ++p)
        std::fill_n(to->view.plane[p], to->view.stride[p] * height, std::uint16_t {1});

    PictureConverter converter;
    QVERIFY(converter.convert(*from, interlaced, to->view));
    const int tolerance = format == AV_PIX_FMT_RGB24 || format == AV_PIX_FMT_YUVJ420P ? 8 : 4;
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < (p == 0 ? even : even / 2); ++x) {
                const int is = to->view.line(p, y)[x];
                if (std::abs(is - value[p]) > tolerance)
                    QFAIL(qPrintable(QStringLiteral("plane %1 line %2 sample %3: %4").arg(p).arg(y).arg(x)
                                         .arg(is)));
            }
        }
    }
}

void TestInput::theFieldsOfA420PictureDoNotMix()
{
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12}) {
        FramePtr from(av_frame_alloc());
        from->width = 64;
        from->height = 64;
        from->format = format;
        QVERIFY(av_frame_get_buffer(from.get(), 0) >= 0);
        for (int y = 0; y < 64; ++y)
            std::memset(from->data[0] + y * from->linesize[0], 100, 64);
        for (int p = 1; p < av_pix_fmt_count_planes(format); ++p) {
            for (int y = 0; y < 32; ++y)
                std::memset(from->data[p] + y * from->linesize[p], y % 2 == 0 ? 60 : 200,
                            format == AV_PIX_FMT_NV12 ? 64 : 32);
        }
        RawPicturePool pool(64, 64, 1);
        const RawPictureRef to = pool.take();
        PictureConverter converter;
        QVERIFY(converter.convert(*from, true, to->view));
        for (int y = 0; y < 64; ++y)
            QCOMPARE(int {to->view.line(1, y)[10]}, y % 2 == 0 ? 240 : 800);
    }
}

void TestInput::aFileLoopsWithNumbersInOrderAndExactSound_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("codec");
    QTest::addColumn<int>("pixels");
    QTest::addColumn<OrbVideoRate>("rate");
    QTest::addColumn<bool>("interlaced");
    QTest::addColumn<int>("channels");
    const int p8 = AV_PIX_FMT_YUV420P;
    const int p10 = AV_PIX_FMT_YUV422P10;
    QTest::newRow("mpeg2 ts 25i") << "a.ts" << "mpeg2video" << p8 << OrbVideoRate(25, 1) << true << 0;
    QTest::newRow("mpeg2 mkv 50p") << "a.mkv" << "mpeg2video" << p8 << OrbVideoRate(50, 1) << false << 2;
    QTest::newRow("prores mov 29.97i")
        << "a.mov" << "prores_aw" << p10 << OrbVideoRate(30000, 1001) << true << 8;
    QTest::newRow("prores mov 23.976p")
        << "b.mov" << "prores_aw" << p10 << OrbVideoRate(24000, 1001) << false << 1;
    QTest::newRow("mpeg2 mov 59.94p")
        << "c.mov" << "mpeg2video" << p8 << OrbVideoRate(60000, 1001) << false << 2;
}

void TestInput::aFileLoopsWithNumbersInOrderAndExactSound()
{
    QFETCH(QString, name);
    QFETCH(QString, codec);
    QFETCH(int, pixels);
    QFETCH(OrbVideoRate, rate);
    QFETCH(bool, interlaced);
    QFETCH(int, channels);
    constexpr int length = 20;
    QTemporaryDir folder;
    MediaSpec spec;
    const QByteArray codecName = codec.toLatin1();
    spec.videoCodec = codecName.constData();
    spec.pixels = static_cast<AVPixelFormat>(pixels);
    spec.rate = {rate.num(), rate.den()};
    spec.interlaced = interlaced;
    spec.channels = channels;
    spec.timecode = name.endsWith(QLatin1String(".mov")) ? "10:20:30:05" : nullptr;
    const QString path = folder.filePath(name);
    QVERIFY(makeFile(path, spec, length));

    const auto input = createInput(interlaced ? path : "file:" + path);
    QVERIFY(!input->isPaced());
    StatusLog log;
    input->start(log.handler());
    const auto frames = takeFrames(*input, 2 * length + 5);
    QCOMPARE(frames.size(), std::size_t {2 * length + 5});
    QCOMPARE(input->overruns(), quint64 {0});
    const auto all = log.all();
    QCOMPARE(all.size(), std::size_t {1});
    QVERIFY(all[0].present && all[0].valid);
    QCOMPARE(all[0].format.size(), QSize(720, 576));
    QCOMPARE(all[0].format.frameRate().num(), rate.num());
    QCOMPARE(all[0].format.frameRate().den(), rate.den());
    QCOMPARE(all[0].format.isInterlaced(), interlaced);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const InputFrame &frame = frames[i].frame;
        QCOMPARE(frame.number, quint64 {i});
        QCOMPARE(frames[i].bar, static_cast<std::int64_t>(i % length));
        QCOMPARE(frame.channels, channels);
        const int samples = picture::samplesOfFrame(static_cast<std::int64_t>(i), rate.num(), rate.den());
        QCOMPARE(frame.sound.size(), qsizetype {samples} * channels * 3);
        if (spec.timecode != nullptr) {
            const OrbTimecode first(10, 20, 30, 5, rate.timecodeRate(), 0);
            QVERIFY(frame.timecode == first.advanced(static_cast<qint64>(i % length)));
        }
        if (channels == 0 || i >= length)
            continue;
        // Sound and picture began together: the samples count on through the frames.
        const std::int64_t start =
            picture::samplesBeforeFrame(static_cast<std::int64_t>(i), rate.num(), rate.den());
        const int off = name.endsWith(QLatin1String(".mkv")) ? 48 : 1; // as exact as the time stamps
        const int difference = upperSample(frame.sound, 0) - countingSample(start);
        QVERIFY2(std::abs(difference) <= off, qPrintable(QString::number(difference)));
    }
}

void TestInput::aFileThatComesLaterIsFound()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("later.mov"));
    const auto input = createInput(path);
    StatusLog log;
    input->start(log.handler());
    QVERIFY(makeFile(folder.filePath(QStringLiteral("made.mov")), MediaSpec(), 5));
    QVERIFY(QFile::rename(folder.filePath(QStringLiteral("made.mov")), path));
    QVERIFY(waitFor([&] { return log.last().valid; }));
    QCOMPARE(takeFrames(*input, 3).size(), std::size_t {3});
}

void TestInput::aFileWithoutPicturesIsPresentAndNotValid()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("sound.wav"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    const char header[] = "RIFF\x24\x08\0\0WAVEfmt \x10\0\0\0\1\0\2\0\x80\xbb\0\0\0\xee\2\0\4\0\x10\0data\0\x08\0\0";
    file.write(header, sizeof header - 1);
    file.write(QByteArray(2048, '\0'));
    file.close();
    const auto input = createInput(path);
    StatusLog log;
    input->start(log.handler());
    QVERIFY(waitFor([&] { return log.last().present; }));
    QVERIFY(!log.last().valid);
    QVERIFY(!log.last().problem.isEmpty());
}

void TestInput::aDamagedFileNeverCrashes()
{
    QTemporaryDir folder;
    for (const char *name : {"d.ts", "d.mov"}) {
        const QString good = folder.filePath(QLatin1String(name));
        MediaSpec spec;
        spec.width = 192;
        spec.height = 128;
        QVERIFY(makeFile(good, spec, 12));
        QFile file(good);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        std::mt19937 random(4);
        for (int round = 0; round < 12; ++round) {
            QByteArray bad = bytes;
            for (int i = 0; i < 40; ++i)
                bad[static_cast<qsizetype>(random() % static_cast<unsigned>(bad.size()))] =
                    static_cast<char>(random());
            QFile damaged(folder.filePath(QStringLiteral("bad%1").arg(round)));
            QVERIFY(damaged.open(QIODevice::WriteOnly));
            damaged.write(bad);
            damaged.close();
            std::atomic<bool> heard = false;
            const auto input = createInput(damaged.fileName());
            input->start([&heard](const InputStatus &) { heard = true; });
            QElapsedTimer timer; // it may deliver, or never say anything
            timer.start();
            InputFrame frame;
            while (!input->take(frame) && !heard && !timer.hasExpired(300))
                QThread::usleep(500);
        }
    }
}

void TestInput::whatNobodyTakesGoesOldestFirst()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("a.mov"));
    MediaSpec spec;
    spec.rate = {50, 1};
    spec.channels = 0;
    QVERIFY(makeFile(path, spec, 30));
    const auto input = createInput(path);
    StatusLog log;
    input->start(log.handler());
    QVERIFY(waitFor([&] { return input->overruns() >= 5; }));
    QCOMPARE(input->waiting(), 20);
    InputFrame frame;
    QVERIFY(input->take(frame));
    QVERIFY(frame.number >= 5);
    const quint64 first = frame.number;
    QVERIFY(input->take(frame));
    QCOMPARE(frame.number, first + 1);
}

namespace {

/// Feeds a bus like a camera.
class Feeder
{
public:
    explicit Feeder(const std::string &name) : _name(name) {}
    bool open() { return _writer.open(_name); }
    void close() { _writer.close(); }
    void publish(std::uint32_t number, const bus::Format &format, bool recordFlag)
    {
        const picture::View view = _writer.beginFrame(format);
        const picture::MovingPattern pattern(format.width, format.height);
        pattern.draw(view, number);
        bus::FrameInfo info;
        info.content = bus::Content::Live;
        info.tcHour = 1;
        info.tcSec = 2;
        info.tcFrame = static_cast<std::int8_t>(number % 25);
        info.tcFps = 25;
        info.tcFlags = OrbTimecode::Valid;
        info.recordFlag = recordFlag;
        info.samples = 1920;
        std::memset(_writer.audioSlot(), static_cast<int>(number), 1920U * 3U * 2U);
        _writer.publish(info);
    }

private:
    std::string _name;
    bus::Writer _writer;
};

std::string busName()
{
    return "/rv_tst_input_" + std::to_string(QCoreApplication::applicationPid());
}

} // namespace

void TestInput::aBusDeliversPictureSoundTimecodeAndFlag()
{
    const auto input = createInput(QString::fromStdString("bus:" + busName()));
    QVERIFY(input->isPaced());
    StatusLog log;
    input->start(log.handler()); // the bus is not there yet
    Feeder feeder(busName());
    QVERIFY(feeder.open());
    const bus::Format format = {720, 576, 25, 1, 1, 2};
    std::uint32_t number = 0;
    QVERIFY(waitFor([&] {
        feeder.publish(number++, format, false);
        QThread::msleep(10);
        return log.last().valid;
    }));
    InputFrame frame;
    while (input->take(frame)) { }
    for (std::uint32_t i = 100; i < 110; ++i) {
        feeder.publish(i, format, i % 2 != 0);
        const auto frames = takeFrames(*input, 1);
        QCOMPARE(frames.size(), std::size_t {1});
        if (frames[0].bar < 100)
            continue; // one of those before
        const InputFrame &taken = frames[0].frame;
        QCOMPARE(frames[0].bar, std::int64_t {i});
        QCOMPARE(taken.sound, QByteArray(1920 * 6, static_cast<char>(i)));
        QCOMPARE(taken.channels, 2);
        QVERIFY(taken.timecode == OrbTimecode(1, 0, 2, static_cast<int>(i % 25), 25, 0));
        QVERIFY(taken.hasRecordFlag);
        QCOMPARE(taken.recordFlag, i % 2 != 0);
    }
    QCOMPARE(log.last().format.size(), QSize(720, 576));
    QVERIFY(log.last().format.isInterlaced());
    QCOMPARE(log.last().format.frameRate().num(), 25);
    bus::Writer::remove(busName());
}

void TestInput::aBusThatGoesAndComesBackIsFollowed()
{
    const auto input = createInput(QString::fromStdString("bus:" + busName()));
    StatusLog log;
    input->start(log.handler());
    const bus::Format first = {720, 576, 25, 1, 1, 2};
    const bus::Format second = {1280, 720, 50, 1, 0, 2};
    for (const bus::Format &format : {first, second}) {
        Feeder feeder(busName());
        QVERIFY(feeder.open());
        QVERIFY(waitFor([&] {
            feeder.publish(7, format, false);
            QThread::msleep(10);
            return log.last().valid && log.last().format.width() == format.width;
        }));
        feeder.close();
        QVERIFY(waitFor([&] { return !log.last().present; }));
    }
    InputFrame frame;
    InputFrame newest;
    while (input->take(frame))
        newest = frame;
    QCOMPARE(newest.picture->view.width, 1280);
    bus::Writer::remove(busName());
}

QTEST_GUILESS_MAIN(TestInput)
#include "tst_input.moc"
