#include "aux/timecodetrigger.h"

#include <QMetaMethod>
#include <QTest>

/// Whether a timecode runs or has stopped, and when that is said.
class TestTimecodeTrigger : public QObject
{
    Q_OBJECT

private slots:
    void signalsAndSlotsStandInOrder();
    void aRunningTimecodeStartsOnTheSixthJudgedFrame();
    void aFrozenTimecodeStopsOnTheTwelfthRepeat();
    void oneRepeatIsLetPass();
    void aMissingTimecodeCountsAsStoppedOnceOneWasSeen();
    void nothingIsJudgedBeforeTheFirstTimecode();
    void theSameStateIsNeverSignalledTwice();
    void confirmationsDeliberatelyLeaveAPendingChangeAlone();
    void withoutADelayTheSecondObservationCounts();
    void aNewDelayLeavesWhatWasCounted();
    void matchingIgnoresRateAndFlags();
    void midnightBeforeAnyTimecodePassesForARepeat();
    void everyThirdEqualFrameIsLetPassAgain();
};

namespace {

struct Watcher {
    explicit Watcher(int delay)
    {
        trigger.setDelay(delay);
        QObject::connect(&trigger, &TimecodeTrigger::timecodeHasStarted, &trigger,
                         [this] { seen << QString("start %1").arg(fed); });
        QObject::connect(&trigger, &TimecodeTrigger::timecodeHasStopped, &trigger,
                         [this] { seen << QString("stop %1").arg(fed); });
    }

    void feed(const OrbTimecode &next)
    {
        ++fed;
        trigger.setTimecode(next);
    }
    void run(int frames)
    {
        for (int i = 0; i < frames; ++i) {
            tc = tc.advanced(1);
            feed(tc);
        }
    }
    void freeze(int frames)
    {
        for (int i = 0; i < frames; ++i)
            feed(tc);
    }
    void lose(int frames)
    {
        for (int i = 0; i < frames; ++i)
            feed(OrbTimecode());
    }
    QStringList take()
    {
        fed = 0;
        return std::exchange(seen, QStringList());
    }

    TimecodeTrigger trigger;
    OrbTimecode tc = OrbTimecode(10, 0, 0, 0, 25, 0);
    int fed = 0; ///< frames since take()
    QStringList seen;
};

} // namespace

void TestTimecodeTrigger::signalsAndSlotsStandInOrder()
{
    QStringList found;
    const QMetaObject &meta = TimecodeTrigger::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        found << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(found, (QStringList{"timecodeHasStarted()", "timecodeHasStopped()",
                                 "setTimecode(OrbTimecode)", "setDelay(int)"}));
}

void TestTimecodeTrigger::aRunningTimecodeStartsOnTheSixthJudgedFrame()
{
    Watcher w(4);
    w.run(20);
    QCOMPARE(w.take(), QStringList{"start 7"}); // the first only sets the mark
}

void TestTimecodeTrigger::aFrozenTimecodeStopsOnTheTwelfthRepeat()
{
    Watcher w(4);
    w.run(20);
    w.take();
    w.freeze(40);
    QCOMPARE(w.take(), QStringList{"stop 12"});
}

void TestTimecodeTrigger::oneRepeatIsLetPass()
{
    Watcher w(0);
    w.run(10);
    QCOMPARE(w.take(), QStringList{"start 3"});
    for (int i = 0; i < 20; ++i) {
        w.freeze(1);
        w.run(1);
    }
    QCOMPARE(w.take(), QStringList{});
}

void TestTimecodeTrigger::aMissingTimecodeCountsAsStoppedOnceOneWasSeen()
{
    Watcher w(4);
    w.run(20);
    w.take();
    w.lose(1); // judged against the last one
    w.lose(20);
    QCOMPARE(w.take(), QStringList{}); // after it there is no last one to judge against
    Watcher v(0);
    v.run(5);
    v.take();
    v.lose(1);
    v.run(1);
    v.lose(1);
    QCOMPARE(v.take(), QStringList{"stop 3"});
}

void TestTimecodeTrigger::nothingIsJudgedBeforeTheFirstTimecode()
{
    Watcher w(0);
    w.lose(50);
    QCOMPARE(w.take(), QStringList{});
}

void TestTimecodeTrigger::theSameStateIsNeverSignalledTwice()
{
    Watcher w(2);
    for (int i = 0; i < 50; ++i) {
        w.run(7 + i % 5);
        w.freeze(9 + i % 7);
    }
    const QStringList seen = w.take();
    QVERIFY(seen.size() > 20);
    for (int i = 1; i < seen.size(); ++i)
        QVERIFY(seen.at(i).left(4) != seen.at(i - 1).left(4));
}

void TestTimecodeTrigger::confirmationsDeliberatelyLeaveAPendingChangeAlone()
{
    Watcher w(1);
    w.run(10);
    w.take();
    w.freeze(2); // judged stopped once
    w.run(3);    // running: confirms the state, and leaves the count
    w.freeze(2); // stopped twice
    QCOMPARE(w.take(), QStringList{});
    w.run(3);
    w.freeze(2); // three times: delay 1 + 2
    QCOMPARE(w.take().size(), 1);
}

void TestTimecodeTrigger::withoutADelayTheSecondObservationCounts()
{
    Watcher w(0);
    w.run(4);
    QCOMPARE(w.take(), QStringList{"start 3"});
}

void TestTimecodeTrigger::aNewDelayLeavesWhatWasCounted()
{
    Watcher w(10);
    w.run(6); // five observations of running, confirmed four times
    w.trigger.setDelay(4);
    QCOMPARE(w.take(), QStringList{});
    w.run(1);
    QCOMPARE(w.take(), QStringList{"start 1"});
    w.trigger.setDelay(0);
    w.run(10); // the state stays as well
    QCOMPARE(w.take(), QStringList{});
}

void TestTimecodeTrigger::matchingIgnoresRateAndFlags()
{
    Watcher w(0);
    w.run(4);
    QCOMPARE(w.take(), QStringList{"start 3"});
    for (int i = 0; i < 4; ++i) {
        OrbTimecode same = w.tc;
        same.setFPS(i % 2 != 0 ? 30 : 24);
        same.setDropFrame(i % 2 == 0);
        w.feed(same);
    }
    QCOMPARE(w.take(), QStringList{"stop 4"});
}

void TestTimecodeTrigger::midnightBeforeAnyTimecodePassesForARepeat()
{
    // It equals the label that stands for none, so it is not stored.
    Watcher w(0);
    w.tc = OrbTimecode(23, 59, 59, 24, 25, 0);
    w.run(5);
    QCOMPARE(w.take(), QStringList{"start 4"});
}

void TestTimecodeTrigger::everyThirdEqualFrameIsLetPassAgain()
{
    Watcher w(1);
    w.run(10);
    w.take();
    w.freeze(5); // passed, judged, passed, judged, passed
    QCOMPARE(w.take(), QStringList{});
    w.freeze(1); // judged: the third observation
    QCOMPARE(w.take(), QStringList{"stop 1"});
}

QTEST_APPLESS_MAIN(TestTimecodeTrigger)
#include "tst_timecodetrigger.moc"
