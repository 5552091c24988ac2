#include "enginemodes.h"

#include "liborb/orb.h"
#include "liborb/orbdrivers.h"

/// What the device reports and what the engine asks of it, mode by mode.
class TestEngineReports : public QObject
{
    Q_OBJECT

private slots:
    void flushesByCueStepAndMode_data();
    void flushesByCueStepAndMode();
    void aFlushIsAskedForOnceAtATime();
    void inputChanges_data();
    void inputChanges();
    void inputChangesByMode_data();
    void inputChangesByMode();
    void aGeneratorHidesTheInput();
    void hardwareFailures_data();
    void hardwareFailures();
    void whatIsForwarded();
    void aRefusedSetupLeadsBackToStandbyOff_data();
    void aRefusedSetupLeadsBackToStandbyOff();
    void aSetupInFlightIsNotReplaced();
    void theStoryOfASetupThatFails();
    void theStoryOfAShutdown();
    void withoutADeviceTheEngineRunsOn();
    void beforeTheStartAndAtTheStart();
    void theFrameOnOutputIsKnownOnlyInPlay_data();
    void theFrameOnOutputIsKnownOnlyInPlay();
    void recordStreamsAreOfTheRecordTypeAndOthersOfNone();
    void theStatisticsLine();
};

void TestEngineReports::flushesByCueStepAndMode_data()
{
    QTest::addColumn<int>("cue");
    QTest::addColumn<int>("step");
    QTest::addColumn<int>("position");
    // clang-format off
    //                               cue    step   the cache seeks
    QTest::newRow("neither")      << -1  << 0   << 40;
    QTest::newRow("step")         << -1  << 3   << 43;
    QTest::newRow("step back")    << -1  << -4  << 36;
    QTest::newRow("cue")          << 200 << 0   << 200;
    QTest::newRow("both")         << 200 << 3   << 203;
    QTest::newRow("both, back")   << 200 << -5  << 195;
    QTest::newRow("cue to zero")  << 0   << 0   << 0;
    // clang-format on
}

void TestEngineReports::flushesByCueStepAndMode()
{
    QFETCH(int, cue);
    QFETCH(int, step);
    QFETCH(int, position);
    EngineRig rig;
    rig.media.clips[EngineRig::clipPath].length = 500;
    rig.startFrame = 40;
    rig.startPlay(0.0);
    rig.run(1000);
    QCOMPARE(rig.vtr->currentFrameNumber(), 40);
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    if (cue >= 0)
        rig.vtr->cue(cue);
    if (step)
        rig.vtr->step(step);
    rig.vtr->videoDeviceFlush();
    rig.transcript.clear();
    rig.video.finishFlush();
    QStringList lines;
    if (cue >= 0)
        lines << QString("2 Flushed at 40, but pending cue at %1").arg(cue);
    lines << "3 VIDEO DEVICE: Flush Complete";
    QCOMPARE(rig.logs(), lines);
    rig.run(500);
    QCOMPARE(rig.vtr->currentFrameNumber(), position);
    rig.transcript.clear();
    rig.vtr->videoDeviceFlush(); // both are used up
    rig.run(500);
    QCOMPARE(rig.logs(), QStringList{"3 VIDEO DEVICE: Flush Complete"});
    QCOMPARE(rig.vtr->currentFrameNumber(), position);
}

void TestEngineReports::aFlushIsAskedForOnceAtATime()
{
    EngineRig rig;
    rig.startUp();
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->videoDeviceFlush();
    rig.vtr->videoDeviceFlush();
    QCOMPARE(rig.transcript.count("device: flush"), 1);
    rig.video.finishFlush();
    rig.vtr->videoDeviceFlush();
    QCOMPARE(rig.transcript.count("device: flush"), 2);
    rig.run(100);
    QCOMPARE(rig.logs().filter("Flush Complete").size(), 2); // in every mode
    rig.vtr->videoDeviceClose();
    rig.vtr->videoDeviceFlush();
    QCOMPARE(rig.transcript.count("device: flush"), 2);
}

