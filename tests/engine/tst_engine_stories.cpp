#include "enginerig.h"

#include "liborb/orb.h"
#include "liborb/orbplaylist.h"

/// Whole stories as transcripts: log lines, device calls and signals in their order.
class TestEngineStories : public QObject
{
    Q_OBJECT

private slots:
    void playReverse();
    void playThenRecordThenStandbyOff();
    void stillStepAndCue();
    void speedsOneAfterTheOther();
    void loopingForwardOverTheEnd();
    void loopingInReverseOverTheStart();
    void theEndIsHeld();
    void aPlayListIsReopened();
    void aFrameOfAnotherFormat();
    void aSetupHeldForAMinute();
    void aSetupHeldForAMinuteBeforeTheRequest();
    void cueAndStepInOneFlush();
    void aCueWhileLeavingPlayWaitsForTheNextPlay();
    void theModePublishedLastIsDeliberatelyCleanedUpAgain();
    void aPassLeavesASecondRequestToTheNext();
    void commandsFromModeChangedAreRefused();
    void commandsFromStateChangedAreCarriedOut();
    void commandsFromStreamIsOpen();
    void commandsFromStreamIsClosed();
    void stepInPlayDeliberatelyAsksNobody();
    void cueDeliberatelySeeksAfterARefusedStill();
    void forwardSpeedsDeliberatelyLeaveTheCacheAlone();
    void noModeChangeLineAfterASetupDeliberately();

private:
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

/// Ticks \a count times with what follows from each.
void tick(EngineRig &rig, int count)
{
    for (int i = 0; i < count; ++i) {
        rig.video.tick();
        rig.run(2);
    }
}

} // namespace

// The lines of a transcript stand one below the other.
// clang-format off

void TestEngineStories::holdSetup(EngineRig &rig)
{
    OrbVideoDeviceSetup other = rig.video.appliedSetup();
    other.setSuperOut(OrbId(1300));
    rig.video.setups.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->setupVideoDevice(other);
    rig.transcript.clear();
}

void TestEngineStories::playReverse()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->cue(10);
    rig.run(300);
    rig.video.queueSize = 3;
    stopTheClock(rig);
    rig.video.notesFrames = true;
    rig.vtr->play(-1.0);
    rig.run(20);
    tick(rig, 2);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY -1.000",
        "device: property 22 = 1600",
        "device: property 26 = -1",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: write 10",
        "device: write 9",
        "device: write 8",
        "signal stateChanged 0.000 Play -> -1.000 Play",
        "output: 10",
        "device: write 7",
        "output: 9",
        "device: write 6"}));
}

void TestEngineStories::playThenRecordThenStandbyOff()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(400);
    stopTheClock(rig);
    rig.vtr->record();
    for (int i = 0; i < 4; ++i) {
        rig.run(20);
        rig.video.tick();
    }
    rig.run(20);
    rig.vtr->standbyOff();
    rig.run(20);
    tick(rig, 1);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "signal modeChanged Play -> Record",
        "media: close /media/a.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 Begin Mode Record",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "device: property 22 = 1606",
        "log 3 VIDEO DEVICE: Setup is Done",
        "signal storageInUse true",
        "media: open write /media/rec.mov",
        "log 3 STREAM: Open for Write Started",
        "signal stateChanged 1.000 Play -> 1.000 Record",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Record -> Standby Off",
        "media: close /media/rec.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 Begin Mode Standby Off",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup is current, no need to change it",
        "device: property 26 = 0",
        "device: property 22 = 1601",
        "log 3 Mode changed from Record to Standby Off",
        "signal stateChanged 1.000 Record -> 0.000 Standby Off"}));
}

void TestEngineStories::stillStepAndCue()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(400);
    stopTheClock(rig);
    rig.vtr->still();
    rig.run(20);
    tick(rig, 1);
    rig.vtr->step(3);
    rig.run(20);
    tick(rig, 1);
    rig.vtr->step(-1);
    rig.run(20);
    tick(rig, 1);
    rig.vtr->cue(70);
    rig.run(20);
    tick(rig, 1);
    QCOMPARE(rig.vtr->currentFrameNumber(), 70);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY 0.000",
        "device: property 26 = 0",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: property 22 = 1607",
        "signal stateChanged 1.000 Play -> 0.000 Play",
        "log 3 Step 3 from 11",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "log 3 Step -1 from 14",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: flush",
        "log 2 Flushed at 13, but pending cue at 70",
        "log 3 VIDEO DEVICE: Flush Complete"}));
}

