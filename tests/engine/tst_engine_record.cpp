#include "enginerig.h"

#include "liborb/orb.h"

/// Recording: the first frame, intervals, triggers, loss of video, timecode.
class TestEngineRecord : public QObject
{
    Q_OBJECT

private slots:
    void recordFromStandbyOffToTheFirstFrame();
    void theFirstFrameIsHeldAndWrittenFirst();
    void noFrameIsLostOrDoubled();
    void recordInRecordDoesNothing();
    void inhibitedRecordIsReportedAndChangesNothing_data();
    void inhibitedRecordIsReportedAndChangesNothing();
    void theGeneratorGoesBeforeTheInput();
    void framesAreJudgedImageByImage();
    void aFrameWithoutPictureBeforeTheOpenIsSkipped();
    void lossOfVideoStopsTheRecording();
    void lossOfVideoIsCoveredByThePicture();
    void lossOfVideoWithoutAPictureStopsTheRecording();
    void theImageCountMustMatchTheSetup();
    void intervalRecordingKeepsOneFrameInSoMany();
    void intervalOfZeroFramesKeepsOneAPeriod();
    void anUnknownPeriodDeliberatelyCarriesOver();
    void aReadErrorEndsTheRecording();
    void noDescriptorEndsTheRecording();
    void anOpenThatCannotStartEndsTheRecording();
    void anOpenThatFailsEndsTheRecording();
    void stopWhileOpeningWritesTheHeldFrame();
    void framesStillCachedAreScheduledForWriting();
    void cameraStartRecordsFromItsFrameOn();
    void cameraStartIsIgnoredWhileInhibited();
    void cameraStopEndsTheRecording();
    void cameraFlagsMeanNothingWithoutACameraInput();
    void debugMetadataIsStampedIntoFrames();
    void runningTimecodeStartsAndStopsTheRecording();
    void runningTimecodeDoesNothingUnlessAskedFor();
    void thePresetGoesOnFromTheLastRecordedFrame();
    void timeOfDayIsJammed();
    void aFrameWithoutTimecodeIsWrittenAllTheSame();
    void rolloverLosesNoFrame();
};

void TestEngineRecord::recordFromStandbyOffToTheFirstFrame()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->record();
    rig.run(60);
    const QStringList story = {
        "signal modeChanged Standby Off -> Record",
        "log 3 Begin Mode Record",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup is current, no need to change it",
        "device: property 26 = 1",
        "device: property 22 = 1606",
        "log 3 Mode changed from Standby Off to Record",
        "signal stateChanged 0.000 Standby Off -> 1.000 Record",
        "signal storageInUse true",
        "media: open write /media/rec.mov",
        "log 3 STREAM: Open for Write Started",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
    };
    QCOMPARE(rig.transcript.lines(), story);
    QCOMPARE(rig.media.infos().size(), 1);
    QCOMPARE(rig.media.infos().first().vids(), QList<OrbImageDesc>{EngineRig::hd25()});
    QCOMPARE(rig.media.infos().first().auds().size(), 1);
    QCOMPARE(rig.media.infos().first().offset(), 0);
}

void TestEngineRecord::theFirstFrameIsHeldAndWrittenFirst()
{
    EngineRig rig;
    rig.startUp();
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
    const int first = rig.video.framesCaptured();
    rig.vtr->record();
    for (int i = 0; i < 5; ++i)
        rig.video.tick();
    QVERIFY(!rig.vtr->canProcess());
    QCOMPARE(rig.media.recordedNumbers(EngineRig::recordPath), QList<int>{});
    rig.media.finishOpen();
    rig.video.tick();
    rig.run(10);
    QCOMPARE(rig.media.recordedNumbers(EngineRig::recordPath),
             (QList<int>{first, first + 1, first + 2, first + 3, first + 4, first + 5}));
}

void TestEngineRecord::noFrameIsLostOrDoubled()
{
    EngineRig rig;
    rig.startRecord();
    rig.run(5000);
    rig.vtr->standbyOff();
    rig.run(200);
    const QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    QVERIFY(numbers.size() > 120);
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
    QVERIFY(rig.media.flushCount() >= 4);
    QCOMPARE(rig.signalsSeen(),
             (QStringList{"modeChanged Record -> Standby Off", "storageInUse false",
                          "streamIsClosed", "stateChanged 1.000 Record -> 0.000 Standby Off"}));
}

