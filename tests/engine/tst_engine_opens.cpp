#include "enginemodes.h"

#include "liborb/orb.h"
#include "liborb/orbplaylist.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTimer>

/// The stream: every way it is opened, opened anew and closed, told as stories.
class TestEngineOpens : public QObject
{
    Q_OBJECT

private slots:
    void theStoryOfAnOpenForPlayback();
    void theStoryOfAnOpenAtAStartFrame_data();
    void theStoryOfAnOpenAtAStartFrame();
    void aStartFrameIsReachedHoweverFlushAndOpenFall_data();
    void aStartFrameIsReachedHoweverFlushAndOpenFall();
    void theStoryOfPlaybackWithoutADescriptor();
    void theStoryOfAPlaybackOpenThatCannotStart();
    void theStoryOfAPlaybackOpenThatFails();
    void aFailedOpenTellsOfNoMedia();
    void playListsAreOpenedAsTheyAre();
    void whatIsReopened_data();
    void whatIsReopened();
    void theStoryOfAPlaybackReopen();
    void reopenedPlaybackResumesOnlyInTheSameMedia_data();
    void reopenedPlaybackResumesOnlyInTheSameMedia();
    void reopenedPlaybackWithoutADescriptorEndsInStandbyOff();
    void theInfoOfARecording_data();
    void theInfoOfARecording();
    void theFlushTimer_data();
    void theFlushTimer();
    void aRecordStreamIsFlushedEverySecond();
    void aRolloverStopsAndStartsTheFlushing();
    void cacheErrorsAreLoggedAndChangeNothing_data();
    void cacheErrorsAreLoggedAndChangeNothing();
    void everyOpenAndCloseIsAnsweredOnce();
    void theBenchmarkWritesOneLineAFrame();
    void aBenchmarkFileThatCannotBeOpenedIsTriedOnce();
    void withoutTheOptionThereIsNoBenchmark();

private:
    static OrbPlayList listOf(const QStringList &paths, int length);
};

namespace {

constexpr char benchmarkPath[] = "/rvd_bench.txt";

QStringList without(QStringList lines, const QString &start)
{
    lines.removeIf([&](const QString &line) { return line.startsWith(start); });
    return lines;
}

bool isFlushTimerRunning(const EngineRig &rig)
{
    const auto timers = rig.vtr->findChildren<QTimer *>();
    int running = 0; // beside the check of the reference, whose period is the same
    for (const QTimer *timer : timers)
        running += timer->isActive() && !timer->isSingleShot() && timer->interval() == 1000 ? 1 : 0;
    return running == 2;
}

} // namespace

OrbPlayList TestEngineOpens::listOf(const QStringList &paths, int length)
{
    OrbPlayList list;
    for (const QString &path : paths) {
        OrbPlayListEntry entry;
        entry.setName(path);
        entry.setDesc(path);
        entry.setLength(length);
        list << entry;
    }
    return list;
}

void TestEngineOpens::theStoryOfAnOpenForPlayback()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->play();
    rig.run(6);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY 1.000",
        "device: property 22 = 1600",
        "signal modeChanged Standby Off -> Play",
        "device: property 26 = 1",
        "log 3 Mode changed from Standby Off to Play",
        "signal storageInUse true",
        "media: open read /media/a.mov",
        "log 3 STREAM: Open for Read Started",
        "signal stateChanged 0.000 Standby Off -> 1.000 Play",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
    }));
}

void TestEngineOpens::theStoryOfAnOpenAtAStartFrame_data()
{
    QTest::addColumn<int>("startFrame");
    QTest::addColumn<bool>("flushes");
    // clang-format off
    QTest::newRow("-1") << -1 << false;
    QTest::newRow("0")  << 0  << false;
    QTest::newRow("1")  << 1  << true;
    QTest::newRow("50") << 50 << true;
    // clang-format on
}

