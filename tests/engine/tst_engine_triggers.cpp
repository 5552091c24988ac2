#include "enginemodes.h"

#include "liborb/orb.h"

/// What starts and stops a recording besides the operator: the camera's flag and a timecode that
/// runs; and what forbids one.
class TestEngineTriggers : public QObject
{
    Q_OBJECT

private slots:
    void whatIsACameraTrigger_data();
    void whatIsACameraTrigger();
    void theStoryOfACameraStart();
    void theFrameOfTheStartIsWrittenFirst_data();
    void theFrameOfTheStartIsWrittenFirst();
    void aStartFrameWithoutAPictureIsNotHeld();
    void aStartWhileInhibitedIsIgnoredFrameByFrame_data();
    void aStartWhileInhibitedIsIgnoredFrameByFrame();
    void aStartIsCarriedOutWhenTheInhibitEnds();
    void theStoryOfACameraStop();
    void framesBehindTheStopAreNotWritten();
    void anInhibitDoesNotKeepACameraFromStopping();
    void aTriggerEndsThePass();
    void theFlagOfTheDebugItemCountsAsTheCameras();
    void debugMetadataGoesIntoEveryFrameUntilItIsTakenBack();
    void noTriggerIsSeenOutsideStandbyOffAndRecord_data();
    void noTriggerIsSeenOutsideStandbyOffAndRecord();
    void aCameraThatStartsDuringPlayback_data();
    void aCameraThatStartsDuringPlayback();

    void timecodeTriggers_data();
    void timecodeTriggers();
    void runningTimecodeRecordsAndStandingTimecodeStops();

    void whatForbidsARecording_data();
    void whatForbidsARecording();
    void aReadErrorEndsThePassInBothModes_data();
    void aReadErrorEndsThePassInBothModes();
};

namespace {

constexpr int camera = 1001;

/// In Standby Off with a camera whose flag is off, frames only by hand.
void startUpWithCamera(EngineRig &rig)
{
    rig.startUp();
    rig.vtr->setCameraInput(OrbId(camera));
    rig.video.cameraFlag = false;
    rig.run(1000);
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.transcript.clear();
}

QList<int> recorded(const EngineRig &rig)
{
    return rig.media.recordedNumbers(EngineRig::recordPath);
}

} // namespace

void TestEngineTriggers::whatIsACameraTrigger_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<int>("input");
    QTest::addColumn<QVariant>("flag");
    QTest::addColumn<bool>("isTrigger");
    const std::pair<const char *, QVariant> flags[] = {
        {"none", QVariant()}, {"off", false}, {"on", true}};
    for (const VtrState::Mode mode : EngineModes::all)
        for (const int input : {0, camera})
            for (const auto &[name, flag] : flags) {
                const bool starts = mode == VtrState::StandbyOff && flag == QVariant(true);
                const bool stops = mode == VtrState::Record && flag == QVariant(false);
                QTest::addRow("%s, %s, flag %s", EngineModes::name(mode).constData(),
                              input ? "camera" : "no camera", name)
                    << mode << input << flag << (input != 0 && (starts || stops));
            }
}

void TestEngineTriggers::whatIsACameraTrigger()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(int, input);
    QFETCH(QVariant, flag);
    QFETCH(bool, isTrigger);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.vtr->setCameraInput(OrbId(input));
    OrbFrame frame = rig.media.frameOf(rig.media.clips.value(EngineRig::clipPath), 0);
    frame.meta().insert(OrbId(OrbIdCameraRecordFlag), flag);
    QCOMPARE(rig.vtr->checkForCameraTrigger(frame), isTrigger);
}

void TestEngineTriggers::theStoryOfACameraStart()
{
    EngineRig rig;
    startUpWithCamera(rig);
    rig.video.cameraFlag = true;
    rig.video.tick();
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 Camera has started record.",
        "signal modeChanged Standby Off -> Record",
        "log 3 Begin Mode Record",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup is current, no need to change it",
        "device: property 26 = 1",
        "device: property 22 = 1606",
        "log 3 Mode changed from Standby Off to Record",
        "signal storageInUse true",
        "media: open write /media/rec.mov",
        "log 3 STREAM: Open for Write Started",
        "signal stateChanged 0.000 Standby Off -> 1.000 Record",
    }));
}

