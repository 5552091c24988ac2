#include "enginemodes.h"

#include "liborb/orb.h"

#include <functional>

/// What a dropped frame and a shown key frame do: mode by mode, speed by speed.
class TestEngineDroppedFrames : public QObject
{
    Q_OBJECT

private slots:
    void droppedInPlay_data();
    void droppedInPlay();
    void droppedInTheOtherModes_data();
    void droppedInTheOtherModes();
    void droppedWhileBusy_data();
    void droppedWhileBusy();
    void theAlarmNamesTheEnginesFileAndALine();
    void playbackGoesOnAfterADroppedFrame();
    void keyFrames_data();
    void keyFrames();
};

using Prepare = std::function<void(EngineRig &)>;
Q_DECLARE_METATYPE(Prepare)

namespace {

enum Ends : int { None = 0, First = 1, Last = 2 };

QStringList story(const QString &text, int level, const QString &command)
{
    return {"signal frameDropped", "log 1 " + text,
            QString("signal alarmTriggered 1904 %1 %2").arg(QString::number(level), text), command};
}

/// The alarm deliberately goes before the log line here, and behind it in Play.
QStringList recordStory()
{
    const QString text = "Recording stopped due to dropped frame";
    return {"signal frameDropped", "signal alarmTriggered 1904 2 " + text, "log 1 " + text,
            "log 3 ** STANDBY OFF"};
}

/// In the middle of a long clip.
void startPlayAt(EngineRig &rig, double speed)
{
    rig.media.clips[EngineRig::clipPath].length = 5000;
    rig.startFrame = 2500;
    rig.startPlay(speed);
    rig.run(1000);
    QCOMPARE(rig.mode(), VtrState::Play);
    QCOMPARE(rig.vtr->state().speed(), speed);
    QVERIFY(rig.vtr->canProcess());
}

} // namespace

void TestEngineDroppedFrames::droppedInPlay_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<bool>("stops");
    QTest::addColumn<QStringList>("expected");
    const QStringList stopped = story("Playback stopped due to dropped frame", 2, "log 3 ** PLAY 0.000");
    const QStringList continued = story("Playback continued after dropped frame", 1, {}).mid(0, 3);
    // clang-format off
    //                             speed    stop   story
    QTest::newRow("normal, stop")  << 1.0   << true  << stopped;
    QTest::newRow("normal, go on") << 1.0   << false << continued;
    // clang-format on
    for (const double speed : {-20.0, -1.0, -0.5, 0.0, 0.5, 0.999, 1.001, 2.0, 20.0})
        for (const bool stops : {true, false})
            QTest::addRow("%.3f, %s", speed, stops ? "stop" : "go on")
                << speed << stops << QStringList{};
}

void TestEngineDroppedFrames::droppedInPlay()
{
    QFETCH(double, speed);
    QFETCH(bool, stops);
    QFETCH(QStringList, expected);
    EngineRig rig;
    startPlayAt(rig, speed);
    rig.vtr->setStopOnFrameDrop(stops);
    rig.transcript.clear();
    rig.video.dropFrame();
    const bool hasStopped = expected.size() == 4;
    QCOMPARE(hasStopped ? rig.transcript.lines().mid(0, 4) : rig.transcript.lines(), expected);
    QCOMPARE(rig.mode(), VtrState::Play);
    QCOMPARE(rig.vtr->state().speed(), hasStopped ? 0.0 : speed);
}

void TestEngineDroppedFrames::droppedInTheOtherModes_data()
{
    QTest::addColumn<VtrState::Mode>("mode");
    QTest::addColumn<bool>("stops");
    QTest::addColumn<QStringList>("expected");
    for (const bool stops : {true, false}) {
        for (const VtrState::Mode mode :
             {VtrState::Startup, VtrState::Shutdown, VtrState::StandbyOff, VtrState::Standby})
            QTest::addRow("%s, %s", EngineModes::name(mode).constData(), stops ? "stop" : "go on")
                << mode << stops << QStringList{};
        QTest::addRow("Record, %s", stops ? "stop" : "go on") << VtrState::Record << stops
                                                              << recordStory();
    }
}

void TestEngineDroppedFrames::droppedInTheOtherModes()
{
    QFETCH(VtrState::Mode, mode);
    QFETCH(bool, stops);
    QFETCH(QStringList, expected);
    EngineRig rig;
    EngineModes::enter(rig, mode);
    rig.vtr->setStopOnFrameDrop(stops);
    rig.transcript.clear();
    rig.video.dropFrame();
    const bool records = mode == VtrState::Record;
    QCOMPARE(rig.transcript.lines().mid(0, records ? 4 : -1), expected);
    QCOMPARE(rig.mode(), records ? VtrState::StandbyOff : mode);
}

