#include "enginerig.h"

#include "liborb/orb.h"

#include <functional>

/// The first frame of a recording, held back while its stream opens, and what becomes of it and of
/// the frames behind it; rollover; the end of a recording.
class TestEngineHeldFrame : public QObject
{
    Q_OBJECT

private slots:
    void itIsWrittenFirstHoweverSlowTheOpen_data();
    void itIsWrittenFirstHoweverSlowTheOpen();
    void framesThatComeMeanwhileStayWithTheDevice();
    void anOpenThatFailsDropsIt_data();
    void anOpenThatFailsDropsIt();
    void theStoryOfAnOpenThatCannotStart();
    void theStoryOfARecordingWithoutADescriptor();
    void theStoryOfAnOpenThatFails();
    void afterAFailedOpenTheNextRecordingBeginsWithAFrameOfItsOwn();
    void stopWhileOpeningWritesItAlone();
    void stopWhileOpeningAnOpenThatFailsLosesItQuietly();
    void oneThatTurnsInvalidIsDroppedAndTheNextOneOpens();
    void rolloverLosesAndDoublesNothing_data();
    void rolloverLosesAndDoublesNothing();
    void tenRolloversInARowLoseAndDoubleNothing();
    void theStoryOfARollover();
    void aRolloverToNowhereEndsTheRecording_data();
    void aRolloverToNowhereEndsTheRecording();
    void stopDuringARolloverClose();
    void stopDuringARolloverOpen();
    void cleanUpWhileOpeningIsLogged();
    void cleanUpWritesAHeldFrameIfItHasAPicture_data();
    void cleanUpWritesAHeldFrameIfItHasAPicture();
    void cleanUpOfARecordingWithoutAFrameIsLogged();
    void cleanUpPushesWhatIsCached();
    void cleanUpOfAClosedStreamSaysNothing();

private:
    static void compareGapless(const QList<int> &numbers);
};

namespace {

/// Every open and every close is answered once, storage is in use in between.
void compareSignals(const EngineRig &rig, const QStringList &expected)
{
    QStringList found;
    const QStringList seen = rig.signalsSeen();
    for (const QString &line : seen)
        if (line.startsWith("stream") || line.startsWith("storage"))
            found << line;
    QCOMPARE(found, expected);
}

QList<int> recorded(const EngineRig &rig)
{
    return rig.media.recordedNumbers(EngineRig::recordPath);
}

} // namespace

void TestEngineHeldFrame::compareGapless(const QList<int> &numbers)
{
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
}

void TestEngineHeldFrame::itIsWrittenFirstHoweverSlowTheOpen_data()
{
    QTest::addColumn<int>("openMs");
    for (const int ms : {0, 1, 39, 40, 41, 200, 1000})
        QTest::addRow("%d ms", ms) << ms;
}

void TestEngineHeldFrame::itIsWrittenFirstHoweverSlowTheOpen()
{
    QFETCH(int, openMs);
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.afterMs = openMs});
    const int before = rig.video.framesCaptured();
    rig.vtr->record();
    rig.run(openMs + 2000);
    rig.vtr->standbyOff();
    rig.run(200);
    const QList<int> numbers = recorded(rig);
    QCOMPARE(numbers.first(), before); // from the first frame after the command
    compareGapless(numbers);
    QVERIFY(numbers.size() >= 50 + openMs / 40 - 1);
    compareSignals(rig, {"storageInUse true", "streamIsOpen 0", "storageInUse false",
                         "streamIsClosed"});
}

void TestEngineHeldFrame::framesThatComeMeanwhileStayWithTheDevice()
{
    EngineRig rig;
    rig.startUp();
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
    rig.vtr->record();
    for (int i = 1; i <= 30; ++i) {
        rig.video.tick();
        rig.run(40);
        QCOMPARE(rig.video.framesReadable(), i - 1);
        QCOMPARE(recorded(rig), QList<int>{});
    }
    rig.media.finishOpen();
    rig.video.tick();
    QCOMPARE(rig.video.framesReadable(), 0);
    rig.run(100);
    QCOMPARE(recorded(rig).size(), 31);
    compareGapless(recorded(rig));
}

