#include "enginerig.h"

#include "liborb/orb.h"

/// The timecode generator: what it is loaded with, and when.
class TestEngineJamTcg : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void byTheSource_data();
    void byTheSource();
    void theRateIsThatOfTheSetup_data();
    void theRateIsThatOfTheSetup();
    void theTimeOfDayKeepsTheDropFrameFlagOfThePreset();
    void aPresetThatWasNeverMadeLoadsNothing();
    void itIsLoadedWhenStandbyOffAndRecordBeginAndWhenASetupIsDone();
    void itIsNotLoadedWhenASetupFails();
    void recordedFramesMoveThePreset_data();
    void recordedFramesMoveThePreset();
    void framesInStandbyOffDoNotMoveThePreset();
    void framesWithoutTimecodeAreLoggedAndWritten();
    void framesOfADroppedIntervalDoNotMoveThePreset();
};

namespace {

constexpr qint64 timeOfDayMs = (12 * 3600 + 34 * 60 + 56) * 1000LL + 480;

OrbTimecode loaded(const EngineRig &rig)
{
    return rig.video.property(OrbIdPropTimecodePreset).value<OrbTimecode>();
}

int loads(const EngineRig &rig)
{
    return rig.video.propertyCount(OrbIdPropTimecodePreset);
}

} // namespace

void TestEngineJamTcg::init()
{
    Orb::setTimeOfDaySource([] { return timeOfDayMs; });
}

void TestEngineJamTcg::cleanup()
{
    Orb::setTimeOfDaySource({});
}

void TestEngineJamTcg::byTheSource_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<bool>("hasPreset");
    QTest::addColumn<QString>("start");
    const QString none = "--:--:--:--";
    // clang-format off
    //                                      source  preset   loaded
    QTest::newRow("preset")              << 1500 << true  << "01:02:03:04";
    QTest::newRow("preset, never made")  << 1500 << false << none;
    QTest::newRow("time of day")         << 1501 << true  << "12:34:56:12";
    QTest::newRow("time of day, alone")  << 1501 << false << "12:34:56:12";
    QTest::newRow("input")               << 1510 << true  << none;
    QTest::newRow("another")             << 1502 << true  << none;
    QTest::newRow("none")                << 0    << true  << none;
    // clang-format on
}

void TestEngineJamTcg::byTheSource()
{
    QFETCH(int, source);
    QFETCH(bool, hasPreset);
    QFETCH(QString, start);
    EngineRig rig;
    rig.startUp();
    if (hasPreset)
        rig.vtr->setTimecodeValue({1, 2, 3, 4, 0, 0}); // no source yet: loads nothing
    QCOMPARE(loads(rig), 0);
    rig.vtr->setTCGSource(OrbId(source));
    QCOMPARE(loads(rig), 0); // with the reset
    rig.run(1000);
    QCOMPARE(loaded(rig).toString(), start);
    const int before = loads(rig);
    rig.vtr->jamTCG();
    QCOMPARE(loads(rig), before + (start == "--:--:--:--" ? 0 : 1));
}

void TestEngineJamTcg::theRateIsThatOfTheSetup_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<int>("fps");
    QTest::addColumn<QString>("start");
    for (const int source : {1500, 1501}) {
        const auto row = [source](const char *rate, int num, int den, int fps, int frame) {
            const QString start = source == 1500
                ? QString("01:02:03:04")
                : QString("12:34:56:%1").arg(frame, 2, 10, QLatin1Char('0'));
            QTest::addRow("%s at %s", source == 1500 ? "preset" : "time of day", rate)
                << source << num << den << fps << start;
        };
        // rate         num    den   fps  frame at .480 s
        row("23.976", 24000, 1001, 24, 11);
        row("24",     24,    1,    24, 11);
        row("25",     25,    1,    25, 12);
        row("29.97",  30000, 1001, 30, 14);
        row("30",     30,    1,    30, 14);
        row("50",     50,    1,    50, 24);
        row("59.94",  60000, 1001, 60, 28);
        row("60",     60,    1,    60, 28);
    }
}

void TestEngineJamTcg::theRateIsThatOfTheSetup()
{
    QFETCH(int, source);
    QFETCH(int, num);
    QFETCH(int, den);
    QFETCH(int, fps);
    QFETCH(QString, start);
    EngineRig rig;
    rig.startUp();
    rig.video.changeInput(0, EngineRig::inputState(EngineRig::imageDesc(1280, 720, num, den)));
    rig.vtr->setTCGSource(OrbId(source));
    rig.vtr->setTimecodeValue({1, 2, 3, 4, 0, 0});
    rig.run(1000);
    QCOMPARE(loaded(rig).toString(), start);
    QCOMPARE(loaded(rig).fps(), fps);
    QCOMPARE(rig.vtr->currentTimecodeFrameRate(), fps);
}

void TestEngineJamTcg::theTimeOfDayKeepsTheDropFrameFlagOfThePreset()
{
    EngineRig rig;
    rig.startUp();
    rig.video.changeInput(0, EngineRig::inputState(EngineRig::imageDesc(1280, 720, 30000, 1001)));
    rig.vtr->setTCGSource(OrbId(1501));
    rig.run(1000);
    QVERIFY(!loaded(rig).dropFrameFlag());
    const int before = loads(rig);
    rig.vtr->setTimecodeDropFrame(true);
    QCOMPARE(loads(rig), before + 1);
    QVERIFY(loaded(rig).isDropFrame());
    rig.vtr->setTimecodeDropFrame(false);
    QVERIFY(!loaded(rig).dropFrameFlag());
}