void TestEngineStories::speedsOneAfterTheOther()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(400);
    stopTheClock(rig);
    for (const double speed : {2.0, 0.5, 0.5, -1.0, -20.0, 20.0, 1.0}) {
        rig.vtr->play(speed);
        rig.run(20);
    }
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY 2.000",
        "device: property 26 = 2",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: property 22 = 1604",
        "signal stateChanged 1.000 Play -> 2.000 Play",
        "log 3 ** PLAY 0.500",
        "device: property 22 = 1600",
        "device: property 26 = 0.5",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "signal stateChanged 2.000 Play -> 0.500 Play",
        "log 3 ** PLAY -1.000",
        "device: property 26 = -1",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "signal stateChanged 0.500 Play -> -1.000 Play",
        "log 3 ** PLAY -20.000",
        "device: property 26 = -20",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: property 22 = 1605",
        "signal stateChanged -1.000 Play -> -20.000 Play",
        "log 3 ** PLAY 20.000",
        "device: property 22 = 1600",
        "device: property 26 = 20",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: property 22 = 1604",
        "signal stateChanged -20.000 Play -> 20.000 Play",
        "log 3 ** PLAY 1.000",
        "device: property 22 = 1600",
        "device: property 26 = 1",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "signal stateChanged 20.000 Play -> 1.000 Play"}));
}

void TestEngineStories::loopingForwardOverTheEnd()
{
    EngineRig rig;
    rig.media.clips[EngineRig::clipPath].length = 3;
    rig.startPlay(0.0);
    rig.run(400);
    rig.vtr->setLooping(true);
    rig.video.queueSize = 1;
    stopTheClock(rig);
    rig.video.notesFrames = true;
    rig.vtr->play();
    rig.run(20);
    tick(rig, 5);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY 1.000",
        "device: property 22 = 1600",
        "device: property 26 = 1",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: write 0",
        "signal stateChanged 0.000 Play -> 1.000 Play",
        "output: 0",
        "device: write 1",
        "output: 1",
        "device: write 2",
        "output: 2",
        "device: write 0",
        "output: 0",
        "device: write 1",
        "output: 1",
        "device: write 2"}));
}

void TestEngineStories::loopingInReverseOverTheStart()
{
    EngineRig rig;
    rig.media.clips[EngineRig::clipPath].length = 3;
    rig.startPlay(0.0);
    rig.run(400);
    rig.vtr->setLooping(true);
    rig.video.queueSize = 1;
    stopTheClock(rig);
    rig.video.notesFrames = true;
    rig.vtr->play(-1.0);
    rig.run(20);
    tick(rig, 5);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY -1.000",
        "device: property 22 = 1600",
        "device: property 26 = -1",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: write 0",
        "signal stateChanged 0.000 Play -> -1.000 Play",
        "output: 0",
        "device: write 2",
        "output: 2",
        "device: write 1",
        "output: 1",
        "device: write 0",
        "output: 0",
        "device: write 2",
        "output: 2",
        "device: write 1"}));
}

void TestEngineStories::theEndIsHeld()
{
    EngineRig rig;
    rig.media.clips[EngineRig::clipPath].length = 2;
    rig.startPlay(0.0);
    rig.run(400);
    rig.video.queueSize = 1;
    stopTheClock(rig);
    rig.video.notesFrames = true;
    rig.vtr->play();
    rig.run(20);
    tick(rig, 4);
    QCOMPARE(rig.mode(), VtrState::Play);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY 1.000",
        "device: property 22 = 1600",
        "device: property 26 = 1",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: write 0",
        "signal stateChanged 0.000 Play -> 1.000 Play",
        "output: 0",
        "device: write 1",
        "output: 1",
        "log 3 End of stream reached",
        "log 3 ** PLAY 0.000",
        "device: property 26 = 0",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "device: property 22 = 1607",
        "device: write 1",
        "signal stateChanged 1.000 Play -> 0.000 Play"}));
}

