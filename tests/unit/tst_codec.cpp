#include "liborb/drivers/software/decoder.h"
#include "liborb/drivers/software/encoder.h"
#include "libpicture/framebar.h"
#include "libpicture/patterns.h"

#include "liborb/orb.h"
#include "liborb/orblog.h"

#include <QCryptographicHash>
#include <QTest>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

using namespace ferin;

namespace {

constexpr int patienceMs = 60'000; ///< far beyond any coding time: only a hang comes here

OrbImageDesc format(int width, int height, OrbImageDesc::ScanMode scan, OrbIdValue dataType,
                    int rate = 25)
{
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setAspectRatio(width, height);
    desc.setFrameRate(rate, 1);
    desc.setScanMode(scan);
    desc.setDataType(dataType);
    return desc;
}

/// The moving pattern; interlaced, each field shows its own instant.
void draw(const picture::View &view, std::uint32_t number, bool interlaced)
{
    const picture::MovingPattern pattern(view.width, view.height);
    pattern.draw(view, number);
    if (!interlaced)
        return;
    RawPicturePool pool(view.width, view.height, 1);
    const RawPictureRef next = pool.take();
    pattern.draw(next->view, number + 1);
    for (int p = 0; p < 3; ++p) {
        const std::size_t bytes = sizeof(std::uint16_t) * static_cast<std::size_t>(p == 0 ? view.width
                                                                                          : view.width / 2);
        for (int y = picture::frameBarHeight + 1; y < view.height; y += 2)
            std::memcpy(view.line(p, y), next->view.line(p, y), bytes);
    }
}

double psnr(const picture::View &a, const picture::View &b, int plane)
{
    const int width = plane == 0 ? a.width : a.width / 2;
    double sum = 0;
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double difference = double {1.0} * a.line(plane, y)[x] - b.line(plane, y)[x];
            sum += difference * difference;
        }
    }
    if (sum == 0)
        return 100.0;
    return 10 * std::log10(1023.0 * 1023.0 * width * a.height / sum);
}

void addNoise(const picture::View &view, unsigned range)
{
    std::mt19937 random(17);
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < view.height; ++y) {
            for (int x = 0; x < (p == 0 ? view.width : view.width / 2); ++x) {
                const unsigned is = view.line(p, y)[x] + random() % range;
                view.line(p, y)[x] = static_cast<std::uint16_t>(std::clamp(is, 64U, 940U));
            }
        }
    }
}

QByteArray bytesOf(const OrbBuffer &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer.data()), static_cast<qsizetype>(buffer.size()));
}

OrbBuffer bufferOf(const QByteArray &bytes)
{
    OrbBuffer buffer(static_cast<quint32>(bytes.size()), 0);
    std::memcpy(buffer.data(), bytes.constData(), static_cast<std::size_t>(bytes.size()));
    return buffer;
}

RawPictureRef pictureOf(const OrbImageDesc &desc, std::uint32_t number)
{
    RawPicturePool pool(desc.width(), desc.height(), 1);
    RawPictureRef raw = pool.take();
    draw(raw->view, number, desc.isInterlaced());
    return raw;
}

} // namespace

class TestCodec : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void picturesAreCountedAndComeBack();
    void picturesOutliveTheirPool();
    void memoryIsUsedAgain();
    void picturesAreReadyBeforeTheyAreTaken();
    void impossibleRastersHaveNoPictures();

    void codedPicturesDecodeToThemselves_data();
    void codedPicturesDecodeToThemselves();
    void theBitstreamSaysHowItIsScanned();
    void theBetterTheProResTheLargerThePicture();
    void aPromiseThatNobodyRequestsCodesNothing();
    void theSamePictureGivesTheSameBytesOnAnyWorker_data();
    void theSamePictureGivesTheSameBytesOnAnyWorker();
    void manyRequestsAllEndAndStayInTheirBuffers();
    void formatsThatCannotBeCodedAreRefused_data();
    void formatsThatCannotBeCodedAreRefused();
    void aPictureOfAnotherRasterFailsAndIsLoggedOnce();
    void whatWaitsWhenThePoolGoesFails();
    void aPromiseOutlivesThePoolAndFails();

    void damagedBitstreamsNeverCrash_data();
    void damagedBitstreamsNeverCrash();
    void emptyFailedAndForeignImagesHaveNoPicture();
    void aCancelledJobEndsWithoutAPicture();
    void aDecoderWaitsForPicturesToComeBack();
    void aPictureOfAnotherSizeIsScaled();
};