void TestEngineRecord::recordInRecordDoesNothing()
{
    EngineRig rig;
    rig.startRecord();
    rig.vtr->record();
    QCOMPARE(rig.transcript.lines(), QStringList{});
}

void TestEngineRecord::inhibitedRecordIsReportedAndChangesNothing_data()
{
    QTest::addColumn<int>("asked");
    QTest::addColumn<bool>("isInputValid");
    QTest::addColumn<int>("inputReason");
    QTest::addColumn<int>("reason");
    QTest::newRow("the controller's reason comes first") << 2003 << false << 2007 << 2003;
    QTest::newRow("no valid input") << 0 << false << 0 << 2000;
    QTest::newRow("the input's own reason") << 0 << true << 2007 << 2007;
}

void TestEngineRecord::inhibitedRecordIsReportedAndChangesNothing()
{
    QFETCH(int, asked);
    QFETCH(bool, isInputValid);
    QFETCH(int, inputReason);
    QFETCH(int, reason);
    EngineRig rig;
    rig.startUp();
    OrbVideoState state = EngineRig::inputState(EngineRig::hd25());
    state.setValid(isInputValid);
    state.setRecInhibit(OrbId(inputReason));
    rig.video.changeInput(0, state);
    rig.run(1000);
    rig.transcript.clear();
    rig.inhibitReason = OrbId(asked);
    rig.vtr->record();
    QCOMPARE(rig.transcript.lines(),
             (QStringList{"log 2 Record Inhibited: " + OrbId(reason).name(),
                          QString("signal recordFailedToStart %1").arg(reason)}));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QVERIFY(!rig.vtr->hasPendingModeChange());
}

void TestEngineRecord::theGeneratorGoesBeforeTheInput()
{
    EngineRig rig;
    rig.startUp();
    rig.changeInput(false);
    QVERIFY(!rig.vtr->inputVideoIsValid());
    rig.vtr->setVideoSignalGenFormat(EngineRig::hd25());
    rig.vtr->setVideoSignalGenMode(OrbId(801));
    QVERIFY(rig.vtr->inputVideoIsValid());
    QVERIFY(!rig.vtr->recordInhibitedReason().isValid());
    rig.inhibitReason = OrbId(2004);
    QCOMPARE(rig.vtr->recordInhibitedReason(), OrbId(2004));
}

void TestEngineRecord::framesAreJudgedImageByImage()
{
    EngineRig rig;
    rig.startUp();
    OrbFrame frame;
    frame.vids().append(OrbImage(EngineRig::hd25(), OrbBuffer(8, 8)));
    QVERIFY(rig.vtr->validateFrameForRecord(frame));
    QCOMPARE(rig.logs(), QStringList{});
    frame.vids().append(frame.vids().first());
    QVERIFY(!rig.vtr->validateFrameForRecord(frame));
    frame.vids().clear();
    QVERIFY(!rig.vtr->validateFrameForRecord(frame));
    frame.vids().append(OrbImage(EngineRig::hd25(), OrbBuffer()));
    QVERIFY(!rig.vtr->validateFrameForRecord(frame));
    frame.vids()[0] = OrbImage(EngineRig::hd25(), OrbBuffer(8, 8));
    frame.vids()[0].planes().append(OrbBuffer());
    QVERIFY(!rig.vtr->validateFrameForRecord(frame));
    QCOMPARE(rig.logs(), (QStringList{"2 Image count (2) doesn't match the setup (1)",
                                      "2 Image count (0) doesn't match the setup (1)",
                                      "2 Image 0 is invalid", "2 Image 0 buffer is invalid"}));
}

void TestEngineRecord::aFrameWithoutPictureBeforeTheOpenIsSkipped()
{
    EngineRig rig;
    rig.startUp();
    rig.video.hasSignal = false;
    rig.vtr->record();
    rig.run(200);
    QCOMPARE(rig.transcript.count("media: open"), 0);
    QVERIFY(rig.countLog(2, "Image 0 is invalid") >= 4);
    QCOMPARE(rig.mode(), VtrState::Record);
    rig.video.hasSignal = true;
    rig.run(100);
    QCOMPARE(rig.transcript.count("media: open write"), 1);
}

