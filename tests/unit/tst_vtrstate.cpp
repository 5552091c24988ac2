#include "transport/vtrstate.h"

#include <QTest>

#include <cmath>

/// The transport's state: defaults, classification of speeds, sharing, comparison, texts.
class TestVtrState : public QObject
{
    Q_OBJECT

private slots:
    void defaults();
    void speedFlags_data();
    void speedFlags();
    void queriesOfFlags_data();
    void queriesOfFlags();
    void bitsHaveNames();
    void modeNames_data();
    void modeNames();
    void theFlagsFollowTheSpeed();
    void texts();
    void aCopyNeverSeesAChange();
    void everySettingMakesADifference_data();
    void everySettingMakesADifference();
    void stopOnLossOfVideoIsDeliberatelyNotCompared();
    void speedsAreComparedExactly();
    void sharedDataIsEqualWhateverItHolds();
    void theRecordIsComparedFieldByField();
    void travelsAsAVariantUnderItsName();
};

void TestVtrState::defaults()
{
    const VtrState s;
    QCOMPARE(s.mode(), VtrState::Startup);
    QCOMPARE(s.speed(), 0.0);
    QCOMPARE(s.speedFlags().toString(), QString("Valid Still"));
    QCOMPARE(s.audioChans(), 2);
    QCOMPARE(s.recordInterval(), 1);
    QCOMPARE(s.recordIntervalTime(), 0);
    QVERIFY(s.stopOnLossOfVideo());
    QVERIFY(!s.intervalRecordEnable() && !s.isLooping() && !s.forcePSFOutput());
    QVERIFY(!s.forcePSFEncode() && !s.vfrEnable() && !s.stopOnFrameDrop());
    for (const OrbId &id :
         {s.encodeFormat(), s.videoOutputType(), s.videoInputSource(), s.audioInputSource(),
          s.audioInputLevel(), s.syncSource(), s.cameraInput(), s.videoSignalGenMode(),
          s.audioSignalGenMode(), s.videoInConvert(), s.videoOutConvert(), s.superOut(),
          s.videoOutputRoute()})
        QVERIFY(!id.isValid());
    QCOMPARE(s.videoSignalGenFormat(), OrbImageDesc());
    QVERIFY(s.inputLut() == OrbImageLut() && s.outputLut() == OrbImageLut());
    QCOMPARE(s.toString(), QString("0.000 Startup "));
    QVERIFY(VtrStateData() == VtrStateData());
    QCOMPARE(VtrStateData().toString(), QString("0.000 Startup "));
}

void TestVtrState::speedFlags_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<QString>("text");
    QTest::newRow("still") << 0.0 << "Valid Still";
    QTest::newRow("negative zero") << -0.0 << "Valid Still";
    QTest::newRow("normal") << 1.0 << "Valid Fwd Normal";
    QTest::newRow("normal reverse") << -1.0 << "Valid Rev Normal";
    QTest::newRow("slow") << 0.5 << "Valid Fwd Slow";
    QTest::newRow("slow reverse") << -0.5 << "Valid Rev Slow";
    QTest::newRow("fast") << 2.0 << "Valid Fwd Fast";
    QTest::newRow("fast reverse") << -2.0 << "Valid Rev Fast";
    QTest::newRow("just below normal") << std::nextafter(1.0, 0.0) << "Valid Fwd Slow";
    QTest::newRow("just above normal") << std::nextafter(1.0, 2.0) << "Valid Fwd Fast";
    QTest::newRow("smallest") << 5e-324 << "Valid Fwd Slow";
    QTest::newRow("infinite") << double(INFINITY) << "Valid Fwd Fast";
}

void TestVtrState::speedFlags()
{
    QFETCH(double, speed);
    QFETCH(QString, text);
    QCOMPARE(VtrSpeedFlags::fromSpeed(speed).toString(), text);
}

void TestVtrState::queriesOfFlags_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<QString>("answers"); // forward, reverse, still, normal fwd, fast fwd, fast rev
    QTest::newRow("still") << 0.0 << "--s---";
    QTest::newRow("normal") << 1.0 << "f--n--";
    QTest::newRow("slow") << 0.3 << "f-----";
    QTest::newRow("fast") << 3.0 << "f---F-";
    QTest::newRow("normal reverse") << -1.0 << "-r----";
    QTest::newRow("slow reverse") << -0.3 << "-r----";
    QTest::newRow("fast reverse") << -3.0 << "-r---R";
}