void TestCodec::initTestCase()
{
    Orb::init(0);
}

void TestCodec::picturesAreCountedAndComeBack()
{
    RawPicturePool pool(1280, 720, 2);
    QCOMPARE(pool.count(), 2);
    RawPictureRef a = pool.take();
    RawPictureRef b = pool.take();
    QVERIFY(a && b);
    QCOMPARE(pool.inUse(), 2);
    QVERIFY(!pool.take());
    QVERIFY(!pool.take(1));
    a.reset();
    QCOMPARE(pool.inUse(), 1);
    QVERIFY(pool.take(1));
}

void TestCodec::picturesOutliveTheirPool()
{
    auto pool = std::make_unique<RawPicturePool>(720, 486, 1);
    const RawPictureRef raw = pool->take();
    pool.reset();
    draw(raw->view, 77, false);
    QCOMPARE(picture::readFrameNumber(raw->view).value_or(0), 77U);
}

void TestCodec::memoryIsUsedAgain()
{
    RawPicturePool pool(1920, 1080, 3);
    const std::uint16_t *first = pool.take()->view.plane[0];
    for (int i = 0; i < 5; ++i) {
        const RawPictureRef again = pool.take();
        QCOMPARE(again->view.plane[0], first);
        for (int p = 0; p < 3; ++p) {
            QCOMPARE(reinterpret_cast<std::uintptr_t>(again->view.plane[p]) % 64, std::uintptr_t {0});
            QCOMPARE(again->view.stride[p] * 2 % 64, 0);
        }
    }
}

void TestCodec::picturesAreReadyBeforeTheyAreTaken()
{
    RawPicturePool pool(1280, 720, 5);
    QCOMPARE(pool.ready(), 0);
    pool.keepReady(2);
    QTRY_COMPARE(pool.ready(), 2);
    QCOMPARE(pool.inUse(), 0);
    std::vector<RawPictureRef> taken;
    taken.push_back(pool.take());
    QTRY_COMPARE(pool.ready(), 2);
    taken.push_back(pool.take());
    taken.push_back(pool.take());
    QTRY_COMPARE(pool.ready(), 2); // the last two of five
    taken.push_back(pool.take());
    taken.push_back(pool.take());
    QVERIFY(taken.back());
    QVERIFY(!pool.take(1));
    taken.clear();
    QCOMPARE(pool.ready(), 5); // what has been made stays
}

void TestCodec::impossibleRastersHaveNoPictures()
{
    for (const QSize &raster : {QSize(0, 0), QSize(-2, 10), QSize(721, 486), QSize(1 << 20, 2)})
        QVERIFY(!RawPicturePool(raster.width(), raster.height(), 4).take());
}