void TestEngineRecord::lossOfVideoStopsTheRecording()
{
    EngineRig rig;
    rig.startRecord();
    rig.video.hasSignal = false;
    rig.run(100);
    QCOMPARE(rig.alarmTexts(), QStringList{"1907 2 Recording stopped due to loss of video"});
    QVERIFY(rig.hasLog(2, "Empty frame, stop on LoV is set.  Stopping record"));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QCOMPARE(rig.alarms.first().file(), QString("vtrobject.cpp"));
    QVERIFY(rig.alarms.first().line() > 0);
}

void TestEngineRecord::lossOfVideoIsCoveredByThePicture()
{
    EngineRig rig;
    const QString cover =
        "/usr/local/share/media/prores_422/loss_of_video_1080p_422.mov";
    rig.media.clips.insert(cover, EngineRig::clip(1, EngineRig::imageDesc(1920, 1080, 30, 1)));
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(false);
    rig.vtr->record();
    rig.run(200);
    rig.transcript.clear();
    rig.video.hasSignal = false;
    rig.run(120);
    QCOMPARE(rig.mode(), VtrState::Record);
    QVERIFY(rig.alarms.size() >= 2);
    QCOMPARE(rig.alarmTexts().first(),
             QString("1907 1 Loss of video during record, recording continued"));
    const QList<OrbFrame> written = rig.media.recordings().value(EngineRig::recordPath);
    QCOMPARE(written.last().vids().first().desc().frameRate(), OrbVideoRate(30, 1));
    QVERIFY(written.last().hasValidVideo());
    QVERIFY(!written.last().auds().isEmpty());
    const QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
}

void TestEngineRecord::lossOfVideoWithoutAPictureStopsTheRecording()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(false);
    rig.vtr->record();
    rig.run(200);
    rig.transcript.clear();
    rig.video.hasSignal = false;
    rig.run(100);
    QCOMPARE(rig.alarmTexts(),
             (QStringList{"1907 1 Loss of video during record, recording continued",
                          "1905 2 Invalid Loss Of Video image buffer"}));
    QVERIFY(rig.hasLog(2, "Loss of Video image buffer is not valid."));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineRecord::theImageCountMustMatchTheSetup()
{
    EngineRig rig;
    rig.startRecord();
    rig.video.imageCount = 2;
    rig.run(60);
    QVERIFY(rig.hasLog(2, "Image count (2) doesn't match the setup (1)"));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineRecord::intervalRecordingKeepsOneFrameInSoMany()
{
    EngineRig rig;
    rig.startUp();
    rig.video.changeInput(0, EngineRig::inputState(EngineRig::imageDesc(1920, 1080, 30, 1)));
    rig.run(1000);
    rig.vtr->setRecordInterval(2);
    rig.vtr->setRecordIntervalTime(1);
    rig.vtr->setIntervalRecordEnable(true);
    rig.transcript.clear();
    rig.vtr->record();
    QVERIFY(rig.hasLog(3, "Interval Record.  Interval 2, Time 1, Every 900.000"));
    rig.run(61000);
    const QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    QCOMPARE(numbers.size(), 2);
    QCOMPARE(numbers.at(1) - numbers.at(0), 900);
}

void TestEngineRecord::intervalOfZeroFramesKeepsOneAPeriod()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setRecordInterval(0);
    rig.vtr->setIntervalRecordEnable(true);
    rig.vtr->record();
    QVERIFY(rig.hasLog(2, "Record interval total is zero!"));
    QVERIFY(rig.hasLog(3, "Interval Record.  Interval 0, Time 0, Every 25.000"));
}

void TestEngineRecord::anUnknownPeriodDeliberatelyCarriesOver()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setRecordIntervalTime(3);
    rig.vtr->setIntervalRecordEnable(true);
    rig.vtr->record();
    QVERIFY(rig.hasLog(2, "Interval total is less than 1"));
    QVERIFY(rig.hasLog(3, "Interval Record.  Interval 1, Time 3, Every 1.000"));
}