void TestEngineHeldFrame::anOpenThatFailsDropsIt_data()
{
    QTest::addColumn<bool>("isRefused");
    QTest::addColumn<bool>("hasDesc");
    QTest::addColumn<int>("afterMs");
    QTest::addColumn<QStringList>("signalsOfStream");
    const QStringList failed = {"storageInUse true", "storageInUse false", "streamIsOpen 28"};
    // clang-format off
    //                              refused   desc     after   signals
    QTest::newRow("no descriptor") << false << false << 0   << QStringList{"streamIsOpen 22"};
    QTest::newRow("at once")       << true  << true  << 0   << QStringList{"storageInUse true", "storageInUse false", "streamIsOpen 22"};
    QTest::newRow("next turn")     << false << true  << 0   << failed;
    QTest::newRow("soon")          << false << true  << 10  << failed;
    QTest::newRow("later")         << false << true  << 500 << failed;
    // clang-format on
}

void TestEngineHeldFrame::anOpenThatFailsDropsIt()
{
    QFETCH(bool, isRefused);
    QFETCH(bool, hasDesc);
    QFETCH(int, afterMs);
    QFETCH(QStringList, signalsOfStream);
    EngineRig rig;
    rig.startUp();
    if (!hasDesc)
        rig.recordDesc = QVariant();
    else
        rig.media.opens.push_back(
            {.isRefused = isRefused, .error = OrbError(28), .afterMs = afterMs});
    rig.vtr->record();
    rig.run(afterMs + 1000);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    compareSignals(rig, signalsOfStream);
    QVERIFY(rig.media.recordings().isEmpty());
    rig.transcript.clear();
    rig.run(3000);
    QCOMPARE(rig.transcript.lines(), QStringList{}); // nor is it tried again
}

void TestEngineHeldFrame::theStoryOfAnOpenThatCannotStart()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->record();
    rig.transcript.clear();
    rig.media.opens.push_back({.isRefused = true});
    rig.run(100);
    const QStringList story = {
        "signal storageInUse true",
        "log 1 STREAM: Open for write failed",
        "signal storageInUse false",
        "log 1 Open Stream Failed",
        "signal streamIsOpen 22",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Record -> Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
}

void TestEngineHeldFrame::theStoryOfARecordingWithoutADescriptor()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->record();
    rig.transcript.clear();
    rig.recordDesc = QVariant();
    rig.run(100);
    const QStringList story = {
        "log 1 STREAM: Failed to get a record stream descriptor",
        "log 1 Open Stream Failed",
        "signal streamIsOpen 22",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Record -> Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
}

void TestEngineHeldFrame::theStoryOfAnOpenThatFails()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->record();
    rig.transcript.clear();
    rig.media.opens.push_back({.error = OrbError(28)});
    rig.run(100);
    const QStringList story = {
        "signal storageInUse true",
        "media: open write /media/rec.mov",
        "log 3 STREAM: Open for Write Started",
        "log 1 STREAM: Open Error 28",
        "signal storageInUse false",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Record -> Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
    QCOMPARE(rig.transcript.lines().count("signal streamIsOpen 28"), 1);
    QVERIFY(rig.transcript.lines().indexOf("signal streamIsOpen 28") >= story.size());
    QVERIFY(!rig.hasLog(3, "STREAM: Open is Done"));
}

void TestEngineHeldFrame::afterAFailedOpenTheNextRecordingBeginsWithAFrameOfItsOwn()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.error = OrbError(28), .afterMs = 200});
    rig.vtr->record();
    rig.run(1000);
    const int before = rig.video.framesCaptured();
    rig.vtr->record();
    rig.run(500);
    QCOMPARE(rig.mode(), VtrState::Record);
    QCOMPARE(recorded(rig).first(), before);
    compareGapless(recorded(rig));
}

void TestEngineHeldFrame::stopWhileOpeningWritesItAlone()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.afterMs = 500});
    const int before = rig.video.framesCaptured();
    rig.vtr->record();
    rig.run(100);
    rig.transcript.clear();
    rig.vtr->standbyOff();
    rig.run(1000);
    QCOMPARE(recorded(rig), QList<int>{before});
    const QStringList story = {
        "log 3 ** STANDBY OFF",
        "signal modeChanged Record -> Standby Off",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
        "log 3 Record finished with a pending frame.  Writing to cache",
        "media: close /media/rec.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 Begin Mode Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
    rig.run(3000);
    QCOMPARE(rig.media.flushCount(), 0); // the flush timer was never started
}