void TestVtrState::queriesOfFlags()
{
    QFETCH(double, speed);
    QFETCH(QString, answers);
    const VtrSpeedFlags f = VtrSpeedFlags::fromSpeed(speed);
    QString found("------");
    const std::pair<bool, char> asked[] = {
        {f.isForward(), 'f'},       {f.isReverse(), 'r'},     {f.isStill(), 's'},
        {f.isNormalForward(), 'n'}, {f.isFastForward(), 'F'}, {f.isFastReverse(), 'R'}};
    for (int i = 0; i < found.size(); ++i)
        if (asked[i].first)
            found[i] = QLatin1Char(asked[i].second);
    QCOMPARE(found, answers);
}

void TestVtrState::bitsHaveNames()
{
    QCOMPARE(VtrSpeedFlags(0xff).toString(), QString("Valid Fwd Rev Bit3 Still Normal Slow Fast"));
    QCOMPARE(VtrSpeedFlags(0x08).toString(), QString("Bit3"));
    QCOMPARE(VtrSpeedFlags(0).toString(), QString());
    QCOMPARE(VtrSpeedFlags(0xffffff00U).toString(), QString());
}

void TestVtrState::modeNames_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("name");
    QTest::newRow("0") << 0 << "Startup";
    QTest::newRow("1") << 1 << "Shutdown";
    QTest::newRow("2") << 2 << "Standby Off";
    QTest::newRow("3") << 3 << "Standby";
    QTest::newRow("4") << 4 << "Play";
    QTest::newRow("5") << 5 << "Record";
    QTest::newRow("6") << 6 << "Mode 6";
    QTest::newRow("9") << 9 << "Mode 9";
    QTest::newRow("-1") << -1 << "Mode -1";
}

void TestVtrState::modeNames()
{
    QFETCH(int, mode);
    QFETCH(QString, name);
    QCOMPARE(VtrState::modeName(static_cast<VtrState::Mode>(mode)), name);
    VtrState s;
    s.setMode(static_cast<VtrState::Mode>(mode));
    QCOMPARE(s.modeName(), name);
    QCOMPARE(s.isInModePlay(), mode == 4);
    QCOMPARE(s.isInModeRecord(), mode == 5);
    QCOMPARE(s.isInModeStandbyOff(), mode == 2);
}

void TestVtrState::theFlagsFollowTheSpeed()
{
    VtrState s;
    s.setSpeed(-2.0);
    QVERIFY(s.speedFlags().isFastReverse());
    s.setSpeed(1.0);
    QVERIFY(s.speedFlags().isNormalForward());
}

void TestVtrState::texts()
{
    VtrState s;
    s.setMode(VtrState::Play);
    s.setSpeed(1.0);
    QCOMPARE(s.toString(), QString("1.000 Play "));
    s.setSpeed(-0.12345);
    s.setMode(VtrState::StandbyOff);
    QCOMPARE(s.toString(), QString("-0.123 Standby Off "));
}

void TestVtrState::aCopyNeverSeesAChange()
{
    VtrState a;
    VtrState b = a;
    QVERIFY(!(a != b));
    b.setMode(VtrState::Record);
    b.setSpeed(1.0);
    QCOMPARE(a.mode(), VtrState::Startup);
    QCOMPARE(a.speed(), 0.0);
    QVERIFY(a != b);
    a = b;
    QVERIFY(a == b);
    a.setLooping(true);
    QVERIFY(!b.isLooping());
}

using Change = void (*)(VtrState &);
Q_DECLARE_METATYPE(Change)