void TestEngineOpens::theStoryOfAnOpenAtAStartFrame()
{
    QFETCH(int, startFrame);
    QFETCH(bool, flushes);
    EngineRig rig;
    rig.startUp();
    rig.startFrame = startFrame;
    rig.vtr->still();
    QStringList story = {"signal storageInUse true", "media: open read /media/a.mov"};
    if (flushes)
        story << "device: flush";
    story << "log 3 STREAM: Open for Read Started";
    const qsizetype from = rig.transcript.lines().indexOf(story.first());
    QCOMPARE(rig.transcript.lines().mid(from, story.size()), story);
    rig.run(1000);
    QCOMPARE(rig.transcript.count("device: flush"), flushes ? 1 : 0);
    QCOMPARE(rig.vtr->currentFrameNumber(), std::max(startFrame, 0));
}

void TestEngineOpens::aStartFrameIsReachedHoweverFlushAndOpenFall_data()
{
    QTest::addColumn<int>("flushMs");
    QTest::addColumn<int>("openMs");
    for (const int flushMs : {0, 5, 100})
        for (const int openMs : {0, 5, 100})
            QTest::addRow("flush %d, open %d", flushMs, openMs) << flushMs << openMs;
}

void TestEngineOpens::aStartFrameIsReachedHoweverFlushAndOpenFall()
{
    QFETCH(int, flushMs);
    QFETCH(int, openMs);
    EngineRig rig;
    rig.startUp();
    rig.startFrame = 60;
    rig.video.flushes.push_back({.afterMs = flushMs});
    rig.media.opens.push_back({.afterMs = openMs});
    rig.vtr->still();
    rig.run(1000);
    QCOMPARE(rig.vtr->currentFrameNumber(), 60);
    QCOMPARE(rig.transcript.count("device: flush"), 1);
}