void TestCodec::codedPicturesDecodeToThemselves_data()
{
    QTest::addColumn<OrbImageDesc>("desc");
    QTest::addColumn<double>("lumaFloor");
    QTest::addColumn<double>("chromaFloor");

    struct Type {
        const char *name;
        OrbIdValue type;
        double lumaFloor, chromaFloor; // dB
    };
    struct Raster {
        const char *name;
        int width, height;
        OrbImageDesc::ScanMode scan;
    };
    // clang-format off
    static constexpr Type types[] = {
        {"ProRes 422",       OrbIdImageProRes422,      52.0,  50.0},
        {"ProRes 422 HQ",    OrbIdImageProRes422Hq,    58.0,  55.0},
        {"ProRes 422 LT",    OrbIdImageProRes422Lt,    46.0,  44.0},
        {"ProRes 422 Proxy", OrbIdImageProRes422Proxy, 37.0,  36.0},
        {"ProRes 4444",      OrbIdImageProRes4444,     60.0,  56.0}, // chroma is doubled and halved again
        {"DNx HQX",          OrbIdImageDnxHqx,         57.0,  55.0},
        {"v210",             OrbIdImageV210,          100.0, 100.0},
    };
    static constexpr Raster rasters[] = {
        {"1080p", 1920, 1080, OrbImageDesc::Progressive},
        {"1080i", 1920, 1080, OrbImageDesc::Interlaced},
        {"486i",   720,  486, OrbImageDesc::Interlaced},
        {"576i",   720,  576, OrbImageDesc::Interlaced},
        {"720p",  1280,  720, OrbImageDesc::Progressive},
        {"2Kpsf", 2048, 1080, OrbImageDesc::SegmentedFrame},
    };
    // clang-format on
    for (const Type &type : types) {
        for (const Raster &raster : rasters) {
            QTest::addRow("%s %s", type.name, raster.name)
                << format(raster.width, raster.height, raster.scan, type.type) << type.lumaFloor
                << type.chromaFloor;
        }
    }
}

void TestCodec::codedPicturesDecodeToThemselves()
{
    QFETCH(OrbImageDesc, desc);
    QFETCH(double, lumaFloor);
    QFETCH(double, chromaFloor);
    QVERIFY(EncoderPool::canCode(desc));

    EncoderPool coders(1);
    DecoderPool decoders(1);
    const RawPictureRef raw = pictureOf(desc, 0x1234567);
    OrbBuffer coded = coders.promise(raw, desc);
    QVERIFY(coded.isValid());
    QVERIFY(!coded.isReady());
    coded.request();
    QVERIFY(coded.wait());
    QVERIFY(coded.size() > 0);
    QCOMPARE(coders.stats().coded, quint64 {1});

    const std::shared_ptr<DecodeJob> job = decoders.decode(OrbImage(desc, coded));
    QVERIFY(job->wait(patienceMs));
    QVERIFY(job->isDone());
    const RawPictureRef back = job->picture();
    QVERIFY(back);
    QCOMPARE(back->view.width, desc.width());
    QCOMPARE(back->view.height, desc.height());
    QCOMPARE(picture::readFrameNumber(back->view).value_or(0), 0x1234567U);
    for (int p = 0; p < 3; ++p) {
        const double floor = p == 0 ? lumaFloor : chromaFloor;
        const double is = psnr(raw->view, back->view, p);
        QVERIFY2(is >= floor, qPrintable(QStringLiteral("plane %1: %2 dB").arg(p).arg(is)));
        qDebug("%u bytes, plane %d: %.1f dB", coded.size(), p, is);
    }
}

void TestCodec::theBitstreamSaysHowItIsScanned()
{
    struct Row {
        int width, height;
        OrbImageDesc::ScanMode scan;
        int mode; // of a ProRes frame header: 0 progressive, 1 top field first, 2 bottom field first
    };
    static constexpr Row rows[] = {
        {1920, 1080, OrbImageDesc::Progressive, 0},    {1920, 1080, OrbImageDesc::Interlaced, 1},
        {1920, 1080, OrbImageDesc::SegmentedFrame, 0}, {720, 576, OrbImageDesc::Interlaced, 1},
        {720, 486, OrbImageDesc::Interlaced, 2},
    };
    EncoderPool coders(1);
    for (const Row &row : rows) {
        for (const OrbIdValue type : {OrbIdImageProRes422, OrbIdImageProRes4444}) {
            const OrbImageDesc desc = format(row.width, row.height, row.scan, type);
            const OrbBuffer coded = coders.promise(pictureOf(desc, 1), desc);
            QVERIFY(coded.wait());
            const QByteArray bytes = bytesOf(coded);
            QCOMPARE(bytes.mid(4, 4), QByteArray("icpf"));
            QCOMPARE((static_cast<uchar>(bytes[8 + 12]) >> 2) & 3, row.mode);
            const bool isSd = row.height < 600;
            QCOMPARE(static_cast<int>(bytes[8 + 16]), isSd ? 6 : 1); // colour matrix
        }
    }
}

