#include "enginerig.h"

#include "liborb/orb.h"

#include <QMetaMethod>

/// The modes, and how one becomes another.
class TestEngineModes : public QObject
{
    Q_OBJECT

private slots:
    void signalsAndSlotsStandInOrder();
    void startsInStartupWithNothingPending();
    void startEntersStandbyOff();
    void standbyOffInStandbyOffDoesNothingAndLogsNothing();
    void aRequestDuringAPendingChangeIsRefusedByName();
    void cleanUpRunsWhileTheDeviceIsInSetupAndBeginOnlyAfterIt();
    void aPassThatChangesNothingPublishesNothing();
    void modeAndSpeedArePublishedTogether();
    void shutdownClosesAndCompletesOnce();
    void shutdownDuringAPendingChangeIsDropped();
    void leavingShutdownIsAnError();
    void stopLeadsToStandbyWhichDeliberatelyDoesNothing();
    void aDestroyedEngineComplainsUnlessShutDown();
    void anEngineWithoutADeviceRunsOn();
    void deviceSignalsAreForwarded();
    void stateTextNamesWhatIsBusy();
    void debugStatsNameBothModes();
    void aVbiIsStoredProcessedAndPassedOn();
    void theFirstTickComesAfterHalfASecond();
};

void TestEngineModes::signalsAndSlotsStandInOrder()
{
    const QStringList expected = {
        // signals
        "vbi(OrbVbiInfo)", "stateChanged(VtrState,VtrState)",
        "modeChanged(VtrState::Mode,VtrState::Mode)", "inputFormatChanged(int,OrbVideoState)",
        "streamIsOpen(OrbError,OrbStreamInfo)", "streamIsClosed()",
        "requestPlaybackStreamDesc(QVariant&,int&)", "requestRecordStreamDesc(QVariant&)",
        "storageInUse(bool)", "firmwareLoading(QString,bool)", "shutdownIsComplete()",
        "timecodeInputValidChanged(bool)", "frameDropped()", "raiseVFRAlarm(bool)",
        "requestRecordInhibit(OrbId&)", "recordFailedToStart(OrbId&)", "alarmTriggered(OrbAlarm)",
        "videoDeviceSetupChanged(OrbVideoDeviceSetup)",
        // public slots
        "enableStreamBenchmark()", "setReelName(QString)", "setCurrentClipName(QString)",
        "setAudioChans(int)", "setEncodeFormat(OrbId)", "setVideoInputSource(OrbId)",
        "setAudioInputSource(OrbId)", "setAudioInputLevel(OrbId)", "setSyncSource(OrbId)",
        "setVideoSignalGenFormat(OrbImageDesc)", "setVideoSignalGenMode(OrbId)",
        "setAudioSignalGenMode(OrbId)", "setCameraInput(OrbId)", "setVideoInConvert(OrbId)",
        "setVideoOutConvert(OrbId)", "setForcePSFOutput(bool)", "setForcePSFEncode(bool)",
        "setVideoOutputType(OrbId)", "setVideoOutputRoute(OrbId)", "setSuperOut(OrbId)",
        "setRecordInterval(int)", "setRecordIntervalTime(int)", "setIntervalRecordEnable(bool)",
        "setVFREnable(bool)", "setTimecodeValue(OrbTimecode)", "setTimecodeDropFrame(bool)",
        "setTCGSource(OrbId)", "setStopOnFrameDrop(bool)", "setStopOnLossOfVideo(bool)",
        "setRecordOnRunningTimecode(bool)", "logStats()", "setLooping(bool)", "play(double)",
        "play()", "still()", "stop()", "rewind()", "fastfwd()", "cue(int)", "step(int)",
        "standbyOff()", "record()", "setLuts(OrbImageLut,OrbImageLut)", "reopenRecordStream()",
        "reopenPlaybackStream()", "debugFrameMetadata(OrbMetadata)",
        // private slots
        "handleVBI(OrbVbiInfo)", "process()", "streamOpenIsDone(int,OrbError)",
        "streamCloseIsDone()", "streamFlush()", "cacheError(int,OrbError)",
        "videoDeviceSetupIsDone(OrbError)", "videoDevicePlayedKeyFrame(OrbMetadataHash)",
        "videoDeviceFrameDropped()", "videoDeviceReadFromHardwareFailed(OrbError)",
        "videoDeviceWriteToHardwareFailed(OrbError,OrbFrame)", "videoDeviceHardwareStarted()",
        "videoDeviceFlushed(OrbMetadataHash)", "videoDeviceInputChanged(int,OrbVideoState)",
        "videoDeviceInputAncDataChanged(OrbMetadataHash)", "videoDeviceReset()",
        "timecodeTriggerHasStarted()", "timecodeTriggerHasStopped()",
        "streamBenchmark(int,OrbTimeStamp)", "checkForAlarms()", "logDebugStats()"};
    QStringList found;
    const QMetaObject &meta = VtrObject::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        found << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(found, expected);
}

