#include "liborb/drivers/software/playbackqueue.h"
#include "liborb/drivers/software/speedstepper.h"

#include <QTest>

#include <limits>

using namespace ferin;

namespace {

/// A picture that is decoded at once, or not before it is told to.
class ScriptedJob : public DecodeJob
{
public:
    bool isDone() const override { return done; }
    bool wait(int) override { return done; }
    RawPictureRef picture() const override { return nullptr; }
    void cancel() override { cancelled = true; }

    bool done = true;
    bool cancelled = false;
};

OrbFrame numbered(int number)
{
    OrbImageDesc desc;
    desc.setSize(64, 64);
    OrbFrame frame;
    frame.vids().append(OrbImage(desc, OrbBuffer(16, 0)));
    frame.meta().insert(OrbIdFrameNumber, number);
    return frame;
}

int numberOf(const OrbFrame &frame)
{
    return frame.meta().valueFor(OrbIdFrameNumber).toInt();
}

/// Queue and decoder, beat by beat; each beat answers the frame on output.
struct Bench {
    Bench()
    {
        queue.setDecode([this](const OrbImage &) {
            jobs.append(std::make_shared<ScriptedJob>());
            return jobs.last();
        });
    }
    void fill(int from, int count)
    {
        for (int i = 0; i < count; ++i)
            queue.push(numbered(from + i));
    }
    int beat()
    {
        queue.decodeAhead();
        PlaybackEntry entry;
        const PlaybackQueue::Step step = queue.pick(entry);
        if (step == PlaybackQueue::Step::Show)
            onOutput = numberOf(entry.frame);
        queue.done(step);
        return step == PlaybackQueue::Step::Empty ? -1 : onOutput;
    }

    PlaybackQueue queue;
    QList<std::shared_ptr<ScriptedJob>> jobs;
    int onOutput = -1;
};

QList<int> shown(double speed, int beats)
{
    SpeedStepper stepper;
    stepper.setSpeed(speed);
    QList<int> positions;
    int position = -1;
    for (int i = 0; i < beats; ++i) {
        position += stepper.next();
        stepper.advance();
        positions.append(position);
    }
    return positions;
}

} // namespace

class tst_device_playback : public QObject
{
    Q_OBJECT
private slots:
    void forwardSpeedsStepExactly_data();
    void forwardSpeedsStepExactly();
    void stepsNeverDrift();
    void reverseAndStillShowEachQueuedFrameOnce();
    void theQueueHasRoomForItsSpeed_data();
    void theQueueHasRoomForItsSpeed();
    void framesComeOutInOrder();
    void framesThatAreNotShownAreNeverDecoded();
    void onlyAFewFramesAreDecodedAhead();
    void aShortQueueIsWaitedForAndThenGivesWhatItHas();
    void aShortQueueThatFillsLosesNoFrame();
    void aNewSpeedCountsForFramesQueuedAfterIt();
    void aNewSpeedHasItsRoomAtOnce();
    void anEmptyQueueLosesNoStep();
    void aHeldFrameIsDecodedOnce();
    void clearingStartsOverAndCancels();
    void aBeatThatFailsIsAskedForAgain();
    void aFrameWithoutPictureHasNoJob();
};

void tst_device_playback::forwardSpeedsStepExactly_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<QList<int>>("positions");
    QTest::newRow("1") << 1.0 << QList<int> {0, 1, 2, 3, 4};
    QTest::newRow("2") << 2.0 << QList<int> {0, 2, 4, 6, 8};
    QTest::newRow("0.5") << 0.5 << QList<int> {0, 0, 1, 1, 2, 2};
    QTest::newRow("1.5") << 1.5 << QList<int> {0, 1, 3, 4, 6, 7};
    QTest::newRow("20") << 20.0 << QList<int> {0, 20, 40, 60};
}

void tst_device_playback::forwardSpeedsStepExactly()
{
    QFETCH(double, speed);
    QFETCH(QList<int>, positions);
    QCOMPARE(shown(speed, static_cast<int>(positions.size())), positions);
}

