#include "enginerig.h"

#include "liborb/orb.h"

#include <functional>

/// Every setting: what it stores, logs and resets.
class TestEngineSettings : public QObject
{
    Q_OBJECT

private slots:
    void eachSettingStoresLogsAndResetsOnce_data();
    void eachSettingStoresLogsAndResetsOnce();
    void sourcesAndFormatsMustBeValid_data();
    void sourcesAndFormatsMustBeValid();
    void aRefusedChannelCountDeliberatelyResetsAllTheSame();
    void lutsAreStoredTogetherAndLogNothing();
    void timecodeValueReloadsTheGeneratorEveryTime();
    void timecodeDropFrameReloadsTheGeneratorEveryTime();
    void namesGoToTheDevice();
    void stopOnLossOfVideoAloneDeliberatelyPublishesNothing();
};

using Set = std::function<void(VtrObject &)>;
using Check = std::function<bool(const VtrState &)>;
Q_DECLARE_METATYPE(Set)
Q_DECLARE_METATYPE(Check)

void TestEngineSettings::eachSettingStoresLogsAndResetsOnce_data()
{
    QTest::addColumn<Set>("set");
    QTest::addColumn<Check>("isStored");
    QTest::addColumn<QString>("log");
    QTest::addColumn<bool>("resets");
    const auto row = [](const char *name, const Set &set, const Check &check, const QString &log,
                        bool resets) {
        QTest::newRow(name) << set << check << log << resets;
    };
    const OrbImageDesc format = EngineRig::imageDesc(1280, 720, 50, 1);
    using V = VtrObject;
    using S = VtrState;
    // clang-format off
    row("encode format", [](V &v) { v.setEncodeFormat(OrbId(203)); }, [](const S &s) { return s.encodeFormat() == OrbId(203); }, "Set Encode Format: " + OrbId(203).name(), true);
    row("video input", [](V &v) { v.setVideoInputSource(OrbId(602)); }, [](const S &s) { return s.videoInputSource() == OrbId(602); }, "Set Video Input Source: " + OrbId(602).name(), true);
    row("audio input", [](V &v) { v.setAudioInputSource(OrbId(690)); }, [](const S &s) { return s.audioInputSource() == OrbId(690); }, "Set Audio Input Source: " + OrbId(690).name(), true);
    row("audio level", [](V &v) { v.setAudioInputLevel(OrbId(1401)); }, [](const S &s) { return s.audioInputLevel() == OrbId(1401); }, "Set Audio Input Level: " + OrbId(1401).name(), true);
    row("sync source", [](V &v) { v.setSyncSource(OrbId(502)); }, [](const S &s) { return s.syncSource() == OrbId(502); }, "Set Sync Source: " + OrbId(502).name(), true);
    row("channels", [](V &v) { v.setAudioChans(8); }, [](const S &s) { return s.audioChans() == 8; }, "Set Audio Channels: 8", true);
    row("generator format", [=](V &v) { v.setVideoSignalGenFormat(format); }, [=](const S &s) { return s.videoSignalGenFormat() == format; }, "Set VSG Format: " + format.toString(), true);
    row("generator mode", [](V &v) { v.setVideoSignalGenMode(OrbId(801)); }, [](const S &s) { return s.videoSignalGenMode() == OrbId(801); }, "Set VSG Mode: " + OrbId(801).name(), true);
    row("sound generator", [](V &v) { v.setAudioSignalGenMode(OrbId(901)); }, [](const S &s) { return s.audioSignalGenMode() == OrbId(901); }, "Set ASG Mode: " + OrbId(901).name(), true);
    row("camera input", [](V &v) { v.setCameraInput(OrbId(1001)); }, [](const S &s) { return s.cameraInput() == OrbId(1001); }, "Set Camera Input: " + OrbId(1001).name(), true);
    row("in convert", [](V &v) { v.setVideoInConvert(OrbId(1201)); }, [](const S &s) { return s.videoInConvert() == OrbId(1201); }, "Set Video In Convert: " + OrbId(1201).name(), true);
    row("out convert", [](V &v) { v.setVideoOutConvert(OrbId(1202)); }, [](const S &s) { return s.videoOutConvert() == OrbId(1202); }, "Set Video Out Convert: " + OrbId(1202).name(), true);
    row("PSF output", [](V &v) { v.setForcePSFOutput(true); }, [](const S &s) { return s.forcePSFOutput(); }, "Set Force PSF Output: Enabled", true);
    row("PSF encode", [](V &v) { v.setForcePSFEncode(true); }, [](const S &s) { return s.forcePSFEncode(); }, "Set Force PSF Encode: Enabled", true);
    row("output type", [](V &v) { v.setVideoOutputType(OrbId(7)); }, [](const S &s) { return s.videoOutputType() == OrbId(7); }, "Set Video Output Type: " + OrbId(7).name(), true);
    row("output route", [](V &v) { v.setVideoOutputRoute(OrbId(53)); }, [](const S &s) { return s.videoOutputRoute() == OrbId(53); }, "Set Video Output Route: " + OrbId(53).name(), true);
    row("super", [](V &v) { v.setSuperOut(OrbId(1302)); }, [](const S &s) { return s.superOut() == OrbId(1302); }, "Set Super Out: " + OrbId(1302).name(), true);
    row("interval", [](V &v) { v.setRecordInterval(5); }, [](const S &s) { return s.recordInterval() == 5; }, "Set Record Interval: 5", false);
    row("interval time", [](V &v) { v.setRecordIntervalTime(2); }, [](const S &s) { return s.recordIntervalTime() == 2; }, "Set Record Interval Time: 2", false);
    row("interval record", [](V &v) { v.setIntervalRecordEnable(true); }, [](const S &s) { return s.intervalRecordEnable(); }, "Set Interval Record: Enabled", false);
    row("VFR", [](V &v) { v.setVFREnable(true); }, [](const S &s) { return s.vfrEnable(); }, "Set VFR: Enabled", true);
    row("TCG source", [](V &v) { v.setTCGSource(OrbId(1510)); }, [](const S &) { return true; }, "Set TCG Source: " + OrbId(1510).name(), true);
    row("stop on drop", [](V &v) { v.setStopOnFrameDrop(true); }, [](const S &s) { return s.stopOnFrameDrop(); }, "Set Stop On Frame Drop: Enabled", false);
    row("stop on loss of video", [](V &v) { v.setStopOnLossOfVideo(false); }, [](const S &s) { return !s.stopOnLossOfVideo(); }, "Set Stop On Loss Of Video: Disabled", false);
    row("reel name", [](V &v) { v.setReelName("A12"); }, [](const S &) { return true; }, "Reel Name: A12", false);
    row("running timecode", [](V &v) { v.setRecordOnRunningTimecode(true); }, [](const S &) { return true; }, "Record on Running Timecode: Enabled", false);
    // clang-format on
}

