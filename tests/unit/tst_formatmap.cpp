#include "app/formatmap.h"
#include "app/shuttle.h"
#include "app/transportstate.h"
#include "logcollector.h"

#include <QSet>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <optional>

/// The format tables row by row, in their order, against a list typed for this test; then what no
/// row knows, the identifiers of every value around the switches, the shuttle ladders and the
/// published speeds.
class TestFormatMap : public QObject
{
    Q_OBJECT
private slots:
    void everyImageFormatHasItsThreeNumbers_data();
    void everyImageFormatHasItsThreeNumbers();
    void whateverElseThereIsGivesOneAndIsLogged();
    void theRateKeyIsDeliberatelyCoarse();
    void everySignalGeneratorFormat_data();
    void everySignalGeneratorFormat();
    void noOtherNumberIsASignalGeneratorFormat();
    void everyIdentifier_data();
    void everyIdentifier();
    void everyDecodeType();
    void theShuttleLadderAtEverySpeed_data();
    void theShuttleLadderAtEverySpeed();
    void thePublishedSpeedAtEveryBoundary_data();
    void thePublishedSpeedAtEveryBoundary();
    void normalPlayIsThreeAndNormalReverseIsNineDeliberately();
};

namespace
{

// clang-format off
struct ImageFormat { int width, height, scan, key, input, media, record; };
constexpr ImageFormat imageFormats[] = {
    {720, 486, 1, 29, 13, 20, 21},
    {720, 576, 1, 25, 14, 21, 22},
    {1280, 720, 0, 50, 12, 18, 19},
    {1280, 720, 0, 59, 11, 17, 18},
    {1280, 720, 0, 60, 10, 16, 17},
    {1920, 1080, 2, 23, 9, 15, 16},
    {1920, 1080, 2, 24, 8, 14, 15},
    {1920, 1080, 2, 25, 7, 13, 14},
    {1920, 1080, 2, 29, 6, 12, 13},
    {1920, 1080, 2, 30, 5, 11, 12},
    {1920, 1080, 1, 25, 4, 4, 5},
    {1920, 1080, 1, 29, 3, 3, 4},
    {1920, 1080, 1, 30, 2, 2, 3},
    {1920, 1080, 0, 23, 22, 29, 30},
    {1920, 1080, 0, 24, 21, 28, 29},
    {1920, 1080, 0, 25, 20, 27, 28},
    {1920, 1080, 0, 29, 19, 26, 27},
    {1920, 1080, 0, 30, 18, 25, 26},
    {1920, 1080, 0, 50, 17, 24, 25},
    {1920, 1080, 0, 59, 16, 23, 24},
    {1920, 1080, 0, 60, 15, 22, 23},
    {2048, 1080, 2, 23, 30, 44, 43},
    {2048, 1080, 2, 24, 29, 43, 42},
    {2048, 1080, 2, 25, 28, 42, 41},
    {2048, 1080, 2, 29, 27, 41, 40},
    {2048, 1080, 2, 30, 26, 40, 39},
    {2048, 1080, 1, 25, 25, 39, 38},
    {2048, 1080, 1, 29, 24, 38, 37},
    {2048, 1080, 1, 30, 23, 37, 36},
    {2048, 1080, 0, 23, 38, 52, 51},
    {2048, 1080, 0, 24, 37, 51, 50},
    {2048, 1080, 0, 25, 36, 50, 49},
    {2048, 1080, 0, 29, 35, 49, 48},
    {2048, 1080, 0, 30, 34, 48, 47},
    {2048, 1080, 0, 50, 33, 47, 46},
    {2048, 1080, 0, 59, 32, 46, 45},
    {2048, 1080, 0, 60, 31, 45, 44},
    {3840, 2160, 2, 23, 46, 60, 59},
    {3840, 2160, 2, 24, 45, 59, 58},
    {3840, 2160, 2, 25, 44, 58, 57},
    {3840, 2160, 2, 29, 43, 57, 56},
    {3840, 2160, 2, 30, 42, 56, 55},
    {3840, 2160, 1, 25, 41, 55, 54},
    {3840, 2160, 1, 29, 40, 54, 53},
    {3840, 2160, 1, 30, 39, 53, 52},
    {3840, 2160, 0, 23, 54, 68, 67},
    {3840, 2160, 0, 24, 53, 67, 66},
    {3840, 2160, 0, 25, 52, 66, 65},
    {3840, 2160, 0, 29, 51, 65, 64},
    {3840, 2160, 0, 30, 50, 64, 63},
    {3840, 2160, 0, 50, 49, 63, 62},
    {3840, 2160, 0, 59, 48, 62, 61},
    {3840, 2160, 0, 60, 47, 61, 60},
    {4096, 2160, 2, 23, 62, 76, 75},
    {4096, 2160, 2, 24, 61, 75, 74},
    {4096, 2160, 2, 25, 60, 74, 73},
    {4096, 2160, 2, 29, 59, 73, 72},
    {4096, 2160, 2, 30, 58, 72, 71},
    {4096, 2160, 1, 25, 57, 71, 70},
    {4096, 2160, 1, 29, 56, 70, 69},
    {4096, 2160, 1, 30, 55, 69, 68},
    {4096, 2160, 0, 23, 70, 84, 83},
    {4096, 2160, 0, 24, 69, 83, 82},
    {4096, 2160, 0, 25, 68, 82, 81},
    {4096, 2160, 0, 29, 67, 81, 80},
    {4096, 2160, 0, 30, 66, 80, 79},
    {4096, 2160, 0, 50, 65, 79, 78},
    {4096, 2160, 0, 59, 64, 78, 77},
    {4096, 2160, 0, 60, 63, 77, 76},
};

struct GeneratorFormat { int value, width, height, scan, num, den, dataType; };
constexpr GeneratorFormat generatorFormats[] = {
    {2, 1280, 720, 0, 50000, 1000, 231},
    {3, 1280, 720, 0, 60000, 1001, 231},
    {7, 1280, 720, 0, 60000, 1000, 231},
    {5, 1920, 1080, 1, 25000, 1000, 231},
    {6, 1920, 1080, 1, 30000, 1001, 231},
    {10, 1920, 1080, 1, 30000, 1000, 231},
    {8, 1920, 1080, 2, 24000, 1001, 231},
    {9, 1920, 1080, 2, 24000, 1000, 231},
    {22, 1920, 1080, 2, 30000, 1001, 231},
    {4, 1920, 1080, 0, 24000, 1001, 231},
    {11, 1920, 1080, 0, 24000, 1000, 231},
    {12, 1920, 1080, 0, 25000, 1000, 231},
    {13, 1920, 1080, 0, 30000, 1001, 231},
    {14, 1920, 1080, 0, 24000, 1001, 250},
    {15, 1920, 1080, 0, 24000, 1000, 250},
    {16, 1920, 1080, 0, 25000, 1000, 250},
    {17, 1920, 1080, 0, 30000, 1001, 250},
    {18, 1920, 1080, 2, 24000, 1001, 250},
    {19, 1920, 1080, 2, 24000, 1000, 250},
    {20, 1920, 1080, 2, 25000, 1000, 250},
    {21, 1920, 1080, 2, 30000, 1001, 250},
    {23, 1920, 1080, 0, 50000, 1000, 231},
    {24, 1920, 1080, 0, 60000, 1001, 231},
    {25, 2048, 1080, 0, 24000, 1001, 231},
    {26, 2048, 1080, 0, 24000, 1001, 250},
    {27, 2048, 1080, 0, 24000, 1000, 231},
    {28, 2048, 1080, 0, 24000, 1000, 250},
    {29, 2048, 1080, 0, 25000, 1000, 231},
    {30, 2048, 1080, 0, 25000, 1000, 250},
    {31, 2048, 1080, 0, 30000, 1001, 231},
    {32, 2048, 1080, 0, 30000, 1001, 250},
    {33, 2048, 1080, 2, 24000, 1001, 231},
    {34, 2048, 1080, 2, 24000, 1001, 250},
    {35, 2048, 1080, 2, 24000, 1000, 231},
    {36, 2048, 1080, 2, 24000, 1000, 250},
    {37, 2048, 1080, 2, 25000, 1000, 231},
    {38, 2048, 1080, 2, 25000, 1000, 250},
    {39, 2048, 1080, 2, 30000, 1001, 231},
    {40, 2048, 1080, 2, 30000, 1001, 250},
    {41, 3840, 2160, 0, 24000, 1001, 231},
    {42, 3840, 2160, 0, 24000, 1001, 250},
    {43, 3840, 2160, 0, 24000, 1000, 231},
    {44, 3840, 2160, 0, 24000, 1000, 250},
    {45, 3840, 2160, 0, 25000, 1000, 231},
    {46, 3840, 2160, 0, 25000, 1000, 250},
    {47, 3840, 2160, 0, 30000, 1001, 231},
    {48, 3840, 2160, 0, 30000, 1001, 250},
    {49, 3840, 2160, 2, 24000, 1001, 231},
    {50, 3840, 2160, 2, 24000, 1001, 250},
    {51, 3840, 2160, 2, 24000, 1000, 231},
    {52, 3840, 2160, 2, 24000, 1000, 250},
    {53, 3840, 2160, 2, 25000, 1000, 231},
    {54, 3840, 2160, 2, 25000, 1000, 250},
    {55, 3840, 2160, 2, 30000, 1001, 231},
    {56, 3840, 2160, 2, 30000, 1001, 250},
    {57, 4096, 2160, 0, 24000, 1001, 231},
    {58, 4096, 2160, 0, 24000, 1001, 250},
    {59, 4096, 2160, 0, 24000, 1000, 231},
    {60, 4096, 2160, 0, 24000, 1000, 250},
    {61, 4096, 2160, 0, 25000, 1000, 231},
    {62, 4096, 2160, 0, 25000, 1000, 250},
    {63, 4096, 2160, 0, 30000, 1001, 231},
    {64, 4096, 2160, 0, 30000, 1001, 250},
    {65, 4096, 2160, 2, 24000, 1001, 231},
    {66, 4096, 2160, 2, 24000, 1001, 250},
    {67, 4096, 2160, 2, 24000, 1000, 231},
    {68, 4096, 2160, 2, 24000, 1000, 250},
    {69, 4096, 2160, 2, 25000, 1000, 231},
    {70, 4096, 2160, 2, 25000, 1000, 250},
    {71, 4096, 2160, 2, 30000, 1001, 231},
    {72, 4096, 2160, 2, 30000, 1001, 250},
};
// clang-format on

OrbImageDesc descOf(int width, int height, int scan, int num, int den)
{
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setScanMode(scan);
    desc.setFrameRate(num, den);
    return desc;
}

/// Rates whose key is \a key: the exact ones of the trade, and some between.
QList<QPair<int, int>> ratesOf(int key)
{
    if (key == 23 || key == 29 || key == 59)
        return {{(key + 1) * 1000, 1001}, {key * 10 + 9, 10}, {key, 1}};
    return {{key, 1}, {key * 1000, 1000}, {key * 100 + 99, 100}};
}

int rowOf(const ImageFormat &f)
{
    for (int i = 0; i < int(std::size(imageFormats)); ++i) {
        const ImageFormat &r = imageFormats[i];
        if (r.width == f.width && r.height == f.height && r.scan == f.scan && r.key == f.key)
            return i;
    }
    return -1;
}

} // namespace

