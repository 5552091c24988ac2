#include "enginerig.h"

#include "liborb/orb.h"

#include <QFile>

/// Opening, opening anew, and what is told of it.
class TestEngineStream : public QObject
{
    Q_OBJECT

private slots:
    void startFrameZeroOpensWithoutAFlush();
    void aStartFrameIsReachedAfterAFlush();
    void anOpenThatCannotStartLeadsBackToStandbyOff();
    void anOpenThatFailsLeadsBackToStandbyOff();
    void reopenIsRefusedOnAClosedStream();
    void reopenIsRefusedForTheOtherDirection();
    void reopenedPlaybackResumesAtThePlaceLeft();
    void reopenedPlaybackOfOtherMaterialStartsAtItsStart();
    void aCueAfterAReopenGoesToTheCue();
    void cacheErrorsAreOnlyLogged();
    void recordInfoHoldsOneDescriptionOfEachKind();
    void aFirstFrameWithoutSoundHasNoSoundInTheInfo();
    void aVariableRateSourceNamesItsEffectiveRate();
    void theRecordStreamIsFlushedEverySecondAndOnlyWhileOpen();
    void storageInUseIsPaired();
    void benchmarkWritesALineAFrame();
};

void TestEngineStream::startFrameZeroOpensWithoutAFlush()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->still();
    rig.run(300);
    QCOMPARE(rig.transcript.count("device: flush"), 0);
    QCOMPARE(rig.vtr->currentFrameNumber(), 0);
}

void TestEngineStream::aStartFrameIsReachedAfterAFlush()
{
    for (const int flushMs : {1, 5, 40}) {
        EngineRig rig;
        rig.startUp();
        rig.startFrame = 1;
        rig.video.flushes.push_back({.afterMs = flushMs});
        rig.vtr->still();
        rig.run(500);
        QCOMPARE(rig.transcript.count("device: flush"), 1);
        QCOMPARE(rig.vtr->currentFrameNumber(), 1);
    }
}

void TestEngineStream::anOpenThatCannotStartLeadsBackToStandbyOff()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.isRefused = true});
    rig.vtr->play();
    QVERIFY(rig.hasLog(1, "STREAM: Open for read failed"));
    QVERIFY(rig.hasLog(1, "Failed to open stream for read"));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QCOMPARE(rig.signalsSeen().mid(1, 3),
             (QStringList{"storageInUse true", "storageInUse false",
                          "modeChanged Play -> Standby Off"}));
}

void TestEngineStream::anOpenThatFailsLeadsBackToStandbyOff()
{
    EngineRig rig;
    rig.startUp();
    rig.playbackDesc = QString("/media/gone.mov");
    rig.vtr->play();
    rig.run(300);
    QVERIFY(rig.hasLog(1, "STREAM: Open Error 2"));
    QVERIFY(!rig.hasLog(3, "STREAM: Open is Done"));
    QVERIFY(rig.signalsSeen().contains("streamIsOpen 2"));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QCOMPARE(rig.transcript.count("signal storageInUse true"),
             rig.transcript.count("signal storageInUse false"));
}

void TestEngineStream::reopenIsRefusedOnAClosedStream()
{
    EngineRig rig;
    rig.startUp();
    QVERIFY(!rig.vtr->reopenRecordStream());
    QVERIFY(!rig.vtr->reopenPlaybackStream());
    QCOMPARE(rig.transcript.lines(),
             (QStringList{"log 1 STREAM: Can't reopen record stream: Stream is not open",
                          "log 1 STREAM: Can't reopen playback stream: Stream is not open"}));
}

void TestEngineStream::reopenIsRefusedForTheOtherDirection()
{
    EngineRig rig;
    rig.startPlay();
    QVERIFY(!rig.vtr->reopenRecordStream());
    QCOMPARE(rig.logs(),
             QStringList{"1 STREAM: Can't reopen record stream: Stream isn't writable"});
    EngineRig other;
    other.startRecord();
    QVERIFY(!other.vtr->reopenPlaybackStream());
    QCOMPARE(other.logs(),
             QStringList{"1 STREAM: Can't reopen playback stream: Stream is not readable"});
}

void TestEngineStream::reopenedPlaybackResumesAtThePlaceLeft()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(1000);
    QVERIFY(rig.vtr->reopenPlaybackStream());
    QVERIFY(rig.hasLog(3, "STREAM: Reopen Playback Stream"));
    rig.run(400);
    QCOMPARE(rig.transcript.count("log 3 Starting at prior playback position of "), 1);
    QCOMPARE(rig.transcript.count("device: setup"), 0);
    QVERIFY(rig.vtr->currentFrameNumber() > 25);
    QCOMPARE(rig.vtr->state().speed(), 1.0);
}