void TestEngineStories::aPlayListIsReopened()
{
    EngineRig rig;
    OrbPlayList list;
    OrbPlayListEntry entry;
    entry.setName("a");
    entry.setDesc(QString::fromLatin1(EngineRig::clipPath));
    entry.setLength(100);
    list.append(entry);
    rig.playbackDesc = QVariant::fromValue(list);
    rig.startPlay(0.0);
    rig.vtr->cue(7);
    rig.run(400);
    stopTheClock(rig);
    QVERIFY(rig.vtr->reopenPlaybackStream());
    rig.run(600);
    tick(rig, 1);
    QCOMPARE(rig.vtr->currentFrameNumber(), 7);
    QCOMPARE(rig.transcript.lines(), (QStringList{
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
        "log 3 Starting at prior playback position of 7",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0"}));
}

void TestEngineStories::aFrameOfAnotherFormat()
{
    EngineRig rig;
    rig.media.clips.insert(EngineRig::otherClipPath,
                           EngineRig::clip(50, EngineRig::imageDesc(1280, 720, 50, 1)));
    rig.startPlay(0.0);
    rig.run(400);
    rig.video.queueSize = 2;
    stopTheClock(rig);
    rig.playbackDesc = QString::fromLatin1(EngineRig::otherClipPath);
    rig.vtr->reopenPlaybackStream();
    rig.run(1200);
    rig.video.notesFrames = true;
    tick(rig, 1);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 STREAM: Reopen Playback Stream",
        "media: close /media/a.mov",
        "device: flush",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 VIDEO DEVICE: Flush Complete",
        "signal storageInUse true",
        "media: open read /media/b.mov",
        "log 3 STREAM: Open for Read Started",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
        "log 3 Cache Level 8, Frame 0 (1280x720p 50/1 ImageProRes422) Requires Video Reset",
        "log 3 VIDEO DEVICE: Reset in mode Play",
        "log 3 VIDEO DEVICE: Setup for playback",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup playback 1280x720p 50/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_720p_422.mov",
        "log 3 VIDEO DEVICE: Setup is Done",
        "device: write 0",
        "device: write 0"}));
}

void TestEngineStories::aSetupHeldForAMinute()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(400);
    stopTheClock(rig);
    rig.media.closes.push_back({.afterMs = 100});
    rig.vtr->standbyOff();
    holdSetup(rig); // after the clean-up: only the begin waits
    rig.run(60000);
    QCOMPARE(rig.transcript.take(), (QStringList{
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed"}));
    QVERIFY(rig.vtr->hasPendingModeChange());
    QVERIFY(rig.referenceAlarms.size() >= 120); // what runs every second goes on
    rig.video.finishSetup();
    rig.run(600);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 VIDEO DEVICE: Setup is Done",
        "log 3 Begin Mode Standby Off",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "device: property 26 = 0",
        "device: property 22 = 1601",
        "log 3 VIDEO DEVICE: Setup is Done"}));
}

/// Not even the clean-up runs while the device is busy when the request comes.
void TestEngineStories::aSetupHeldForAMinuteBeforeTheRequest()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(400);
    stopTheClock(rig);
    holdSetup(rig);
    rig.vtr->record();
    rig.run(60000);
    QCOMPARE(rig.transcript.take(), (QStringList{
        "signal modeChanged Play -> Record"}));
    QVERIFY(rig.vtr->hasPendingModeChange());
    rig.video.finishSetup();
    rig.run(1100);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 VIDEO DEVICE: Setup is Done",
        "media: close /media/a.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 Begin Mode Record",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "device: property 22 = 1606",
        "log 3 VIDEO DEVICE: Setup is Done"}));
}

void TestEngineStories::cueAndStepInOneFlush()
{
    EngineRig rig;
    rig.startPlay(0.0);
    rig.vtr->cue(20);
    rig.run(400);
    stopTheClock(rig);
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->cue(40);
    rig.vtr->step(3);
    rig.vtr->step(-1);
    rig.run(100);
    rig.video.finishFlush();
    rig.run(20);
    tick(rig, 1);
    QCOMPARE(rig.vtr->currentFrameNumber(), 42);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "device: flush",
        "device: property 26 = 0",
        "log 3 Step 3 from 20",
        "log 3 Step -1 from 20",
        "log 2 Flushed at 20, but pending cue at 40",
        "log 3 VIDEO DEVICE: Flush Complete"}));
}

void TestEngineStories::aCueWhileLeavingPlayWaitsForTheNextPlay()
{
    EngineRig rig;
    rig.startPlay(0.0);
    rig.run(400);
    stopTheClock(rig);
    rig.media.closes.push_back({.afterMs = 100});
    rig.vtr->standbyOff();
    rig.vtr->cue(60);
    rig.run(600);
    tick(rig, 1);
    rig.vtr->still();
    rig.run(600);
    tick(rig, 1);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
        "media: close /media/a.mov",
        "log 2 Can't enter mode Play.  Pending mode change from Play to Standby Off",
        "device: flush",
        "log 3 VIDEO DEVICE: Flush Complete",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 Begin Mode Standby Off",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "device: property 22 = 1601",
        "log 3 VIDEO DEVICE: Setup is Done",
        "signal stateChanged 0.000 Play -> 0.000 Standby Off",
        "log 3 ** PLAY 0.000",
        "device: property 22 = 1600",
        "signal modeChanged Standby Off -> Play",
        "log 3 Mode changed from Standby Off to Play",
        "signal storageInUse true",
        "media: open read /media/a.mov",
        "log 3 STREAM: Open for Read Started",
        "signal stateChanged 0.000 Standby Off -> 0.000 Play",
        "log 3 Starting at prior playback position of 0",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
        "device: property 22 = 1607",
        "log 3 Cache Level 8, Frame 60 (1920x1080p 25/1 ImageProRes422) Requires Video Reset",
        "log 3 VIDEO DEVICE: Reset in mode Play",
        "log 3 VIDEO DEVICE: Setup for playback",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup playback 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "log 3 VIDEO DEVICE: Setup is Done"}));
    QCOMPARE(rig.vtr->currentFrameNumber(), 60);
}