void TestFormatMap::everyImageFormatHasItsThreeNumbers_data()
{
    QCOMPARE(int(std::size(imageFormats)), 69);
    QTest::addColumn<int>("row");
    for (int i = 0; i < 69; ++i) {
        const ImageFormat &f = imageFormats[i];
        QTest::addRow("%d: %dx%d scan %d key %d", i + 1, f.width, f.height, f.scan, f.key) << i;
    }
}

void TestFormatMap::everyImageFormatHasItsThreeNumbers()
{
    QFETCH(int, row);
    const ImageFormat &f = imageFormats[row];
    LogCollector log;
    for (const auto &[num, den] : ratesOf(f.key)) {
        const OrbImageDesc desc = descOf(f.width, f.height, f.scan, num, den);
        QCOMPARE(imageDescToInputFormat(desc), f.input);
        QCOMPARE(imageDescToMediaFormat(desc), f.media);
        QCOMPARE(imageDescToRecordFormat(desc), f.record);
    }
    QVERIFY(log.records().isEmpty());
}

/// Every combination of the sizes, scans and rates there are that is no row.
void TestFormatMap::whateverElseThereIsGivesOneAndIsLogged()
{
    int unknown = 0;
    for (const auto &[width, height] : QList<QPair<int, int>>{{720, 486},
                                                              {720, 576},
                                                              {1280, 720},
                                                              {1920, 1080},
                                                              {2048, 1080},
                                                              {3840, 2160},
                                                              {4096, 2160},
                                                              {1920, 1088},
                                                              {0, 0}}) {
        for (int scan = 0; scan <= 2; ++scan) {
            for (const int key : {0, 22, 23, 24, 25, 26, 29, 30, 48, 50, 59, 60, 61, 120}) {
                if (rowOf({width, height, scan, key, 0, 0, 0}) >= 0)
                    continue;
                ++unknown;
                const OrbImageDesc desc = descOf(width, height, scan, key, 1);
                const QString text =
                    QStringLiteral("Failed to find image format for: ") + desc.toString();
                for (int (*map)(const OrbImageDesc &) :
                     {imageDescToInputFormat, imageDescToMediaFormat, imageDescToRecordFormat}) {
                    LogCollector log;
                    QCOMPARE(map(desc), 1);
                    QCOMPARE(log.records().size(), 1);
                    QCOMPARE(log.records().at(0).level, 2);
                    QCOMPARE(log.records().at(0).file, QStringLiteral("mainobject.cpp"));
                    QCOMPARE(log.records().at(0).text, text);
                }
            }
        }
    }
    QCOMPARE(unknown, 9 * 3 * 14 - 69);
    LogCollector log;
    QCOMPARE(imageDescToInputFormat(OrbImageDesc()), 1);
    QCOMPARE(imageDescToMediaFormat(descOf(1920, 1080, 0, 25, 0)), 1); // no rate at all
    QCOMPARE(imageDescToRecordFormat(descOf(1920, 1080, 0, -25, 1)), 1);
    QCOMPARE(log.records().size(), 3);
}