void TestEngineRecord::aReadErrorEndsTheRecording()
{
    EngineRig rig;
    rig.startRecord();
    rig.video.readErrors.push_back(OrbError(5));
    rig.run(100);
    QVERIFY(rig.hasLog(1, "VIDEO DEVICE: Read Error 5"));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineRecord::noDescriptorEndsTheRecording()
{
    EngineRig rig;
    rig.startUp();
    rig.recordDesc = QVariant();
    rig.vtr->record();
    rig.run(100);
    QVERIFY(rig.hasLog(1, "STREAM: Failed to get a record stream descriptor"));
    QVERIFY(rig.hasLog(1, "Open Stream Failed"));
    QVERIFY(rig.signalsSeen().contains("streamIsOpen 22"));
    QVERIFY(!rig.signalsSeen().contains("storageInUse true"));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineRecord::anOpenThatCannotStartEndsTheRecording()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.isRefused = true});
    rig.vtr->record();
    rig.run(100);
    QVERIFY(rig.hasLog(1, "STREAM: Open for write failed"));
    const QStringList seen = rig.signalsSeen();
    QCOMPARE(seen.mid(seen.indexOf("storageInUse true"), 3),
             (QStringList{"storageInUse true", "storageInUse false", "streamIsOpen 22"}));
}

void TestEngineRecord::anOpenThatFailsEndsTheRecording()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.error = OrbError(28)});
    rig.vtr->record();
    rig.run(100);
    QVERIFY(rig.hasLog(1, "STREAM: Open Error 28"));
    QVERIFY(!rig.hasLog(3, "STREAM: Open is Done"));
    const QStringList seen = rig.signalsSeen();
    QCOMPARE(seen.mid(seen.indexOf("storageInUse true")),
             (QStringList{"storageInUse true", "storageInUse false",
                          "modeChanged Record -> Standby Off",
                          "stateChanged 1.000 Record -> 0.000 Standby Off", "streamIsOpen 28"}));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    rig.run(500);
    QVERIFY(rig.media.recordings().isEmpty());
}

void TestEngineRecord::stopWhileOpeningWritesTheHeldFrame()
{
    EngineRig rig;
    rig.startUp();
    rig.media.opens.push_back({.afterMs = 300});
    rig.vtr->record();
    rig.run(100);
    rig.vtr->standbyOff();
    rig.run(800);
    QVERIFY(rig.hasLog(3, "Record finished with a pending frame.  Writing to cache"));
    QCOMPARE(rig.media.recordings().value(EngineRig::recordPath).size(), 1);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QVERIFY(rig.signalsSeen().contains("streamIsClosed"));
}

void TestEngineRecord::framesStillCachedAreScheduledForWriting()
{
    EngineRig rig;
    rig.media.writeMs = -1;
    rig.startRecord();
    rig.run(1000);
    rig.vtr->standbyOff();
    QVERIFY(rig.transcript.count("log 3 ") > 0);
    const QStringList logs = rig.logs();
    QVERIFY(!logs.filter("frames still in cache, scheduling them for write").isEmpty());
    QVERIFY(logs.filter("There is still").isEmpty());
    rig.media.finishWrites();
    rig.run(200);
    const QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    QVERIFY(numbers.size() > 25);
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
}

void TestEngineRecord::cameraStartRecordsFromItsFrameOn()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setCameraInput(OrbId(1000));
    rig.video.cameraFlag = false;
    rig.run(1000);
    rig.video.ticksByItself = false;
    rig.run(100);
    const int first = rig.video.framesCaptured();
    rig.transcript.clear();
    rig.video.cameraFlag = true;
    rig.video.tick();
    QCOMPARE(rig.countLog(3, "Camera has started record."), 1);
    QCOMPARE(rig.mode(), VtrState::Record);
    rig.run(20);
    rig.video.tick();
    rig.run(20);
    QCOMPARE(rig.media.recordedNumbers(EngineRig::recordPath), (QList<int>{first, first + 1}));
}

void TestEngineRecord::cameraStartIsIgnoredWhileInhibited()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setCameraInput(OrbId(1000));
    rig.run(1000);
    rig.transcript.clear();
    rig.inhibitReason = OrbId(2003);
    rig.video.cameraFlag = true;
    rig.run(400);
    QCOMPARE(rig.transcript.lines(), QStringList{});
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineRecord::cameraStopEndsTheRecording()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setCameraInput(OrbId(1000));
    rig.run(1000);
    rig.video.cameraFlag = true;
    rig.run(400);
    QCOMPARE(rig.mode(), VtrState::Record);
    rig.video.cameraFlag = false;
    rig.run(80);
    QCOMPARE(rig.countLog(3, "Camera has stopped record."), 1);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    const QList<OrbFrame> written = rig.media.recordings().value(EngineRig::recordPath);
    QVERIFY(!written.isEmpty());
    for (const OrbFrame &frame : written)
        QVERIFY(frame.meta().valueFor(OrbId(705)).toBool());
}

