#include "config/configinterface.h"
#include "controllerrig.h"

/// The dispatch table: every parameter with values in and outside its switch.
class TestMainObjectParams : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { _rig.emplace(); }
    void cleanupTestCase() { _rig.reset(); }
    void aValueReachesTheEnginesState_data();
    void aValueReachesTheEnginesState();
    void aValueReachesTheEngine_data();
    void aValueReachesTheEngine();
    void everyChangeIsLoggedFirst();
    void aReelNameIsPaddedToThreeCharacters_data();
    void aReelNameIsPaddedToThreeCharacters();
    void fiveAudioChannelsReachTheEngineAsNone();
    void aWrongTypeActsOnItsDefault();
    void aSignalGeneratorFormatReachesTheEngine();
    void rolloverSettingsReachTheMediaManager();
    void mediaLoadingIsOnlyLogged();
    void unknownNumbersAreSilentWithoutTheOption();
    void eightChannelsOfAnInputWithTwoRaiseTheAlarm_data();
    void eightChannelsOfAnInputWithTwoRaiseTheAlarm();
    void theAudioCheckJudgesWhatStandsInTheStore();

private:
    std::optional<ControllerRig> _rig;
};

namespace
{

/// What of the engine's state a row looks at, as a number.
using Look = int (*)(const VtrState &);

int number(const OrbId &id)
{
    return int(id.value());
}

constexpr int nothing = -1000;
const QString unsupported = QStringLiteral("2 Unsupported value: ");

} // namespace

Q_DECLARE_METATYPE(Look)