void TestEngineModes::startsInStartupWithNothingPending()
{
    EngineRig rig;
    QCOMPARE(rig.transcript.lines(), QStringList{"device: open ferin"});
    QCOMPARE(rig.mode(), VtrState::Startup);
    QVERIFY(!rig.vtr->hasPendingModeChange());
    QCOMPARE(rig.vtr->state().encodeFormat(), OrbId(202));
    QCOMPARE(rig.vtr->state().syncSource(), OrbId(501));
    QCOMPARE(rig.vtr->state().videoInputSource(), OrbId(601));
    QCOMPARE(rig.vtr->state().audioInputSource(), OrbId(52));
    // The settings made in the constructor are news to whoever listens.
    rig.run(2000);
    QCOMPARE(rig.signalsSeen(), QStringList{"stateChanged 0.000 Startup -> 0.000 Startup"});
}

void TestEngineModes::startEntersStandbyOff()
{
    EngineRig rig;
    rig.transcript.clear();
    rig.vtr->start();
    const QStringList atOnce = {
        "log 3 VtrObject is starting...",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Startup -> Standby Off",
        "log 3 Begin Mode Standby Off",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 24000/1000 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: "
        "/usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "device: property 22 = 1601",
    };
    QCOMPARE(rig.transcript.take(), atOnce);
    QVERIFY(!rig.vtr->hasPendingModeChange());
    rig.run(20);
    QCOMPARE(rig.logs(), QStringList{"3 VIDEO DEVICE: Setup is Done"});
    rig.run(50);
    QCOMPARE(rig.signalsSeen(), QStringList{"stateChanged 0.000 Startup -> 0.000 Standby Off"});
}

void TestEngineModes::standbyOffInStandbyOffDoesNothingAndLogsNothing()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->standbyOff();
    QCOMPARE(rig.transcript.lines(), QStringList{});
}