void tst_device_playback::stepsNeverDrift()
{
    QCOMPARE(shown(0.1, 100'001).last(), 10'000);
    QCOMPARE(shown(1.03, 100'001).last(), 103'000);
    QCOMPARE(shown(0.29, 101).last(), 29); // 0.29 * 100 is a little less than 29 in binary
    QCOMPARE(shown(1.15, 101).last(), 115);
}

void tst_device_playback::reverseAndStillShowEachQueuedFrameOnce()
{
    for (double speed : {0.0, -0.5, -1.0, -20.0, std::numeric_limits<double>::quiet_NaN()})
        QCOMPARE(shown(speed, 4), (QList<int> {0, 1, 2, 3}));
}

void tst_device_playback::theQueueHasRoomForItsSpeed_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<int>("room");
    QTest::newRow("still") << 0.0 << 8;
    QTest::newRow("normal") << 1.0 << 8;
    QTest::newRow("reverse") << -20.0 << 8;
    QTest::newRow("2") << 2.0 << 8;
    QTest::newRow("4.5") << 4.5 << 15;
    QTest::newRow("20") << 20.0 << 60;
    QTest::newRow("beyond the range") << 1e9 << 60;
}

void tst_device_playback::theQueueHasRoomForItsSpeed()
{
    QFETCH(double, speed);
    QFETCH(int, room);
    PlaybackQueue queue;
    queue.setSpeed(speed);
    QCOMPARE(queue.room(), room);
    queue.push(numbered(1));
    QCOMPARE(queue.room(), room - 1);
}

void tst_device_playback::framesComeOutInOrder()
{
    Bench bench;
    bench.fill(10, 4);
    QCOMPARE(bench.beat(), 10);
    QCOMPARE(bench.beat(), 11);
    QCOMPARE(bench.queue.size(), 2);
}

void tst_device_playback::framesThatAreNotShownAreNeverDecoded()
{
    Bench bench;
    bench.queue.setSpeed(10.0);
    bench.fill(0, 30);
    QCOMPARE(bench.beat(), 0);
    QCOMPARE(bench.beat(), 10);
    QCOMPARE(bench.beat(), 20);
    QCOMPARE(bench.jobs.size(), 3);
}

void tst_device_playback::onlyAFewFramesAreDecodedAhead()
{
    Bench bench;
    bench.queue.setAhead(3);
    bench.fill(0, 8);
    bench.queue.decodeAhead();
    QCOMPARE(bench.jobs.size(), 3);
    bench.beat();
    bench.queue.decodeAhead();
    QCOMPARE(bench.jobs.size(), 4);
}

void tst_device_playback::aShortQueueIsWaitedForAndThenGivesWhatItHas()
{
    Bench bench;
    bench.queue.setSpeed(5.0);
    bench.fill(0, 4);
    QCOMPARE(bench.beat(), 0);
    int waited = 0;
    for (; bench.beat() == -1 && waited < 100; ++waited)
        QCOMPARE(bench.queue.size(), 3);
    QVERIFY(waited > 4 && waited < 30);
    QCOMPARE(bench.onOutput, 3);
    QCOMPARE(bench.queue.size(), 0);
}

void tst_device_playback::aShortQueueThatFillsLosesNoFrame()
{
    Bench bench;
    bench.queue.setSpeed(5.0);
    bench.fill(0, 4);
    QCOMPARE(bench.beat(), 0);
    QCOMPARE(bench.beat(), -1);
    QCOMPARE(bench.beat(), -1);
    bench.fill(4, 10);
    QCOMPARE(bench.beat(), 5);
    QCOMPARE(bench.beat(), 10);
}

/// A beat may fall between the change and the flush that comes with it.
void tst_device_playback::aNewSpeedCountsForFramesQueuedAfterIt()
{
    Bench bench;
    bench.fill(0, 8);
    QCOMPARE(bench.beat(), 0);
    bench.queue.setSpeed(4.0);
    QCOMPARE(bench.beat(), 1);
    bench.queue.clear();
    bench.fill(1, 20);
    QCOMPARE(bench.beat(), 1);
    QCOMPARE(bench.beat(), 5);
    bench.queue.setSpeed(1.0);
    bench.queue.push(numbered(21));
    QCOMPARE(bench.beat(), 6);
}

void tst_device_playback::aNewSpeedHasItsRoomAtOnce()
{
    Bench bench;
    bench.fill(0, 8);
    QCOMPARE(bench.queue.room(), 0);
    bench.queue.setSpeed(20.0);
    QCOMPARE(bench.queue.room(), 52);
    QCOMPARE(bench.queue.speed(), 20.0);
}

void tst_device_playback::anEmptyQueueLosesNoStep()
{
    Bench bench;
    bench.queue.setSpeed(0.5);
    bench.fill(0, 1);
    QCOMPARE(bench.beat(), 0);
    QCOMPARE(bench.beat(), 0);
    QCOMPARE(bench.beat(), -1);
    QCOMPARE(bench.beat(), -1);
    bench.fill(1, 2);
    QCOMPARE(bench.beat(), 1);
    QCOMPARE(bench.beat(), 1);
    QCOMPARE(bench.beat(), 2);
}

void tst_device_playback::aHeldFrameIsDecodedOnce()
{
    Bench bench;
    const OrbFrame last = numbered(99);
    for (int i = 0; i < 6; ++i) {
        bench.queue.push(last);
        QCOMPARE(bench.beat(), 99);
    }
    for (int i = 0; i < 6; ++i)
        bench.queue.push(last);
    while (bench.beat() == 99 && bench.queue.size() > 0) {
    }
    QCOMPARE(bench.jobs.size(), 1);
}

void tst_device_playback::clearingStartsOverAndCancels()
{
    Bench bench;
    bench.queue.setSpeed(2.0);
    bench.fill(0, 8);
    bench.beat();
    bench.queue.decodeAhead();
    bench.queue.clear();
    QVERIFY(!bench.jobs.first()->cancelled); // it is on output
    QVERIFY(bench.jobs.last()->cancelled);
    QCOMPARE(bench.queue.size(), 0);
    bench.fill(50, 8);
    QCOMPARE(bench.beat(), 50);
    QCOMPARE(bench.beat(), 52);
}

void tst_device_playback::aBeatThatFailsIsAskedForAgain()
{
    Bench bench;
    bench.fill(0, 2);
    PlaybackEntry entry;
    QCOMPARE(bench.queue.pick(entry), PlaybackQueue::Step::Show);
    QCOMPARE(bench.queue.pick(entry), PlaybackQueue::Step::Show);
    QCOMPARE(numberOf(entry.frame), 0);
    QCOMPARE(bench.jobs.size(), 1);
}

void tst_device_playback::aFrameWithoutPictureHasNoJob()
{
    Bench bench;
    bench.queue.push(OrbFrame());
    PlaybackEntry entry;
    QCOMPARE(bench.queue.pick(entry), PlaybackQueue::Step::Show);
    QVERIFY(!entry.job);
}

QTEST_APPLESS_MAIN(tst_device_playback)
#include "tst_device_playback.moc"