void TestMainObjectParams::aValueReachesTheEnginesState_data()
{
    QTest::addColumn<quint32>("id");
    QTest::addColumn<int>("before"); ///< set first, so that the effect can be seen
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<Look>("look");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QString>("logged");
    int row = 0;
    const auto add = [&](quint32 id, int before, const QVariant &value, Look look, int expected,
                         const QString &logged = QString()) {
        const QByteArray name = QByteArray::number(++row) + ": " + QByteArray::number(id, 16) +
                                " = " + value.toByteArray();
        QTest::newRow(name.constData()) << id << before << value << look << expected << logged;
    };
    const auto unsupportedValue = [](int value) { return unsupported + QString::number(value); };

    const auto lossOfVideo = [](const VtrState &s) { return int(s.stopOnLossOfVideo()); };
    add(eParamStopOnLossOfVideo, 0, 1, lossOfVideo, 0); // the inverse, deliberately
    add(eParamStopOnLossOfVideo, 1, 0, lossOfVideo, 1);
    const auto camera = [](const VtrState &s) { return number(s.cameraInput()); };
    for (int i = 1; i <= 9; ++i)
        add(eParamCameraInput, 0, i, camera, 999 + i);
    for (const int i : {0, 10, -1})
        add(eParamCameraInput, 3, i, camera, 0);
    const auto encode = [](const VtrState &s) { return number(s.encodeFormat()); };
    const QList<QPair<int, int>> encodes = {{0, 202}, {1, 203}, {2, 204}, {3, 205},
                                            {7, 206}, {8, 230}, {9, 231}};
    for (const auto &[value, id] : encodes)
        add(eParamEncodeType, value == 1 ? 0 : 1, quint32(value), encode, id);
    for (const int i : {4, 5, 6, 10})
        add(eParamEncodeType, 1, quint32(i), encode, 203,
            QStringLiteral("2 Unsupported encode type: %1").arg(i));
    const auto looping = [](const VtrState &s) { return int(s.isLooping()); };
    add(eParamLoopPlayback, 0, 1, looping, 1);
    add(eParamLoopPlayback, 1, 0, looping, 0);
    add(eParamLoopPlayback, 0, 7, looping, 1);
    const auto frameDrop = [](const VtrState &s) { return int(s.stopOnFrameDrop()); };
    add(eParamStopOnFrameDrop, 0, 1, frameDrop, 1);
    add(eParamStopOnFrameDrop, 1, 0, frameDrop, 0);
    const auto videoGen = [](const VtrState &s) { return number(s.videoSignalGenMode()); };
    for (int i = 1; i <= 3; ++i)
        add(eParamVideoSignalGenMode, 0, i, videoGen, 799 + i);
    for (const int i : {0, 4, -1})
        add(eParamVideoSignalGenMode, 2, i, videoGen, 0);
    const auto audioGen = [](const VtrState &s) { return number(s.audioSignalGenMode()); };
    for (int i = 1; i <= 2; ++i)
        add(eParamAudioSignalGenMode, 0, i, audioGen, 899 + i);
    for (const int i : {0, 3})
        add(eParamAudioSignalGenMode, 1, i, audioGen, 0);
    const auto channels = [](const VtrState &s) { return s.audioChans(); };
    add(eParamAudioChannels, 1, 0, channels, 2);
    add(eParamAudioChannels, 0, 1, channels, 8);
    const auto outputType = [](const VtrState &s) { return number(s.videoOutputType()); };
    const QList<int> outputs = {663, 662, 633, 632, 604, 603};
    for (int i = 0; i < outputs.size(); ++i)
        add(eParamVideoOutputType, i == 0 ? 1 : 0, i, outputType, outputs.at(i));
    add(eParamVideoOutputType, 1, 6, outputType, 0,
        QStringLiteral("2 Unsupported video output: 6"));
    const auto psfOutput = [](const VtrState &s) { return int(s.forcePSFOutput()); };
    add(eParamPsfOutput, 1, 0, psfOutput, 1); // true for 0, deliberately
    add(eParamPsfOutput, 0, 1, psfOutput, 0);
    add(eParamPsfOutput, 0, 2, psfOutput, 0);
    const auto scanMode = [](const VtrState &s) {
        return 10 * int(s.forcePSFEncode()) + int(s.vfrEnable());
    };
    add(eParamEncodeScanMode, 1, 0, scanMode, 0); // one parameter drives both
    add(eParamEncodeScanMode, 2, 1, scanMode, 10);
    add(eParamEncodeScanMode, 1, 2, scanMode, 1);
    add(eParamEncodeScanMode, 2, 3, scanMode, 0);
    const auto inConvert = [](const VtrState &s) { return number(s.videoInConvert()); };
    add(eParamVideoInConvert, 0, 4, inConvert, 1200);
    add(eParamVideoInConvert, 4, 6, inConvert, 1201);
    add(eParamVideoInConvert, 4, 5, inConvert, 0);
    const auto outConvert = [](const VtrState &s) { return number(s.videoOutConvert()); };
    add(eParamVideoOutConvert, 0, 4, outConvert, 1200);
    add(eParamVideoOutConvert, 4, 6, outConvert, 1202);
    add(eParamVideoOutConvert, 4, 0, outConvert, 0);
    const auto super = [](const VtrState &s) { return number(s.superOut()); };
    add(eParamSuperOut, 1, 0, super, 0);
    add(eParamSuperOut, 0, 1, super, 1300);
    add(eParamSuperOut, 0, 5, super, 1301);
    add(eParamSuperOut, 0, 6, super, 1302);
    for (const int i : {2, 4, 7, -3})
        add(eParamSuperOut, 1, i, super, 0, unsupportedValue(i));
    const auto videoInput = [](const VtrState &s) { return number(s.videoInputSource()); };
    const QList<QPair<int, int>> inputs = {{0, 601},  {6, 602},  {8, 603},  {7, 604},  {9, 631},
                                           {11, 632}, {10, 633}, {12, 661}, {14, 662}, {13, 663}};
    for (const auto &[value, id] : inputs)
        add(eParamVideoInput, value == 0 ? 6 : 0, quint32(value), videoInput, id);
    for (const int i : {1, 2, 3, 4, 5, 15})
        add(eParamVideoInput, 6, quint32(i), videoInput, 602,
            QStringLiteral("2 Unsupported video input: %1").arg(i));
    const auto audioInput = [](const VtrState &s) { return number(s.audioInputSource()); };
    add(eParamAudioInput, 2, 0u, audioInput, 52);
    add(eParamAudioInput, 0, 2u, audioInput, 690);
    for (const int i : {1, 3})
        add(eParamAudioInput, 2, quint32(i), audioInput, 690,
            QStringLiteral("2 Unsupported audio input: %1").arg(i));
    const auto route = [](const VtrState &s) { return number(s.videoOutputRoute()); };
    add(eParamVideoOutputRoute, 1, 0, route, 51);
    add(eParamVideoOutputRoute, 0, 1, route, 53);
    for (const int i : {2, -1})
        add(eParamVideoOutputRoute, 1, i, route, 0, unsupportedValue(i));
    const auto interval = [](const VtrState &s) { return int(s.intervalRecordEnable()); };
    add(eParamIntervalRecordEnable, 0, 1, interval, 1);
    add(eParamIntervalRecordEnable, 1, 0, interval, 0);
    const auto frames = [](const VtrState &s) { return s.recordInterval(); };
    add(eParamRecordInterval, 1, 7, frames, 7);
    const auto period = [](const VtrState &s) { return s.recordIntervalTime(); };
    add(eParamRecordIntervalTime, 0, 2, period, 2);
    const auto sync = [](const VtrState &s) { return number(s.syncSource()); };
    add(eParamSyncSource, 2, 0u, sync, 501);
    add(eParamSyncSource, 0, 2u, sync, 502);
    add(eParamSyncSource, 0, 3u, sync, 503);
    for (const int i : {1, 4})
        add(eParamSyncSource, 3, quint32(i), sync, 503,
            QStringLiteral("2 Unsupported sync source: %1").arg(i));
    const auto level = [](const VtrState &s) { return number(s.audioInputLevel()); };
    for (int i = 0; i <= 3; ++i)
        add(eParamAudioInputLevel, i == 0 ? 1 : 0, i, level, 1400 + i);
    for (const int i : {4, -1})
        add(eParamAudioInputLevel, 2, i, level, 1402, unsupportedValue(i));
}