void TestEngineTriggers::theFrameOfTheStartIsWrittenFirst_data()
{
    QTest::addColumn<bool>("needsSetup");
    QTest::addColumn<int>("openMs");
    QTest::newRow("at once") << false << 1;
    QTest::newRow("slow open") << false << 400;
    QTest::newRow("behind a setup") << true << 400;
}

void TestEngineTriggers::theFrameOfTheStartIsWrittenFirst()
{
    QFETCH(bool, needsSetup);
    QFETCH(int, openMs);
    EngineRig rig;
    startUpWithCamera(rig);
    rig.media.opens.push_back({.afterMs = openMs});
    if (needsSetup)
        rig.vtr->setSuperOut(OrbId(1300)); // sent with the begin of the recording
    const int first = rig.video.framesCaptured();
    rig.video.cameraFlag = true;
    for (int i = 0; i < 20; ++i) {
        rig.video.tick();
        rig.run(40);
    }
    rig.run(600);
    QCOMPARE(rig.mode(), VtrState::Record);
    const QList<int> numbers = recorded(rig);
    QCOMPARE(numbers.first(), first);
    QCOMPARE(numbers.count(first), 1);
    if (!needsSetup) // a setup empties the device
        QCOMPARE(numbers.size(), 20);
    for (int i = 1; i < numbers.size(); ++i)
        QCOMPARE(numbers.at(i), numbers.at(i - 1) + 1);
}

void TestEngineTriggers::aStartFrameWithoutAPictureIsNotHeld()
{
    EngineRig rig;
    startUpWithCamera(rig);
    rig.video.cameraFlag = true;
    rig.video.hasSignal = false;
    rig.video.tick();
    QCOMPARE(rig.logs().mid(0, 2),
             (QStringList{"3 Camera has started record.", "2 Image 0 is invalid"}));
    QCOMPARE(rig.mode(), VtrState::Record);
    QCOMPARE(rig.transcript.count("media: open write"), 0);
    rig.video.hasSignal = true;
    const int first = rig.video.framesCaptured();
    rig.video.tick();
    rig.run(100);
    rig.video.tick();
    rig.run(100);
    QCOMPARE(recorded(rig), (QList<int>{first, first + 1}));
}

void TestEngineTriggers::aStartWhileInhibitedIsIgnoredFrameByFrame_data()
{
    QTest::addColumn<int>("inhibit");
    QTest::addColumn<bool>("hasInput");
    QTest::newRow("by the controller") << 2003 << true;
    QTest::newRow("by the input") << 0 << false;
}

void TestEngineTriggers::aStartWhileInhibitedIsIgnoredFrameByFrame()
{
    QFETCH(int, inhibit);
    QFETCH(bool, hasInput);
    EngineRig rig;
    startUpWithCamera(rig);
    rig.inhibitReason = OrbId(inhibit);
    if (!hasInput)
        rig.changeInput(false);
    rig.video.hasSignal = true;
    rig.transcript.clear();
    rig.video.cameraFlag = true;
    for (int i = 0; i < 10; ++i)
        rig.video.tick();
    QCOMPARE(rig.transcript.lines(), QStringList{}); // no log, no recordFailedToStart
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QCOMPARE(rig.video.framesReadable(), 0);
}

void TestEngineTriggers::aStartIsCarriedOutWhenTheInhibitEnds()
{
    EngineRig rig;
    startUpWithCamera(rig);
    rig.inhibitReason = OrbId(2003);
    rig.video.cameraFlag = true;
    rig.video.tick();
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    rig.inhibitReason = OrbId();
    rig.video.tick(); // the flag is a state, not an edge
    QCOMPARE(rig.mode(), VtrState::Record);
}

