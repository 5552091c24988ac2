#include "prorestools.h"

#include "libprores/fixedlog.h"
#include "libprores/ratecontrol.h"

#include <QtTest>

using namespace prorestest;

// Frames take the usual bytes, and none more than the profile allows.
class ProresRate : public QObject
{
    Q_OBJECT

private slots:
    void usualSizesAreThePublishedDataRates_data();
    void usualSizesAreThePublishedDataRates();
    void everyProfileKeepsItsRateFromTheFirstFrame_data();
    void everyProfileKeepsItsRateFromTheFirstFrame();
    void noCutMakesAFrameTooLarge_data();
    void noCutMakesAFrameTooLarge();
    void noiseNeverExceedsTheLargestSize_data();
    void noiseNeverExceedsTheLargestSize();
    void easyPicturesStayBelowAtTheFinestScale();
    void restartedItCodesAsIfNothingHadBeen();
    void alphaComesOnTopOfTheRate();
    void fractionalScalesMixTheirNeighbours();
    void logarithmsInIntegersAreRight();
};

namespace {

struct Raster {
    const char *name;
    int width;
    int height;
    Scan scan;
    double rate;
    double megabits[5]; // by profile
};

// clang-format off
constexpr Raster published[] = {
    // raster                 lines             frames/s   Proxy   LT   422   HQ   4444
    {"576i25",      720,  576, Scan::TopFirst,    25,      {12,   28,   41,   61,   92}},
    {"486i29.97",   720,  486, Scan::BottomFirst, 29.97,   {12,   29,   42,   63,   94}},
    {"720p59.94",  1280,  720, Scan::Progressive, 59.94,   {45,  101,  147,  220,  330}},
    {"1080p23.98", 1920, 1080, Scan::Progressive, 23.976,  {36,   82,  117,  176,  264}},
    {"1080i25",    1920, 1080, Scan::TopFirst,    25,      {38,   85,  122,  184,  275}},
    {"1080p29.97", 1920, 1080, Scan::Progressive, 29.97,   {45,  102,  147,  220,  330}},
    {"1080p59.94", 1920, 1080, Scan::Progressive, 59.94,   {91,  204,  293,  440,  660}},
    {"2160p29.97", 3840, 2160, Scan::Progressive, 29.97,  {182,  410,  589,  884, 1326}},
    {"2160p59.94", 3840, 2160, Scan::Progressive, 59.94,  {363,  821, 1178, 1768, 2652}},
    {"4096x2160",  4096, 2160, Scan::Progressive, 29.97,  {194,  437,  629,  943, 1414}},
};
// clang-format on

constexpr Profile profiles[] = {Profile::Proxy, Profile::Lt, Profile::Standard, Profile::Hq, Profile::P4444};

} // namespace

void ProresRate::usualSizesAreThePublishedDataRates_data()
{
    QTest::addColumn<int>("row");
    for (int i = 0; i < static_cast<int>(std::size(published)); ++i)
        QTest::newRow(published[i].name) << i;
}

// Published numbers are whole megabits.
void ProresRate::usualSizesAreThePublishedDataRates()
{
    QFETCH(const int, row);
    const Raster &raster = published[row];
    for (const Profile profile : profiles) {
        const Format format = formatOf(profile, raster.width, raster.height, raster.scan);
        const double megabits = static_cast<double>(usualFrameBytes(format)) * 8 * raster.rate / 1e6;
        const double expected = raster.megabits[static_cast<int>(profile)];
        QVERIFY2(std::abs(megabits - expected) <= 0.6 + expected * 0.02, qPrintable(QString::number(megabits)));
        QVERIFY(largestFrameBytes(format) > usualFrameBytes(format));
    }
}

void ProresRate::everyProfileKeepsItsRateFromTheFirstFrame_data()
{
    QTest::addColumn<Format>("format");
    for (const Profile profile : profiles) {
        for (const Scan scan : {Scan::Progressive, Scan::TopFirst})
            QTest::addRow("profile %d, scan %d", static_cast<int>(profile), static_cast<int>(scan))
                << formatOf(profile, 720, 320, scan);
    }
}

void ProresRate::everyProfileKeepsItsRateFromTheFirstFrame()
{
    QFETCH(const Format, format);
    const auto usual = static_cast<double>(usualFrameBytes(format));
    std::vector<OwnPicture> pictures;
    for (int i = 0; i < 4; ++i)
        pictures.push_back(naturalLike(format, i, 60));
    Encoder encoder(format);
    double sum = 0;
    for (std::size_t i = 0; i < 28; ++i) {
        FrameReport report;
        encode(encoder, pictures[i % pictures.size()], &report);
        QCOMPARE(report.passes, 1);
        QVERIFY(report.bytes <= largestFrameBytes(format));
        const double ratio = static_cast<double>(report.bytes) / usual;
        QVERIFY2(std::abs(ratio - 1) < (i == 0 ? 0.05 : 0.025), qPrintable(QString::number(ratio)));
        sum += i < 3 ? 0 : ratio;
    }
    QVERIFY2(std::abs(sum / 25 - 1) < 0.01, qPrintable(QString::number(sum / 25)));
}

void ProresRate::noCutMakesAFrameTooLarge_data()
{
    QTest::addColumn<Format>("format");
    for (const Profile profile : profiles)
        QTest::addRow("profile %d", static_cast<int>(profile)) << formatOf(profile, 720, 320);
}

