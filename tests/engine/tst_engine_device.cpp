#include "enginerig.h"

#include "liborb/orb.h"

/// The video device: setups, resets, and what it reports.
class TestEngineDevice : public QObject
{
    Q_OBJECT

private slots:
    void defaultSetup();
    void recordSetupFollowsInputAndEncodeFormat();
    void recordSetupOfTheGenerators();
    void buffersAreSixSecondsOfFrames_data();
    void buffersAreSixSecondsOfFrames();
    void playbackSetupIsTheFrames();
    void shutdownSetup();
    void aSetupEqualToTheCurrentOneIsNotSent();
    void anInputChangeForcesOneSetup();
    void aRefusedSetupIsReported();
    void aSetupThatFailsFallsBackToTheDefault();
    void settingsCoalesceIntoOneReset();
    void settingsOutsideStandbyOffScheduleNothing();
    void aBusyDeviceDefersTheResetByTenMilliseconds();
    void aFormatChangeIsFollowedInStandbyOff();
    void inputsOtherThanTheFirstAreIgnored();
    void inputStatesThatSayNothingNewAreIgnored();
    void theGeneratorStandsInForTheInput();
    void droppedFrames_data();
    void droppedFrames();
    void aDroppedFrameDuringAChangeIsIgnored();
    void keyFramesAreIgnoredWhileLooping();
    void hardwareFailuresAreLogged();
    void cueAndStepAddUpInOneFlush();
    void aCameraThatStartsEndsPlayback();
    void statisticsLine();
    void openingTwiceIsRefused();
};

void TestEngineDevice::defaultSetup()
{
    EngineRig rig;
    const OrbVideoDeviceSetup setup = rig.vtr->createVideoDeviceDefaultSetupObject();
    QCOMPARE(setup.imageDesc(), EngineRig::imageDesc(1920, 1080, 24000, 1000));
    QCOMPARE(setup.audioDesc().dataType(), OrbId(408));
    QCOMPARE(setup.audioDesc().chans(), 2);
    QCOMPARE(setup.audioDesc().sampleRate(), OrbRational(48000, 1));
    QCOMPARE(setup.audioDesc().frameRate(), OrbVideoRate(24, 1));
    QCOMPARE(setup.mode(), OrbVideoDeviceSetup::Playback);
    QCOMPARE(setup.imageCount(), 1);
    QCOMPARE(setup.maxBuffers(), 40);
    QCOMPARE(setup.videoInputSource(), OrbId(601));
    QCOMPARE(setup.inputRefSource(), OrbId(501));
    QCOMPARE(setup.audioInputSource(), OrbId(52));
    QVERIFY(setup.blackingEnabled());
    rig.vtr->setAudioSignalGenMode(OrbId(901));
    QVERIFY(!rig.vtr->createVideoDeviceDefaultSetupObject().audioSignalGenMode().isValid());
}

void TestEngineDevice::recordSetupFollowsInputAndEncodeFormat()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setEncodeFormat(OrbId(203));
    rig.vtr->setAudioChans(8);
    const OrbVideoDeviceSetup setup = rig.vtr->createVideoDeviceRecordSetupObject();
    OrbImageDesc desc = EngineRig::hd25();
    desc.setDataType(OrbId(203));
    QCOMPARE(setup.imageDesc(), desc);
    QCOMPARE(setup.audioDesc().chans(), 8);
    QCOMPARE(setup.audioDesc().frameRate(), OrbVideoRate(25, 1));
    QVERIFY(setup.isInCapture());
    QVERIFY(!setup.blackingEnabled());
    QCOMPARE(setup.videoInputSource(), OrbId(601));
    rig.changeInput(false);
    QCOMPARE(rig.vtr->createVideoDeviceRecordSetupObject().imageDesc(),
             EngineRig::imageDesc(1920, 1080, 24, 1, false, OrbIdImageProRes422Hq));
    QVERIFY(rig.vtr->createVideoDeviceRecordSetupObject().blackingEnabled());
}