void TestEngineSettings::eachSettingStoresLogsAndResetsOnce()
{
    QFETCH(Set, set);
    QFETCH(Check, isStored);
    QFETCH(QString, log);
    QFETCH(bool, resets);
    EngineRig rig;
    rig.startUp();
    set(*rig.vtr);
    set(*rig.vtr);
    QVERIFY(isStored(rig.vtr->state()));
    QCOMPARE(rig.logs(), QStringList{"3 " + log});
    rig.run(499);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 0);
    rig.run(10);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), resets ? 1 : 0);
}

void TestEngineSettings::sourcesAndFormatsMustBeValid_data()
{
    QTest::addColumn<Set>("set");
    QTest::addColumn<QString>("log");
    // clang-format off
    QTest::newRow("encode format") << Set([](VtrObject &v) { v.setEncodeFormat(OrbId()); }) << "1 Encode format is invalid";
    QTest::newRow("video input") << Set([](VtrObject &v) { v.setVideoInputSource(OrbId()); }) << "1 Video input source is invalid";
    QTest::newRow("audio input") << Set([](VtrObject &v) { v.setAudioInputSource(OrbId()); }) << "1 Audio input source is invalid";
    QTest::newRow("audio level") << Set([](VtrObject &v) { v.setAudioInputLevel(OrbId()); }) << "1 Audio input level is invalid";
    QTest::newRow("sync source") << Set([](VtrObject &v) { v.setSyncSource(OrbId()); }) << "1 Sync source is invalid";
    // clang-format on
}

