#include "services/rvcam/timecode.h"

#include <QTest>

using namespace cam;

class TestBusTimecode : public QObject
{
    Q_OBJECT

private slots:
    void labelsFollowEachOtherForADay_data();
    void labelsFollowEachOtherForADay();
    void labelsThatAreNoneAreRefused();
};

void TestBusTimecode::labelsFollowEachOtherForADay_data()
{
    QTest::addColumn<int>("fps");
    QTest::addColumn<bool>("drop");
    QTest::addColumn<int>("framesPerDay");
    QTest::newRow("25") << 25 << false << 2160000;
    QTest::newRow("30") << 30 << false << 2592000;
    QTest::newRow("29.97 drop") << 30 << true << 2589408;
    QTest::newRow("59.94 drop") << 60 << true << 5178816;
}

void TestBusTimecode::labelsFollowEachOtherForADay()
{
    QFETCH(int, fps);
    QFETCH(bool, drop);
    QFETCH(int, framesPerDay);
    const Timecode midnight = {0, 0, 0, 0, fps, drop};
    Timecode label = midnight;
    for (int n = 1; n <= framesPerDay; ++n) {
        // The next label, counted the way a clock on the wall is.
        if (++label.frame == fps) {
            label.frame = 0;
            if (++label.second == 60) {
                label.second = 0;
                if (++label.minute == 60) {
                    label.minute = 0;
                    label.hour = (label.hour + 1) % 24;
                }
                if (drop && label.minute % 10 != 0)
                    label.frame = fps / 15;
            }
        }
        if (!(midnight.after(n) == label) || !(label.after(-n) == midnight))
            QFAIL(qPrintable(QString::number(n)));
    }
    QVERIFY(label == midnight);
}

void TestBusTimecode::labelsThatAreNoneAreRefused()
{
    for (const char *text : {"", "10:00:00", "10:00:00:00 ", "24:00:00:00", "10:60:00:00",
                             "10:00:60:00", "10:00:00:30", "a0:00:00:00", "10;00:00:00",
                             "10:01:00;00", "10:01:00;01"})
        QVERIFY(!timecodeOf(text, 30));
    QVERIFY(!timecodeOf("10:00:00;00", 25));
    QVERIFY(!timecodeOf("10:01:00;03", 60));
    QVERIFY(timecodeOf("10:01:00;02", 30));
    QVERIFY(timecodeOf("10:10:00;00", 30));
    QVERIFY(timecodeOf("10:01:00;04", 60));
    QVERIFY(timecodeOf("23:59:59:29", 30)->after(1) == (Timecode {0, 0, 0, 0, 30, false}));
}

QTEST_APPLESS_MAIN(TestBusTimecode)
#include "tst_bus_timecode.moc"