void TestCodec::theBetterTheProResTheLargerThePicture()
{
    EncoderPool coders(1);
    const RawPictureRef busy = pictureOf(
        format(1920, 1080, OrbImageDesc::Progressive, OrbIdImageProRes422), 1);
    addNoise(busy->view, 60);
    quint32 last = 0;
    for (const OrbIdValue type : {OrbIdImageProRes422Proxy, OrbIdImageProRes422Lt, OrbIdImageProRes422,
                                  OrbIdImageProRes422Hq, OrbIdImageProRes4444}) {
        const OrbBuffer coded = coders.promise(busy, format(1920, 1080, OrbImageDesc::Progressive, type));
        QVERIFY(coded.wait());
        qInfo("%s: %u bytes", qPrintable(OrbId(type).name()), coded.size());
        QVERIFY(coded.size() > last + last / 8);
        last = coded.size();
    }
}

void TestCodec::aPromiseThatNobodyRequestsCodesNothing()
{
    const OrbImageDesc desc = format(1280, 720, OrbImageDesc::Progressive, OrbIdImageProRes422);
    EncoderPool coders(1);
    RawPicturePool pool(1280, 720, 1);
    {
        const OrbBuffer promise = coders.promise(pool.take(), desc);
        QVERIFY(promise.isValid());
        QCOMPARE(pool.inUse(), 1);
    }
    QCOMPARE(pool.inUse(), 0);
    QCOMPARE(coders.stats().coded, quint64 {0});
    QVERIFY(!coders.promise(nullptr, desc).isValid());
}

void TestCodec::theSamePictureGivesTheSameBytesOnAnyWorker_data()
{
    QTest::addColumn<OrbImageDesc>("desc");
    for (const OrbIdValue type : {OrbIdImageProRes422, OrbIdImageProRes422Hq, OrbIdImageProRes422Lt,
                                  OrbIdImageProRes422Proxy, OrbIdImageProRes4444, OrbIdImageDnxHqx,
                                  OrbIdImageV210}) {
        for (const auto scan : {OrbImageDesc::Progressive, OrbImageDesc::Interlaced}) {
            const OrbImageDesc desc = format(1920, 1080, scan, type);
            QTest::newRow(qPrintable(desc.toString())) << desc;
        }
    }
}

void TestCodec::theSamePictureGivesTheSameBytesOnAnyWorker()
{
    QFETCH(OrbImageDesc, desc);
    const RawPictureRef wanted = pictureOf(desc, 4711);
    const RawPictureRef bars = pictureOf(desc, 1);
    picture::drawBars(bars->view);
    const RawPictureRef noise = pictureOf(desc, 2);
    addNoise(noise->view, 500);
    EncoderPool fresh(1);
    const OrbBuffer reference = fresh.promise(wanted, desc);
    QVERIFY(reference.wait());
    EncoderPool used(1);
    for (const RawPictureRef &before : {bars, noise}) {
        QVERIFY(used.promise(before, desc).wait());
        const OrbBuffer again = used.promise(wanted, desc);
        QVERIFY(again.wait());
        QVERIFY(bytesOf(again) == bytesOf(reference));
    }
}