void TestFormatMap::theRateKeyIsDeliberatelyCoarse()
{
    QCOMPARE(imageDescToInputFormat(descOf(1920, 1080, 1, 30000, 1001)), 3);
    QCOMPARE(imageDescToInputFormat(descOf(1920, 1080, 1, 295, 10)), 3);
    QCOMPARE(imageDescToInputFormat(descOf(1920, 1080, 1, 29999, 1000)), 3);
    QCOMPARE(imageDescToInputFormat(descOf(1920, 1080, 1, 30, 1)), 2);
    QCOMPARE(imageDescToInputFormat(descOf(1920, 1080, 0, 24000, 1001)), 22); // 23, never 24
}

void TestFormatMap::everySignalGeneratorFormat_data()
{
    QCOMPARE(int(std::size(generatorFormats)), 71);
    QTest::addColumn<int>("row");
    for (int i = 0; i < 71; ++i)
        QTest::addRow("%d: value %d", i + 1, generatorFormats[i].value) << i;
}

void TestFormatMap::everySignalGeneratorFormat()
{
    QFETCH(int, row);
    const GeneratorFormat &f = generatorFormats[row];
    LogCollector log;
    const OrbImageDesc desc = sigGenFormatToImgDesc(f.value);
    QCOMPARE(desc.width(), f.width);
    QCOMPARE(desc.height(), f.height);
    QCOMPARE(desc.aspectRatio().num(), f.width); // of the picture, so that pixels are square
    QCOMPARE(desc.aspectRatio().den(), f.height);
    QCOMPARE(desc.frameRate().num(), f.num);
    QCOMPARE(desc.frameRate().den(), f.den);
    QCOMPARE(int(desc.scanMode()), f.scan);
    QCOMPARE(int(desc.dataType().value()), f.dataType);
    QVERIFY(log.records().isEmpty());
}