void ProresRate::noCutMakesAFrameTooLarge()
{
    QFETCH(const Format, format);
    const OwnPicture flat(format);
    const OwnPicture easy = naturalLike(format, 1, 0);
    const OwnPicture grain = naturalLike(format, 2, 20);
    const OwnPicture hard = naturalLike(format, 3, 200);
    const OwnPicture noisy = noise(format, 4);
    const std::initializer_list<const OwnPicture *> story = {&flat, &hard, &flat, &noisy, &easy, &grain, &noisy,
                                                             &grain, &hard, &easy, &easy, &hard};
    Encoder encoder(format);
    Judge judge(format);
    for (const OwnPicture *picture : story) {
        FrameReport report;
        const QByteArray frame = encode(encoder, *picture, &report);
        QVERIFY(report.bytes > 0);
        QVERIFY(report.bytes <= largestFrameBytes(format));
        QVERIFY(report.passes <= 2);
        const double ratio = static_cast<double>(report.bytes) / static_cast<double>(usualFrameBytes(format));
        QVERIFY2(report.scale <= 1.0 || ratio > 0.9, qPrintable(QString::number(ratio)));
        QVERIFY(judge.decode(frame) != nullptr);
    }
    QCOMPARE(Judge::said(), QString());
}

void ProresRate::noiseNeverExceedsTheLargestSize_data()
{
    QTest::addColumn<Format>("format");
    struct Size {
        int width;
        int height;
    };
    for (const Profile profile : {Profile::Proxy, Profile::Hq, Profile::P4444}) {
        for (const Size size : {Size {2, 2}, {16, 16}, {16, 512}, {130, 66}, {256, 96}})
            QTest::addRow("profile %d, %dx%d", static_cast<int>(profile), size.width, size.height)
                << formatOf(profile, size.width, size.height);
    }
}

void ProresRate::noiseNeverExceedsTheLargestSize()
{
    QFETCH(const Format, format);
    OwnPicture picture(format);
    std::mt19937 random(6);
    for (auto &plane : picture.samples)
        std::ranges::generate(plane, [&] { return random() % 2 != 0 ? std::uint16_t {1023} : std::uint16_t {0}; });
    Encoder encoder(format);
    Judge judge(format);
    for (int i = 0; i < 3; ++i) {
        const QByteArray frame = encode(encoder, picture);
        QVERIFY(!frame.isEmpty());
        QVERIFY(static_cast<std::size_t>(frame.size()) <= largestFrameBytes(format));
        QVERIFY(judge.decode(frame) != nullptr);
    }
    QCOMPARE(Judge::said(), QString());
}

void ProresRate::easyPicturesStayBelowAtTheFinestScale()
{
    const Format format = formatOf(Profile::Hq, 720, 320);
    const OwnPicture flat(format);
    Encoder encoder(format);
    FrameReport report;
    for (int i = 0; i < 4; ++i)
        encode(encoder, flat, &report);
    QCOMPARE(report.scale, 1.0);
    QVERIFY(report.bytes * 10 < usualFrameBytes(format));
}

void ProresRate::restartedItCodesAsIfNothingHadBeen()
{
    const Format format = formatOf(Profile::Standard, 720, 320);
    Encoder encoder(format);
    QByteArrayList first;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 3; ++i) {
            const QByteArray frame = encode(encoder, naturalLike(format, i, 60));
            if (round == 0)
                first.append(frame);
            else
                QCOMPARE(frame, first.at(i));
        }
        encode(encoder, noise(format, 5));
        encoder.restart();
    }
}

void ProresRate::alphaComesOnTopOfTheRate()
{
    Format format = formatOf(Profile::P4444, 480, 256);
    Encoder without(format);
    const QByteArray plain = encode(without, naturalLike(format, 1, 60));
    format.hasAlpha = true;
    Encoder with(format);
    const QByteArray alpha = encode(with, naturalLike(format, 1, 60));
    // Each slice's header is two bytes longer, too.
    QVERIFY(alpha.size() > plain.size() + 480 * 256 / 4);
    const Format half = formatOf(Profile::P4444, 480, 256);
    QVERIFY(plain.size() > static_cast<qsizetype>(usualFrameBytes(half)) * 9 / 10);
}

void ProresRate::fractionalScalesMixTheirNeighbours()
{
    RateControl rate(1000);
    for (int i = 0; i < 80; ++i) {
        int sum = 0;
        int least = 1000;
        int most = 0;
        for (int slice = 0; slice < 1020; ++slice) {
            const int index = rate.index(slice);
            sum += scaleOf(index);
            least = std::min(least, index);
            most = std::max(most, index);
        }
        QVERIFY(most - least <= 1);
        QVERIFY(least >= 1 && most <= 224);
        QVERIFY(std::abs(sum / 1020.0 - rate.scale()) < 0.03);
        rate.tighten(1100, {1100, 900});
    }
    QCOMPARE(rate.scale(), 512.0);
    QVERIFY(!rate.tighten(1100, {1100, 900}));
}

void ProresRate::logarithmsInIntegersAreRight()
{
    for (std::uint64_t value = 1; value < std::uint64_t {1} << 40; value = value * 5 / 3 + 1)
        QVERIFY(std::abs(static_cast<double>(fixedLog2(value)) / 65536 - std::log2(static_cast<double>(value))) < 1e-4);
    for (std::int64_t exponent = 0; exponent <= 9 * 65536; exponent += 331) {
        const double exact = std::exp2(static_cast<double>(exponent) / 65536) * 65536;
        QVERIFY(std::abs(static_cast<double>(fixedExp2(exponent)) / exact - 1) < 2e-5);
    }
}

QTEST_APPLESS_MAIN(ProresRate)
#include "tst_prores_rate.moc"