void TestMainObjectParams::aValueReachesTheEnginesState()
{
    QFETCH(quint32, id);
    QFETCH(int, before);
    QFETCH(QVariant, value);
    QFETCH(Look, look);
    QFETCH(QString, logged);
    _rig->change(eParamVideoSignalGenFormat, 12); // so that the generator has a format
    _rig->change(id, before);
    _rig->log->clear();
    _rig->change(id, value);
    QTEST(look(_rig->vtr->state()), "expected");
    const QStringList lines = _rig->controllerLines();
    QCOMPARE(lines, logged.isEmpty() ? QStringList() : QStringList{logged});
}

/// Settings that the engine keeps outside its state show in its log.
void TestMainObjectParams::aValueReachesTheEngine_data()
{
    QTest::addColumn<quint32>("id");
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("engine");
    QTest::addColumn<QString>("logged");
    const auto source = [](int id) {
        return QStringLiteral("Set TCG Source: %1").arg(OrbId(id).name());
    };
    // clang-format off
    QTest::newRow("preset")        << quint32(eParamTcgSource) << 1 << 0 << source(1500) << QString();
    QTest::newRow("vitc")          << quint32(eParamTcgSource) << 0 << 1 << source(1520) << QString();
    QTest::newRow("ltc")           << quint32(eParamTcgSource) << 0 << 3 << source(1510) << QString();
    QTest::newRow("time of day")   << quint32(eParamTcgSource) << 0 << 5 << source(1501) << QString();
    for (const int i : {2, 4, 6, -1})
        QTest::addRow("source %d", i) << quint32(eParamTcgSource) << 0 << i << source(0) << unsupported + QString::number(i);
    QTest::newRow("the hour")      << quint32(eParamTimecodeValue) << nothing << 13 << QStringLiteral("Set TC value: 13:00:00:00") << QString();
    QTest::newRow("drop frame")    << quint32(eParamTimecodeDropFrame) << nothing << 1 << QStringLiteral("Set TC Drop Frame: Enabled") << QString();
    QTest::newRow("no drop frame") << quint32(eParamTimecodeDropFrame) << nothing << 0 << QStringLiteral("Set TC Drop Frame: Disabled") << QString();
    QTest::newRow("drop frame 2")  << quint32(eParamTimecodeDropFrame) << nothing << 2 << QStringLiteral("Set TC Drop Frame: Disabled") << QString();
    // True for 0, deliberately.
    QTest::newRow("running timecode") << quint32(eParamRecordOnRunningTimecode) << 1 << 0 << QStringLiteral("Record on Running Timecode: Enabled") << QString();
    QTest::newRow("no running timecode") << quint32(eParamRecordOnRunningTimecode) << 0 << 1 << QStringLiteral("Record on Running Timecode: Disabled") << QString();
    QTest::newRow("running timecode 2") << quint32(eParamRecordOnRunningTimecode) << 0 << 2 << QStringLiteral("Record on Running Timecode: Disabled") << QString();
    // clang-format on
}

