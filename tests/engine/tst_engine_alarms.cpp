#include "enginerig.h"

#include "liborb/orb.h"

/// The reference, and the picture that stands in for a lost input.
class TestEngineAlarms : public QObject
{
    Q_OBJECT

private slots:
    void aMissingReferenceIsRaisedEverySecond();
    void anUnlockedReferenceReplacesAMissingOne();
    void aLockedReferenceClearsBoth();
    void alarmsNameTheEnginesFile();
    void thePictureOfTheFormatIsLoadedAfterEverySetup();
    void aFormatWithoutAPictureIsReported();
};

void TestEngineAlarms::aMissingReferenceIsRaisedEverySecond()
{
    EngineRig rig;
    rig.run(999);
    QCOMPARE(rig.referenceAlarms.size(), 0);
    rig.run(2);
    const QStringList tick = {"1913 0", "1910 2"};
    QCOMPARE(EngineRig::textsOf(rig.referenceAlarms), tick);
    rig.run(9000);
    QCOMPARE(rig.referenceAlarms.size(), 20);
    QCOMPARE(EngineRig::textsOf(rig.referenceAlarms.mid(18)), tick);
}

void TestEngineAlarms::anUnlockedReferenceReplacesAMissingOne()
{
    EngineRig rig;
    rig.run(1500);
    rig.referenceAlarms.clear();
    rig.video.reference = OrbVideoRefState(true, false);
    rig.run(1000);
    QCOMPARE(EngineRig::textsOf(rig.referenceAlarms), (QStringList{"1910 0", "1913 2"}));
}

void TestEngineAlarms::aLockedReferenceClearsBoth()
{
    EngineRig rig;
    rig.video.reference = OrbVideoRefState(true, true);
    rig.run(1500);
    QCOMPARE(EngineRig::textsOf(rig.referenceAlarms), (QStringList{"1913 0", "1910 0"}));
}

void TestEngineAlarms::alarmsNameTheEnginesFile()
{
    EngineRig rig;
    rig.run(1500);
    for (const OrbAlarm &alarm : rig.referenceAlarms) {
        QCOMPARE(alarm.file(), QString("vtrobject.cpp"));
        QVERIFY(alarm.line() > 0);
        QVERIFY(alarm.text().isEmpty());
    }
}

void TestEngineAlarms::thePictureOfTheFormatIsLoadedAfterEverySetup()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setEncodeFormat(OrbId(206));
    rig.run(600);
    QVERIFY(rig.hasLog(3, "Loss of video clip: "
                          "/usr/local/share/media/prores_444/loss_of_video_1080p_444.mov"));
}

void TestEngineAlarms::aFormatWithoutAPictureIsReported()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setEncodeFormat(OrbId(230));
    rig.run(600);
    QVERIFY(rig.hasLog(1, "Failed to find loss of video file for "
                              + rig.video.appliedSetup().imageDesc().toString()));
}

SIM_TEST_MAIN(TestEngineAlarms)
#include "tst_engine_alarms.moc"