void TestCodec::manyRequestsAllEndAndStayInTheirBuffers()
{
    constexpr int pictures = 24;
    const OrbImageDesc desc = format(720, 486, OrbImageDesc::Interlaced, OrbIdImageProRes422Lt);
    EncoderPool coders(3);
    DecoderPool decoders(3);
    std::vector<OrbBuffer> coded;
    for (int i = 0; i < pictures; ++i)
        coded.push_back(coders.promise(pictureOf(desc, static_cast<std::uint32_t>(i)), desc));
    for (const OrbBuffer &buffer : coded)
        buffer.request();
    std::vector<std::shared_ptr<DecodeJob>> jobs;
    for (const OrbBuffer &buffer : coded)
        jobs.push_back(decoders.decode(OrbImage(desc, buffer)));
    for (int i = 0; i < pictures; ++i) {
        const auto &job = jobs[static_cast<std::size_t>(i)];
        QVERIFY(job->wait(patienceMs));
        QVERIFY(job->picture());
        QCOMPARE(picture::readFrameNumber(job->picture()->view).value_or(999), static_cast<quint32>(i));
    }
    QCOMPARE(coders.stats().coded, quint64 {pictures});
    QCOMPARE(coders.stats().waiting, 0);
    QVERIFY(coders.stats().meanMs > 0);
}

void TestCodec::formatsThatCannotBeCodedAreRefused_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("scan");
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("can");
    QTest::newRow("odd width") << 1921 << 1080 << 0 << 202 << false;
    QTest::newRow("empty") << 0 << 0 << 0 << 202 << false;
    QTest::newRow("no raster") << -1 << -1 << 0 << 202 << false;
    QTest::newRow("huge") << 100'000 << 1080 << 0 << 231 << false;
    QTest::newRow("fields of two heights") << 1920 << 1081 << 1 << 202 << false;
    QTest::newRow("too small for DNxHR") << 128 << 96 << 0 << 230 << false;
    QTest::newRow("RGB") << 1920 << 1080 << 0 << 250 << false;
    QTest::newRow("no data type") << 1920 << 1080 << 0 << 0 << false;
    QTest::newRow("UHD") << 3840 << 2160 << 0 << 203 << true;
    QTest::newRow("4K") << 4096 << 2160 << 0 << 206 << true;
    QTest::newRow("525 lines") << 720 << 486 << 1 << 230 << true;
}

void TestCodec::formatsThatCannotBeCodedAreRefused()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, scan);
    QFETCH(int, type);
    QFETCH(bool, can);
    const OrbImageDesc desc = format(width, height, static_cast<OrbImageDesc::ScanMode>(scan),
                                     static_cast<OrbIdValue>(type));
    QCOMPARE(EncoderPool::canCode(desc), can);
    EncoderPool coders(1);
    const RawPictureRef raw = pictureOf(
        format(720, 486, OrbImageDesc::Progressive, OrbIdImageProRes422), 1);
    if (!can) // promised all the same, it fails and does no harm
        QVERIFY(!coders.promise(raw, desc).wait());
}

void TestCodec::aPictureOfAnotherRasterFailsAndIsLoggedOnce()
{
    const OrbImageDesc small = format(720, 486, OrbImageDesc::Interlaced, OrbIdImageProRes422);
    const OrbImageDesc large = format(1920, 1080, OrbImageDesc::Interlaced, OrbIdImageProRes422);
    std::atomic<int> errors = 0;
    const int sink = OrbLog::defaultLog()->addSink([&errors](int level, const QString &, int, const QString &) {
        errors += level == 1;
    });
    {
        EncoderPool coders(1);
        for (int i = 0; i < 3; ++i) {
            const OrbBuffer coded = coders.promise(pictureOf(small, 5), large);
            QVERIFY(!coded.wait());
            QVERIFY(!coded.isValid());
        }
        QCOMPARE(coders.stats().failed, quint64 {3});
        QVERIFY(coders.promise(pictureOf(large, 5), large).wait()); // the worker goes on
    }
    OrbLog::defaultLog()->removeSink(sink);
    QCOMPARE(errors.load(), 1);
}

