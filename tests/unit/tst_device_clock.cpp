#include "liborb/drivers/software/frameschedule.h"
#include "liborb/drivers/software/inputpace.h"

#include <QTest>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

using ferin::FrameSchedule;
using ferin::InputPace;
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
    void aNetworkIsHeldForEightyMilliseconds();
    void framesAreTakenAsTheyCome();
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
    QTest::addColumn<int>("held");
    QTest::addColumn<double>("drift");
    QTest::addColumn<double>("jitter"); // in frames: by how much one may be late
    QTest::newRow("same clock") << 2 << 0.0 << 0.05;
    QTest::newRow("fast source") << 2 << 200e-6 << 0.2;
    QTest::newRow("slow source") << 2 << -200e-6 << 0.2;
    QTest::newRow("much too fast") << 2 << 1000e-6 << 0.1;
    QTest::newRow("much too slow") << 2 << -1000e-6 << 0.1;
    QTest::newRow("bursts, fast source") << 5 << 200e-6 << 3.0;
    QTest::newRow("bursts, slow source") << 5 << -200e-6 << 3.0;
}

/// An hour at 25 frames: once the queue has been filled it never runs dry and never grows.
void tst_device_clock::theClockFollowsASourceThatDrifts()
{
    QFETCH(int, held);
    QFETCH(double, drift);
    QFETCH(double, jitter);
    constexpr double period = 40e6;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> spread(0.0, jitter * period);

    FrameSchedule schedule(25, 1, 3'000'000);
    PhaseFollower follower(held);
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
        isPrimed = isPrimed || level >= held;
        if (!isPrimed)
            continue;
        lowest = std::min(lowest, level);
        highest = std::max(highest, level);
        schedule.shift(follower.correction(level, schedule.periodNs()));
        ++taken;
    }
    QVERIFY2(lowest >= 1, "the queue ran dry");
    QVERIFY2(highest <= held + 1 + static_cast<int>(jitter / 2), qPrintable(QString::number(highest)));
}

void tst_device_clock::aNetworkIsHeldForEightyMilliseconds()
{
    QCOMPARE(ferin::framesHeldOfNetwork(24000, 1001), 2);
    QCOMPARE(ferin::framesHeldOfNetwork(25, 1), 2);
    QCOMPARE(ferin::framesHeldOfNetwork(50, 1), 4);
    QCOMPARE(ferin::framesHeldOfNetwork(60000, 1001), 5);
    QCOMPARE(ferin::framesHeldOfNetwork(1, 1), 2);
    QCOMPARE(ferin::framesHeldOfNetwork(1000, 1), 10); // the queue must be able to hold them, and more
}

void tst_device_clock::framesAreTakenAsTheyCome()
{
    InputPace pace;
    const auto due = [&pace](int waiting, int held) {
        std::int64_t shiftNs = 0;
        const int count = pace.framesDue(waiting, held, 16'666'666, shiftNs);
        return std::pair(count, shiftNs);
    };
    const std::pair<int, std::int64_t> none(0, 0);
    QCOMPARE(due(4, 5), none); // it fills at first
    QCOMPARE(due(5, 5).first, 1);
    QVERIFY(due(5, 5).second < 0); // more than it should hold on average: frames are taken sooner
    QCOMPARE(due(1, 5).first, 1);
    QCOMPARE(due(6, 5).first, 1);
    QCOMPARE(due(7, 5).first, 2); // a burst: more than the frame clock will make up for
    QCOMPARE(due(100, 5).first, InputPace::mostDue);
    QCOMPARE(due(0, 5), none); // dry: it fills again
    QCOMPARE(due(4, 5), none);
    QCOMPARE(due(5, 5).first, 1);
    pace.restart();
    QCOMPARE(due(1, 2), none);
    QCOMPARE(due(2, 2).first, 1);
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