void TestEngineDevice::recordSetupOfTheGenerators()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setVideoSignalGenFormat(EngineRig::imageDesc(1280, 720, 60, 1, false, OrbIdImageV210));
    rig.vtr->setVideoSignalGenMode(OrbId(802));
    OrbVideoDeviceSetup setup = rig.vtr->createVideoDeviceRecordSetupObject();
    QCOMPARE(setup.imageDesc(), EngineRig::imageDesc(1280, 720, 60, 1));
    QCOMPARE(setup.videoSignalGenColorSpace(), OrbId(231));
    QCOMPARE(setup.videoInputSource(), OrbId(695));
    QCOMPARE(setup.audioInputSource(), OrbId(52));
    rig.vtr->setAudioSignalGenMode(OrbId(901));
    setup = rig.vtr->createVideoDeviceRecordSetupObject();
    QCOMPARE(setup.audioInputSource(), OrbId(695));
    QCOMPARE(setup.audioSignalGenMode(), OrbId(901));
}

void TestEngineDevice::buffersAreSixSecondsOfFrames_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<int>("buffers");
    QTest::newRow("24") << 24 << 1 << 144;
    QTest::newRow("29.97") << 30000 << 1001 << 180;
    QTest::newRow("59.94") << 60000 << 1001 << 360;
    QTest::newRow("a rate without timecode") << 12 << 1 << 0;
}

void TestEngineDevice::buffersAreSixSecondsOfFrames()
{
    QFETCH(int, num);
    QFETCH(int, den);
    QFETCH(int, buffers);
    EngineRig rig;
    rig.startUp();
    rig.video.changeInput(
        0, EngineRig::inputState(EngineRig::imageDesc(1920, 1080, num, den)));
    QCOMPARE(rig.vtr->createVideoDeviceRecordSetupObject().maxBuffers(), buffers);
}

void TestEngineDevice::playbackSetupIsTheFrames()
{
    EngineRig rig;
    OrbFrame frame;
    OrbVideoDeviceSetup setup = rig.vtr->createVideoDevicePlaybackSetupObject(frame);
    QCOMPARE(setup.imageDesc(), EngineRig::imageDesc(1920, 1080, 24, 1));
    QCOMPARE(setup.audioDesc(), OrbAudioDesc());
    QVERIFY(!setup.blackingEnabled());
    frame = rig.media.frameOf(rig.media.clips.value(EngineRig::clipPath), 3);
    setup = rig.vtr->createVideoDevicePlaybackSetupObject(frame);
    QCOMPARE(setup.imageDesc(), EngineRig::hd25());
    QCOMPARE(setup.audioDesc().chans(), 2);
    QCOMPARE(setup.mode(), OrbVideoDeviceSetup::Playback);
}

void TestEngineDevice::shutdownSetup()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setSuperOut(OrbId(1300));
    rig.vtr->shutdown();
    const OrbVideoDeviceSetup setup = rig.video.setupsSent().last();
    QVERIFY(setup.isInCapture());
    QCOMPARE(setup.imageDesc().dataType(), OrbId(231));
    QCOMPARE(setup.imageDesc().size(), QSize(1920, 1080));
    QCOMPARE(setup.audioDesc(), OrbAudioDesc());
    QCOMPARE(setup.videoSignalGenMode(), OrbId(800));
    QCOMPARE(setup.videoInputSource(), OrbId(695));
    QCOMPARE(setup.superOut(), OrbId(0));
}

void TestEngineDevice::aSetupEqualToTheCurrentOneIsNotSent()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setupVideoDeviceForRecord();
    QCOMPARE(rig.transcript.lines(),
             (QStringList{"log 3 VIDEO DEVICE: Setup for record",
                          "log 3 VIDEO DEVICE: Setup is current, no need to change it"}));
}

