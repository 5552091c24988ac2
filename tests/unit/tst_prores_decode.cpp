#include "libprores/geometry.h"

#include "proresdecoding.h"

#include <QtTest>

#include <atomic>
#include <cstdlib>
#include <new>

using namespace prorestest;

static std::atomic<int> allocations = 0;

void *operator new(std::size_t size)
{
    ++allocations;
    void *memory = std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

// The decoder gives what FFmpeg's gives, sample by sample.
class ProresDecode : public QObject
{
    Q_OBJECT

private slots:
    void everyFormatDecodesAsFfmpegDecodesIt_data();
    void everyFormatDecodesAsFfmpegDecodesIt();
    void everyIndexAndNoiseDecodeAsFfmpegDecodesThem();
    void framesOfOtherEncodersDecodeAsFfmpegDecodesThem_data();
    void framesOfOtherEncodersDecodeAsFfmpegDecodesThem();
    void anyMatricesAreApplied();
    void matricesMayBeLeftOut();
    void alphaMayBeSkipped();
    void headerIsRead();
    void threadsGiveTheSamePicture();
    void nothingIsAllocatedForAFrame();
    void framesOfAnotherRasterAreRefused();
};

namespace {

constexpr Path paths[] = {Path::Portable, Path::Avx2, Path::Avx512};

// On each path, by every sample.
void compareWithJudge(const QByteArray &frame)
{
    const FrameInfo info = infoOf(frame);
    QVERIFY(info.width > 0);
    Judge judge = tenBitJudge(info);
    const AVFrame *expected = judge.decode(frame);
    QVERIFY(expected != nullptr);
    QCOMPARE(expected->decode_error_flags, 0);
    for (const Path path : paths) {
        DecoderSettings settings;
        settings.path = path;
        Decoder decoder(settings);
        DecodedPlanes own(info);
        const DecodeReport report = decode(decoder, frame, own);
        QVERIFY(report.isSound());
        QVERIFY(report.slices > 0);
        QCOMPARE(farthest(own, *expected, info), 0);
        QVERIFY(own.isWithin());
    }
}

} // namespace

void ProresDecode::everyFormatDecodesAsFfmpegDecodesIt_data()
{
    QTest::addColumn<Format>("format");
    constexpr Profile profiles[] = {Profile::Proxy, Profile::Lt, Profile::Standard, Profile::Hq, Profile::P4444};
    constexpr int sizes[][2] = {{320, 64}, {720, 48}, {240, 20}, {2, 2}, {18, 33}, {114, 50}, {350, 15}, {1280, 34}};
    for (const Profile profile : profiles) {
        for (const auto &size : sizes) {
            for (const Scan scan : {Scan::Progressive, Scan::TopFirst, Scan::BottomFirst}) {
                for (const bool hasAlpha : {false, true}) {
                    if (hasAlpha && profile != Profile::P4444)
                        continue;
                    QTest::addRow("profile %d, %dx%d, scan %d%s", static_cast<int>(profile), size[0], size[1],
                                  static_cast<int>(scan), hasAlpha ? ", alpha" : "")
                        << formatOf(profile, size[0], size[1], scan, hasAlpha);
                }
            }
        }
    }
    QTest::addRow("4444 of odd width") << formatOf(Profile::P4444, 37, 21);
}

void ProresDecode::everyFormatDecodesAsFfmpegDecodesIt()
{
    QFETCH(const Format, format);
    compareWithJudge(encodedAt(format, 2, naturalLike(format)));
}

void ProresDecode::everyIndexAndNoiseDecodeAsFfmpegDecodesThem()
{
    const Format format = formatOf(Profile::Hq, 176, 64);
    for (int index = 1; index <= largestIndex; index += index < 12 ? 1 : 17) {
        compareWithJudge(encodedAt(format, index, noise(format, static_cast<unsigned>(index))));
        compareWithJudge(encodedAt(format, index, naturalLike(format, index, 200)));
    }
}

struct Foreign {
    const char *encoder;
    AVPixelFormat pixels;
    bool isInterlaced;
    const char *options;
};
Q_DECLARE_METATYPE(Foreign)

void ProresDecode::framesOfOtherEncodersDecodeAsFfmpegDecodesThem_data()
{
    QTest::addColumn<Foreign>("foreign");
    const auto p422 = AV_PIX_FMT_YUV422P10;
    const auto p444 = AV_PIX_FMT_YUV444P10;
    const auto alpha = AV_PIX_FMT_YUVA444P10;
    QTest::newRow("aw") << Foreign {"prores_aw", p422, false, ""};
    QTest::newRow("aw, interlaced") << Foreign {"prores_aw", p422, true, ""};
    QTest::newRow("aw 4444 with alpha") << Foreign {"prores_aw", alpha, false, ""};
    QTest::newRow("ks") << Foreign {"prores_ks", p422, false, ""};
    QTest::newRow("ks, interlaced") << Foreign {"prores_ks", p422, true, ""};
    QTest::newRow("ks, slices of 4") << Foreign {"prores_ks", p422, false, "mbs_per_slice=4"};
    QTest::newRow("ks, slices of 2") << Foreign {"prores_ks", p422, false, "mbs_per_slice=2"};
    QTest::newRow("ks, slices of 1") << Foreign {"prores_ks", p444, false, "mbs_per_slice=1"};
    QTest::newRow("ks Proxy") << Foreign {"prores_ks", p422, false, "profile=proxy"};
    QTest::newRow("ks XQ") << Foreign {"prores_ks", p444, true, "profile=4444xq"};
    QTest::newRow("ks 8-bit alpha")
        << Foreign {"prores_ks", alpha, false, "profile=4444:alpha_bits=8"};
    QTest::newRow("ks 16-bit alpha")
        << Foreign {"prores_ks", alpha, false, "profile=4444:alpha_bits=16"};
}

void ProresDecode::framesOfOtherEncodersDecodeAsFfmpegDecodesThem()
{
    QFETCH(const Foreign, foreign);
    for (const auto &[width, height] : {std::pair {720, 96}, {350, 64}}) {
        const QByteArray frame
            = foreignFrame(foreign.encoder, foreign.pixels, width, height, foreign.isInterlaced, foreign.options);
        QVERIFY(!frame.isEmpty());
        compareWithJudge(frame);
    }
}

void ProresDecode::anyMatricesAreApplied()
{
    const Format format = formatOf(Profile::Standard, 208, 48);
    const QByteArray plain = encodedAt(format, 4, naturalLike(format));
    std::mt19937 random(3);
    for (int round = 0; round < 50; ++round) {
        QByteArray frame = plain;
        const unsigned largest = round < 25 ? 63 : 255; // up to what no encoder writes: sums wrap alike
        for (int i = 28; i < 156; ++i)
            frame[i] = static_cast<char>(2 + random() % (largest - 1));
        compareWithJudge(frame);
    }
}

void ProresDecode::matricesMayBeLeftOut()
{
    const Format format = formatOf(Profile::Lt, 208, 48);
    const QByteArray plain = encodedAt(format, 4, naturalLike(format));
    for (const int flags : {0, 2}) {
        QByteArray frame = plain;
        const int matrices = flags == 2 ? 64 : 0;
        frame.remove(28 + matrices, 128 - matrices);
        frame[9] = static_cast<char>(20 + matrices);
        frame[27] = static_cast<char>(flags);
        for (int i = 0; i < 4; ++i)
            frame[i] = static_cast<char>(frame.size() >> (24 - 8 * i));
        compareWithJudge(frame);
    }
}

void ProresDecode::alphaMayBeSkipped()
{
    const Format format = formatOf(Profile::P4444, 150, 40, Scan::Progressive, true);
    const QByteArray frame = encodedAt(format, 3, naturalLike(format));
    const FrameInfo info = infoOf(frame);
    QCOMPARE(info.alphaBits, 16);
    Decoder decoder;
    DecodedPlanes with(info);
    QVERIFY(decode(decoder, frame, with).isSound());
    DecodedPlanes without(info);
    without.picture.plane[3] = nullptr;
    QVERIFY(decode(decoder, frame, without).isSound());
    for (int p = 0; p < 3; ++p)
        QVERIFY(with.samples[p] == without.samples[p]);
    QVERIFY(std::ranges::all_of(without.samples[3], [](std::uint16_t sample) { return sample == untouched; }));
}

void ProresDecode::headerIsRead()
{
    Format format = formatOf(Profile::P4444, 720, 486, Scan::BottomFirst, true);
    format.rateNumerator = 30000;
    format.rateDenominator = 1001;
    format.aspect = 2;
    format.primaries = 6;
    format.transfer = 18;
    format.matrix = 9;
    const FrameInfo info = infoOf(encodedAt(format, 60, naturalLike(format)));
    QCOMPARE(info.width, 720);
    QCOMPARE(info.height, 486);
    QVERIFY(info.is444);
    QVERIFY(info.scan == Scan::BottomFirst);
    QCOMPARE(info.alphaBits, 16);
    QCOMPARE(int {info.aspect}, 2);
    QCOMPARE(int {info.rate}, 4);
    QCOMPARE(int {info.primaries}, 6);
    QCOMPARE(int {info.transfer}, 18);
    QCOMPARE(int {info.matrix}, 9);
    QCOMPARE(firstLineOf(info.scan, 0), 1);
    QCOMPARE(info.pictureHeight(0), 243);
}

void ProresDecode::threadsGiveTheSamePicture()
{
    for (const Scan scan : {Scan::Progressive, Scan::TopFirst}) {
        const Format format = formatOf(Profile::Hq, 722, 240, scan);
        ThreadPool pool(3);
        Decoder alone;
        Decoder together({}, &pool);
        for (int i = 0; i < 5; ++i) {
            const QByteArray frame = encodedAt(format, 3, naturalLike(format, i));
            DecodedPlanes own(infoOf(frame));
            DecodedPlanes shared(infoOf(frame));
            const DecodeReport report = decode(alone, frame, own);
            const DecodeReport sharedReport = decode(together, frame, shared);
            QVERIFY(report.isSound() && sharedReport.isSound());
            QCOMPARE(sharedReport.slices, report.slices);
            for (int p = 0; p < 3; ++p)
                QVERIFY(own.samples[p] == shared.samples[p]);
        }
    }
}

void ProresDecode::nothingIsAllocatedForAFrame()
{
    const Format format = formatOf(Profile::P4444, 320, 96, Scan::TopFirst, true);
    const QByteArray frame = encodedAt(format, 3, naturalLike(format));
    ThreadPool pool(2);
    for (Workers *workers : {static_cast<Workers *>(nullptr), static_cast<Workers *>(&pool)}) {
        Decoder decoder({}, workers);
        DecodedPlanes to(infoOf(frame));
        QVERIFY(decode(decoder, frame, to).isSound());
        const int before = allocations;
        const DecodeReport report = decode(decoder, frame, to);
        const int after = allocations;
        QVERIFY(report.isSound());
        QVERIFY(before > 0);
        QCOMPARE(after, before);
    }
}

void ProresDecode::framesOfAnotherRasterAreRefused()
{
    const Format format = formatOf(Profile::Hq, 320, 64);
    const QByteArray frame = encodedAt(format, 3, naturalLike(format));
    Decoder decoder;
    FrameInfo other = infoOf(frame);
    const auto isRefused = [&](const FrameInfo &info) {
        DecodedPlanes to(info);
        return !decode(decoder, frame, to).isFrame
            && std::ranges::all_of(to.samples[0], [](std::uint16_t sample) { return sample == untouched; });
    };
    QVERIFY(!isRefused(other));
    other.width = 318;
    QVERIFY(isRefused(other));
    other.width = 320;
    other.height = 63;
    QVERIFY(isRefused(other));
    other.height = 64;
    other.is444 = true;
    QVERIFY(isRefused(other));
    DecodedPlanes missing(infoOf(frame));
    missing.picture.plane[2] = nullptr;
    QVERIFY(!decode(decoder, frame, missing).isFrame);
}

QTEST_APPLESS_MAIN(ProresDecode)
#include "tst_prores_decode.moc"