void TestEngineOpens::theStoryOfPlaybackWithoutADescriptor()
{
    EngineRig rig;
    rig.startUp();
    rig.playbackDesc = QVariant();
    rig.vtr->play();
    const QStringList story = {
        "log 1 STREAM: Failed to get a playback stream descriptor",
        "log 1 Failed to open stream for read",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
    };
    const qsizetype from = rig.transcript.lines().indexOf(story.first());
    QCOMPARE(rig.transcript.lines().mid(from, story.size()), story);
    QCOMPARE(rig.transcript.count("signal storageInUse"), 0);
    rig.run(1000);
    QCOMPARE(rig.transcript.count("signal streamIs"), 0);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineOpens::theStoryOfAPlaybackOpenThatCannotStart()
{
    EngineRig rig;
    rig.startUp();
    rig.startFrame = 5; // flushes nothing then
    rig.media.opens.push_back({.isRefused = true});
    rig.vtr->play();
    const QStringList story = {
        "signal storageInUse true",
        "log 1 STREAM: Open for read failed",
        "signal storageInUse false",
        "log 1 Failed to open stream for read",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
    };
    const qsizetype from = rig.transcript.lines().indexOf(story.first());
    QCOMPARE(rig.transcript.lines().mid(from, story.size()), story);
    rig.run(1000);
    QCOMPARE(rig.transcript.count("device: flush"), 0);
    QCOMPARE(rig.transcript.count("signal streamIs"), 0);
}

void TestEngineOpens::theStoryOfAPlaybackOpenThatFails()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.error = OrbError(13), .afterMs = 20});
    rig.vtr->play();
    rig.transcript.clear();
    rig.run(1000);
    const QStringList story = {
        "log 1 STREAM: Open Error 13",
        "signal storageInUse false",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
    QCOMPARE(rig.transcript.count("signal streamIsOpen 13"), 1);
    QCOMPARE(rig.transcript.count("signal streamIsClosed"), 0);
    QVERIFY(!rig.hasLog(3, "STREAM: Open is Done"));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineOpens::aFailedOpenTellsOfNoMedia()
{
    EngineRig rig;
    rig.startUp();
    QList<OrbStreamInfo> infos;
    QObject::connect(rig.vtr.get(), &VtrObject::streamIsOpen, rig.vtr.get(),
                     [&](const OrbError &, const OrbStreamInfo &info) { infos << info; });
    rig.recordDesc = QVariant();
    rig.vtr->record();
    rig.run(200);
    QCOMPARE(infos.size(), 1);
    QVERIFY(infos.first().vids().isEmpty() && infos.first().auds().isEmpty());
    QCOMPARE(infos.first().length(), OrbStreamInfo().length());
    rig.vtr->play();
    rig.run(200);
    QCOMPARE(infos.size(), 2);
    QCOMPARE(infos.last().length(), 100); // a stream that is open tells of itself
}

void TestEngineOpens::playListsAreOpenedAsTheyAre()
{
    EngineRig rig;
    rig.media.clips.insert("/media/a.mov+/media/b.mov", EngineRig::clip(150, EngineRig::hd25()));
    rig.startUp();
    rig.playbackDesc =
        QVariant::fromValue(listOf({EngineRig::clipPath, EngineRig::otherClipPath}, 75));
    rig.startFrame = 100;
    rig.vtr->play();
    rig.run(1000);
    QVERIFY(rig.transcript.contains("media: open read /media/a.mov+/media/b.mov"));
    QVERIFY(rig.vtr->currentFrameNumber() > 110);
    rig.transcript.clear();
    QVERIFY(rig.vtr->reopenPlaybackStream()); // the same list, made anew
    rig.playbackDesc =
        QVariant::fromValue(listOf({EngineRig::clipPath, EngineRig::otherClipPath}, 75));
    rig.startFrame = 0;
    rig.run(500);
    QCOMPARE(rig.transcript.count("log 3 Starting at prior playback position of 1"), 1);
    QVERIFY(rig.vtr->currentFrameNumber() > 115);
}

// Reopening ---------------------------------------------------------------------------------------

void TestEngineOpens::whatIsReopened_data()
{
    QTest::addColumn<bool>("forRecord");
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<QString>("line");
    const QString notOpen = "STREAM: Can't reopen %1 stream: Stream is not open";
    // clang-format off
    QTest::newRow("record in Standby Off")   << true  << VtrState::StandbyOff << "1 " + notOpen.arg("record");
    QTest::newRow("playback in Standby Off") << false << VtrState::StandbyOff << "1 " + notOpen.arg("playback");
    QTest::newRow("record in Play")          << true  << VtrState::Play       << "1 STREAM: Can't reopen record stream: Stream isn't writable";
    QTest::newRow("playback in Play")        << false << VtrState::Play       << "3 STREAM: Reopen Playback Stream";
    QTest::newRow("record in Record")        << true  << VtrState::Record     << "3 STREAM: Reopen Record Stream";
    QTest::newRow("playback in Record")      << false << VtrState::Record     << "1 STREAM: Can't reopen playback stream: Stream is not readable";
    // clang-format on
}

void TestEngineOpens::whatIsReopened()
{
    QFETCH(bool, forRecord);
    QFETCH(VtrState::Mode, mode);
    QFETCH(QString, line);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    const bool done = forRecord ? rig.vtr->reopenRecordStream() : rig.vtr->reopenPlaybackStream();
    QCOMPARE(done, line.startsWith("3 "));
    QCOMPARE(rig.logs(), QStringList{line});
    QCOMPARE(rig.transcript.count("media: close"), done ? 1 : 0);
    QCOMPARE(rig.transcript.count("device: flush"), done && !forRecord ? 1 : 0);
    QCOMPARE(rig.mode(), mode);
    QVERIFY(!(forRecord ? rig.vtr->reopenRecordStream() : rig.vtr->reopenPlaybackStream()));
    if (done) // it is closing
        QCOMPARE(rig.logs().last(), QString("1 STREAM: Can't reopen %1 stream: Stream is not open")
                                        .arg(forRecord ? "record" : "playback"));
}

void TestEngineOpens::theStoryOfAPlaybackReopen()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(1000);
    rig.transcript.clear();
    const int shown = rig.vtr->currentFrameNumber();
    QVERIFY(rig.vtr->reopenPlaybackStream());
    rig.run(60);
    const QStringList lines = rig.transcript.lines();
    const QString resumed = lines.filter("Starting at prior playback position of ").value(0);
    QCOMPARE(without(lines, "log 3 Starting at prior playback position of "), (QStringList{
        "log 3 STREAM: Reopen Playback Stream",
        "media: close /media/a.mov",
        "device: flush",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 VIDEO DEVICE: Flush Complete",
        "signal storageInUse true",
        "media: open read /media/a.mov",
        "log 3 STREAM: Open for Read Started",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
    }));
    // The place of the cache, ahead of what is shown by what the device had queued
    const int position = resumed.section(' ', -1).toInt();
    QVERIFY(position > shown && position <= shown + rig.video.queueSize + 1);
    QCOMPARE(lines.indexOf(resumed) + 1, lines.indexOf("log 3 STREAM: Open is Done"));
}