void TestMainObjectParams::aValueReachesTheEngine()
{
    QFETCH(quint32, id);
    QFETCH(int, before);
    QFETCH(int, value);
    QFETCH(QString, engine);
    QFETCH(QString, logged);
    if (before != nothing)
        _rig->change(id, before);
    _rig->log->clear();
    _rig->change(id, value);
    QVERIFY2(_rig->logged(3, engine, "vtrobject.cpp"), qPrintable(_rig->log->lines().join('\n')));
    QCOMPARE(_rig->controllerLines(), logged.isEmpty() ? QStringList() : QStringList{logged});
}

void TestMainObjectParams::everyChangeIsLoggedFirst()
{
    _rig->log->clear();
    _rig->change(eParamLoopPlayback, 1u);
    const QString text = ConfigInterface::paramToString(eParamLoopPlayback, 1u);
    QVERIFY(text.startsWith(QStringLiteral("[f02000a] eParamLoopPlayback = ")));
    QCOMPARE(_rig->log->lines().first(), QStringLiteral("3 mainobject.cpp Param Changed: ") + text);
}

void TestMainObjectParams::aReelNameIsPaddedToThreeCharacters_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("padded");
    QTest::newRow("one digit") << QStringLiteral("7") << QStringLiteral("007");
    QTest::newRow("four digits") << QStringLiteral("1234") << QStringLiteral("1234");
    QTest::newRow("empty") << QString() << QStringLiteral("000");
}

void TestMainObjectParams::aReelNameIsPaddedToThreeCharacters()
{
    QFETCH(QString, name);
    _rig->change(eParamReelName, QStringLiteral("first"));
    _rig->change(eParamReelName, name);
    QTEST(_rig->video->property(OrbIdPropReelName).toString(), "padded");
}

void TestMainObjectParams::fiveAudioChannelsReachTheEngineAsNone()
{
    _rig->change(eParamAudioChannels, 1);
    _rig->log->clear();
    _rig->change(eParamAudioChannels, 5);
    QVERIFY(_rig->logged(3, QStringLiteral("Set Audio Channels: 0"), "vtrobject.cpp"));
    QCOMPARE(_rig->vtr->state().audioChans(), 8);
}

void TestMainObjectParams::aWrongTypeActsOnItsDefault()
{
    _rig->change(eParamCameraInput, 3);
    _rig->change(eParamCameraInput, QStringLiteral("nine"));
    QCOMPARE(_rig->vtr->state().cameraInput(), OrbId());
    _rig->change(eParamLoopPlayback, 1);
    _rig->change(eParamLoopPlayback, QVariant());
    QVERIFY(!_rig->vtr->state().isLooping());
    _rig->change(eParamVideoOutputRoute, 1);
    _rig->change(eParamVideoOutputRoute, QByteArray("\xff\0x", 3));
    QCOMPARE(_rig->vtr->state().videoOutputRoute(), OrbId(OrbIdOutputRouteNormal));
    _rig->change(eParamReelName, 12u);
    QCOMPARE(_rig->video->property(OrbIdPropReelName).toString(), QStringLiteral("012"));
}