void TestEngineModes::aRequestDuringAPendingChangeIsRefusedByName()
{
    EngineRig rig;
    rig.vtr->setNewMode(VtrState::StandbyOff);
    rig.transcript.clear();
    rig.vtr->play();
    rig.vtr->record();
    rig.vtr->stop();
    QCOMPARE(rig.transcript.lines(),
             (QStringList{
                 "log 2 Can't enter mode Play.  Pending mode change from Startup to Standby Off",
                 "log 2 Can't enter mode Record.  Pending mode change from Startup to Standby Off",
                 "log 2 Can't enter mode Standby.  Pending mode change from Startup to Standby Off",
             }));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineModes::cleanUpRunsWhileTheDeviceIsInSetupAndBeginOnlyAfterIt()
{
    EngineRig rig;
    rig.startRecord();
    rig.media.closes.push_back({.afterMs = ScriptedMedia::held});
    rig.vtr->standbyOff();
    QCOMPARE(rig.signalsSeen(), QStringList{"modeChanged Record -> Standby Off"});
    QVERIFY(rig.transcript.contains("media: close /media/rec.mov"));
    rig.run(2000);
    QVERIFY(rig.vtr->hasPendingModeChange());
    QVERIFY(!rig.hasLog(3, "Begin Mode Standby Off"));
    rig.media.finishClose();
    rig.run(100);
    QVERIFY(!rig.vtr->hasPendingModeChange());
    QCOMPARE(rig.countLog(3, "Begin Mode Standby Off"), 1);
    QCOMPARE(rig.transcript.count("media: close"), 1);
    QVERIFY(rig.hasLog(3, "Mode changed from Record to Standby Off"));
    QCOMPARE(rig.signalsSeen().last(), QString("stateChanged 1.000 Record -> 0.000 Standby Off"));
}

void TestEngineModes::aPassThatChangesNothingPublishesNothing()
{
    EngineRig rig;
    rig.startUp();
    rig.invoke("process");
    rig.run(2000);
    QCOMPARE(rig.signalsSeen(), QStringList{});
}

void TestEngineModes::modeAndSpeedArePublishedTogether()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->play(2.0);
    QCOMPARE(rig.transcript.count("signal stateChanged"), 1);
    QVERIFY(rig.transcript.contains("signal stateChanged 0.000 Standby Off -> 2.000 Play"));
}

void TestEngineModes::shutdownClosesAndCompletesOnce()
{
    EngineRig rig;
    rig.startPlay();
    rig.vtr->shutdown();
    QVERIFY(!rig.vtr->isShutdownComplete());
    rig.run(600);
    QVERIFY(rig.vtr->isShutdownComplete());
    QCOMPARE(rig.transcript.count("signal shutdownIsComplete"), 1);
    QVERIFY(rig.hasLog(3, "VtrObject shutdown requested..."));
    QVERIFY(rig.hasLog(3, "Shutting down VtrObject..."));
    QVERIFY(rig.hasLog(3, "VIDEO DEVICE: Setup for shutdown"));
    QVERIFY(rig.hasLog(3, "VtrObject shutdown complete..."));
    QCOMPARE(rig.video.appliedSetup().videoSignalGenMode(), OrbId(800));
    rig.transcript.clear();
    rig.vtr->shutdown();
    rig.run(2000);
    QCOMPARE(rig.transcript.lines(), QStringList{"log 3 VtrObject shutdown requested..."});
}

void TestEngineModes::shutdownDuringAPendingChangeIsDropped()
{
    EngineRig rig;
    rig.startRecord();
    rig.media.closes.push_back({.afterMs = 300});
    rig.vtr->standbyOff();
    rig.vtr->shutdown();
    QVERIFY(rig.hasLog(2, "Mode change is pending"));
    rig.run(2000);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    rig.vtr->shutdown();
    rig.run(600);
    QVERIFY(rig.vtr->isShutdownComplete());
}

void TestEngineModes::leavingShutdownIsAnError()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->shutdown();
    rig.run(600);
    rig.transcript.clear();
    rig.vtr->standbyOff();
    QVERIFY(rig.hasLog(1, "Something is wrong.  Shouldn't ever come out of shutdown mode"));
    QVERIFY(rig.hasLog(3, "Begin Mode Standby Off"));
}

void TestEngineModes::stopLeadsToStandbyWhichDeliberatelyDoesNothing()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->stop();
    QCOMPARE(rig.logs(), (QStringList{"3 ** STOP", "1 Standby mode has not been implemented.",
                                      "3 Mode changed from Standby Off to Standby"}));
    QCOMPARE(rig.mode(), VtrState::Standby);
}

void TestEngineModes::aDestroyedEngineComplainsUnlessShutDown()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr.reset();
    QVERIFY(rig.hasLog(1, "shutdown() should have been called before destruction!"));

    EngineRig other;
    other.startUp();
    other.vtr->shutdown();
    other.run(600);
    other.transcript.clear();
    other.vtr.reset();
    QCOMPARE(other.logs(), QStringList{});
}