void TestEngineJamTcg::aPresetThatWasNeverMadeLoadsNothing()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.vtr->setTimecodeDropFrame(true);
    rig.run(1000);
    QCOMPARE(loads(rig), 0);
    rig.vtr->setTimecodeValue({1, 2, 3, 4, 0, 0});
    QCOMPARE(loaded(rig).toString(), QString("01:02:03;04"));
}

void TestEngineJamTcg::itIsLoadedWhenStandbyOffAndRecordBeginAndWhenASetupIsDone()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1501));
    rig.run(1000);
    int before = loads(rig);
    rig.vtr->record();
    QCOMPARE(loads(rig), before + 1); // no setup is sent
    rig.run(500);
    rig.vtr->standbyOff();
    rig.run(500);
    QCOMPARE(loads(rig), before + 2);
    rig.vtr->setSuperOut(OrbId(1300));
    rig.run(600);
    QCOMPARE(loads(rig), before + 3); // the setup's end
    before = loads(rig);
    rig.vtr->play();
    rig.run(500);
    QCOMPARE(loads(rig), before + 1); // the setup for playback
    rig.vtr->still();
    rig.run(500);
    QCOMPARE(loads(rig), before + 1);
}

void TestEngineJamTcg::itIsNotLoadedWhenASetupFails()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1501));
    rig.run(1000);
    const int before = loads(rig);
    rig.video.setups.push_back({.error = OrbError(5)});
    rig.video.setups.push_back({.error = OrbError(6)});
    rig.vtr->setSuperOut(OrbId(1300));
    rig.transcript.clear();
    rig.run(600);
    QCOMPARE(rig.logs().filter("Setup Error"),
             (QStringList{"1 VIDEO DEVICE: Setup Error 5", "1 VIDEO DEVICE: Setup Error 6"}));
    QCOMPARE(rig.transcript.count("device: setup playback"), 2); // the default, and again
    QCOMPARE(loads(rig), before + 1);
    QCOMPARE(rig.countLog(3, "VIDEO DEVICE: Setup is Done"), 1);
}

void TestEngineJamTcg::recordedFramesMoveThePreset_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<bool>("moves");
    QTest::newRow("preset") << 1500 << true;
    QTest::newRow("time of day") << 1501 << false;
    QTest::newRow("input") << 1510 << false;
}

void TestEngineJamTcg::recordedFramesMoveThePreset()
{
    QFETCH(int, source);
    QFETCH(bool, moves);
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTimecodeValue({1, 0, 0, 0, 0, 0});
    rig.vtr->setTCGSource(OrbId(source));
    rig.run(1000);
    rig.vtr->record();
    rig.run(2000);
    rig.vtr->standbyOff();
    rig.run(200);
    const OrbTimecode last = rig.media.recordings()
                                 .value(EngineRig::recordPath)
                                 .last()
                                 .meta()
                                 .valueFor(OrbId(OrbIdTimecode))
                                 .value<OrbTimecode>();
    QVERIFY(last.isValid());
    rig.vtr->setTCGSource(OrbId(1500));
    rig.vtr->jamTCG();
    QCOMPARE(loaded(rig).toString(), moves ? last.toString() : QString("01:00:00:00"));
}

void TestEngineJamTcg::framesInStandbyOffDoNotMoveThePreset()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.vtr->setTimecodeValue({1, 0, 0, 0, 0, 0});
    rig.run(5000);
    rig.vtr->jamTCG();
    QCOMPARE(loaded(rig).toString(), QString("01:00:00:00"));
}

void TestEngineJamTcg::framesWithoutTimecodeAreLoggedAndWritten()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.vtr->setTimecodeValue({1, 0, 0, 0, 0, 0});
    rig.video.hasTimecode = false;
    rig.run(1000);
    rig.vtr->record();
    rig.run(1000);
    const qsizetype written = rig.media.recordings().value(EngineRig::recordPath).size();
    QVERIFY(written >= 24);
    QCOMPARE(rig.countLog(1, "Frame has invalid timecode"), int(written)); // once a frame
    rig.vtr->standbyOff();
    rig.run(200);
    QCOMPARE(loaded(rig).toString(), QString("01:00:00:00"));
}

void TestEngineJamTcg::framesOfADroppedIntervalDoNotMoveThePreset()
{
    EngineRig rig;
    rig.startUp();
    rig.vtr->setTCGSource(OrbId(1500));
    rig.vtr->setTimecodeValue({1, 0, 0, 0, 0, 0});
    rig.vtr->setIntervalRecordEnable(true);
    rig.run(1000);
    rig.vtr->record();
    rig.run(1500); // one frame kept, a dozen dropped behind it
    rig.vtr->standbyOff();
    rig.run(200);
    const QList<OrbFrame> written = rig.media.recordings().value(EngineRig::recordPath);
    QCOMPARE(written.size(), 1);
    QCOMPARE(loaded(rig), written.first().meta().valueFor(OrbId(12)).value<OrbTimecode>());
}

SIM_TEST_MAIN(TestEngineJamTcg)
#include "tst_engine_jamtcg.moc"