/// Standby Off has begun, and no pass has published it when the next request comes.
void TestEngineStories::theModePublishedLastIsDeliberatelyCleanedUpAgain()
{
    EngineRig rig;
    rig.startPlay();
    rig.run(400);
    stopTheClock(rig);
    rig.vtr->standbyOff();
    rig.run(10);
    rig.invoke("process");
    rig.run(10);
    QVERIFY(!rig.vtr->hasPendingModeChange());
    rig.vtr->record();
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
        "media: close /media/a.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 Begin Mode Standby Off",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "device: property 26 = 0",
        "device: property 22 = 1601",
        "log 3 VIDEO DEVICE: Setup is Done",
        "signal modeChanged Standby Off -> Record",
        "log 3 Begin Mode Record",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup is current, no need to change it",
        "device: property 26 = 1",
        "device: property 22 = 1606",
        "log 3 Mode changed from Play to Record",
        "signal stateChanged 1.000 Play -> 1.000 Record"}));
}

void TestEngineStories::aPassLeavesASecondRequestToTheNext()
{
    EngineRig rig;
    rig.startUp();
    stopTheClock(rig);
    rig.playbackDesc = QVariant();
    rig.vtr->play(2.0);
    rig.run(600);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY 2.000",
        "device: property 22 = 1600",
        "signal modeChanged Standby Off -> Play",
        "device: property 26 = 2",
        "log 3 Mode changed from Standby Off to Play",
        "log 1 STREAM: Failed to get a playback stream descriptor",
        "log 1 Failed to open stream for read",
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
        "log 3 Begin Mode Standby Off",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup is current, no need to change it",
        "device: property 26 = 0",
        "device: property 22 = 1601",
        "log 3 Mode changed from Standby Off to Standby Off"}));
}

void TestEngineStories::commandsFromModeChangedAreRefused()
{
    EngineRig rig;
    rig.startUp();
    stopTheClock(rig);
    VtrObject *const vtr = rig.vtr.get();
    connect(vtr, &VtrObject::modeChanged, vtr, [vtr](VtrState::Mode, VtrState::Mode mode) {
        if (mode == VtrState::Play)
            vtr->record();
    });
    vtr->play();
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** PLAY 1.000",
        "device: property 22 = 1600",
        "signal modeChanged Standby Off -> Play",
        "log 2 Can't enter mode Record.  Pending mode change from Standby Off to Play",
        "device: property 26 = 1",
        "log 3 Mode changed from Standby Off to Play",
        "signal storageInUse true",
        "media: open read /media/a.mov",
        "log 3 STREAM: Open for Read Started",
        "signal stateChanged 0.000 Standby Off -> 1.000 Play"}));
    QCOMPARE(rig.mode(), VtrState::Play);
}

void TestEngineStories::commandsFromStateChangedAreCarriedOut()
{
    EngineRig rig;
    rig.startUp();
    stopTheClock(rig);
    VtrObject *const vtr = rig.vtr.get();
    connect(vtr, &VtrObject::stateChanged, vtr, [vtr](const VtrState &, const VtrState &state) {
        if (state.mode() == VtrState::Standby)
            vtr->still();
    });
    vtr->stop();
    rig.run(30);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** STOP",
        "signal modeChanged Standby Off -> Standby",
        "log 1 Standby mode has not been implemented.",
        "log 3 Mode changed from Standby Off to Standby",
        "signal stateChanged 0.000 Standby Off -> 0.000 Standby",
        "log 3 ** PLAY 0.000",
        "device: property 22 = 1600",
        "signal modeChanged Standby -> Play",
        "log 3 Mode changed from Standby to Play",
        "signal storageInUse true",
        "media: open read /media/a.mov",
        "log 3 STREAM: Open for Read Started",
        "signal stateChanged 0.000 Standby -> 0.000 Play",
        "log 3 STREAM: Open is Done",
        "signal streamIsOpen 0",
        "device: property 22 = 1607",
        "log 3 Cache Level 8, Frame 0 (1920x1080p 25/1 ImageProRes422) Requires Video Reset",
        "log 3 VIDEO DEVICE: Reset in mode Play",
        "log 3 VIDEO DEVICE: Setup for playback",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup playback 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "log 3 VIDEO DEVICE: Setup is Done"}));
    QCOMPARE(rig.mode(), VtrState::Play);
}

