#include "liborb/drivers/software/frameschedule.h"

#include <QTest>

#include <algorithm>
#include <cmath>
#include <random>

using ferin::FrameSchedule;
using ferin::PhaseFollower;

class tst_device_clock : public QObject
{
    Q_OBJECT
private slots:
    void framesAreDueAtExactTimes_data();
    void framesAreDueAtExactTimes();
    void dueTimesNeverDrift();
    void aShiftMovesLaterFrames();
    void overdueFramesAreCounted();
    void theClockFollowsASourceThatDrifts_data();
    void theClockFollowsASourceThatDrifts();
    void oneCorrectionIsAtMostTwoThousandthsOfAFrame();
};

void tst_device_clock::framesAreDueAtExactTimes_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<qint64>("frame");
    QTest::addColumn<qint64>("ns");
    QTest::newRow("first") << 25 << 1 << qint64(0) << qint64(0);
    QTest::newRow("25") << 25 << 1 << qint64(1) << qint64(40'000'000);
    QTest::newRow("29.97 is rounded down") << 30000 << 1001 << qint64(1) << qint64(33'366'666);
    QTest::newRow("29.97 is exact again") << 30000 << 1001 << qint64(30) << qint64(1'001'000'000);
    QTest::newRow("24 as 24000/1000") << 24000 << 1000 << qint64(24) << qint64(1'000'000'000);
    QTest::newRow("a year at 59.94") << 60000 << 1001 << qint64(60000) * 31'536
                                     << qint64(1'001'000'000) * 1000 * 31'536;
    QTest::newRow("before the start") << 50 << 1 << qint64(-1) << qint64(-20'000'000);
}

void tst_device_clock::framesAreDueAtExactTimes()
{
    QFETCH(int, num);
    QFETCH(int, den);
    QFETCH(qint64, frame);
    QFETCH(qint64, ns);
    const FrameSchedule schedule(num, den, 1'000);
    QCOMPARE(schedule.dueNs(frame), ns + 1'000);
}

void tst_device_clock::dueTimesNeverDrift()
{
    const FrameSchedule schedule(24000, 1001, 0);
    qint64 before = schedule.dueNs(0);
    for (qint64 frame = 1; frame < 200'000; ++frame) {
        const qint64 due = schedule.dueNs(frame);
        QVERIFY(due - before == 41'708'333 || due - before == 41'708'334);
        before = due;
    }
    QCOMPARE(schedule.dueNs(24000), qint64(1'001'000'000'000));
}

void tst_device_clock::aShiftMovesLaterFrames()
{
    FrameSchedule schedule(50, 1, 0);
    schedule.shift(-5'000);
    QCOMPARE(schedule.dueNs(100), qint64(1'999'995'000));
}

void tst_device_clock::overdueFramesAreCounted()
{
    const FrameSchedule schedule(60000, 1001, 0);
    QCOMPARE(schedule.overdue(10, schedule.dueNs(10) - 1), qint64(0));
    QCOMPARE(schedule.overdue(10, schedule.dueNs(11) - 1), qint64(0));
    QCOMPARE(schedule.overdue(10, schedule.dueNs(11)), qint64(1));
    QCOMPARE(schedule.overdue(10, schedule.dueNs(13) + 5), qint64(3));
    QCOMPARE(schedule.overdue(0, schedule.dueNs(5'000'000)), qint64(5'000'000));
}

void tst_device_clock::theClockFollowsASourceThatDrifts_data()
{
    QTest::addColumn<double>("drift");
    QTest::addColumn<double>("jitter");
    QTest::newRow("same clock") << 0.0 << 0.05;
    QTest::newRow("fast source") << 200e-6 << 0.2;
    QTest::newRow("slow source") << -200e-6 << 0.2;
    QTest::newRow("much too fast") << 1000e-6 << 0.1;
    QTest::newRow("much too slow") << -1000e-6 << 0.1;
}

/// An hour at 25 frames: once the queue has been filled to two frames it never runs dry and never
/// grows.
void tst_device_clock::theClockFollowsASourceThatDrifts()
{
    QFETCH(double, drift);
    QFETCH(double, jitter);
    constexpr double period = 40e6;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> spread(0.0, jitter * period);

    FrameSchedule schedule(25, 1, 3'000'000);
    PhaseFollower follower;
    qint64 arrived = 0;
    double nextArrival = spread(random);
    qint64 taken = 0;
    bool isPrimed = false;
    int lowest = 99;
    int highest = 0;
    for (qint64 frame = 0; frame < 90'000; ++frame) {
        const double now = static_cast<double>(schedule.dueNs(frame));
        while (nextArrival <= now) {
            ++arrived;
            nextArrival = static_cast<double>(arrived) * period / (1.0 + drift) + spread(random);
        }
        const int level = static_cast<int>(arrived - taken);
        isPrimed = isPrimed || level >= 2;
        if (!isPrimed)
            continue;
        lowest = std::min(lowest, level);
        highest = std::max(highest, level);
        schedule.shift(follower.correction(level, schedule.periodNs()));
        ++taken;
    }
    QVERIFY2(lowest >= 1, "the queue ran dry");
    QVERIFY2(highest <= 3, qPrintable(QString::number(highest)));
}

void tst_device_clock::oneCorrectionIsAtMostTwoThousandthsOfAFrame()
{
    for (int level : {-5, 0, 1, 2, 3, 100}) {
        PhaseFollower follower;
        for (int i = 0; i < 1000; ++i)
            QVERIFY(std::abs(follower.correction(level, 40'000'000)) <= 80'000);
    }
    PhaseFollower full;
    qint64 last = 0;
    for (int i = 0; i < 100; ++i)
        last = full.correction(4, 40'000'000);
    QCOMPARE(last, qint64(-80'000)); // a full queue: frames come sooner
}

QTEST_APPLESS_MAIN(tst_device_clock)
#include "tst_device_clock.moc"
