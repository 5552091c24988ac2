#include "enginemodes.h"

#include "liborb/orb.h"

#include <functional>

/// Who asks for a reset of the device, in which mode it comes, when, and what it sends.
class TestEngineResets : public QObject
{
    Q_OBJECT

private slots:
    void whoGetsAResetInWhichMode_data();
    void whoGetsAResetInWhichMode();
    void whatAResetSends_data();
    void whatAResetSends();
    void whatMayBeScheduled_data();
    void whatMayBeScheduled();
    void aBusyDeviceIsPolledEveryTenMillisecondsInAnyMode_data();
    void aBusyDeviceIsPolledEveryTenMillisecondsInAnyMode();
    void theBusyLineToTheLetter_data();
    void theBusyLineToTheLetter();
    void aBusyDeviceIsWaitedForWithoutLimit();
    void aLaterCallRestartsTheTimer();
    void twoSettingsWithinHalfASecondAreOneReset();
    void aBurstOfTwentySettingsIsOneResetAfterTheLast();
    void settingsOutsideStandbyOffLeaveAScheduledResetAlone();
    void playbackOutOfCaptureResetsAtOnce();
    void playbackOfAnotherFormatResetsHalfASecondLater();
    void aSettingInPlayComesWithPlaybacksOwnReset();
    void aForcedSetupIsSentOnceAndThenComparedAgain();
    void anInputThatComesInPlayForcesPlaybacksNextSetup();
    void anInputThatChangesInRecordForcesNothing();
    void anInputThatGoesAwayResetsNothing();

private:
    static bool hasReset(const EngineRig &rig)
    {
        return rig.transcript.count("log 3 VIDEO DEVICE: Reset in mode ") > 0;
    }
};

using Caller = std::function<void(EngineRig &)>;
Q_DECLARE_METATYPE(Caller)

namespace {

const char *const busyStart = "VIDEO DEVICE: Device is busy.  Defer reset in mode ";

OrbImageDesc otherFormat()
{
    return EngineRig::imageDesc(1280, 720, 50, 1);
}

void changeSetting(EngineRig &rig)
{
    rig.vtr->setSuperOut(OrbId(1300));
}

void changeInput(EngineRig &rig)
{
    rig.video.changeInput(0, EngineRig::inputState(otherFormat()));
}

/// Once: the device is busy for less than the 10 ms after which the reset comes back.
void deferReset(EngineRig &rig)
{
    rig.video.flushes.push_back({.afterMs = 5});
    rig.vtr->videoDeviceFlush();
    rig.invoke("videoDeviceReset");
    QCOMPARE(rig.logs().filter(busyStart).size(), 1);
}

} // namespace

void TestEngineResets::whoGetsAResetInWhichMode_data()
{
    QTest::addColumn<Caller>("caller");
    QTest::addColumn<int>("delayMs");
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<bool>("comes");
    struct Row {
        const char *name;
        void (*caller)(EngineRig &);
        int delayMs;
        bool isForced;
    };
    const Row rows[] = {
        // caller                                      delay  forced
        {"a setting", changeSetting,                   500,   false},
        {"an input that becomes valid", changeInput,   500,   false},
        {"a reset that was deferred", deferReset,      10,    true},
    };
    for (const Row &row : rows)
        for (const VtrState::Mode mode : EngineModes::all)
            QTest::addRow("%s in %s", row.name, EngineModes::name(mode).constData())
                << Caller(row.caller) << row.delayMs << mode
                << (row.isForced || mode == VtrState::StandbyOff);
}

void TestEngineResets::whoGetsAResetInWhichMode()
{
    QFETCH(Caller, caller);
    QFETCH(int, delayMs);
    QFETCH(VtrState::Mode, mode);
    QFETCH(bool, comes);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    caller(rig);
    rig.run(delayMs - 1);
    QVERIFY(!hasReset(rig));
    rig.run(2);
    QCOMPARE(hasReset(rig), comes);
    if (mode == VtrState::Play)
        return; // where playback's own reset may follow
    rig.run(3000);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Reset in mode " + VtrState::modeName(mode)),
             comes ? 1 : 0);
}