void TestEngineDevice::anInputChangeForcesOneSetup()
{
    EngineRig rig;
    rig.startUp();
    rig.changeInput(false);
    rig.run(1000);
    QCOMPARE(rig.transcript.count("device: setup"), 0); // an input that went away resets nothing
    rig.changeInput(true);
    rig.run(1000);
    QCOMPARE(rig.transcript.count("device: setup"), 1); // equal to the current one, and sent
    rig.invoke("videoDeviceReset");
    QCOMPARE(rig.transcript.count("device: setup"), 1);
}

void TestEngineDevice::aRefusedSetupIsReported()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setSuperOut(OrbId(1300));
    rig.video.setups.push_back({.refused = OrbError(22)});
    rig.run(600);
    QCOMPARE(rig.logs(),
             (QStringList{"3 Set Super Out: " + OrbId(1300).name(),
                          "3 VIDEO DEVICE: Reset in mode Standby Off",
                          "3 VIDEO DEVICE: Setup for record", "3 VIDEO DEVICE: Setup Started",
                          "1 VIDEO DEVICE: Initial Setup Error 22",
                          "1 Video device failed to setup."}));
    QCOMPARE(rig.transcript.count("signal videoDeviceSetupChanged"), 0);
}

void TestEngineDevice::aSetupThatFailsFallsBackToTheDefault()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setSuperOut(OrbId(1300));
    rig.video.setups.push_back({.error = OrbError(5)});
    rig.run(1000);
    QVERIFY(rig.hasLog(1, "VIDEO DEVICE: Setup Error 5"));
    QCOMPARE(rig.transcript.count("device: setup"), 2);
    QVERIFY(rig.transcript.contains("device: setup playback 1920x1080p 24000/1000 ImageProRes422"));
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Setup is Done"), 1);
}

void TestEngineDevice::settingsCoalesceIntoOneReset()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setSuperOut(OrbId(1300));
    rig.run(400);
    rig.vtr->setVideoOutputType(OrbId(7));
    rig.run(490);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Reset in mode Standby Off"), 0);
    rig.run(100);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Reset in mode Standby Off"), 1);
    QCOMPARE(rig.transcript.count("device: setup"), 1);
}

void TestEngineDevice::settingsOutsideStandbyOffScheduleNothing()
{
    EngineRig rig;
    rig.startRecord();
    rig.vtr->setSuperOut(OrbId(1300));
    rig.run(2000);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 0);
    rig.vtr->standbyOff();
    rig.run(500);
    QCOMPARE(rig.video.appliedSetup().superOut(), OrbId(1300));
}

void TestEngineDevice::aBusyDeviceDefersTheResetByTenMilliseconds()
{
    EngineRig rig;
    rig.startUp();
    rig.video.flushes.push_back({.afterMs = 45});
    rig.vtr->videoDeviceFlush();
    rig.vtr->scheduleVideoDeviceReset(1, true);
    rig.run(44);
    const QString busy = "VIDEO DEVICE: Device is busy.  Defer reset in mode Standby Off - ";
    QCOMPARE(rig.logs().filter(busy).size(), 5);
    QVERIFY(rig.logs().filter(busy).first().endsWith("[scripted] vdev flush"));
    rig.run(20);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Reset in mode Standby Off"), 1);
}

void TestEngineDevice::aFormatChangeIsFollowedInStandbyOff()
{
    EngineRig rig;
    rig.startUp();
    const OrbVideoState state =
        EngineRig::inputState(EngineRig::imageDesc(1920, 1080, 25, 1, true));
    rig.video.changeInput(0, state);
    QVERIFY(rig.hasLog(3, "Input 0 Changed to " + state.toString() + " while in Standby Off"));
    QCOMPARE(rig.signalsSeen(), QStringList{"inputFormatChanged 0 " + state.toString()});
    rig.run(600);
    QVERIFY(rig.transcript.contains("device: setup capture 1920x1080i 25/1 ImageProRes422"));
}