void TestEngineOpens::reopenedPlaybackResumesOnlyInTheSameMedia_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<bool>("resumes");
    const QString a = EngineRig::clipPath;
    const QString b = EngineRig::otherClipPath;
    // clang-format off
    QTest::newRow("same clip")           << QStringList{a}    << QStringList{a}    << true;
    QTest::newRow("other clip")          << QStringList{a}    << QStringList{b}    << false;
    QTest::newRow("same list")           << QStringList{a, b} << QStringList{a, b} << true;
    QTest::newRow("list in other order") << QStringList{a, b} << QStringList{b, a} << false;
    QTest::newRow("longer list")         << QStringList{a, b} << QStringList{a, b, a} << false;
    // clang-format on
}

void TestEngineOpens::reopenedPlaybackResumesOnlyInTheSameMedia()
{
    QFETCH(QStringList, before);
    QFETCH(QStringList, after);
    QFETCH(bool, resumes);
    EngineRig rig;
    for (const QStringList &paths : {before, after})
        rig.media.clips.insert(paths.join('+'), EngineRig::clip(500, EngineRig::hd25()));
    const auto descOf = [](const QStringList &paths) {
        return paths.size() == 1 ? QVariant(paths.first()) : QVariant::fromValue(listOf(paths, 250));
    };
    rig.playbackDesc = descOf(before);
    rig.startPlay();
    rig.run(2000);
    rig.playbackDesc = descOf(after);
    QVERIFY(rig.vtr->reopenPlaybackStream());
    rig.run(500);
    QCOMPARE(rig.transcript.count("log 3 Starting at prior playback position of "), resumes ? 1 : 0);
    QCOMPARE(rig.vtr->currentFrameNumber() > 45, resumes);
    QCOMPARE(rig.vtr->state().speed(), 1.0);
}

void TestEngineOpens::reopenedPlaybackWithoutADescriptorEndsInStandbyOff()
{
    EngineRig rig;
    rig.startPlay();
    rig.playbackDesc = QVariant();
    QVERIFY(rig.vtr->reopenPlaybackStream());
    rig.run(500);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QCOMPARE(rig.transcript.count("signal streamIsClosed"), 1);
    QCOMPARE(rig.transcript.count("signal streamIsOpen"), 0);
    QCOMPARE(rig.transcript.count("signal storageInUse true"), 0);
}

// Recording ---------------------------------------------------------------------------------------

void TestEngineOpens::theInfoOfARecording_data()
{
    QTest::addColumn<int>("images");
    QTest::addColumn<bool>("hasSound");
    QTest::addColumn<QVariant>("rate");
    QTest::addColumn<OrbVideoRate>("effective");
    // clang-format off
    QTest::newRow("picture and sound") << 1 << true  << QVariant()                       << OrbVideoRate();
    QTest::newRow("no sound")          << 1 << false << QVariant()                       << OrbVideoRate();
    QTest::newRow("two pictures")      << 2 << true  << QVariant()                       << OrbVideoRate();
    QTest::newRow("no picture")        << 0 << true  << QVariant()                       << OrbVideoRate();
    QTest::newRow("23.976")            << 1 << true  << QVariant(OrbVideoRate::Rate23_976) << OrbVideoRate(OrbVideoRate::Rate23_976);
    QTest::newRow("60")                << 1 << true  << QVariant(OrbVideoRate::Rate60)   << OrbVideoRate(OrbVideoRate::Rate60);
    QTest::newRow("no such rate")      << 1 << true  << QVariant(99)                     << OrbVideoRate();
    // clang-format on
}