void TestEngineResets::whatAResetSends_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<QStringList>("story");
    const QString current = "log 3 VIDEO DEVICE: Setup is current, no need to change it";
    const auto row = [](VtrState::Mode mode, QStringList then) {
        then.prepend("log 3 VIDEO DEVICE: Reset in mode " + VtrState::modeName(mode));
        QTest::newRow(EngineModes::name(mode)) << mode << then;
    };
    row(VtrState::Startup, {});
    row(VtrState::Shutdown, {});
    row(VtrState::StandbyOff, {"log 3 VIDEO DEVICE: Setup for record", current});
    row(VtrState::Standby, {});
    row(VtrState::Play, {"log 3 VIDEO DEVICE: Setup for playback", current});
    row(VtrState::Record, {"log 3 VIDEO DEVICE: Setup for record", current});
}

void TestEngineResets::whatAResetSends()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(QStringList, story);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.invoke("videoDeviceReset");
    QCOMPARE(rig.transcript.lines(), story);
}

void TestEngineResets::whatMayBeScheduled_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<bool>("force");
    QTest::addColumn<int>("delayMs");
    for (const VtrState::Mode mode : EngineModes::all)
        for (const bool force : {false, true})
            for (const int delayMs : {0, 10, 500})
                QTest::addRow("%s, %s, %d ms", EngineModes::name(mode).constData(),
                              force ? "forced" : "not forced", delayMs)
                    << mode << force << delayMs;
}

void TestEngineResets::whatMayBeScheduled()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(bool, force);
    QFETCH(int, delayMs);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.vtr->scheduleVideoDeviceReset(delayMs, force);
    QVERIFY(!hasReset(rig)); // never from within the call
    if (delayMs > 0)
        rig.run(delayMs - 1);
    QVERIFY(delayMs == 0 || !hasReset(rig));
    rig.run(2);
    QCOMPARE(hasReset(rig), force || mode == VtrState::StandbyOff);
    rig.run(2000);
    QVERIFY(rig.transcript.count("log 3 VIDEO DEVICE: Reset in mode ") <= 1); // a single shot
}

void TestEngineResets::aBusyDeviceIsPolledEveryTenMillisecondsInAnyMode_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<bool>("isInSetup");
    for (const VtrState::Mode mode : EngineModes::all) {
        QTest::addRow("%s, flushing", EngineModes::name(mode).constData()) << mode << false;
        QTest::addRow("%s, in setup", EngineModes::name(mode).constData()) << mode << true;
    }
}

void TestEngineResets::aBusyDeviceIsPolledEveryTenMillisecondsInAnyMode()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(bool, isInSetup);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    if (isInSetup) {
        rig.video.setups.push_back({.afterMs = 45});
        OrbVideoDeviceSetup setup = rig.video.appliedSetup();
        setup.setSuperOut(OrbId(1399));
        QVERIFY(rig.vtr->setupVideoDevice(setup));
    } else {
        rig.video.flushes.push_back({.afterMs = 45});
        rig.vtr->videoDeviceFlush();
    }
    const qint64 from = SimDispatcher::instance()->nowMs();
    rig.vtr->scheduleVideoDeviceReset(1, true);
    QList<qint64> deferredAt;
    qint64 resetAt = -1;
    for (int ms = 0; ms < 60; ++ms) {
        rig.run(1);
        const qint64 now = SimDispatcher::instance()->nowMs() - from;
        const QStringList busy = rig.logs().filter(busyStart + VtrState::modeName(mode) + " - ");
        if (busy.size() > deferredAt.size())
            deferredAt << now;
        if (resetAt < 0 && hasReset(rig))
            resetAt = now;
    }
    QCOMPARE(deferredAt, (QList<qint64>{1, 11, 21, 31, 41}));
    QCOMPARE(resetAt, 51);
}

void TestEngineResets::theBusyLineToTheLetter_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<QString>("line");
    // clang-format off
    QTest::newRow("Standby Off") << VtrState::StandbyOff << "VIDEO DEVICE: Device is busy.  Defer reset in mode Standby Off - VR 0 VW 0 SC 0 [scripted] vdev setup, vdev flush";
    QTest::newRow("Standby")     << VtrState::Standby    << "VIDEO DEVICE: Device is busy.  Defer reset in mode Standby - VR 3 VW 0 SC 0 [scripted] vdev setup, vdev flush";
    QTest::newRow("Record")      << VtrState::Record     << "VIDEO DEVICE: Device is busy.  Defer reset in mode Record - VR 0 VW 0 SC 0 [scripted] vdev setup, vdev flush";
    QTest::newRow("Play")        << VtrState::Play       << "VIDEO DEVICE: Device is busy.  Defer reset in mode Play - VR 0 VW 0 SC 45 [scripted] vdev setup, vdev flush";
    // clang-format on
}