void TestEngineStories::commandsFromStreamIsOpen()
{
    EngineRig rig;
    rig.startUp();
    stopTheClock(rig);
    VtrObject *const vtr = rig.vtr.get();
    connect(vtr, &VtrObject::streamIsOpen, vtr, [vtr] {
        if (vtr->state().isInModePlay())
            vtr->standbyOff();
    });
    vtr->play();
    rig.run(30);
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
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
        "media: close /media/a.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed"}));
}

void TestEngineStories::commandsFromStreamIsClosed()
{
    EngineRig rig;
    rig.startPlay();
    stopTheClock(rig);
    VtrObject *const vtr = rig.vtr.get();
    connect(vtr, &VtrObject::streamIsClosed, vtr, [vtr] { vtr->record(); });
    vtr->standbyOff();
    rig.run(30);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
        "media: close /media/a.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 2 Can't enter mode Record.  Pending mode change from Play to Standby Off"}));
    QCOMPARE(rig.mode(), VtrState::StandbyOff);
}

void TestEngineStories::stepInPlayDeliberatelyAsksNobody()
{
    EngineRig rig;
    rig.startUp();
    stopTheClock(rig);
    holdSetup(rig);
    rig.vtr->play();
    QVERIFY(rig.vtr->hasPendingModeChange());
    rig.transcript.clear();
    rig.vtr->step(4);
    QCOMPARE(rig.vtr->state().speed(), 0.0);
    QCOMPARE(rig.transcript.count("log 2 "), 0);
    QCOMPARE(rig.transcript.count("log 3 Step 4 from "), 1);
}

void TestEngineStories::cueDeliberatelySeeksAfterARefusedStill()
{
    EngineRig rig;
    rig.startPlay();
    stopTheClock(rig);
    holdSetup(rig);
    rig.vtr->record();
    rig.transcript.clear();
    rig.vtr->cue(60);
    rig.run(100);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 2 Can't enter mode Play.  Pending mode change from Play to Record",
        "device: flush",
        "log 2 Flushed at 1, but pending cue at 60",
        "log 3 VIDEO DEVICE: Flush Complete"}));
    QVERIFY(rig.media.reads().contains(60));
}

void TestEngineStories::forwardSpeedsDeliberatelyLeaveTheCacheAlone()
{
    EngineRig rig;
    rig.media.clips[EngineRig::clipPath].length = 1000;
    rig.startPlay();
    for (const double speed : {0.25, 2.0, 20.0, 100.0}) {
        rig.vtr->play(speed);
        rig.run(200);
        const QList<int> reads = rig.media.reads();
        QCOMPARE(reads.last() - reads.at(reads.size() - 2), 1);
    }
    rig.vtr->cue(900);
    rig.run(200);
    rig.vtr->play(-3.0);
    rig.run(400);
    const QList<int> reads = rig.media.reads();
    QCOMPARE(reads.last() - reads.at(reads.size() - 2), -3);
}

void TestEngineStories::noModeChangeLineAfterASetupDeliberately()
{
    EngineRig rig;
    rig.startPlay();
    stopTheClock(rig);
    rig.vtr->standbyOff();
    rig.run(1000);
    QCOMPARE(rig.transcript.lines(), (QStringList{
        "log 3 ** STANDBY OFF",
        "signal modeChanged Play -> Standby Off",
        "media: close /media/a.mov",
        "signal storageInUse false",
        "log 3 STREAM: Close is Done",
        "signal streamIsClosed",
        "log 3 Begin Mode Standby Off",
        "log 3 VIDEO DEVICE: Setup for record",
        "log 3 VIDEO DEVICE: Setup Started",
        "device: setup capture 1920x1080p 25/1 ImageProRes422",
        "signal videoDeviceSetupChanged",
        "log 3 Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov",
        "device: property 26 = 0",
        "device: property 22 = 1601",
        "log 3 VIDEO DEVICE: Setup is Done",
        "signal stateChanged 1.000 Play -> 0.000 Standby Off"}));
}

// clang-format on

SIM_TEST_MAIN(TestEngineStories)
#include "tst_engine_stories.moc"