void TestFormatMap::noOtherNumberIsASignalGeneratorFormat()
{
    LogCollector log;
    QSet<int> known;
    for (const GeneratorFormat &f : generatorFormats)
        known << f.value;
    QCOMPARE(known.size(), 71);
    for (int value = -300; value <= 300; ++value) {
        if (!known.contains(value))
            QCOMPARE(sigGenFormatToImgDesc(value), OrbImageDesc());
    }
    QCOMPARE(sigGenFormatToImgDesc(std::numeric_limits<int>::max()), OrbImageDesc());
    QCOMPARE(sigGenFormatToImgDesc(std::numeric_limits<int>::min()), OrbImageDesc());
    QVERIFY(log.records().isEmpty()); // deliberately no word about it
}

using Switch = OrbId (*)(int);
using Ids = QMap<int, int>;
Q_DECLARE_METATYPE(Switch)

void TestFormatMap::everyIdentifier_data()
{
    QTest::addColumn<Switch>("of");
    QTest::addColumn<QString>("text");
    QTest::addColumn<Ids>("ids");
    // clang-format off
    QTest::newRow("encode types, 4 to 6 deliberately missing") << Switch(encodeTypeToID) << "Unsupported encode type: "
        << Ids{{0, 202}, {1, 203}, {2, 204}, {3, 205}, {7, 206}, {8, 230}, {9, 231}};
    QTest::newRow("video inputs, first third second deliberately") << Switch(videoInputToID) << "Unsupported video input: "
        << Ids{{0, 601}, {6, 602}, {7, 604}, {8, 603}, {9, 631}, {10, 633}, {11, 632}, {12, 661}, {13, 663}, {14, 662}};
    QTest::newRow("video outputs, from the last deliberately") << Switch(videoOutputToID) << "Unsupported video output: "
        << Ids{{0, 663}, {1, 662}, {2, 633}, {3, 632}, {4, 604}, {5, 603}};
    QTest::newRow("audio inputs") << Switch(audioInputToID) << "Unsupported audio input: " << Ids{{0, 52}, {2, 690}};
    QTest::newRow("sync sources") << Switch(syncSourceToID) << "Unsupported sync source: " << Ids{{0, 501}, {2, 502}, {3, 503}};
    // clang-format on
}