void TestEngineTriggers::theStoryOfACameraStop()
{
    EngineRig rig;
    startUpWithCamera(rig);
    rig.video.cameraFlag = true;
    rig.video.tick();
    rig.run(100);
    rig.transcript.clear();
    rig.video.cameraFlag = false;
    rig.video.tick();
    const QStringList story = {
        "log 3 Camera has stopped record.",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Record -> Standby Off",
    };
    QCOMPARE(rig.transcript.lines().mid(0, story.size()), story);
    rig.run(200);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineTriggers::framesBehindTheStopAreNotWritten()
{
    EngineRig rig;
    startUpWithCamera(rig);
    const int first = rig.video.framesCaptured();
    rig.video.cameraFlag = true;
    for (int i = 0; i < 5; ++i) {
        rig.video.tick();
        rig.run(40);
    }
    rig.video.cameraFlag = false;
    for (int i = 0; i < 5; ++i) {
        rig.video.tick();
        rig.run(40);
    }
    QCOMPARE(recorded(rig), (QList<int>{first, first + 1, first + 2, first + 3, first + 4}));
}

void TestEngineTriggers::anInhibitDoesNotKeepACameraFromStopping()
{
    EngineRig rig;
    startUpWithCamera(rig);
    rig.video.cameraFlag = true;
    rig.video.tick();
    rig.run(100);
    rig.inhibitReason = OrbId(2003);
    rig.video.cameraFlag = false;
    rig.video.tick();
    QCOMPARE(rig.countLog(3, "Camera has stopped record."), 1);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

/// Frames behind the one with the trigger wait for the next pass.
void TestEngineTriggers::aTriggerEndsThePass()
{
    EngineRig rig;
    startUpWithCamera(rig);
    rig.inhibitReason = OrbId(2003);
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->videoDeviceFlush(); // passes wait
    rig.video.cameraFlag = true;
    for (int i = 0; i < 4; ++i)
        rig.video.tick();
    QCOMPARE(rig.video.framesReadable(), 4);
    rig.video.finishFlush();
    for (int left = 3; left >= 0; --left) {
        rig.vtr->processModeRecord();
        QCOMPARE(rig.video.framesReadable(), left);
    }
}

void TestEngineTriggers::theFlagOfTheDebugItemCountsAsTheCameras()
{
    EngineRig rig;
    startUpWithCamera(rig);
    rig.video.cameraFlag.reset();
    rig.vtr->debugFrameMetadata(OrbMetadata(OrbId(OrbIdCameraRecordFlag), true));
    rig.video.tick();
    QCOMPARE(rig.mode(), VtrState::Record);
    rig.run(100);
    rig.vtr->debugFrameMetadata(OrbMetadata(OrbId(OrbIdCameraRecordFlag), false));
    rig.video.tick();
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineTriggers::debugMetadataGoesIntoEveryFrameUntilItIsTakenBack()
{
    EngineRig rig;
    rig.startRecord();
    const auto lastItem = [&] {
        return rig.media.recordings().value(EngineRig::recordPath).last().meta().valueFor(OrbId(4711));
    };
    rig.run(100);
    QVERIFY(!lastItem().isValid());
    rig.vtr->debugFrameMetadata(OrbMetadata(OrbId(4711), 42));
    rig.run(100);
    QCOMPARE(lastItem(), QVariant(42));
    rig.vtr->debugFrameMetadata(OrbMetadata());
    rig.run(100);
    QVERIFY(!lastItem().isValid());
}

void TestEngineTriggers::noTriggerIsSeenOutsideStandbyOffAndRecord_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    for (const VtrState::Mode mode :
         {VtrState::Startup, VtrState::Shutdown, VtrState::Standby, VtrState::Play})
        QTest::newRow(EngineModes::name(mode)) << mode;
}

void TestEngineTriggers::noTriggerIsSeenOutsideStandbyOffAndRecord()
{
    QFETCH(VtrState::Mode, mode);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.vtr->setCameraInput(OrbId(camera));
    rig.transcript.clear();
    for (const bool flag : {true, false, true}) {
        rig.video.cameraFlag = flag;
        rig.run(200);
    }
    QCOMPARE(rig.mode(), mode);
    QCOMPARE(rig.logs().filter("amera"), QStringList{});
}

void TestEngineTriggers::aCameraThatStartsDuringPlayback_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<int>("input");
    QTest::addColumn<QVariant>("flag");
    QTest::addColumn<bool>("endsPlayback");
    // clang-format off
    QTest::newRow("starts")           << VtrState::Play    << camera << QVariant(true)  << true;
    QTest::newRow("stops")            << VtrState::Play    << camera << QVariant(false) << false;
    QTest::newRow("no flag")          << VtrState::Play    << camera << QVariant()      << false;
    QTest::newRow("no camera")        << VtrState::Play    << 0      << QVariant(true)  << false;
    QTest::newRow("in Standby")       << VtrState::Standby << camera << QVariant(true)  << false;
    QTest::newRow("in Record")        << VtrState::Record  << camera << QVariant(true)  << false;
    // clang-format on
}

void TestEngineTriggers::aCameraThatStartsDuringPlayback()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(int, input);
    QFETCH(QVariant, flag);
    QFETCH(bool, endsPlayback);
    EngineRig rig;
    rig.vtr->setCameraInput(OrbId(input));
    EngineModes::enter(rig, mode);
    OrbMetadataHash data;
    data.insert(OrbId(OrbIdCameraRecordFlag), flag);
    rig.video.reportAncData(data);
    QCOMPARE(rig.mode(), endsPlayback ? VtrState::StandbyOff : mode);
    if (!endsPlayback)
        QCOMPARE(rig.transcript.lines(), QStringList{});
}

