#include "liborb/orb.h"
#include "liborb/orbtimecode.h"
#include "liborb/orbvbiinfo.h"

#include <QTest>

#include <limits>

class TestOrbTimecode : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultTimecodeIsZeroAndNotValid();
    void fieldsMakeAValidTimecode();
    void fieldsAreOneByteWide();
    void flagsAreSetAndCleared();
    void dropFrameNeedsARateOfThirties_data();
    void dropFrameNeedsARateOfThirties();
    void theSeparatorFollowsTheFlagAloneDeliberately();
    void matchingIgnoresRateAndFlags();
    void comparisonTakesEveryField();
    void aCopyNeverSeesAChange();
    void everyLabelOfTheDayConvertsBothWays_data();
    void everyLabelOfTheDayConvertsBothWays();
    void skippedLabelsCountAsTheFrameBefore();
    void frameCountsWrapAtMidnight();
    void ratesThatCannotCountAreNotValid();
    void theFlagStaysAtRatesWithoutDropFrame();
    void advancingMovesBothWaysAndWraps();
    void advancingWithoutARateStays();
    void timeOfDayIsTheClocksLabel();
    void timeOfDayNeverShowsASkippedLabel();
    void vbiInfoCarriesBothTimecodes();
};

void TestOrbTimecode::theDefaultTimecodeIsZeroAndNotValid()
{
    const OrbTimecode tc;
    QVERIFY(!tc.isValid());
    QCOMPARE(tc.hour() + tc.min() + tc.sec() + tc.frame() + tc.fps() + tc.flags(), 0);
    QCOMPARE(tc.toString(), QStringLiteral("--:--:--:--"));
    QCOMPARE(tc.frameCount(), 0);
}

void TestOrbTimecode::fieldsMakeAValidTimecode()
{
    const OrbTimecode tc(1, 2, 3, 4, 25, 0);
    QVERIFY(tc.isValid());
    QCOMPARE(tc.flags(), quint16(1));
    QCOMPARE(tc.hour(), 1);
    QCOMPARE(tc.min(), 2);
    QCOMPARE(tc.sec(), 3);
    QCOMPARE(tc.frame(), 4);
    QCOMPARE(tc.fps(), 25);
    QCOMPARE(tc.toString(), QStringLiteral("01:02:03:04"));
    QCOMPARE(OrbTimecode(1, 2, 3, 4, 30, OrbTimecode::DropFrame).flags(), quint16(3));
}

void TestOrbTimecode::fieldsAreOneByteWide()
{
    OrbTimecode tc(256 + 7, -1, 127, 128, 25, 0);
    QCOMPARE(tc.hour(), 7);
    QCOMPARE(tc.min(), -1);
    QCOMPARE(tc.sec(), 127);
    QCOMPARE(tc.frame(), -128);
    QCOMPARE(tc.toString(), QStringLiteral("07:-1:127:-128"));
}

void TestOrbTimecode::flagsAreSetAndCleared()
{
    OrbTimecode tc;
    tc.setValid(true);
    tc.setDropFrame(true);
    QVERIFY(tc.flag(OrbTimecode::Valid) && tc.flag(OrbTimecode::DropFrame));
    QCOMPARE(tc.flags(), quint16(3));
    tc.setValid(false);
    QCOMPARE(tc.flags(), quint16(2));
    tc.setFlag(0x100, true);
    QCOMPARE(tc.flags(), quint16(0x102));
    tc.setDropFrame(false);
    QVERIFY(!tc.dropFrameFlag());
}

void TestOrbTimecode::dropFrameNeedsARateOfThirties_data()
{
    QTest::addColumn<int>("fps");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<bool>("dropFrame");
    QTest::newRow("25 with") << 25 << true << false;
    QTest::newRow("30 with") << 30 << true << true;
    QTest::newRow("60 with") << 60 << true << true;
    QTest::newRow("30 without") << 30 << false << false;
    QTest::newRow("24 with") << 24 << true << false;
}

void TestOrbTimecode::dropFrameNeedsARateOfThirties()
{
    QFETCH(int, fps);
    QFETCH(bool, flag);
    OrbTimecode tc(0, 0, 0, 0, fps, flag ? OrbTimecode::DropFrame : 0);
    QTEST(tc.isDropFrame(), "dropFrame");
}

void TestOrbTimecode::theSeparatorFollowsTheFlagAloneDeliberately()
{
    OrbTimecode tc(1, 2, 3, 4, 30, OrbTimecode::DropFrame);
    QCOMPARE(tc.toString(), QStringLiteral("01:02:03;04"));
    tc.setFPS(25);
    QVERIFY(!tc.isDropFrame());
    QCOMPARE(tc.toString(), QStringLiteral("01:02:03;04"));
    tc.setDropFrame(false);
    QCOMPARE(tc.toString(), QStringLiteral("01:02:03:04"));
    tc.setValid(false);
    QCOMPARE(tc.toString(), QStringLiteral("--:--:--:--"));
}