void TestEngineModes::anEngineWithoutADeviceRunsOn()
{
    EngineRig rig(false);
    QVERIFY(rig.hasLog(1, "Failed to open video device 'ferin'"));
    rig.vtr->start();
    rig.vtr->play();
    rig.run(2000);
    QVERIFY(rig.hasLog(1, "VIDEO DEVICE: Initial Setup Error 9"));
    QVERIFY(!rig.transcript.contains("device: flush"));
}

void TestEngineModes::deviceSignalsAreForwarded()
{
    EngineRig rig;
    rig.startUp();
    QStringList seen;
    QObject::connect(rig.vtr.get(), &VtrObject::firmwareLoading, rig.vtr.get(),
                     [&](const QString &id, bool done) { seen << id + (done ? " 1" : " 0"); });
    QObject::connect(rig.vtr.get(), &VtrObject::raiseVFRAlarm, rig.vtr.get(),
                     [&](bool on) { seen << QString(on ? "vfr 1" : "vfr 0"); });
    rig.video.reportFirmware("board", true);
    rig.video.reportVfr(true);
    rig.video.reportAlarm(OrbAlarm(OrbId(1908), 2, "hot", "driver.cpp", 1));
    QCOMPARE(seen, (QStringList{"board 1", "vfr 1"}));
    QCOMPARE(rig.alarmTexts(), QStringList{"1908 2 hot"});
}

void TestEngineModes::stateTextNamesWhatIsBusy()
{
    EngineRig rig;
    rig.startUp();
    rig.video.ticksByItself = false;
    rig.run(100);
    QCOMPARE(rig.vtr->stateToString(), QString("VR 0 VW 0 SC 0 [scripted] "));
    rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->cue(5);
    QCOMPARE(rig.vtr->stateToString(), QString("VR 0 VW 0 SC 0 [scripted] vdev flush, stm open"));
    rig.vtr->scheduleVideoDeviceReset(500, true);
    QCOMPARE(rig.vtr->stateToString(),
             QString("VR 0 VW 0 SC 0 [scripted] vdev flush, stm open, vdev reset"));
}

void TestEngineModes::debugStatsNameBothModes()
{
    EngineRig rig;
    rig.vtr->start();
    rig.transcript.clear();
    rig.invoke("logDebugStats");
    QCOMPARE(rig.logs(), QStringList{"3 PMode Startup CMode Standby Off Setup Y Flush N"});
}

void TestEngineModes::aVbiIsStoredProcessedAndPassedOn()
{
    EngineRig rig;
    rig.startUp();
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.video.inputTimecode = OrbTimecode(1, 2, 3, 4, 25, 0);
    QStringList order;
    QObject::connect(rig.vtr.get(), &VtrObject::vbi, rig.vtr.get(), [&](const OrbVbiInfo &info) {
        order << info.inputTimecode().toString()
              << QString::number(rig.video.framesReadable());
    });
    rig.video.tick();
    QCOMPARE(order, (QStringList{"01:02:03:04", "0"}));
    QCOMPARE(rig.vtr->currentInputTimecode().toString(), QString("01:02:03:04"));
    QCOMPARE(rig.vtr->lastVBI().inputTimecode().toString(), QString("01:02:03:04"));
    rig.video.inputTimecode = OrbTimecode();
    rig.video.tick();
    QCOMPARE(rig.signalsSeen(),
             (QStringList{"timecodeInputValidChanged true", "timecodeInputValidChanged false"}));
}

void TestEngineModes::theFirstTickComesAfterHalfASecond()
{
    EngineRig rig;
    rig.video.ticksByItself = false;
    rig.vtr->start();
    rig.run(490);
    QCOMPARE(rig.transcript.count("signal stateChanged"), 0);
    rig.run(20);
    QCOMPARE(rig.transcript.count("signal stateChanged"), 1);
}

SIM_TEST_MAIN(TestEngineModes)
#include "tst_engine_modes.moc"