void TestFormatMap::everyIdentifier()
{
    QFETCH(Switch, of);
    QFETCH(QString, text);
    QFETCH(Ids, ids);
    QList<int> values = {std::numeric_limits<int>::min(), std::numeric_limits<int>::max()};
    for (int value = -20; value <= 300; ++value)
        values << value;
    for (const int value : values) {
        LogCollector log;
        QCOMPARE(int(of(value).value()), ids.value(value));
        QCOMPARE(of(value).isValid(), ids.contains(value));
        if (ids.contains(value)) {
            QVERIFY(log.records().isEmpty());
            continue;
        }
        QCOMPARE(log.records().size(), 2);
        QCOMPARE(log.records().at(0).level, 2);
        QCOMPARE(log.records().at(0).file, QStringLiteral("mainobject.cpp"));
        QCOMPARE(log.records().at(0).text, text + QString::number(value));
    }
}

void TestFormatMap::everyDecodeType()
{
    LogCollector log;
    for (int id = 0; id < 3000; ++id) {
        const int wanted = id == 203 ? 1 : id == 204 ? 4 : id == 205 ? 5 : id == 206 ? 6 : 0;
        QCOMPARE(imageDataTypeToDecodeType(OrbId(id)), wanted);
    }
    QVERIFY(log.records().isEmpty());
}