void TestEngineDevice::inputsOtherThanTheFirstAreIgnored()
{
    EngineRig rig;
    rig.startUp();
    rig.video.changeInput(1, EngineRig::inputState(EngineRig::imageDesc(720, 576, 25, 1, true)));
    rig.run(1000);
    QCOMPARE(rig.transcript.lines(), QStringList{});
}

void TestEngineDevice::inputStatesThatSayNothingNewAreIgnored()
{
    EngineRig rig;
    rig.startUp();
    rig.changeInput(true);
    QCOMPARE(rig.transcript.lines(), QStringList{});
    rig.changeInput(false);
    QCOMPARE(rig.signalsSeen().size(), 1);
    OrbVideoState present;
    present.setPresent(true);
    rig.video.changeInput(0, present); // both invalid
    QCOMPARE(rig.signalsSeen().size(), 1);
}

void TestEngineDevice::theGeneratorStandsInForTheInput()
{
    EngineRig rig;
    rig.startUp();
    const OrbImageDesc format = EngineRig::imageDesc(1280, 720, 50, 1);
    const QString pseudo = "inputFormatChanged 0 " + EngineRig::inputState(format).toString();
    const QString real =
        "inputFormatChanged 0 " + EngineRig::inputState(EngineRig::hd25()).toString();
    rig.vtr->setVideoSignalGenFormat(format);
    QCOMPARE(rig.signalsSeen(), QStringList{});
    rig.vtr->setVideoSignalGenMode(OrbId(801));
    QCOMPARE(rig.signalsSeen(), QStringList{pseudo});
    rig.changeInput(false);
    rig.changeInput(true);
    QCOMPARE(rig.signalsSeen(), QStringList{pseudo});
    rig.vtr->setVideoSignalGenMode(OrbId());
    QCOMPARE(rig.signalsSeen(), (QStringList{pseudo, real}));
    rig.vtr->setVideoSignalGenMode(OrbId(801));
    rig.vtr->setVideoSignalGenFormat(EngineRig::hd25());
    QCOMPARE(rig.signalsSeen().last(), real);
}

void TestEngineDevice::droppedFrames_data()
{
    QTest::addColumn<bool>("records");
    QTest::addColumn<double>("speed");
    QTest::addColumn<bool>("stops");
    QTest::addColumn<QStringList>("story");
    const QString stopped = "Playback stopped due to dropped frame";
    const QString continued = "Playback continued after dropped frame";
    const QString recording = "Recording stopped due to dropped frame";
    const QStringList recordStory = {"signal frameDropped",
                                     "signal alarmTriggered 1904 2 " + recording,
                                     "log 1 " + recording, "log 3 ** STANDBY OFF"};
    QTest::newRow("play, stop") << false << 1.0 << true
                                << QStringList{"signal frameDropped", "log 1 " + stopped,
                                               "signal alarmTriggered 1904 2 " + stopped,
                                               "log 3 ** PLAY 0.000"};
    QTest::newRow("play, go on") << false << 1.0 << false
                                 << QStringList{"signal frameDropped", "log 1 " + continued,
                                                "signal alarmTriggered 1904 1 " + continued};
    QTest::newRow("play at another speed") << false << 2.0 << true << QStringList{};
    QTest::newRow("still") << false << 0.0 << true << QStringList{};
    QTest::newRow("record, stop") << true << 0.0 << true << recordStory;
    QTest::newRow("record, whatever the setting") << true << 0.0 << false << recordStory;
}

void TestEngineDevice::droppedFrames()
{
    QFETCH(bool, records);
    QFETCH(double, speed);
    QFETCH(bool, stops);
    QFETCH(QStringList, story);
    EngineRig rig;
    if (records)
        rig.startRecord();
    else
        rig.startPlay(speed);
    rig.vtr->setStopOnFrameDrop(stops);
    rig.run(600);
    rig.transcript.clear();
    rig.video.dropFrame();
    QCOMPARE(rig.transcript.lines().mid(0, 4), story);
}