void TestVtrState::everySettingMakesADifference_data()
{
    QTest::addColumn<Change>("change");
    const auto row = [](const char *name, Change change) { QTest::newRow(name) << change; };
    // clang-format off
    row("mode",                 [](VtrState &s) { s.setMode(VtrState::Play); });
    row("audioChans",           [](VtrState &s) { s.setAudioChans(8); });
    row("recordInterval",       [](VtrState &s) { s.setRecordInterval(2); });
    row("recordIntervalTime",   [](VtrState &s) { s.setRecordIntervalTime(1); });
    row("intervalRecordEnable", [](VtrState &s) { s.setIntervalRecordEnable(true); });
    row("looping",              [](VtrState &s) { s.setLooping(true); });
    row("speed",                [](VtrState &s) { s.setSpeed(1.0); });
    row("encodeFormat",         [](VtrState &s) { s.setEncodeFormat(OrbId(1)); });
    row("videoOutputType",      [](VtrState &s) { s.setVideoOutputType(OrbId(1)); });
    row("videoInputSource",     [](VtrState &s) { s.setVideoInputSource(OrbId(1)); });
    row("audioInputSource",     [](VtrState &s) { s.setAudioInputSource(OrbId(1)); });
    row("audioInputLevel",      [](VtrState &s) { s.setAudioInputLevel(OrbId(1)); });
    row("syncSource",           [](VtrState &s) { s.setSyncSource(OrbId(1)); });
    row("cameraInput",          [](VtrState &s) { s.setCameraInput(OrbId(1)); });
    row("videoSignalGenMode",   [](VtrState &s) { s.setVideoSignalGenMode(OrbId(1)); });
    row("audioSignalGenMode",   [](VtrState &s) { s.setAudioSignalGenMode(OrbId(1)); });
    row("videoInConvert",       [](VtrState &s) { s.setVideoInConvert(OrbId(1)); });
    row("videoOutConvert",      [](VtrState &s) { s.setVideoOutConvert(OrbId(1)); });
    row("superOut",             [](VtrState &s) { s.setSuperOut(OrbId(1)); });
    row("videoOutputRoute",     [](VtrState &s) { s.setVideoOutputRoute(OrbId(1)); });
    row("videoSignalGenFormat", [](VtrState &s) { OrbImageDesc d; d.setSize(1, 1); s.setVideoSignalGenFormat(d); });
    row("inputLut",             [](VtrState &s) { s.setInputLut(OrbImageLut(OrbId(1100), 4)); });
    row("outputLut",            [](VtrState &s) { s.setOutputLut(OrbImageLut(OrbId(1100), 4)); });
    row("forcePSFOutput",       [](VtrState &s) { s.setForcePSFOutput(true); });
    row("forcePSFEncode",       [](VtrState &s) { s.setForcePSFEncode(true); });
    row("vfrEnable",            [](VtrState &s) { s.setVFREnabled(true); });
    row("stopOnFrameDrop",      [](VtrState &s) { s.setStopOnFrameDrop(true); });
    // clang-format on
}

void TestVtrState::everySettingMakesADifference()
{
    QFETCH(Change, change);
    VtrState a;
    VtrState b;
    QVERIFY(a == b);
    change(a);
    QVERIFY(a != b);
    change(b);
    QVERIFY(!(a != b));
}

void TestVtrState::stopOnLossOfVideoIsDeliberatelyNotCompared()
{
    VtrState a;
    const VtrState b;
    a.setStopOnLossOfVideo(false);
    QVERIFY(!a.stopOnLossOfVideo());
    QVERIFY(!(a != b));
}

void TestVtrState::speedsAreComparedExactly()
{
    VtrState a;
    VtrState b;
    a.setSpeed(1.0);
    b.setSpeed(1.0000001);
    QVERIFY(a != b);
}

void TestVtrState::sharedDataIsEqualWhateverItHolds()
{
    VtrState a;
    a.setSpeed(NAN); // equal to nothing, not even to itself
    VtrState b = a;
    QVERIFY(!(a != b));
    b.setAudioChans(b.audioChans()); // a record of its own
    QVERIFY(a != b);
}

void TestVtrState::theRecordIsComparedFieldByField()
{
    VtrStateData a;
    VtrStateData b;
    QVERIFY(a == b && !(a != b));
    QCOMPARE(a.speedFlags(), VtrSpeedFlags::fromSpeed(0.0));
    a.setSpeed(-2.0);
    QCOMPARE(a.speedFlags(), VtrSpeedFlags::fromSpeed(-2.0));
    QVERIFY(a != b);
    b.setSpeed(-2.0);
    b.stopOnLossOfVideo = false;
    QVERIFY(a == b);
    b.mode = VtrState::Mode(9);
    QVERIFY(a != b);
    QCOMPARE(b.toString(), QStringLiteral("-2.000 Mode 9 "));
}

void TestVtrState::travelsAsAVariantUnderItsName()
{
    qRegisterMetaType<VtrState>("VtrState");
    QVERIFY(QMetaType::fromName("VtrState").isValid());
    VtrState s;
    s.setMode(VtrState::Record);
    QCOMPARE(QVariant::fromValue(s).value<VtrState>().mode(), VtrState::Record);
}

QTEST_APPLESS_MAIN(TestVtrState)
#include "tst_vtrstate.moc"