void TestEngineResets::theBusyLineToTheLetter()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(QString, line);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.video.ticksByItself = false;
    rig.run(100);
    rig.transcript.clear();
    rig.video.setups.push_back({.afterMs = ScriptedVideo::held});
    OrbVideoDeviceSetup setup = rig.video.appliedSetup();
    setup.setSuperOut(OrbId(1399));
    QVERIFY(rig.vtr->setupVideoDevice(setup));
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->videoDeviceFlush();
    rig.transcript.clear();
    rig.invoke("videoDeviceReset");
    QCOMPARE(rig.transcript.lines(), QStringList{"log 3 " + line});
}

void TestEngineResets::aBusyDeviceIsWaitedForWithoutLimit()
{
    EngineRig rig;
    rig.startUp();
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->videoDeviceFlush();
    rig.invoke("videoDeviceReset");
    rig.run(60000);
    QCOMPARE(rig.logs().filter(busyStart).size(), 6001);
    QVERIFY(!hasReset(rig));
    rig.video.finishFlush();
    rig.run(11);
    QVERIFY(hasReset(rig));
}

void TestEngineResets::aLaterCallRestartsTheTimer()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->scheduleVideoDeviceReset(500, false);
    rig.run(499);
    rig.vtr->scheduleVideoDeviceReset(500, true);
    rig.run(499);
    QVERIFY(!hasReset(rig));
    rig.vtr->scheduleVideoDeviceReset(10, false); // sooner, too
    rig.run(11);
    QVERIFY(hasReset(rig));
    rig.run(2000);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 1);
}

void TestEngineResets::twoSettingsWithinHalfASecondAreOneReset()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setSuperOut(OrbId(1300));
    rig.run(450);
    rig.vtr->setCameraInput(OrbId(1001));
    rig.run(499);
    QVERIFY(!hasReset(rig));
    rig.run(2000);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 1);
    QCOMPARE(rig.transcript.count("device: setup"), 1);
    QCOMPARE(rig.video.appliedSetup().superOut(), OrbId(1300));
    QCOMPARE(rig.video.appliedSetup().cameraInput(), OrbId(1001));
}

void TestEngineResets::aBurstOfTwentySettingsIsOneResetAfterTheLast()
{
    EngineRig rig;
    rig.startUp();
    for (int i = 0; i < 20; ++i) {
        rig.vtr->setSuperOut(OrbId(1301 + i % 2));
        rig.run(400);
        QVERIFY(!hasReset(rig));
    }
    rig.run(2000);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 1);
}

void TestEngineResets::settingsOutsideStandbyOffLeaveAScheduledResetAlone()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setSuperOut(OrbId(1300));
    rig.run(100);
    rig.vtr->record();
    rig.run(100);
    rig.vtr->setSuperOut(OrbId(1301)); // does not put the reset off
    rig.run(299);
    QVERIFY(!hasReset(rig));
    rig.run(2);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Reset in mode Record"), 1);
    rig.run(2000);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 1);
    QCOMPARE(rig.video.appliedSetup().superOut(), OrbId(1301));
}

void TestEngineResets::playbackOutOfCaptureResetsAtOnce()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->play();
    const QString wanted = "Requires Video Reset";
    QVERIFY(SimDispatcher::runUntil([&] { return !rig.logs().filter(wanted).isEmpty(); }, 500));
    const qint64 from = SimDispatcher::instance()->nowMs();
    QVERIFY(!rig.vtr->canProcess()); // the passes wait for it
    QVERIFY(SimDispatcher::runUntil([&] { return hasReset(rig); }, 500));
    QCOMPARE(SimDispatcher::instance()->nowMs() - from, 0);
    QCOMPARE(rig.logs().filter(wanted).size(), 1);
    QVERIFY(rig.logs().filter(wanted).first().endsWith(
        ", Frame 0 (1920x1080p 25/1 ImageProRes422) Requires Video Reset"));
    QCOMPARE(rig.video.setupsSent().last(),
             rig.vtr->createVideoDevicePlaybackSetupObject(
                 rig.media.frameOf(rig.media.clips.value(EngineRig::clipPath), 0)));
}