void TestEngineHeldFrame::stopWhileOpeningAnOpenThatFailsLosesItQuietly()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.error = OrbError(5), .afterMs = 300});
    rig.vtr->record();
    rig.run(100);
    rig.vtr->standbyOff();
    rig.run(1000);
    QVERIFY(rig.media.recordings().isEmpty());
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QVERIFY(!rig.vtr->hasPendingModeChange());
    compareSignals(rig, {"storageInUse true", "storageInUse false", "streamIsOpen 5"});
}

void TestEngineHeldFrame::oneThatTurnsInvalidIsDroppedAndTheNextOneOpens()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.afterMs = 300});
    rig.vtr->record();
    rig.run(100);
    rig.transcript.clear();
    OrbVideoDeviceSetup other = rig.video.appliedSetup();
    other.setImageCount(2); // from now on frames have two images: the one held has not
    QVERIFY(rig.vtr->setupVideoDevice(other));
    rig.video.imageCount = 2;
    rig.run(600);
    QCOMPARE(rig.countLog(2, "Pending frame isn't valid!"), 1);
    QCOMPARE(rig.countLog(2, "Image count (1) doesn't match the setup (2)"), 1);
    QCOMPARE(rig.mode(), VtrState::Record);
    const QList<OrbFrame> written = rig.media.recordings().value(EngineRig::recordPath);
    QVERIFY(!written.isEmpty());
    QCOMPARE(written.first().vids().size(), 2);
    compareGapless(recorded(rig));
}

void TestEngineHeldFrame::rolloverLosesAndDoublesNothing_data()
{
    QTest::addColumn<int>("writeMs");
    QTest::addColumn<int>("closeMs");
    QTest::addColumn<int>("openMs");
    // clang-format off
    //                              write  close   open
    QTest::newRow("fast")          << 1   << 1    << 1;
    QTest::newRow("at once")       << 0   << 0    << 0;
    QTest::newRow("slow close")    << 1   << 900  << 1;
    QTest::newRow("slow open")     << 1   << 1    << 900;
    QTest::newRow("slow both")     << 1   << 500  << 500;
    QTest::newRow("slow writes")   << 150 << 1    << 1;
    QTest::newRow("slow all over") << 150 << 300  << 300;
    QTest::newRow("very slow close") << 1 << 3000 << 1;
    QTest::newRow("very slow both")  << 1 << 3000 << 2000;
    // clang-format on
}

void TestEngineHeldFrame::rolloverLosesAndDoublesNothing()
{
    QFETCH(int, writeMs);
    QFETCH(int, closeMs);
    QFETCH(int, openMs);
    EngineRig rig;
    rig.startUp();
    rig.video.captureLimit = rig.video.setupsSent().last().maxBuffers(); // as asked for
    rig.media.writeMs = writeMs;
    const int before = rig.video.framesCaptured();
    rig.vtr->record();
    rig.run(1000);
    QList<int> all;
    const QString paths[] = {"/media/b1.mov", "/media/b2.mov", "/media/b3.mov"};
    for (const QString &path : paths) {
        rig.recordDesc = path;
        rig.media.closes.push_back({.afterMs = closeMs});
        rig.media.opens.push_back({.afterMs = openMs});
        QVERIFY(rig.vtr->reopenRecordStream());
        rig.run(closeMs + openMs + 2500);
    }
    rig.vtr->standbyOff();
    rig.run(2000);
    all = recorded(rig);
    for (const QString &path : paths) {
        QVERIFY(rig.media.recordedNumbers(path).size() > 25);
        all += rig.media.recordedNumbers(path);
    }
    QCOMPARE(all.first(), before);
    compareGapless(all);
    QCOMPARE(rig.alarmTexts(), QStringList{});
    const QStringList one = {"storageInUse true", "streamIsOpen 0", "storageInUse false",
                             "streamIsClosed"};
    compareSignals(rig, one + one + one + one);
}