void TestEngineOpens::theInfoOfARecording()
{
    QFETCH(int, images);
    QFETCH(bool, hasSound);
    QFETCH(QVariant, rate);
    QFETCH(OrbVideoRate, effective);
    EngineRig rig;
    rig.startUp();
    rig.vtr->setReelName("A12");
    OrbFrame frame = rig.media.frameOf(rig.media.clips.value(EngineRig::clipPath), 0);
    const OrbImage other(EngineRig::imageDesc(720, 576, 25, 1, true), OrbBuffer(8, 8));
    frame.vids().resize(std::min(images, 1));
    if (images == 2)
        frame.vids() << other;
    if (hasSound)
        frame.auds() << frame.auds().first();
    else
        frame.auds().clear();
    if (rate.isValid())
        frame.meta().insert(OrbId(710), rate.toInt());
    QVERIFY(rig.vtr->streamOpenForWrite(frame));
    rig.run(20);
    const OrbStreamInfo info = rig.media.infos().last();
    QCOMPARE(info.vids(), images ? QList<OrbImageDesc>{EngineRig::hd25()} : QList<OrbImageDesc>{});
    QCOMPARE(int(info.auds().size()), hasSound ? 1 : 0);
    QCOMPARE(info.reelName(), QString("A12"));
    QCOMPARE(info.offset(), 0);
    QCOMPARE(info.effectiveFrameRate(), effective);
}

void TestEngineOpens::theFlushTimer_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<bool>("runs");
    for (const VtrState::Mode mode : EngineModes::all)
        QTest::newRow(EngineModes::name(mode)) << mode << (mode == VtrState::Record);
}

void TestEngineOpens::theFlushTimer()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(bool, runs);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    QCOMPARE(isFlushTimerRunning(rig), runs);
    rig.run(3000);
    QCOMPARE(rig.media.flushCount(), runs ? 3 : 0);
}

void TestEngineOpens::aRecordStreamIsFlushedEverySecond()
{
    EngineRig rig;
    rig.startRecord();
    rig.run(60000);
    QCOMPARE(rig.media.flushCount(), 60);
    rig.vtr->standbyOff();
    rig.run(200);
    QVERIFY(!isFlushTimerRunning(rig));
    rig.vtr->play();
    rig.run(5000);
    QCOMPARE(rig.media.flushCount(), 60);
}

void TestEngineOpens::aRolloverStopsAndStartsTheFlushing()
{
    EngineRig rig;
    rig.video.captureLimit = 1000; // frames wait for the open
    rig.startRecord();
    rig.recordDesc = QString("/media/next.mov");
    rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
    QVERIFY(rig.vtr->reopenRecordStream());
    rig.run(200);
    QVERIFY(!isFlushTimerRunning(rig));
    rig.run(5000);
    QCOMPARE(rig.media.flushCount(), 0);
    rig.media.finishOpen();
    QVERIFY(isFlushTimerRunning(rig));
    rig.run(2001);
    QCOMPARE(rig.media.flushCount(), 2);
    QCOMPARE(rig.mode(), VtrState::Record);
}

void TestEngineOpens::cacheErrorsAreLoggedAndChangeNothing_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<QString>("line");
    QTest::newRow("Play") << VtrState::Play << "STREAM: Cache Error @ 30: 5";
    QTest::newRow("Record") << VtrState::Record << "STREAM: Cache Error @ 6: 28";
}

void TestEngineOpens::cacheErrorsAreLoggedAndChangeNothing()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(QString, line);
    EngineRig rig;
    rig.media.badFrames = {30};
    rig.startUp();
    if (mode == VtrState::Play)
        rig.vtr->play();
    else
        rig.vtr->record();
    rig.run(190);
    rig.media.writeError = OrbError(28);
    rig.run(2000);
    QCOMPARE(rig.mode(), mode);
    QVERIFY2(rig.hasLog(2, line), qPrintable(rig.logs().filter("Cache Error").join(' ')));
    QCOMPARE(rig.alarmTexts(), QStringList{});
}