void TestEngineResets::playbackOfAnotherFormatResetsHalfASecondLater()
{
    EngineRig rig;
    rig.media.clips[EngineRig::otherClipPath] = EngineRig::clip(100, otherFormat());
    rig.startPlay();
    rig.playbackDesc = QString::fromLatin1(EngineRig::otherClipPath);
    QVERIFY(rig.vtr->reopenPlaybackStream());
    const QString wanted = "Requires Video Reset";
    QVERIFY(SimDispatcher::runUntil([&] { return !rig.logs().filter(wanted).isEmpty(); }, 500));
    QVERIFY(!rig.vtr->canProcess());
    rig.vtr->setSuperOut(OrbId(1300)); // a setting does not touch playback's reset
    rig.run(498);
    QVERIFY(!hasReset(rig));
    rig.run(2);
    QVERIFY(hasReset(rig));
    QCOMPARE(rig.logs().filter(wanted).size(), 1);
    QVERIFY(rig.transcript.contains("device: setup playback 1280x720p 50/1 ImageProRes422"));
}

void TestEngineResets::aSettingInPlayComesWithPlaybacksOwnReset()
{
    EngineRig rig;
    rig.startPlay();
    rig.vtr->setSuperOut(OrbId(1300));
    QCOMPARE(rig.vtr->state().superOut(), OrbId(1300));
    QCOMPARE(rig.transcript.count("device: setup"), 0);
    rig.run(400);
    QVERIFY(!hasReset(rig));
    rig.run(400); // the next frame wants the setting, 500 ms later the reset brings it
    QCOMPARE(rig.logs().filter("Requires Video Reset").size(), 1);
    QCOMPARE(rig.transcript.count("device: setup playback"), 1);
    QCOMPARE(rig.video.appliedSetup().superOut(), OrbId(1300));
}

void TestEngineResets::aForcedSetupIsSentOnceAndThenComparedAgain()
{
    EngineRig rig;
    rig.startUp();
    const OrbVideoState same = EngineRig::inputState(EngineRig::hd25());
    rig.changeInput(false);
    rig.video.changeInput(0, same);
    rig.run(600);
    QCOMPARE(rig.transcript.count("device: setup"), 1); // equal to the current one
    rig.vtr->scheduleVideoDeviceReset(1, true);
    rig.run(10);
    QCOMPARE(rig.transcript.count("device: setup"), 1);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Setup is current, no need to change it"), 1);
}

void TestEngineResets::anInputThatComesInPlayForcesPlaybacksNextSetup()
{
    EngineRig rig;
    rig.startPlay();
    rig.changeInput(false);
    rig.changeInput(true);
    rig.run(2000);
    QVERIFY(!hasReset(rig));
    QCOMPARE(rig.transcript.count("device: setup"), 0); // the flag waits
    rig.invoke("videoDeviceReset");
    QCOMPARE(rig.transcript.count("device: setup playback"), 1);
    rig.run(100);
    rig.invoke("videoDeviceReset");
    QCOMPARE(rig.transcript.count("device: setup"), 1);
}

void TestEngineResets::anInputThatChangesInRecordForcesNothing()
{
    EngineRig rig;
    rig.startRecord();
    const OrbVideoState other = EngineRig::inputState(otherFormat());
    rig.video.changeInput(0, other);
    QCOMPARE(rig.transcript.lines(),
             (QStringList{"log 3 Input 0 Changed to " + other.toString() + " while in Record",
                          "signal inputFormatChanged 0 " + other.toString()}));
    rig.video.changeInput(0, EngineRig::inputState(EngineRig::hd25()));
    rig.run(2000);
    QVERIFY(!hasReset(rig));
    rig.transcript.clear();
    rig.invoke("videoDeviceReset");
    QCOMPARE(rig.transcript.count("device: setup"), 0);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Setup is current, no need to change it"), 1);
}

void TestEngineResets::anInputThatGoesAwayResetsNothing()
{
    EngineRig rig;
    rig.startUp();
    rig.changeInput(false);
    rig.run(2000);
    QCOMPARE(rig.transcript.lines(),
             (QStringList{"log 3 Input 0 Changed to invalid while in Standby Off",
                          "signal inputFormatChanged 0 invalid"}));
    rig.invoke("videoDeviceReset"); // nothing was forced either: what is sent has changed
    QCOMPARE(rig.transcript.count("device: setup"), 1);
    QVERIFY(rig.video.setupsSent().last().blackingEnabled());
}

SIM_TEST_MAIN(TestEngineResets)
#include "tst_engine_resets.moc"
