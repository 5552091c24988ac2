#include "app/formatmap.h"
#include "app/formatrows.h"
#include "app/shuttle.h"
#include "app/transportstate.h"
#include "logcollector.h"

#include <QTest>

#include <cmath>
#include <iterator>

namespace {

OrbImageDesc descOf(int width, int height, int scan, int num, int den)
{
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setScanMode(scan);
    desc.setFrameRate(num, den);
    return desc;
}

/// The exact rate that a truncated key stands for in the trade.
OrbVideoRate rateOfKey(int key)
{
    if (key == 23 || key == 29 || key == 59)
        return OrbVideoRate((key + 1) * 1000, 1001);
    return OrbVideoRate(key, 1);
}

} // namespace

class TestFormatMap : public QObject
{
    Q_OBJECT
private slots:
    void everyFormatRowIsFound();
    void theKeyIsTruncated();
    void anUnknownFormatIsLoggedAndGivesOne();
    void everySigGenRowIsFound();
    void sigGenRowsBeginAndEndAsListed();
    void identifierSwitches_data();
    void identifierSwitches();
    void decodeTypes();
    void publishedSpeeds_data();
    void publishedSpeeds();
    void shuttleLadders();
};

void TestFormatMap::everyFormatRowIsFound()
{
    for (const FormatRow &row : formatRows) {
        const OrbVideoRate rate = rateOfKey(row.rateKey);
        const OrbImageDesc desc =
            descOf(row.width, row.height, row.scanMode, rate.num(), rate.den());
        QCOMPARE(imageDescToInputFormat(desc), row.inputFormat);
        QCOMPARE(imageDescToMediaFormat(desc), row.mediaFormat);
        QCOMPARE(imageDescToRecordFormat(desc), row.recordFormat);
    }
}

void TestFormatMap::theKeyIsTruncated()
{
    QCOMPARE(imageDescToInputFormat(descOf(1920, 1080, 1, 30000, 1001)), 3);
    QCOMPARE(imageDescToMediaFormat(descOf(1920, 1080, 1, 30000, 1001)), 3);
    QCOMPARE(imageDescToRecordFormat(descOf(1920, 1080, 1, 30000, 1001)), 4);
    QCOMPARE(imageDescToInputFormat(descOf(1920, 1080, 1, 30, 1)), 2);
    QCOMPARE(imageDescToRecordFormat(descOf(1920, 1080, 1, 30, 1)), 3);
    // 29.5 is as good as 29.97, deliberately.
    QCOMPARE(imageDescToInputFormat(descOf(1920, 1080, 1, 59, 2)), 3);
}

void TestFormatMap::anUnknownFormatIsLoggedAndGivesOne()
{
    LogCollector log;
    const OrbImageDesc desc = descOf(1280, 720, 0, 30000, 1001);
    QCOMPARE(imageDescToInputFormat(desc), 1);
    QCOMPARE(imageDescToMediaFormat(OrbImageDesc()), 1);
    QCOMPARE(log.lines().at(0),
             QStringLiteral("2 mainobject.cpp Failed to find image format for: ") + desc.toString());
    QCOMPARE(log.records().size(), 2);
}

void TestFormatMap::everySigGenRowIsFound()
{
    for (const SigGenFormatRow &row : sigGenFormat) {
        const OrbImageDesc desc = sigGenFormatToImgDesc(row.value);
        QCOMPARE(desc.size(), QSize(row.width, row.height));
        QCOMPARE(desc.aspectRatio().num(), row.width);
        QCOMPARE(desc.aspectRatio().den(), row.height);
        QCOMPARE(desc.frameRate().num(), row.rateNum);
        QCOMPARE(desc.frameRate().den(), row.rateDen);
        QCOMPARE(int(desc.scanMode()), row.scanMode);
        QCOMPARE(desc.dataType(), row.imageDataType);
    }
}

void TestFormatMap::sigGenRowsBeginAndEndAsListed()
{
    QVERIFY(!sigGenFormatToImgDesc(1).isValid());
    QVERIFY(!sigGenFormatToImgDesc(73).isValid());
    const OrbImageDesc first = sigGenFormatToImgDesc(2);
    QCOMPARE(first.size(), QSize(1280, 720));
    QCOMPARE(first.frameRate().num(), 50000);
    QCOMPARE(first.dataType(), OrbId(231));
    // Where a rule of thumb and the rows differ, the rows count: 21 and 22 share a format.
    QCOMPARE(sigGenFormatToImgDesc(21).dataType(), OrbId(250));
    QCOMPARE(sigGenFormatToImgDesc(72).dataType(), OrbId(250));
    QCOMPARE(sigGenFormatToImgDesc(72).scanMode(), OrbImageDesc::SegmentedFrame);
}