void TestEngineOpens::everyOpenAndCloseIsAnsweredOnce()
{
    EngineRig rig;
    rig.startUp();
    for (int i = 0; i < 30; ++i) {
        rig.media.opens.push_back({.error = OrbError(i % 5 == 3 ? 5 : 0), .afterMs = i * 3});
        rig.media.closes.push_back({.afterMs = i * 2});
        if (i % 2)
            rig.vtr->play();
        else
            rig.vtr->record();
        rig.run(400 + 5 * i);
    }
    rig.vtr->standbyOff();
    rig.run(2000);
    int opened = 0;
    bool isOpen = false;
    bool isInUse = false;
    const QStringList seen = rig.signalsSeen();
    for (const QString &line : seen) {
        if (line.startsWith("storageInUse")) {
            QCOMPARE(isInUse, line.endsWith("false"));
            isInUse = !isInUse;
        } else if (line == "streamIsOpen 0") {
            QVERIFY(!isOpen && isInUse);
            isOpen = true;
            ++opened;
        } else if (line == "streamIsClosed") {
            QVERIFY(isOpen && !isInUse);
            isOpen = false;
        }
    }
    QVERIFY(!isOpen && !isInUse);
    QVERIFY(opened >= 20);
}

// Benchmark ---------------------------------------------------------------------------------------

void TestEngineOpens::theBenchmarkWritesOneLineAFrame()
{
    QFile file(benchmarkPath);
    if (file.exists() || !file.open(QIODevice::WriteOnly))
        QSKIP("the root folder cannot be written, or holds a benchmark already");
    file.write("something old");
    file.close();
    {
        EngineRig rig;
        rig.startUp();
        rig.vtr->enableStreamBenchmark();
        QCOMPARE(rig.countLog(3, "Benchmark file opened: /rvd_bench.txt"), 0);
        rig.vtr->play();
        rig.run(2000);
        rig.vtr->standbyOff();
        rig.run(200);
        rig.vtr->play();
        rig.run(2000); // kept for the engine's life
        QCOMPARE(rig.countLog(3, "Benchmark file opened: /rvd_bench.txt"), 1);
    }
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = file.readAll().split('\n');
    file.close();
    QVERIFY(file.remove());
    QVERIFY(lines.size() > 50);
    QCOMPARE(lines.last(), QByteArray());
    static const QRegularExpression form("^\\d+ \\d+\\.\\d{6}$");
    for (const QByteArray &line : lines.mid(0, lines.size() - 1))
        QVERIFY2(form.match(QString::fromLatin1(line)).hasMatch(), line.constData());
}

void TestEngineOpens::aBenchmarkFileThatCannotBeOpenedIsTriedOnce()
{
    const QString path = benchmarkPath;
    if (QFile::exists(path) || !QDir().mkdir(path))
        QSKIP("a folder of the benchmark file's name cannot be made");
    EngineRig rig;
    rig.startUp();
    rig.vtr->enableStreamBenchmark();
    rig.vtr->play();
    rig.run(500);
    QVERIFY(QDir().rmdir(path));
    rig.run(2000);
    QCOMPARE(rig.countLog(1, "Failed to open benchmark file: /rvd_bench.txt"), 1);
    QCOMPARE(rig.countLog(3, "Benchmark file opened: /rvd_bench.txt"), 0);
    QVERIFY(!QFile::exists(path));
    QCOMPARE(rig.mode(), VtrState::Play);
    QVERIFY(rig.vtr->currentFrameNumber() > 40);
}

void TestEngineOpens::withoutTheOptionThereIsNoBenchmark()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(1000);
    QCOMPARE(rig.logs().filter("enchmark"), QStringList{});
}

SIM_TEST_MAIN(TestEngineOpens)
#include "tst_engine_opens.moc"
