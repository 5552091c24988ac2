#include "enginerig.h"

#include "liborb/orb.h"

#include <functional>

/// What arrives while a mode change is pending, for each half of the change: the same signals, row by
/// row, and exactly what each leaves in the log and on the device.
class TestEngineArrivals : public QObject
{
    Q_OBJECT

private slots:
    void signalsWhileNothingIsCleanedUp_data();
    void signalsWhileNothingIsCleanedUp();
    void signalsBetweenCleanUpAndBegin_data();
    void signalsBetweenCleanUpAndBegin();
    void signalsOnTheWayIntoPlay_data();
    void signalsOnTheWayIntoPlay();

private:
    using Act = std::function<void(EngineRig &)>;
    struct Signal {
        const char *name;
        Act act;
        QStringList whileHeld;    ///< Play to Standby Off, the setup before it held
        QStringList whileClosing; ///< Play to Standby Off, the close held
        QStringList intoPlay;     ///< Standby Off to Play, the setup before it held
    };
    static QList<Signal> arrivals();
    static void addArrivals(QStringList Signal::*lines);
    static void holdSetup(EngineRig &rig);
};

namespace {

/// Vertical intervals come by hand from here on; the queues have settled.
void stopTheClock(EngineRig &rig)
{
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.transcript.clear();
}

} // namespace

void TestEngineArrivals::holdSetup(EngineRig &rig)
{
    OrbVideoDeviceSetup other = rig.video.appliedSetup();
    other.setSuperOut(OrbId(1300));
    rig.video.setups.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->setupVideoDevice(other);
    rig.transcript.clear();
}

QList<TestEngineArrivals::Signal> TestEngineArrivals::arrivals()
{
    const auto meta = [](OrbIdValue id) {
        OrbMetadataHash hash;
        hash.insert(OrbId(id), true);
        return hash;
    };
    const OrbVbiInfo labelled(OrbTimecode(), OrbTimecode(1, 2, 3, 4, 25, 0));
    const OrbVideoState other = EngineRig::inputState(EngineRig::imageDesc(1280, 720, 50, 1));
    // clang-format off
    return {
    //  what arrives, then the lines it leaves: while held, while closing, on the way into Play
        {"input lost", [](EngineRig &r) { r.changeInput(false); },
         {"log 3 Input 0 Changed to invalid while in Standby Off",
          "signal inputFormatChanged 0 invalid"},
         {"log 3 Input 0 Changed to invalid while in Standby Off",
          "signal inputFormatChanged 0 invalid"},
         {"log 3 Input 0 Changed to invalid while in Play",
          "signal inputFormatChanged 0 invalid"}},
        {"input of another format", [other](EngineRig &r) { r.video.changeInput(0, other); },
         {"log 3 Input 0 Changed to valid 1280x720p 50/1 ImageProRes422 while in Standby Off",
          "signal inputFormatChanged 0 valid 1280x720p 50/1 ImageProRes422"},
         {"log 3 Input 0 Changed to valid 1280x720p 50/1 ImageProRes422 while in Standby Off",
          "signal inputFormatChanged 0 valid 1280x720p 50/1 ImageProRes422"},
         {"log 3 Input 0 Changed to valid 1280x720p 50/1 ImageProRes422 while in Play",
          "signal inputFormatChanged 0 valid 1280x720p 50/1 ImageProRes422"}},
        {"another input", [other](EngineRig &r) { r.video.changeInput(1, other); },
         {},
         {},
         {}},
        {"frame dropped", [](EngineRig &r) { r.video.dropFrame(); },
         {},
         {},
         {}},
        {"last frame played", [meta](EngineRig &r) { r.video.reportPlayedKeyFrame(meta(OrbIdEndOfStream)); },
         {"log 3 End of stream reached",
          "log 2 Can't enter mode Play.  Pending mode change from Play to Standby Off"},
         {"log 3 End of stream reached",
          "log 2 Can't enter mode Play.  Pending mode change from Play to Standby Off"},
         {"log 3 End of stream reached",
          "log 2 Can't enter mode Play.  Pending mode change from Standby Off to Play"}},
        {"first frame played", [meta](EngineRig &r) { r.video.reportPlayedKeyFrame(meta(OrbIdStartOfStream)); },
         {},
         {},
         {}},
        {"flushed", [](EngineRig &r) { r.vtr->videoDeviceFlush(); r.run(10); },
         {"device: flush",
          "log 3 VIDEO DEVICE: Flush Complete"},
         {"device: flush",
          "log 3 VIDEO DEVICE: Flush Complete"},
         {"device: flush",
          "log 3 VIDEO DEVICE: Flush Complete"}},
        {"cache ready", [](EngineRig &r) { r.invoke("process"); },
         {},
         {},
         {}},
        {"vertical interval", [labelled](EngineRig &r) { QMetaObject::invokeMethod(r.vtr.get(), "handleVBI", Q_ARG(OrbVbiInfo, labelled)); },
         {"signal timecodeInputValidChanged true"},
         {"signal timecodeInputValidChanged true"},
         {"signal timecodeInputValidChanged true"}},
        {"camera started", [meta](EngineRig &r) { r.video.reportAncData(meta(OrbIdCameraRecordFlag)); },
         {},
         {},
         {"log 2 Can't enter mode Standby Off.  Pending mode change from Standby Off to Play"}},
        {"timecode runs", [](EngineRig &r) { r.invoke("timecodeTriggerHasStarted"); },
         {"log 2 Can't enter mode Record.  Pending mode change from Play to Standby Off"},
         {"log 2 Can't enter mode Record.  Pending mode change from Play to Standby Off"},
         {"log 2 Can't enter mode Record.  Pending mode change from Standby Off to Play"}},
        {"timecode stands", [](EngineRig &r) { r.invoke("timecodeTriggerHasStopped"); },
         {"log 2 Can't enter mode Standby Off.  Pending mode change from Play to Standby Off"},
         {"log 2 Can't enter mode Standby Off.  Pending mode change from Play to Standby Off"},
         {"log 2 Can't enter mode Standby Off.  Pending mode change from Standby Off to Play"}},
        {"read failed", [](EngineRig &r) { r.video.reportReadFailed(OrbError(5)); },
         {"log 1 Read from hardware failed with 5"},
         {"log 1 Read from hardware failed with 5"},
         {"log 1 Read from hardware failed with 5"}},
        {"write failed", [](EngineRig &r) { r.video.reportWriteFailed(OrbError(5)); },
         {"log 1 Write to hardware failed with 5"},
         {"log 1 Write to hardware failed with 5"},
         {"log 1 Write to hardware failed with 5"}},
        {"hardware started", [](EngineRig &r) { r.invoke("videoDeviceHardwareStarted"); },
         {},
         {},
         {}},
        {"reset due", [](EngineRig &r) { r.invoke("videoDeviceReset"); },
         {"log 3 VIDEO DEVICE: Device is busy.  Defer reset in mode Standby Off - VR 0 VW 0 SC 45 [scripted] vdev setup"},
         {"log 3 VIDEO DEVICE: Reset in mode Standby Off",
          "log 3 VIDEO DEVICE: Setup for record",
          "log 3 VIDEO DEVICE: Setup Started",
          "device: setup capture 1920x1080p 25/1 ImageProRes422",
          "signal videoDeviceSetupChanged",
          "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov"},
         {"log 3 VIDEO DEVICE: Device is busy.  Defer reset in mode Play - VR 0 VW 0 SC 0 [scripted] vdev setup"}},
        {"statistics", [](EngineRig &r) { r.invoke("logDebugStats"); },
         {"log 3 PMode Play CMode Standby Off Setup Y Flush N"},
         {"log 3 PMode Play CMode Standby Off Setup N Flush N"},
         {"log 3 PMode Standby Off CMode Play Setup Y Flush N"}},
        {"flush timer", [](EngineRig &r) { r.invoke("streamFlush"); },
         {},
         {},
         {}},
    };
    // clang-format on
}