using Map = OrbId (*)(int);
Q_DECLARE_METATYPE(Map)

void TestFormatMap::identifierSwitches_data()
{
    QTest::addColumn<Map>("map");
    QTest::addColumn<QString>("what");
    QTest::addColumn<QList<int>>("ids"); // by value from -1; 0 is unsupported
    // clang-format off
    QTest::newRow("encode") << Map(encodeTypeToID) << "encode type"
        << QList<int>{0, 202, 203, 204, 205, 0, 0, 0, 206, 230, 231, 0};
    QTest::newRow("input")  << Map(videoInputToID) << "video input"
        << QList<int>{0, 601, 0, 0, 0, 0, 0, 602, 604, 603, 631, 633, 632, 661, 663, 662, 0};
    QTest::newRow("output") << Map(videoOutputToID) << "video output"
        << QList<int>{0, 663, 662, 633, 632, 604, 603, 0};
    QTest::newRow("audio")  << Map(audioInputToID) << "audio input" << QList<int>{0, 52, 0, 690, 0};
    QTest::newRow("sync")   << Map(syncSourceToID) << "sync source" << QList<int>{0, 501, 0, 502, 503, 0};
    // clang-format on
}

void TestFormatMap::identifierSwitches()
{
    QFETCH(Map, map);
    QFETCH(QString, what);
    QFETCH(QList<int>, ids);
    for (int i = 0; i < ids.size(); ++i) {
        LogCollector log;
        const int value = i - 1;
        QCOMPARE(map(value), OrbId(ids.at(i)));
        const QStringList expected =
            ids.at(i) != 0 ? QStringList()
                           : QStringList{QStringLiteral("2 mainobject.cpp Unsupported %1: %2")
                                             .arg(what)
                                             .arg(value)};
        QCOMPARE(log.lines(), expected);
    }
}

void TestFormatMap::decodeTypes()
{
    const int expected[][2] = {{202, 0}, {203, 1}, {204, 4}, {205, 5},
                               {206, 6}, {230, 0}, {231, 0}, {0, 0}};
    for (const auto &row : expected)
        QCOMPARE(imageDataTypeToDecodeType(OrbId(row[0])), row[1]);
}

void TestFormatMap::publishedSpeeds_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<int>("state");
    const std::pair<double, int> rows[] = {
        {16, 7},     {20, 7},     {15.999, 6}, {8, 6},     {7.999, 5},   {4, 5},
        {3.999, 4},  {1.0001, 4}, {1, 3},      {0.1, 3},   {0, 15},      {-0.0, 15},
        {-0.1, 9},   {-1, 9},     {-1.0001, 10}, {-3.999, 10}, {-4, 11}, {-7.999, 11},
        {-8, 12},    {-15.999, 12}, {-16, 13}, {-20, 13},
    };
    for (const auto &[speed, state] : rows)
        QTest::addRow("%g", speed) << speed << state;
}

void TestFormatMap::publishedSpeeds()
{
    QFETCH(double, speed);
    QFETCH(int, state);
    QCOMPARE(transportStateOfSpeed(speed).value_or(-1), state);
    QVERIFY(!transportStateOfSpeed(std::nan("")));
}

void TestFormatMap::shuttleLadders()
{
    QCOMPARE(nextShuttleSpeed(0.0, 1).value(), 2.0);
    QCOMPARE(nextShuttleSpeed(1.0, 1).value(), 2.0);
    QCOMPARE(nextShuttleSpeed(-8.0, 1).value(), 2.0);
    QCOMPARE(nextShuttleSpeed(2.0, 1).value(), 4.0);
    QCOMPARE(nextShuttleSpeed(4.0, 1).value(), 8.0);
    QCOMPARE(nextShuttleSpeed(8.0, 1).value(), 16.0);
    QVERIFY(!nextShuttleSpeed(16.0, 1));
    QCOMPARE(nextShuttleSpeed(20.0, 1).value(), 2.0);
    QCOMPARE(nextShuttleSpeed(16.0, -1).value(), -2.0);
    QCOMPARE(nextShuttleSpeed(-2.0, -1).value(), -4.0);
    QVERIFY(!nextShuttleSpeed(-16.0, -1));
}

QTEST_APPLESS_MAIN(TestFormatMap)
#include "tst_formatmap.moc"