void TestOrbTimecode::matchingIgnoresRateAndFlags()
{
    const OrbTimecode tc(1, 2, 3, 4, 30, OrbTimecode::DropFrame);
    OrbTimecode other(1, 2, 3, 4, 25, 0);
    other.setValid(false);
    QVERIFY(tc.timecodeMatches(other));
    QVERIFY(!tc.timecodeMatches(OrbTimecode(0, 2, 3, 4, 30, 2)));
    QVERIFY(!tc.timecodeMatches(OrbTimecode(1, 0, 3, 4, 30, 2)));
    QVERIFY(!tc.timecodeMatches(OrbTimecode(1, 2, 0, 4, 30, 2)));
    QVERIFY(!tc.timecodeMatches(OrbTimecode(1, 2, 3, 0, 30, 2)));
}

void TestOrbTimecode::comparisonTakesEveryField()
{
    const OrbTimecode tc(1, 2, 3, 4, 30, 0);
    QVERIFY(tc == OrbTimecode(1, 2, 3, 4, 30, 0));
    QVERIFY(tc != OrbTimecode(1, 2, 3, 4, 25, 0));
    QVERIFY(tc != OrbTimecode(1, 2, 3, 4, 30, 2));
    QVERIFY(tc != OrbTimecode(1, 2, 3, 5, 30, 0));
}

void TestOrbTimecode::aCopyNeverSeesAChange()
{
    OrbTimecode original(1, 2, 3, 4, 25, 0);
    const OrbTimecode copy = original;
    original.setHour(9);
    original.setMin(9);
    original.setSec(9);
    original.setFrame(9);
    original.setFPS(50);
    QCOMPARE(copy, OrbTimecode(1, 2, 3, 4, 25, 0));
    QCOMPARE(original, OrbTimecode(9, 9, 9, 9, 50, 0));
}

void TestOrbTimecode::everyLabelOfTheDayConvertsBothWays_data()
{
    QTest::addColumn<int>("fps");
    QTest::addColumn<bool>("drop");
    QTest::addColumn<int>("framesOfDay");
    QTest::newRow("25") << 25 << false << 2160000;
    QTest::newRow("30 drop frame") << 30 << true << 2589408;
    QTest::newRow("60 drop frame") << 60 << true << 5178816;
}

/// Walks the labels as people count them, without those left out, beside the frame count.
void TestOrbTimecode::everyLabelOfTheDayConvertsBothWays()
{
    QFETCH(int, fps);
    QFETCH(bool, drop);
    QFETCH(int, framesOfDay);
    const int left = drop ? fps / 15 : 0;
    qint64 count = 0;
    qint64 wrong = 0;
    for (int minute = 0; minute < 24 * 60; ++minute) {
        for (int sec = 0; sec < 60; ++sec) {
            const bool shortened = sec == 0 && minute % 10 != 0;
            for (int frame = shortened ? left : 0; frame < fps; ++frame, ++count) {
                const OrbTimecode label(count, fps, drop);
                wrong += label.hour() != minute / 60 || label.min() != minute % 60
                         || label.sec() != sec || label.frame() != frame
                         || label.frameCount() != count;
            }
        }
    }
    QCOMPARE(count, qint64(framesOfDay));
    QCOMPARE(wrong, qint64(0));
    QCOMPARE(OrbTimecode(count, fps, drop).toString().left(8), QStringLiteral("00:00:00"));
}

void TestOrbTimecode::skippedLabelsCountAsTheFrameBefore()
{
    // A label that is left out may still arrive from outside.
    QCOMPARE(OrbTimecode(0, 1, 0, 0, 30, 2).frameCount(), qint64(1798));
    QCOMPARE(OrbTimecode(0, 1, 0, 2, 30, 2).frameCount(), qint64(1800));
    QCOMPARE(OrbTimecode(0, 10, 0, 0, 30, 2).frameCount(), qint64(17982));
}

void TestOrbTimecode::frameCountsWrapAtMidnight()
{
    QCOMPARE(OrbTimecode(2160000, 25, false).toString(), QStringLiteral("00:00:00:00"));
    QCOMPARE(OrbTimecode(-1, 25, false).toString(), QStringLiteral("23:59:59:24"));
    QCOMPARE(OrbTimecode(-1, 30, true).toString(), QStringLiteral("23:59:59;29"));
    QVERIFY(OrbTimecode(std::numeric_limits<qint64>::max(), 60, true).isValid());
    QVERIFY(OrbTimecode(std::numeric_limits<qint64>::min(), 60, true).isValid());
}