void TestEngineStream::reopenedPlaybackOfOtherMaterialStartsAtItsStart()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(2000);
    rig.playbackDesc = QString::fromLatin1(EngineRig::otherClipPath);
    QVERIFY(rig.vtr->reopenPlaybackStream());
    rig.run(700);
    QCOMPARE(rig.transcript.count("log 3 Starting at prior playback position of "), 0);
    QVERIFY(rig.vtr->currentFrameNumber() < 20);
}

void TestEngineStream::aCueAfterAReopenGoesToTheCue()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(1500);
    const int frame = rig.vtr->currentFrameNumber();
    QVERIFY(rig.vtr->reopenPlaybackStream());
    rig.vtr->cue(frame);
    rig.run(1200);
    QCOMPARE(rig.vtr->currentFrameNumber(), frame);
    QCOMPARE(rig.vtr->state().speed(), 0.0);
}

void TestEngineStream::cacheErrorsAreOnlyLogged()
{
    EngineRig rig;
    rig.media.badFrames = {20};
    rig.startUp();
    rig.vtr->play();
    rig.run(2000);
    QCOMPARE(rig.countLog(2, "STREAM: Cache Error @ 20: 5"), 1);
    QCOMPARE(rig.mode(), VtrState::Play);
    QVERIFY(rig.vtr->currentFrameNumber() > 30);
}

void TestEngineStream::recordInfoHoldsOneDescriptionOfEachKind()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setReelName("007");
    QCOMPARE(rig.video.property(23).toString(), QString("007"));
    rig.vtr->record();
    rig.run(100);
    const OrbStreamInfo info = rig.media.infos().last();
    QCOMPARE(info.reelName(), QString("007"));
    QCOMPARE(info.vids().size(), 1);
    QCOMPARE(info.auds().size(), 1);
    QCOMPARE(info.auds().first().chans(), 2);
    QVERIFY(!info.effectiveFrameRate().isValid());
}

void TestEngineStream::aFirstFrameWithoutSoundHasNoSoundInTheInfo()
{
    EngineRig rig;
    rig.startUp();
    rig.video.hasAudio = false;
    rig.vtr->record();
    rig.run(100);
    QVERIFY(rig.media.infos().last().auds().isEmpty());
}

void TestEngineStream::aVariableRateSourceNamesItsEffectiveRate()
{
    EngineRig rig;
    rig.startUp();
    rig.video.extraMetadata << OrbMetadata(OrbId(710), int(OrbVideoRate::Rate50));
    rig.vtr->record();
    rig.run(100);
    QCOMPARE(rig.media.infos().last().effectiveFrameRate(), OrbVideoRate(50, 1));
}

void TestEngineStream::theRecordStreamIsFlushedEverySecondAndOnlyWhileOpen()
{
    EngineRig rig;
    rig.startRecord();
    rig.run(5000);
    const int flushes = rig.media.flushCount();
    QCOMPARE(flushes, 5);
    rig.vtr->standbyOff();
    rig.run(5000);
    QCOMPARE(rig.media.flushCount(), flushes);
}

void TestEngineStream::storageInUseIsPaired()
{
    EngineRig rig;
    rig.startUp();
    int inUse = 0;
    int worst = 0;
    QObject::connect(rig.vtr.get(), &VtrObject::storageInUse, rig.vtr.get(), [&](bool on) {
        inUse += on ? 1 : -1;
        worst = std::max(worst, std::abs(inUse));
    });
    for (int i = 0; i < 20; ++i) {
        rig.vtr->play();
        rig.run(i * 7);
        rig.vtr->record();
        rig.run(i * 11);
        rig.vtr->standbyOff();
        rig.run(i * 5);
    }
    rig.run(2000);
    rig.vtr->standbyOff();
    rig.run(2000);
    QCOMPARE(inUse, 0);
    QCOMPARE(worst, 1);
}

void TestEngineStream::benchmarkWritesALineAFrame()
{
    const QString path = "/rvd_bench.txt";
    QFile::remove(path);
    QFile probe(path);
    const bool canWrite = probe.open(QIODevice::WriteOnly);
    probe.remove();
    {
        EngineRig rig;
        rig.startUp();
        rig.vtr->enableStreamBenchmark();
        rig.vtr->play();
        rig.run(1000);
        if (!canWrite) {
            QCOMPARE(rig.countLog(1, "Failed to open benchmark file: /rvd_bench.txt"), 1);
            return;
        }
        QCOMPARE(rig.countLog(3, "Benchmark file opened: /rvd_bench.txt"), 1);
    }
    QVERIFY(probe.open(QIODevice::ReadOnly));
    const QList<QByteArray> first = probe.readLine().trimmed().split(' ');
    QCOMPARE(first.size(), 2);
    QCOMPARE(first.at(0), QByteArray("0"));
    QVERIFY(first.at(1).toDouble() > 1.0);
    QVERIFY(probe.readAll().count('\n') > 10);
    probe.remove();
}

SIM_TEST_MAIN(TestEngineStream)
#include "tst_engine_stream.moc"