void TestEngineDevice::aDroppedFrameDuringAChangeIsIgnored()
{
    EngineRig rig;
    rig.startRecord();
    rig.media.closes.push_back({.afterMs = 300});
    rig.vtr->standbyOff();
    rig.transcript.clear();
    rig.video.dropFrame();
    QCOMPARE(rig.transcript.lines(), QStringList{});
    rig.run(1000);
    rig.transcript.clear();
    rig.video.dropFrame(); // nor in Standby Off
    QCOMPARE(rig.transcript.lines(), QStringList{});
}

void TestEngineDevice::keyFramesAreIgnoredWhileLooping()
{
    EngineRig rig;
    rig.startPlay();
    OrbMetadataHash start;
    start.insert(OrbId(9), true);
    OrbMetadataHash end;
    end.insert(OrbId(10), true);
    rig.video.reportPlayedKeyFrame(start); // forward over the first frame
    QCOMPARE(rig.logs(), QStringList{});
    rig.vtr->setLooping(true);
    rig.video.reportPlayedKeyFrame(end);
    QCOMPARE(rig.logs(), QStringList{});
    rig.vtr->setLooping(false);
    rig.video.reportPlayedKeyFrame(end);
    QCOMPARE(rig.logs(), (QStringList{"3 End of stream reached", "3 ** PLAY 0.000"}));
}

void TestEngineDevice::hardwareFailuresAreLogged()
{
    EngineRig rig;
    rig.startUp();
    rig.video.reportReadFailed(OrbError(5));
    rig.video.reportWriteFailed(OrbError(6));
    QCOMPARE(rig.logs(), (QStringList{"1 Read from hardware failed with 5",
                                      "1 Write to hardware failed with 6"}));
    rig.changeInput(false);
    rig.transcript.clear();
    rig.video.reportReadFailed(OrbError(5));
    rig.video.reportWriteFailed(OrbError(6));
    QCOMPARE(rig.logs(), QStringList{"1 Write to hardware failed with 6"});
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineDevice::cueAndStepAddUpInOneFlush()
{
    EngineRig rig;
    rig.media.clips[EngineRig::clipPath].length = 500;
    rig.startPlay();
    rig.run(500);
    rig.vtr->still();
    rig.run(300);
    const int from = rig.vtr->currentFrameNumber();
    rig.video.flushes.push_back({.afterMs = 100});
    rig.vtr->cue(200);
    rig.vtr->step(3);
    rig.run(50);
    rig.transcript.clear();
    rig.run(500);
    QVERIFY(rig.hasLog(2, QString("Flushed at %1, but pending cue at 200").arg(from)));
    QCOMPARE(rig.vtr->currentFrameNumber(), 203);
}

void TestEngineDevice::aCameraThatStartsEndsPlayback()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setCameraInput(OrbId(1000));
    rig.run(1000);
    rig.vtr->play();
    rig.run(300);
    OrbMetadataHash data;
    data.insert(OrbId(705), false);
    rig.video.reportAncData(data);
    QCOMPARE(rig.mode(), VtrState::Play);
    data.insert(OrbId(705), true);
    rig.video.reportAncData(data);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);

    EngineRig without;
    without.startPlay();
    without.video.reportAncData(data);
    QCOMPARE(without.mode(), VtrState::Play);
}

void TestEngineDevice::statisticsLine()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->logStats();
    QCOMPARE(rig.logs(), QStringList{"3 STM: 0, CACHE: 0, RDEV: 0, WDEV: 0"});
}

void TestEngineDevice::openingTwiceIsRefused()
{
    EngineRig rig;
    rig.vtr->videoDeviceOpen();
    QVERIFY(rig.hasLog(
        1, "Attempting to open the video device after it has already been opened"));
    rig.vtr->videoDeviceClose();
    rig.vtr->videoDeviceClose();
    QCOMPARE(rig.transcript.count("device: close"), 1);
}

SIM_TEST_MAIN(TestEngineDevice)
#include "tst_engine_device.moc"