void TestEngineRecord::cameraFlagsMeanNothingWithoutACameraInput()
{
    EngineRig rig;
    rig.startUp();
    rig.video.cameraFlag = true;
    rig.run(400);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineRecord::debugMetadataIsStampedIntoFrames()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setCameraInput(OrbId(1000));
    rig.run(1000);
    rig.vtr->debugFrameMetadata(OrbMetadata(OrbId(705), true));
    rig.run(400);
    QCOMPARE(rig.mode(), VtrState::Record);
    rig.vtr->debugFrameMetadata(OrbMetadata(OrbId(705), false));
    rig.run(400);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineRecord::runningTimecodeStartsAndStopsTheRecording()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setRecordOnRunningTimecode(true);
    rig.video.ticksByItself = false;
    rig.run(100);
    OrbTimecode tc(10, 0, 0, 0, 25, 0);
    int started = -1;
    for (int i = 0; i < 10; ++i) {
        rig.video.inputTimecode = tc;
        rig.video.tick();
        if (started < 0 && rig.mode() == VtrState::Record)
            started = i;
        tc = tc.advanced(1);
    }
    QCOMPARE(started, 6); // the first frame is only remembered, the sixth judged one starts
    rig.run(50);
    int stopped = -1;
    for (int i = 0; i < 20; ++i) {
        rig.video.tick();
        if (stopped < 0 && rig.mode() == VtrState::StandbyOff)
            stopped = i + 1;
    }
    QCOMPARE(stopped, 12);
}

void TestEngineRecord::runningTimecodeDoesNothingUnlessAskedFor()
{
    EngineRig rig;
    rig.startUp();
    rig.video.ticksByItself = false;
    rig.run(100);
    OrbTimecode tc(10, 0, 0, 0, 25, 0);
    for (int i = 0; i < 20; ++i) {
        rig.video.inputTimecode = tc;
        rig.video.tick();
        tc = tc.advanced(1);
    }
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineRecord::thePresetGoesOnFromTheLastRecordedFrame()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.vtr->setTimecodeValue(OrbTimecode(1, 0, 0, 0, 0, 0));
    QCOMPARE(rig.video.property(24).value<OrbTimecode>().toString(), QString("01:00:00:00"));
    rig.run(1000);
    rig.vtr->record();
    rig.run(2000);
    const QList<OrbFrame> written = rig.media.recordings().value(EngineRig::recordPath);
    rig.vtr->standbyOff();
    rig.run(100);
    const auto last = rig.media.recordings().value(EngineRig::recordPath).last();
    QCOMPARE(rig.video.property(24).value<OrbTimecode>().toString(),
             last.meta().valueFor(OrbId(12)).value<OrbTimecode>().toString());
    QVERIFY(written.size() > 40);
}

void TestEngineRecord::timeOfDayIsJammed()
{
    Orb::setTimeOfDaySource([] { return qint64(12 * 3600 + 34 * 60 + 56) * 1000 + 480; });
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1501));
    rig.run(1000);
    rig.vtr->record();
    QCOMPARE(rig.video.property(24).value<OrbTimecode>().toString(), QString("12:34:56:12"));
    Orb::setTimeOfDaySource({});
}

void TestEngineRecord::aFrameWithoutTimecodeIsWrittenAllTheSame()
{
    EngineRig rig;
    rig.startRecord();
    const qsizetype before = rig.media.recordings().value(EngineRig::recordPath).size();
    rig.video.hasTimecode = false;
    rig.run(200);
    QVERIFY(rig.countLog(1, "Frame has invalid timecode") >= 4);
    QVERIFY(rig.media.recordings().value(EngineRig::recordPath).size() >= before + 4);
}

void TestEngineRecord::rolloverLosesNoFrame()
{
    EngineRig rig;
    rig.media.writeMs = 100;
    rig.media.closes.push_back({.afterMs = 400});
    rig.startRecord();
    rig.run(1000);
    rig.recordDesc = QString("/media/next.mov");
    QVERIFY(rig.vtr->reopenRecordStream());
    rig.run(1000);
    QList<int> numbers = rig.media.recordedNumbers(EngineRig::recordPath);
    numbers += rig.media.recordedNumbers("/media/next.mov");
    QVERIFY(!rig.media.recordedNumbers("/media/next.mov").isEmpty());
    QVERIFY(numbers.size() > 40);
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
}

SIM_TEST_MAIN(TestEngineRecord)
#include "tst_engine_record.moc"