// Timecode ----------------------------------------------------------------------------------------

void TestEngineTriggers::timecodeTriggers_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<bool>("isOn");
    QTest::addColumn<bool>("starts");
    QTest::addColumn<QString>("first"); ///< line of the transcript
    const QString off = "log 3 ** STANDBY OFF";
    const QString record = "signal modeChanged %1 -> Record";
    // clang-format off
    //                                      mode                   flag     starts   first line
    QTest::newRow("Standby Off, starts") << VtrState::StandbyOff << true  << true  << record.arg("Standby Off");
    QTest::newRow("Standby Off, stops")  << VtrState::StandbyOff << true  << false << QString();
    QTest::newRow("Record, starts")      << VtrState::Record     << true  << true  << QString();
    QTest::newRow("Record, stops")       << VtrState::Record     << true  << false << off;
    QTest::newRow("Play, starts")        << VtrState::Play       << true  << true  << record.arg("Play");
    QTest::newRow("Play, stops")         << VtrState::Play       << true  << false << off;
    QTest::newRow("Standby Off, off, starts") << VtrState::StandbyOff << false << true  << QString();
    QTest::newRow("Standby Off, off, stops")  << VtrState::StandbyOff << false << false << QString();
    QTest::newRow("Record, off, starts")      << VtrState::Record     << false << true  << QString();
    QTest::newRow("Record, off, stops")       << VtrState::Record     << false << false << QString();
    QTest::newRow("Play, off, starts")        << VtrState::Play       << false << true  << QString();
    QTest::newRow("Play, off, stops")         << VtrState::Play       << false << false << QString();
    // clang-format on
}

void TestEngineTriggers::timecodeTriggers()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(bool, isOn);
    QFETCH(bool, starts);
    QFETCH(QString, first);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.vtr->setRecordOnRunningTimecode(isOn);
    rig.transcript.clear();
    rig.invoke(starts ? "timecodeTriggerHasStarted" : "timecodeTriggerHasStopped");
    QCOMPARE(rig.transcript.lines().value(0), first);
}