void TestEngineReports::inputChanges_data()
{
    QTest::addColumn<int>("input");
    QTest::addColumn<OrbVideoState>("from");
    QTest::addColumn<OrbVideoState>("to");
    QTest::addColumn<bool>("isNews");
    const OrbVideoState hd = EngineRig::inputState(EngineRig::hd25());
    const OrbVideoState pal = EngineRig::inputState(EngineRig::imageDesc(720, 576, 25, 1, true));
    const OrbVideoState none;
    OrbVideoState present;
    present.setPresent(true);
    OrbVideoState locked = hd;
    locked.setRecInhibit(OrbId(2007));
    // clang-format off
    QTest::newRow("comes")                  << 0 << none    << hd      << true;
    QTest::newRow("goes")                   << 0 << hd      << none    << true;
    QTest::newRow("changes format")         << 0 << hd      << pal     << true;
    QTest::newRow("may not be recorded")    << 0 << hd      << locked  << true;
    QTest::newRow("stays")                  << 0 << hd      << hd      << false;
    QTest::newRow("invalid to invalid")     << 0 << none    << present << false;
    QTest::newRow("the second input comes") << 1 << none    << hd      << false;
    QTest::newRow("the second input")       << 1 << hd      << pal     << false;
    QTest::newRow("no input")               << -1 << hd     << pal     << false;
    // clang-format on
}

void TestEngineReports::inputChanges()
{
    QFETCH(int, input);
    QFETCH(OrbVideoState, from);
    QFETCH(OrbVideoState, to);
    QFETCH(bool, isNews);
    EngineRig rig;
    rig.startUp();
    rig.changeInput(false);
    rig.video.changeInput(0, from);
    rig.run(1000);
    rig.transcript.clear();
    rig.video.changeInput(input, to);
    const QStringList news = {"log 3 Input 0 Changed to " + to.toString() + " while in Standby Off",
                              "signal inputFormatChanged 0 " + to.toString()};
    QCOMPARE(rig.transcript.lines(), isNews ? news : QStringList{});
    rig.run(501);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), isNews && to.isValid() ? 1 : 0);
}

void TestEngineReports::inputChangesByMode_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<bool>("forces");
    for (const VtrState::Mode mode : EngineModes::all)
        QTest::newRow(EngineModes::name(mode))
            << mode << (mode == VtrState::Play || mode == VtrState::StandbyOff);
}

void TestEngineReports::inputChangesByMode()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(bool, forces);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    const OrbVideoState pal = EngineRig::inputState(EngineRig::imageDesc(720, 576, 25, 1, true));
    rig.video.changeInput(0, pal);
    QCOMPARE(rig.transcript.lines(),
             (QStringList{"log 3 Input 0 Changed to " + pal.toString() + " while in "
                              + VtrState::modeName(mode),
                          "signal inputFormatChanged 0 " + pal.toString()}));
    rig.transcript.clear();
    const OrbVideoDeviceSetup same = rig.video.appliedSetup();
    QVERIFY(rig.vtr->setupVideoDevice(same));
    QCOMPARE(rig.transcript.count("device: setup"), forces ? 1 : 0);
}

void TestEngineReports::aGeneratorHidesTheInput()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setVideoSignalGenFormat(EngineRig::hd25());
    rig.vtr->setVideoSignalGenMode(OrbId(801));
    rig.run(1000);
    rig.transcript.clear();
    rig.changeInput(false);
    rig.video.changeInput(0, EngineRig::inputState(EngineRig::imageDesc(720, 576, 25, 1, true)));
    rig.run(1000);
    QCOMPARE(rig.transcript.lines(), QStringList{}); // no news, no reset
}

void TestEngineReports::hardwareFailures_data()
{
    QTest::addColumn<bool>("hasInput");
    QTest::addColumn<bool>("hasGenerator");
    QTest::addColumn<bool>("isReadLogged");
    // clang-format off
    QTest::newRow("input")     << true  << false << true;
    QTest::newRow("generator") << false << true  << true;
    QTest::newRow("both")      << true  << true  << true;
    QTest::newRow("neither")   << false << false << false;
    // clang-format on
}