void TestCodec::whatWaitsWhenThePoolGoesFails()
{
    const OrbImageDesc desc = format(1920, 1080, OrbImageDesc::Progressive, OrbIdImageDnxHqx);
    RawPicturePool pool(1920, 1080, 8);
    std::vector<OrbBuffer> waiting;
    {
        EncoderPool coders(1);
        for (int i = 0; i < 8; ++i)
            waiting.push_back(coders.promise(pool.take(), desc));
        for (const OrbBuffer &buffer : waiting)
            buffer.request();
    }
    int failed = 0;
    for (const OrbBuffer &buffer : waiting)
        failed += buffer.wait() ? 0 : 1; // nothing hangs
    QVERIFY(failed >= 6); // one or two may have been coded by then
    QCOMPARE(pool.inUse(), 0);
}

void TestCodec::aPromiseOutlivesThePoolAndFails()
{
    const OrbImageDesc desc = format(720, 486, OrbImageDesc::Interlaced, OrbIdImageProRes422);
    OrbBuffer promise;
    {
        EncoderPool coders(1);
        promise = coders.promise(pictureOf(desc, 1), desc);
    }
    QVERIFY(promise.isValid());
    QVERIFY(!promise.wait());
}

void TestCodec::damagedBitstreamsNeverCrash_data()
{
    QTest::addColumn<OrbImageDesc>("desc");
    for (const OrbIdValue type : {OrbIdImageProRes422, OrbIdImageProRes4444, OrbIdImageDnxHqx,
                                  OrbIdImageV210}) {
        for (const QSize &raster : {QSize(720, 486), QSize(1920, 1080)}) {
            const OrbImageDesc desc = format(raster.width(), raster.height(), OrbImageDesc::Interlaced, type);
            QTest::newRow(qPrintable(desc.toString())) << desc;
        }
    }
}

void TestCodec::damagedBitstreamsNeverCrash()
{
    QFETCH(OrbImageDesc, desc);
    EncoderPool coders(1);
    DecoderPool decoders(2);
    const OrbBuffer coded = coders.promise(pictureOf(desc, 99), desc);
    QVERIFY(coded.wait());
    const QByteArray good = bytesOf(coded);
    std::mt19937 random(static_cast<unsigned>(good.size()));
    const int rounds = desc.width() > 1000 ? 24 : 120;
    std::vector<std::shared_ptr<DecodeJob>> jobs;
    for (int round = 0; round < rounds; ++round) {
        QByteArray bad = good;
        const int kind = round % 4;
        if (kind == 0) // the headers, where sizes and counts stand
            for (int i = 0; i < 4; ++i)
                bad[static_cast<qsizetype>(random() % 220)] = static_cast<char>(random());
        else if (kind == 1) // anywhere
            for (int i = 0; i < 50; ++i)
                bad[static_cast<qsizetype>(random() % static_cast<unsigned>(bad.size()))] =
                    static_cast<char>(random());
        else if (kind == 2) // cut short
            bad.truncate(1 + static_cast<qsizetype>(random() % static_cast<unsigned>(bad.size())));
        else // noise behind a good start
            for (qsizetype i = 30; i < bad.size(); ++i)
                bad[i] = static_cast<char>(random());
        jobs.push_back(decoders.decode(OrbImage(desc, bufferOf(bad))));
        if (jobs.size() >= 8) {
            QVERIFY(jobs.front()->wait(patienceMs));
            jobs.erase(jobs.begin());
        }
    }
    for (const auto &job : jobs)
        QVERIFY(job->wait(patienceMs));
    jobs.clear();
    const auto cut = decoders.decode(OrbImage(desc, bufferOf(good.left(good.size() / 3))));
    QVERIFY(cut->wait(patienceMs));
    QVERIFY(!cut->picture());
    const auto whole = decoders.decode(OrbImage(desc, coded)); // the decoders still work
    QVERIFY(whole->wait(patienceMs));
    QVERIFY(whole->picture());
    QCOMPARE(picture::readFrameNumber(whole->picture()->view).value_or(0), 99U);
}