void TestMainObjectParams::aSignalGeneratorFormatReachesTheEngine()
{
    _rig->change(eParamVideoSignalGenFormat, 2);
    OrbImageDesc desc = _rig->vtr->state().videoSignalGenFormat();
    QCOMPARE(desc.width(), 1280);
    QCOMPARE(desc.frameRate(), OrbVideoRate(50000, 1000));
    QCOMPARE(desc.dataType(), OrbId(231));
    _rig->change(eParamVideoSignalGenFormat, 1);
    QCOMPARE(_rig->vtr->state().videoSignalGenFormat(), OrbImageDesc());
}

void TestMainObjectParams::rolloverSettingsReachTheMediaManager()
{
    _rig->change(eParamRolloverPath, QStringLiteral("/media/b"));
    QCOMPARE(_rig->manager->rolloverPath(), QStringLiteral("/media/b"));
    _rig->log->clear();
    _rig->change(eParamRolloverEnable, 1);
    QVERIFY(_rig->logged(3, QStringLiteral("Rollover Enabled"), "mediamanager.cpp"));
    _rig->change(eParamRolloverEnable, 0);
    QVERIFY(_rig->logged(3, QStringLiteral("Rollover Disabled"), "mediamanager.cpp"));
    _rig->change(eParamRolloverPath, QString());
}

void TestMainObjectParams::mediaLoadingIsOnlyLogged()
{
    _rig->clear();
    _rig->change(eParamMediaLoading, 1);
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("3 Media is loading...")});
    QVERIFY(_rig->store.sets().empty());
}

void TestMainObjectParams::unknownNumbersAreSilentWithoutTheOption()
{
    _rig->log->clear();
    _rig->change(0x7b03050a, 1);
    _rig->change(0x12345678, 1);
    QCOMPARE(_rig->log->records().size(), 2);
    QCOMPARE(_rig->log->records().at(1).text, QStringLiteral("Param Changed: "));
}

void TestMainObjectParams::eightChannelsOfAnInputWithTwoRaiseTheAlarm_data()
{
    QTest::addColumn<quint32>("input");
    QTest::addColumn<quint32>("channels");
    QTest::addColumn<int>("level");
    QTest::newRow("two of the second input") << 2u << 0u << 0;
    QTest::newRow("eight of the second input") << 2u << 1u << 2;
    QTest::newRow("eight of the first input") << 0u << 1u << 0;
}

void TestMainObjectParams::eightChannelsOfAnInputWithTwoRaiseTheAlarm()
{
    QFETCH(quint32, input);
    QFETCH(quint32, channels);
    _rig->store.put(eParamAudioInput, input);
    _rig->store.put(eParamAudioChannels, channels);
    QSignalSpy spy(_rig->main.get(), &MainObject::alarmTriggered);
    _rig->main->validateAudioChannels();
    QCOMPARE(spy.count(), 1);
    const auto alarm = spy.at(0).at(0).value<OrbAlarm>();
    QCOMPARE(number(alarm.id()), 1911);
    QTEST(int(alarm.level()), "level");
    QCOMPARE(alarm.text(), QString());
    QCOMPARE(alarm.file(), QStringLiteral("mainobject.cpp"));
    QVERIFY(alarm.line() > 0);
}

void TestMainObjectParams::theAudioCheckJudgesWhatStandsInTheStore()
{
    _rig->store.put(eParamAudioInput, ParamValue(std::uint32_t(0)));
    _rig->store.put(eParamAudioChannels, ParamValue(std::uint32_t(1)));
    QSignalSpy spy(_rig->main.get(), &MainObject::alarmTriggered);
    // The value that arrives is another one than the store's.
    _rig->change(eParamAudioInput, 2u);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(int(spy.at(0).at(0).value<OrbAlarm>().level()), 0);
    _rig->store.put(eParamAudioInput, ParamValue(std::uint32_t(2)));
    QCOMPARE(int(spy.last().at(0).value<OrbAlarm>().level()), 2);
    _rig->store.put(eParamAudioChannels, ParamValue(std::uint32_t(0)));
    QCOMPARE(int(spy.last().at(0).value<OrbAlarm>().level()), 0);
}

QTEST_APPLESS_MAIN(TestMainObjectParams)
#include "tst_mainobject_params.moc"