void TestEngineReports::hardwareFailures()
{
    QFETCH(bool, hasInput);
    QFETCH(bool, hasGenerator);
    QFETCH(bool, isReadLogged);
    EngineRig rig;
    rig.startUp();
    rig.changeInput(hasInput);
    if (hasGenerator)
        rig.vtr->setVideoSignalGenMode(OrbId(801));
    rig.run(1000);
    rig.transcript.clear();
    rig.video.reportReadFailed(OrbError(5));
    rig.video.reportWriteFailed(OrbError(6));
    QStringList lines = {"log 1 Read from hardware failed with 5",
                         "log 1 Write to hardware failed with 6"};
    if (!isReadLogged)
        lines.removeFirst();
    QCOMPARE(rig.transcript.lines(), lines);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineReports::whatIsForwarded()
{
    EngineRig rig;
    rig.startUp();
    QStringList heard;
    QObject::connect(rig.vtr.get(), &VtrObject::firmwareLoading, rig.vtr.get(),
                     [&](const QString &id, bool done) { heard << id + (done ? " done" : " begins"); });
    QObject::connect(rig.vtr.get(), &VtrObject::raiseVFRAlarm, rig.vtr.get(),
                     [&](bool on) { heard << (on ? "VFR on" : "VFR off"); });
    rig.video.reportFirmware("main", false);
    rig.video.reportFirmware("main", true);
    rig.video.reportVfr(true);
    rig.video.reportVfr(false);
    rig.video.reportAlarm(OrbAlarm(OrbId(1901), 1, "hot", "device.cpp", 12));
    QCOMPARE(heard, (QStringList{"main begins", "main done", "VFR on", "VFR off"}));
    QCOMPARE(rig.transcript.lines(), QStringList{"signal alarmTriggered 1901 1 hot"});
    QCOMPARE(rig.alarms.last().file(), QString("device.cpp")); // as it came
}

// Setups ------------------------------------------------------------------------------------------

void TestEngineReports::aRefusedSetupLeadsBackToStandbyOff_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    for (const VtrState::Mode mode : {VtrState::Standby, VtrState::Play, VtrState::Record})
        QTest::newRow(EngineModes::name(mode)) << mode;
}

void TestEngineReports::aRefusedSetupLeadsBackToStandbyOff()
{
    QFETCH(VtrState::Mode, mode);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    OrbVideoDeviceSetup setup = rig.video.appliedSetup();
    setup.setSuperOut(OrbId(1399));
    rig.video.setups.push_back({.refused = OrbError(22)});
    QVERIFY(!rig.vtr->setupVideoDevice(setup));
    const QStringList story = {
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup " + ScriptedVideo::setupText(setup),
        "log 1 VIDEO DEVICE: Initial Setup Error 22",
        "log 3 ** STANDBY OFF",
        "signal modeChanged " + VtrState::modeName(mode) + " -> Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
    QCOMPARE(rig.transcript.lines().mid(0, story.size()).count("signal videoDeviceSetupChanged"), 0);
}

void TestEngineReports::aSetupInFlightIsNotReplaced()
{
    EngineRig rig;
    rig.startUp();
    OrbVideoDeviceSetup setup = rig.video.appliedSetup();
    setup.setSuperOut(OrbId(1399));
    rig.video.setups.push_back({.afterMs = ScriptedVideo::held});
    QVERIFY(rig.vtr->setupVideoDevice(setup));
    rig.transcript.clear();
    rig.vtr->setupVideoDeviceForRecord();
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 VIDEO DEVICE: Setup for record",
        "log 2 VIDEO DEVICE: Device is already in setup",
        "log 1 Video device failed to setup.",
    }));
}

void TestEngineReports::theStoryOfASetupThatFails()
{
    EngineRig rig;
    rig.startUp();
    rig.video.setups.push_back({.error = OrbError(5)});
    rig.vtr->setSuperOut(OrbId(1300));
    rig.run(502);
    rig.transcript.clear();
    rig.run(20);
    const OrbVideoDeviceSetup fallback = rig.vtr->createVideoDeviceDefaultSetupObject();
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 1 VIDEO DEVICE: Setup Error 5",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup " + ScriptedVideo::setupText(fallback),
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "log 3 VIDEO DEVICE: Setup is Done",
    }));
    QCOMPARE(rig.video.appliedSetup(), fallback);
}

void TestEngineReports::theStoryOfAShutdown()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->shutdown();
    rig.run(100);
    const QStringList lines = rig.transcript.lines();
    const QStringList story = {
        "log 3 VIDEO DEVICE: Setup for shutdown",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 24000/1000 ImageV210",
        "signal videoDeviceSetupChanged",
        "log 1 Failed to find loss of video file for 1920x1080p 24000/1000 ImageV210",
    };
    QCOMPARE(lines.mid(lines.indexOf(story.first()), story.size()), story);
    QCOMPARE(rig.transcript.count("device: close"), 0); // the device stays open
    QVERIFY(rig.video.isOpen());
}