void TestFormatMap::theShuttleLadderAtEverySpeed_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<double>("forward"); // 0 is no command
    QTest::addColumn<double>("backward");
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    // clang-format off
    const double rows[][3] = {
        {16, 0, -2}, {8, 16, -2}, {4, 8, -2}, {2, 4, -2}, {1, 2, -2}, {0.5, 2, -2}, {0, 2, -2}, {-0.0, 2, -2},
        {-0.5, 2, -2}, {-1, 2, -2}, {-2, 2, -4}, {-4, 2, -8}, {-8, 2, -16}, {-16, 2, 0},
        {1.999, 2, -2}, {2.001, 2, -2}, {3, 2, -2}, {7.999, 2, -2}, {16.001, 2, -2}, {20, 2, -2}, {32, 2, -2},
        {-1.999, 2, -2}, {-3, 2, -2}, {-16.001, 2, -2}, {-20, 2, -2}, {nan, 2, -2}, {inf, 2, -2}, {-inf, 2, -2},
    };
    // clang-format on
    for (const auto &[speed, forward, backward] : rows)
        QTest::addRow("at %g", speed) << speed << forward << backward;
}

void TestFormatMap::theShuttleLadderAtEverySpeed()
{
    QFETCH(double, speed);
    QTEST(nextShuttleSpeed(speed, 1).value_or(0.0), "forward");
    QTEST(nextShuttleSpeed(speed, -1).value_or(0.0), "backward");
}

void TestFormatMap::thePublishedSpeedAtEveryBoundary_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<int>("number");
    // A bound, what it gives itself, and what lies just above and just below it.
    // clang-format off
    const double rows[][4] = {
        { 16, 7, 7, 6}, { 8, 6, 6, 5}, { 4, 5, 5, 4}, { 1, 3, 4, 3}, {0, 15, 3, 9},
        {-16, 13, 12, 13}, {-8, 12, 11, 12}, {-4, 11, 10, 11}, {-1, 9, 9, 10},
    };
    // clang-format on
    const double inf = std::numeric_limits<double>::infinity();
    for (const auto &[speed, at, above, below] : rows) {
        QTest::addRow("at %g", speed) << speed << int(at);
        QTest::addRow("above %g", speed) << std::nextafter(speed, inf) << int(above);
        QTest::addRow("below %g", speed) << std::nextafter(speed, -inf) << int(below);
    }
    QTest::newRow("endless") << inf << 7;
    QTest::newRow("endless in reverse") << -inf << 13;
    QTest::newRow("no number") << std::numeric_limits<double>::quiet_NaN() << -1;
}

void TestFormatMap::thePublishedSpeedAtEveryBoundary()
{
    QFETCH(double, speed);
    QTEST(transportStateOfSpeed(speed).value_or(-1), "number");
}

void TestFormatMap::normalPlayIsThreeAndNormalReverseIsNineDeliberately()
{
    QCOMPARE(transportStateOfSpeed(1.0), std::optional(3));
    QCOMPARE(transportStateOfSpeed(-1.0), std::optional(9));
    QCOMPARE(transportStateOfSpeed(4.0), std::optional(5));
    QCOMPARE(transportStateOfSpeed(-4.0), std::optional(11));
}

QTEST_APPLESS_MAIN(TestFormatMap)
#include "tst_formatmap.moc"