void TestEngineArrivals::addArrivals(QStringList Signal::*lines)
{
    QTest::addColumn<Act>("act");
    QTest::addColumn<QStringList>("lines");
    for (const Signal &arrival : arrivals())
        QTest::newRow(arrival.name) << arrival.act << arrival.*lines;
}

void TestEngineArrivals::signalsWhileNothingIsCleanedUp_data()
{
    addArrivals(&Signal::whileHeld);
}

void TestEngineArrivals::signalsWhileNothingIsCleanedUp()
{
    QFETCH(const Act, act);
    QFETCH(const QStringList, lines);
    EngineRig rig;
    rig.startPlay();
    rig.vtr->setRecordOnRunningTimecode(true);
    rig.run(400);
    stopTheClock(rig);
    holdSetup(rig);
    rig.vtr->standbyOff();
    rig.transcript.clear();
    act(rig);
    QCOMPARE(rig.transcript.lines(), lines);
    QVERIFY(rig.vtr->hasPendingModeChange());
    rig.video.finishSetup();
    rig.run(2000);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QVERIFY(!rig.vtr->hasPendingModeChange());
}

void TestEngineArrivals::signalsBetweenCleanUpAndBegin_data()
{
    addArrivals(&Signal::whileClosing);
}

void TestEngineArrivals::signalsBetweenCleanUpAndBegin()
{
    QFETCH(const Act, act);
    QFETCH(const QStringList, lines);
    EngineRig rig;
    rig.startPlay();
    rig.vtr->setRecordOnRunningTimecode(true);
    rig.run(400);
    stopTheClock(rig);
    rig.media.closes.push_back({.afterMs = ScriptedMedia::held});
    rig.vtr->standbyOff();
    rig.transcript.clear();
    act(rig);
    QCOMPARE(rig.transcript.lines(), lines);
    QVERIFY(rig.vtr->hasPendingModeChange());
    rig.media.finishClose();
    rig.run(2000);
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
    QVERIFY(!rig.vtr->hasPendingModeChange());
}

void TestEngineArrivals::signalsOnTheWayIntoPlay_data()
{
    addArrivals(&Signal::intoPlay);
}

void TestEngineArrivals::signalsOnTheWayIntoPlay()
{
    QFETCH(const Act, act);
    QFETCH(const QStringList, lines);
    EngineRig rig;
    rig.startUp();
    rig.vtr->setCameraInput(OrbId(1000));
    rig.vtr->setRecordOnRunningTimecode(true);
    rig.run(1000);
    stopTheClock(rig);
    holdSetup(rig);
    rig.vtr->play();
    rig.transcript.clear();
    act(rig);
    QCOMPARE(rig.transcript.lines(), lines);
    QVERIFY(rig.vtr->hasPendingModeChange());
    rig.video.finishSetup();
    rig.run(2000);
    QCOMPARE(rig.mode(), VtrState::Play);
    QVERIFY(!rig.vtr->hasPendingModeChange());
}

SIM_TEST_MAIN(TestEngineArrivals)
#include "tst_engine_arrivals.moc"