void TestCodec::emptyFailedAndForeignImagesHaveNoPicture()
{
    const OrbImageDesc desc = format(720, 486, OrbImageDesc::Interlaced, OrbIdImageProRes422);
    OrbImageDesc rgb = desc;
    rgb.setDataType(OrbIdImageRgb444);
    OrbImageDesc none;
    none.setDataType(OrbIdImageProRes422);
    const OrbBuffer bytes = bufferOf(QByteArray(1000, 'x'));
    OrbBuffer failed;
    {
        EncoderPool coders(1);
        failed = coders.promise(pictureOf(desc, 1), desc);
    }
    DecoderPool decoders(1);
    for (const OrbImage &image : {OrbImage(), OrbImage(desc, OrbBuffer()), OrbImage(desc, failed),
                                  OrbImage(rgb, bytes), OrbImage(none, bytes), OrbImage(desc, bytes)}) {
        const auto job = decoders.decode(image);
        QVERIFY(job->wait(patienceMs));
        QVERIFY(job->isDone());
        QVERIFY(!job->picture());
    }
}

void TestCodec::aCancelledJobEndsWithoutAPicture()
{
    const OrbImageDesc desc = format(1920, 1080, OrbImageDesc::Progressive, OrbIdImageProRes422Hq);
    EncoderPool coders(1);
    const OrbBuffer coded = coders.promise(pictureOf(desc, 3), desc);
    QVERIFY(coded.wait());
    std::vector<std::shared_ptr<DecodeJob>> jobs;
    {
        DecoderPool decoders(1);
        for (int i = 0; i < 6; ++i)
            jobs.push_back(decoders.decode(OrbImage(desc, coded)));
        jobs.back()->cancel();
        QVERIFY(jobs.back()->isDone());
        QVERIFY(!jobs.back()->picture());
    }
    for (const auto &job : jobs) // those that waited when the pool went are done too
        QVERIFY(job->isDone());
    QVERIFY(!jobs.back()->picture());
}

void TestCodec::aDecoderWaitsForPicturesToComeBack()
{
    constexpr int jobCount = 60; // more than the decoder keeps pictures
    const OrbImageDesc desc = format(720, 486, OrbImageDesc::Interlaced, OrbIdImageProRes422Proxy);
    EncoderPool coders(1);
    const OrbBuffer coded = coders.promise(pictureOf(desc, 8), desc);
    QVERIFY(coded.wait());
    DecoderPool decoders(2);
    std::vector<std::shared_ptr<DecodeJob>> jobs;
    for (int i = 0; i < jobCount; ++i)
        jobs.push_back(decoders.decode(OrbImage(desc, coded)));
    for (auto &job : jobs) {
        QVERIFY(job->wait(patienceMs));
        QVERIFY(job->picture());
        job.reset();
    }
}

void TestCodec::aPictureOfAnotherSizeIsScaled()
{
    const OrbImageDesc small = format(960, 540, OrbImageDesc::Progressive, OrbIdImageProRes422Hq);
    const OrbImageDesc large = format(1920, 1080, OrbImageDesc::Progressive, OrbIdImageProRes422Hq);
    EncoderPool coders(1);
    const OrbBuffer coded = coders.promise(pictureOf(large, 6), large);
    QVERIFY(coded.wait());
    DecoderPool decoders(1);
    const auto job = decoders.decode(OrbImage(small, coded));
    QVERIFY(job->wait(patienceMs));
    QVERIFY(job->picture());
    QCOMPARE(job->picture()->view.width, 960);
    QCOMPARE(picture::readFrameNumber(job->picture()->view).value_or(0), 6U);
}

QTEST_APPLESS_MAIN(TestCodec)
#include "tst_codec.moc"