void TestEngineReports::withoutADeviceTheEngineRunsOn()
{
    EngineRig rig(false);
    QVERIFY(rig.hasLog(1, "Failed to open video device 'ferin'"));
    rig.vtr->start();
    rig.run(1000);
    rig.vtr->play();
    rig.run(1000);
    rig.vtr->cue(5);
    rig.vtr->step(1);
    rig.vtr->standbyOff();
    rig.run(1000);
    rig.vtr->setSuperOut(OrbId(1300));
    rig.run(1000);
    rig.vtr->logStats();
    QCOMPARE(rig.transcript.count("device: flush"), 0);
    QCOMPARE(rig.transcript.count("device: setup"), 0);
    QVERIFY(rig.hasLog(1, "Video device failed to setup."));
}

void TestEngineReports::beforeTheStartAndAtTheStart()
{
    EngineRig rig;
    QVERIFY(rig.transcript.contains("device: open ferin"));
    OrbFrame frame = rig.media.frameOf(rig.media.clips.value(EngineRig::clipPath), 0);
    QVERIFY(!rig.vtr->validateFrameForRecord(frame)); // nothing was set up
    QVERIFY(rig.hasLog(2, "Image count (1) doesn't match the setup (0)"));
    rig.run(2000);
    QCOMPARE(rig.transcript.count("device: setup"), 0);
    rig.vtr->start();
    rig.run(20);
    QVERIFY(rig.vtr->validateFrameForRecord(frame));
    QCOMPARE(rig.transcript.count("device: setup capture"), 1); // for record, not the default
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineReports::theFrameOnOutputIsKnownOnlyInPlay_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    for (const VtrState::Mode mode : EngineModes::all)
        QTest::newRow(EngineModes::name(mode)) << mode;
}

void TestEngineReports::theFrameOnOutputIsKnownOnlyInPlay()
{
    QFETCH(VtrState::Mode, mode);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.run(500);
    const bool plays = mode == VtrState::Play;
    QCOMPARE(!rig.vtr->currentFrameMetadata().isEmpty(), plays);
    QCOMPARE(rig.vtr->currentFrameNumber() > 10, plays);
    QVERIFY(plays || rig.vtr->currentFrameNumber() == 0);
}

void TestEngineReports::recordStreamsAreOfTheRecordTypeAndOthersOfNone()
{
    EngineRig rig;
    rig.startUp();
    QStringList asked;
    OrbDrivers::setMediaFactory([&](const QVariant &desc, OrbAccess access, const OrbId &type,
                                    OrbMediaDriverHost *) -> std::unique_ptr<OrbMediaDriver> {
        asked << QString("%1 %2 %3").arg(access == OrbAccess::Write ? "write" : "read",
                                         desc.toString(), QString::number(int(type.value())));
        return nullptr;
    });
    rig.vtr->record();
    rig.run(500);
    rig.vtr->play();
    rig.run(500);
    QCOMPARE(asked, (QStringList{"write /media/rec.mov 100", "read /media/a.mov 0"}));
    rig.media.install();
}

void TestEngineReports::theStatisticsLine()
{
    EngineRig rig;
    rig.startPlay();
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.transcript.clear();
    rig.vtr->logStats();
    QCOMPARE(rig.logs(), QStringList{QString("3 STM: 0, CACHE: 45, RDEV: 0, WDEV: %1")
                                         .arg(rig.video.framesWritable())});
    EngineRig other;
    other.media.writeMs = ScriptedMedia::held;
    other.startRecord();
    other.run(1000);
    other.transcript.clear();
    other.vtr->logStats();
    const int pending = int(other.media.recordings().value(EngineRig::recordPath).size());
    QVERIFY(pending > 0);
    QVERIFY(other.logs().first().startsWith(QString("3 STM: %1, CACHE: ").arg(pending)));
    QVERIFY(other.logs().first().endsWith(", RDEV: 0, WDEV: 0"));
}

SIM_TEST_MAIN(TestEngineReports)
#include "tst_engine_reports.moc"