void TestEngineHeldFrame::tenRolloversInARowLoseAndDoubleNothing()
{
    EngineRig rig;
    rig.startUp();
    const int before = rig.video.framesCaptured();
    rig.vtr->record();
    rig.run(500);
    QStringList parts;
    for (int i = 0; i < 10; ++i) {
        parts << QStringLiteral("/media/part%1.mov").arg(i);
        rig.recordDesc = parts.last();
        rig.media.closes.push_back({.afterMs = 37 * i});
        rig.media.opens.push_back({.afterMs = 300 - 31 * i});
        QVERIFY(rig.vtr->reopenRecordStream());
        rig.run(1000);
        QCOMPARE(rig.mode(), VtrState::Record);
    }
    rig.vtr->standbyOff();
    rig.run(1000);
    QList<int> all = recorded(rig);
    for (const QString &part : std::as_const(parts)) {
        QVERIFY(rig.media.recordedNumbers(part).size() > 10);
        all += rig.media.recordedNumbers(part);
    }
    QCOMPARE(all.first(), before);
    compareGapless(all);
    QCOMPARE(rig.alarmTexts(), QStringList{});
}

void TestEngineHeldFrame::theStoryOfARollover()
{
    EngineRig rig;
    rig.startRecord();
    rig.recordDesc = QString("/media/next.mov");
    QVERIFY(rig.vtr->reopenRecordStream());
    rig.run(100);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 STREAM: Reopen Record Stream",
        "media: close /media/rec.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "signal storageInUse true",
        "media: open write /media/next.mov",
        "log 3 STREAM: Open for Write Started",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
    }));
    QCOMPARE(rig.mode(), VtrState::Record);
}

void TestEngineHeldFrame::aRolloverToNowhereEndsTheRecording_data()
{
    QTest::addColumn<bool>("hasDesc");
    QTest::addColumn<bool>("isRefused");
    QTest::addColumn<QStringList>("afterClose");
    // clang-format off
    QTest::newRow("no descriptor")  << false << false << QStringList{"streamIsOpen 22"};
    QTest::newRow("cannot start")   << true  << true  << QStringList{"storageInUse true", "storageInUse false", "streamIsOpen 22"};
    QTest::newRow("fails")          << true  << false << QStringList{"storageInUse true", "storageInUse false", "streamIsOpen 28"};
    // clang-format on
}

void TestEngineHeldFrame::aRolloverToNowhereEndsTheRecording()
{
    QFETCH(bool, hasDesc);
    QFETCH(bool, isRefused);
    QFETCH(QStringList, afterClose);
    EngineRig rig;
    rig.startRecord();
    rig.run(1000);
    rig.recordDesc = hasDesc ? QVariant("/media/next.mov") : QVariant();
    if (hasDesc)
        rig.media.opens.push_back({.isRefused = isRefused, .error = OrbError(28)});
    QVERIFY(rig.vtr->reopenRecordStream());
    const int last = rig.video.framesCaptured() - 1;
    rig.run(1000);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    compareSignals(rig, QStringList{"storageInUse false", "streamIsClosed"} + afterClose);
    QCOMPARE(recorded(rig).last(), last); // what was written before is whole
    compareGapless(recorded(rig));
    QVERIFY(rig.media.recordedNumbers("/media/next.mov").isEmpty());
}

void TestEngineHeldFrame::stopDuringARolloverClose()
{
    EngineRig rig;
    rig.startRecord();
    rig.media.closes.push_back({.afterMs = 300});
    QVERIFY(rig.vtr->reopenRecordStream());
    rig.run(100);
    rig.vtr->standbyOff();
    rig.run(1000);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QVERIFY(!rig.vtr->hasPendingModeChange());
    compareSignals(rig, {"storageInUse false", "streamIsClosed"}); // no new stream is opened
}

void TestEngineHeldFrame::stopDuringARolloverOpen()
{
    EngineRig rig;
    rig.startRecord();
    rig.recordDesc = QString("/media/next.mov");
    rig.media.opens.push_back({.afterMs = 500});
    QVERIFY(rig.vtr->reopenRecordStream());
    rig.run(200);
    rig.vtr->standbyOff();
    rig.run(1000);
    QCOMPARE(rig.countLog(3, "Record finished with a pending frame.  Writing to cache"), 1);
    QList<int> all = recorded(rig);
    QCOMPARE(rig.media.recordedNumbers("/media/next.mov").size(), 1);
    all += rig.media.recordedNumbers("/media/next.mov");
    compareGapless(all);
    compareSignals(rig, {"storageInUse false", "streamIsClosed", "storageInUse true",
                         "streamIsOpen 0", "storageInUse false", "streamIsClosed"});
}