void TestEngineSettings::sourcesAndFormatsMustBeValid()
{
    QFETCH(Set, set);
    QFETCH(QString, log);
    EngineRig rig;
    rig.startUp();
    const VtrState before = rig.vtr->state();
    set(*rig.vtr);
    set(*rig.vtr);
    QCOMPARE(rig.transcript.lines(), (QStringList{"log " + log, "log " + log}));
    QVERIFY(rig.vtr->state() == before);
}

void TestEngineSettings::aRefusedChannelCountDeliberatelyResetsAllTheSame()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setAudioChans(2);
    QCOMPARE(rig.logs(), QStringList{});
    rig.vtr->setAudioChans(4);
    QCOMPARE(rig.logs(),
             (QStringList{"2 Failed to set audio channels to 4.  Unsupported number of channels",
                          "3 Set Audio Channels: 4"}));
    QCOMPARE(rig.vtr->state().audioChans(), 2);
    rig.run(600);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 1);
}

void TestEngineSettings::lutsAreStoredTogetherAndLogNothing()
{
    EngineRig rig;
    rig.startUp();
    const OrbImageLut lut(OrbId(1100), 16);
    rig.vtr->setLuts(OrbImageLut(), OrbImageLut());
    rig.run(600);
    QCOMPARE(rig.transcript.lines(), QStringList{});
    rig.vtr->setLuts(lut, OrbImageLut());
    QCOMPARE(rig.logs(), QStringList{});
    QVERIFY(rig.vtr->state().inputLut() == lut);
    rig.run(600);
    QCOMPARE(rig.transcript.count("log 3 VIDEO DEVICE: Reset"), 1);
    QVERIFY(rig.video.appliedSetup().inputLut() == lut);
}

void TestEngineSettings::timecodeValueReloadsTheGeneratorEveryTime()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.run(1000);
    rig.vtr->setTimecodeDropFrame(true);
    rig.transcript.clear();
    const int before = rig.video.propertyCount(24);
    const OrbTimecode value(1, 2, 3, 4, 60, 0);
    rig.vtr->setTimecodeValue(value);
    rig.vtr->setTimecodeValue(value);
    QCOMPARE(rig.video.propertyCount(24), before + 2);
    QCOMPARE(rig.logs(), (QStringList{"3 Set TC value: 01:02:03;04", "3 Set TC value: 01:02:03;04"}));
    const auto sent = rig.video.property(24).value<OrbTimecode>();
    QCOMPARE(sent.fps(), 25); // the preset's own rate, not the argument's
    QVERIFY(sent.dropFrameFlag());
}

void TestEngineSettings::timecodeDropFrameReloadsTheGeneratorEveryTime()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.vtr->setTimecodeValue(OrbTimecode(1, 2, 3, 4, 60, 0));
    rig.transcript.clear();
    const int before = rig.video.propertyCount(24);
    rig.vtr->setTimecodeDropFrame(false);
    rig.vtr->setTimecodeDropFrame(false);
    QCOMPARE(rig.video.propertyCount(24), before + 2);
    QCOMPARE(rig.logs(), (QStringList{"3 Set TC Drop Frame: Disabled",
                                      "3 Set TC Drop Frame: Disabled"}));
}

void TestEngineSettings::namesGoToTheDevice()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setReelName("A12");
    rig.vtr->setReelName("A12");
    rig.vtr->setCurrentClipName("clip 1");
    rig.vtr->setCurrentClipName("clip 1");
    QCOMPARE(rig.video.property(23).toString(), QString("A12"));
    QCOMPARE(rig.video.property(19).toString(), QString("clip 1"));
    QCOMPARE(rig.video.propertyCount(23), 1);
    QCOMPARE(rig.video.propertyCount(19), 2);
    QCOMPARE(rig.logs(), QStringList{"3 Reel Name: A12"});
}

void TestEngineSettings::stopOnLossOfVideoAloneDeliberatelyPublishesNothing()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(false);
    rig.run(1000);
    QCOMPARE(rig.signalsSeen(), QStringList{});
    rig.vtr->setStopOnFrameDrop(true);
    rig.run(1000);
    QCOMPARE(rig.transcript.count("signal stateChanged"), 1);
}

SIM_TEST_MAIN(TestEngineSettings)
#include "tst_engine_settings.moc"