void TestEngineDroppedFrames::droppedWhileBusy_data()
{
    QTest::addColumn<Prepare>("prepare");
    QTest::addColumn<VtrState::Mode>("mode");
    const auto row = [](const char *name, VtrState::Mode mode, const Prepare &prepare) {
        QTest::newRow(name) << prepare << mode;
    };
    row("Record to Standby Off, cleaning up", VtrState::StandbyOff, [](EngineRig &rig) {
        rig.startRecord();
        rig.media.closes.push_back({.afterMs = ScriptedMedia::held});
        rig.vtr->standbyOff();
    });
    row("Play to Record, cleaning up", VtrState::Record, [](EngineRig &rig) {
        rig.startPlay();
        rig.media.closes.push_back({.afterMs = ScriptedMedia::held});
        rig.vtr->record();
    });
    row("Record to Play, cleaning up", VtrState::Play, [](EngineRig &rig) {
        rig.startRecord();
        rig.media.closes.push_back({.afterMs = ScriptedMedia::held});
        rig.vtr->play();
    });
    row("Standby Off to Record, the setup on its way", VtrState::Record, [](EngineRig &rig) {
        rig.startUp();
        rig.vtr->setSuperOut(OrbId(1300));
        rig.video.setups.push_back({.afterMs = ScriptedVideo::held});
        rig.vtr->record();
    });
    row("Record, opening", VtrState::Record, [](EngineRig &rig) {
        rig.startUp();
        rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
        rig.vtr->record();
        rig.run(100);
    });
    row("Record, closing for the next medium", VtrState::Record, [](EngineRig &rig) {
        rig.startRecord();
        rig.media.closes.push_back({.afterMs = ScriptedMedia::held});
        QVERIFY(rig.vtr->reopenRecordStream());
    });
    row("Play, opening", VtrState::Play, [](EngineRig &rig) {
        rig.startUp();
        rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
        rig.vtr->play();
    });
    row("Play, flushing", VtrState::Play, [](EngineRig &rig) {
        rig.startPlay();
        rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
        rig.vtr->videoDeviceFlush();
    });
    row("Play, a reset pending", VtrState::Play, [](EngineRig &rig) {
        rig.startPlay();
        rig.vtr->scheduleVideoDeviceReset(500, true);
    });
}

void TestEngineDroppedFrames::droppedWhileBusy()
{
    QFETCH(Prepare, prepare);
    QFETCH(VtrState::Mode, mode);
    EngineRig rig;
    prepare(rig);
    QCOMPARE(rig.mode(), mode);
    QVERIFY(!rig.vtr->canProcess());
    rig.vtr->setStopOnFrameDrop(true);
    rig.transcript.clear();
    rig.video.dropFrame();
    QCOMPARE(rig.transcript.lines(), QStringList{});
    QCOMPARE(rig.mode(), mode);
}

void TestEngineDroppedFrames::theAlarmNamesTheEnginesFileAndALine()
{
    EngineRig rig;
    rig.startRecord();
    rig.video.dropFrame();
    QCOMPARE(rig.alarms.size(), 1);
    QCOMPARE(rig.alarms.first().file(), QString("vtrobject.cpp"));
    QVERIFY(rig.alarms.first().line() > 0);
}

void TestEngineDroppedFrames::playbackGoesOnAfterADroppedFrame()
{
    EngineRig rig;
    startPlayAt(rig, 1.0);
    for (int i = 0; i < 10; ++i) {
        rig.video.dropFrame();
        rig.run(200);
    }
    QCOMPARE(rig.alarms.size(), 10);
    QCOMPARE(rig.mode(), VtrState::Play);
    QCOMPARE(rig.vtr->state().speed(), 1.0);
    QVERIFY(rig.vtr->currentFrameNumber() > 2550);
}

void TestEngineDroppedFrames::keyFrames_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<int>("ends");
    QTest::addColumn<bool>("isLooping");
    QTest::addColumn<QString>("line");
    const QString end = "3 End of stream reached";
    const QString start = "3 Start of stream reached";
    struct Row {
        double speed;
        QString none, first, last, both;
    };
    const Row rows[] = {
        // speed  neither  first   last  first and last
        {1.0,     {},      {},     end,  end},
        {0.5,     {},      {},     end,  end},
        {20.0,    {},      {},     end,  end},
        {0.0,     {},      {},     {},   {}},
        {-0.5,    {},      start,  {},   start},
        {-1.0,    {},      start,  {},   start},
        {-20.0,   {},      start,  {},   start},
    };
    for (const Row &row : rows) {
        const std::pair<int, QString> cells[] = {
            {None, row.none}, {First, row.first}, {Last, row.last}, {First | Last, row.both}};
        for (const auto &[ends, line] : cells) {
            const char *const names[] = {"neither", "first", "last", "first and last"};
            QTest::addRow("%.1f, %s", row.speed, names[ends]) << row.speed << ends << false << line;
            QTest::addRow("%.1f, %s, looping", row.speed, names[ends])
                << row.speed << ends << true << QString();
        }
    }
}

void TestEngineDroppedFrames::keyFrames()
{
    QFETCH(double, speed);
    QFETCH(int, ends);
    QFETCH(bool, isLooping);
    QFETCH(QString, line);
    EngineRig rig;
    startPlayAt(rig, speed);
    rig.vtr->setLooping(isLooping);
    rig.transcript.clear();
    OrbMetadataHash meta;
    meta.insert(OrbId(OrbIdFrameNumber), 2500);
    meta.insert(OrbId(OrbIdStartOfStream), (ends & First) != 0);
    meta.insert(OrbId(OrbIdEndOfStream), (ends & Last) != 0);
    rig.video.reportPlayedKeyFrame(meta);
    QCOMPARE(rig.logs(), line.isEmpty() ? QStringList{} : (QStringList{line, "3 ** PLAY 0.000"}));
    QCOMPARE(rig.vtr->state().speed(), line.isEmpty() ? speed : 0.0);
    QCOMPARE(rig.mode(), VtrState::Play);
}

SIM_TEST_MAIN(TestEngineDroppedFrames)
#include "tst_engine_droppedframes.moc"