void TestEngineTriggers::runningTimecodeRecordsAndStandingTimecodeStops()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setRecordOnRunningTimecode(true);
    OrbTimecode tc(10, 0, 0, 0, 25, 0);
    QList<VtrState::Mode> modes;
    for (int i = 0; i < 150; ++i) {
        if (i < 50 || i >= 100)
            tc = tc.advanced(1);
        rig.video.inputTimecode = tc;
        rig.run(40);
        if (modes.isEmpty() || modes.last() != rig.mode())
            modes << rig.mode();
    }
    QCOMPARE(modes, (QList<VtrState::Mode>{VtrState::StandbyOff, VtrState::Record,
                                           VtrState::StandbyOff, VtrState::Record}));
}

// What forbids it ---------------------------------------------------------------------------------

void TestEngineTriggers::whatForbidsARecording_data()
{
    QTest::addColumn<int>("controller");
    QTest::addColumn<bool>("hasGenerator");
    QTest::addColumn<bool>("isInputValid");
    QTest::addColumn<int>("input");
    QTest::addColumn<int>("reason");
    struct Row {
        const char *name;
        int controller;
        bool hasGenerator, isInputValid;
        int input, reason;
    };
    // clang-format off
    const Row rows[] = {
        // name                        controller generator valid  input   reason
        {"nothing",                    0,         false,    true,  0,      0},
        {"controller",                 2003,      false,    true,  0,      2003},
        {"controller before generator", 2003,     true,     true,  0,      2003},
        {"controller before no input", 2003,      false,    false, 0,      2003},
        {"controller before input",    2003,      false,    true,  2007,   2003},
        {"generator",                  0,         true,     true,  0,      0},
        {"generator before no input",  0,         true,     false, 0,      0},
        {"generator before input",     0,         true,     true,  2007,   0},
        {"no input",                   0,         false,    false, 0,      2000},
        {"no input before input",      0,         false,    false, 2007,   2000},
        {"input",                      0,         false,    true,  2007,   2007},
    };
    // clang-format on
    for (const Row &row : rows)
        QTest::newRow(row.name) << row.controller << row.hasGenerator << row.isInputValid
                                << row.input << row.reason;
}

void TestEngineTriggers::whatForbidsARecording()
{
    QFETCH(int, controller);
    QFETCH(bool, hasGenerator);
    QFETCH(bool, isInputValid);
    QFETCH(int, input);
    QFETCH(int, reason);
    EngineRig rig;
    rig.startUp();
    OrbVideoState state = EngineRig::inputState(EngineRig::hd25());
    state.setValid(isInputValid);
    state.setRecInhibit(OrbId(input));
    rig.video.changeInput(0, state);
    rig.vtr->setVideoSignalGenFormat(EngineRig::hd25());
    rig.vtr->setVideoSignalGenMode(hasGenerator ? OrbId(801) : OrbId());
    rig.inhibitReason = OrbId(controller);
    rig.run(1000);
    rig.transcript.clear();
    QCOMPARE(rig.vtr->recordInhibitedReason(), OrbId(reason));
    QCOMPARE(rig.vtr->inputVideoIsValid(), hasGenerator || isInputValid);
    rig.vtr->record();
    QCOMPARE(rig.mode(), reason ? VtrState::StandbyOff : VtrState::Record);
    if (reason)
        QCOMPARE(rig.transcript.lines(),
                 (QStringList{"log 2 Record Inhibited: " + OrbId(reason).name(),
                              QString("signal recordFailedToStart %1").arg(reason)}));
}

void TestEngineTriggers::aReadErrorEndsThePassInBothModes_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<QStringList>("lines");
    const QString line = "log 1 VIDEO DEVICE: Read Error 5";
    QTest::newRow("Standby Off") << VtrState::StandbyOff << QStringList{line};
    QTest::newRow("Record") << VtrState::Record
                            << QStringList{line, "log 3 ** STANDBY OFF",
                                           "signal modeChanged Record -> Standby Off"};
}

void TestEngineTriggers::aReadErrorEndsThePassInBothModes()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(QStringList, lines);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.video.readErrors.push_back(OrbError(5));
    rig.video.tick();
    QCOMPARE(rig.transcript.lines().mid(0, mode == VtrState::Record ? 3 : -1), lines);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

SIM_TEST_MAIN(TestEngineTriggers)
#include "tst_engine_triggers.moc"