/// The passes wait for an open to end before they clean up, so it is done by hand here.
void TestEngineHeldFrame::cleanUpWhileOpeningIsLogged()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
    rig.vtr->record();
    rig.run(100);
    rig.transcript.clear();
    rig.vtr->cleanupModeRecord();
    QCOMPARE(rig.logs(), QStringList{"1 Stream is still opening"});
}

void TestEngineHeldFrame::cleanUpWritesAHeldFrameIfItHasAPicture_data()
{
    QTest::addColumn<bool>("hasPicture");
    QTest::addColumn<QStringList>("lines");
    const QString start = "3 Record finished with a pending frame.  Writing to cache";
    QTest::newRow("with") << true << QStringList{start};
    QTest::newRow("without") << false
                             << QStringList{start, "1 Pending frame isn't valid",
                                            "1 Cache didn't get any frames!"};
}

void TestEngineHeldFrame::cleanUpWritesAHeldFrameIfItHasAPicture()
{
    QFETCH(bool, hasPicture);
    QFETCH(QStringList, lines);
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
    rig.video.hasSignal = hasPicture;
    rig.vtr->record();
    rig.run(100);
    if (!hasPicture) { // a frame without images is right for this setup, and no picture
        OrbVideoDeviceSetup setup = rig.video.appliedSetup();
        setup.setImageCount(0);
        QVERIFY(rig.vtr->setupVideoDevice(setup));
        rig.video.imageCount = 0;
        rig.run(100);
    }
    QCOMPARE(rig.transcript.count("media: open write"), 1);
    rig.vtr->standbyOff();
    rig.transcript.clear();
    rig.media.finishOpen();
    rig.run(500);
    QStringList found = rig.logs();
    found.removeAll("3 STREAM: Open is Done");
    QCOMPARE(found.mid(0, lines.size()), lines);
    QCOMPARE(recorded(rig).size(), hasPicture ? 1 : 0);
}

void TestEngineHeldFrame::cleanUpOfARecordingWithoutAFrameIsLogged()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setIntervalRecordEnable(true); // one a second, the first of them after a second
    rig.vtr->record();
    rig.run(300);
    rig.transcript.clear();
    rig.vtr->standbyOff();
    QCOMPARE(rig.countLog(1, "Cache didn't get any frames!"), 1);
    rig.run(500);
    QVERIFY(rig.media.recordings().isEmpty());
    compareSignals(rig, {"storageInUse false", "streamIsClosed"});
}

void TestEngineHeldFrame::cleanUpPushesWhatIsCached()
{
    EngineRig rig;
    rig.startUp();
    rig.media.writeMs = ScriptedMedia::held;
    rig.vtr->record();
    rig.run(2000);
    const int pending = int(recorded(rig).size());
    rig.transcript.clear();
    const int captured = rig.video.framesCaptured();
    rig.vtr->standbyOff();
    const int all = int(recorded(rig).size());
    QVERIFY(all > pending);
    QCOMPARE(rig.logs().mid(1, 1),
             QStringList{QString("3 %1 frames still in cache, scheduling them for write")
                             .arg(all - pending)});
    QVERIFY(rig.logs().filter("There is still").isEmpty());
    QVERIFY(rig.logs().filter("Cache didn't get").isEmpty());
    QCOMPARE(recorded(rig).last(), captured - 1);
    compareGapless(recorded(rig));
    rig.media.finishWrites();
    rig.run(100);
    compareSignals(rig, {"storageInUse false", "streamIsClosed"});
}

void TestEngineHeldFrame::cleanUpOfAClosedStreamSaysNothing()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->cleanupModeRecord();
    QCOMPARE(rig.transcript.lines(), QStringList{});
}

SIM_TEST_MAIN(TestEngineHeldFrame)
#include "tst_engine_heldframe.moc"