void TestOrbTimecode::ratesThatCannotCountAreNotValid()
{
    for (const int fps : {0, -1, 128, 100000, std::numeric_limits<int>::min()}) {
        QVERIFY(!OrbTimecode(qint64(100), fps, false).isValid());
        QVERIFY(!OrbTimecode(qint64(100), fps, true).isValid());
        QVERIFY(!OrbTimecode::fromTimeOfDay(fps, true).isValid());
    }
    QVERIFY(OrbTimecode(qint64(100), 1, false).isValid());
    QCOMPARE(OrbTimecode(qint64(126), 127, false).frame(), 126);
}

void TestOrbTimecode::theFlagStaysAtRatesWithoutDropFrame()
{
    const OrbTimecode tc(qint64(1500), 25, true);
    QCOMPARE(tc.toString(), QStringLiteral("00:01:00;00"));
    QCOMPARE(tc.frameCount(), qint64(1500));
}

void TestOrbTimecode::advancingMovesBothWaysAndWraps()
{
    const OrbTimecode tc(0, 0, 59, 29, 30, OrbTimecode::DropFrame);
    QCOMPARE(tc.advanced(1).toString(), QStringLiteral("00:01:00;02"));
    QCOMPARE(tc.advanced(1).advanced(-1), tc);
    QCOMPARE(OrbTimecode(23, 59, 59, 24, 25, 0).advanced(1), OrbTimecode(0, 0, 0, 0, 25, 0));
    QCOMPARE(OrbTimecode(0, 0, 0, 0, 25, 0).advanced(-1), OrbTimecode(23, 59, 59, 24, 25, 0));
    QCOMPARE(tc.advanced(0), tc);
    QVERIFY(tc.advanced(std::numeric_limits<qint64>::min()).isValid());
    OrbTimecode notValid = tc;
    notValid.setValid(false);
    QVERIFY(!notValid.advanced(5).isValid());
}

void TestOrbTimecode::advancingWithoutARateStays()
{
    const OrbTimecode tc(1, 2, 3, 4, 0, 0);
    QCOMPARE(tc.advanced(100), tc);
    QCOMPARE(tc.frameCount(), 0);
}

void TestOrbTimecode::timeOfDayIsTheClocksLabel()
{
    qint64 now = 0;
    Orb::setTimeOfDaySource([&now] { return now; });
    now = ((13 * 60 + 5) * 60 + 7) * 1000 + 960;
    QCOMPARE(OrbTimecode::fromTimeOfDay(25, false), OrbTimecode(13, 5, 7, 24, 25, 0));
    now = 24 * 3600 * 1000 - 1;
    QCOMPARE(OrbTimecode::fromTimeOfDay(30, true).toString(), QStringLiteral("23:59:59;29"));
    now = 24 * 3600 * 1000;
    QCOMPARE(OrbTimecode::fromTimeOfDay(30, false).toString(), QStringLiteral("00:00:00:00"));
    now = -1;
    QCOMPARE(OrbTimecode::fromTimeOfDay(30, false).toString(), QStringLiteral("23:59:59:29"));
    Orb::setTimeOfDaySource({});
    QVERIFY(OrbTimecode::fromTimeOfDay(25, false).isValid());
    QVERIFY(Orb::timeOfDayMs() >= 0 && Orb::timeOfDayMs() < 24 * 3600 * 1000);
}

void TestOrbTimecode::timeOfDayNeverShowsASkippedLabel()
{
    qint64 now = 0;
    Orb::setTimeOfDaySource([&now] { return now; });
    for (now = 0; now < 24 * 3600 * 1000; now += 60000) {
        for (const int fps : {30, 60}) {
            const OrbTimecode label = OrbTimecode::fromTimeOfDay(fps, true);
            QCOMPARE(OrbTimecode(label.frameCount(), fps, true), label);
        }
    }
    Orb::setTimeOfDaySource({});
}

void TestOrbTimecode::vbiInfoCarriesBothTimecodes()
{
    QVERIFY(!OrbVbiInfo().tcgTimecode().isValid());
    QVERIFY(!OrbVbiInfo().inputTimecode().isValid());
    const OrbTimecode a(1, 0, 0, 0, 25, 0);
    const OrbTimecode b(2, 0, 0, 0, 25, 0);
    QCOMPARE(OrbVbiInfo(a, b).tcgTimecode(), a);
    QCOMPARE(OrbVbiInfo(a, b).inputTimecode(), b);
    QVERIFY(!(OrbVbiInfo(a, b) == OrbVbiInfo(b, a)));
}

QTEST_APPLESS_MAIN(TestOrbTimecode)
#include "tst_orbtimecode.moc"
