#include "controllerrig.h"

#include <QFile>
#include <QTimer>

#include <cmath>
#include <limits>

/// The transport command, and the state that is published.
class TestMainObjectTransport : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup() { _rig.reset(); }
    void playPlaysAtNormalSpeed();
    void numbersWithoutACommandDoNothing_data();
    void numbersWithoutACommandDoNothing();
    void aFirstStopPausesAndASecondOneLeaves();
    void fastForwardClimbsItsLadder();
    void rewindClimbsItsLadder();
    void aLadderStartsAnewFromTheOtherDirection();
    void stepsGoOneFrame();
    void recordRecordsAndStopEndsIt();
    void underCameraInputRecordIsIgnored();
    void underCameraInputStopIsIgnoredWhileRecording();
    void underCameraInputStopWorksInPlay();
    void theQuitValueEndsTheEventLoopAndShutsDown();
    void publishedStates_data();
    void publishedStates();
    void speedsThatAreNoNumberAreLoggedAndNotPublished();
    void modesThatAreNoneAreLoggedAndNotPublished();
    void shutdownIsNotPublished();
    void onlyModeAndPlaySpeedArePublished();
    void timecodesFreezeOutsidePlayAndRecord();
    void timecodesRunInRecordAndFreezeInStandby();
    void aPlayListPositionIsPublished();
    void aFrameWithoutAPlayListPositionPublishesNone();
    void inputFormats();
    void anInputThatInhibitsRecordIsPublishedAsTwo();
    void otherInputsAreIgnored();
    void aFormatChangeDuringRecordRaisesItsAlarmEveryTime();
    void variableFrameRateAlarm();
    void stopRecordNowActsOnlyInRecord();

private:
    double speed() const { return _rig->vtr->state().speed(); }
    VtrState::Mode mode() const { return _rig->vtr->state().mode(); }
    void play();
    void record();

    std::optional<ControllerRig> _rig;
};

namespace
{

VtrState stateOf(VtrState::Mode mode, double speed = 0.0)
{
    VtrState state;
    state.setMode(mode);
    state.setSpeed(speed);
    return state;
}

} // namespace

void TestMainObjectTransport::init()
{
    _rig.emplace();
    _rig->settle();
    _rig->connectInput();
    _rig->setClips({{QStringLiteral("A.mov"), 5000}});
    _rig->change(eParamMediaUpdated, 1);
    _rig->settle();
    QCOMPARE(mode(), VtrState::StandbyOff);
    QCOMPARE(_rig->currentClip(), QStringLiteral("A.mov"));
    _rig->clear();
}

void TestMainObjectTransport::play()
{
    _rig->command(1);
    _rig->settle();
    QCOMPARE(mode(), VtrState::Play);
    _rig->clear();
}

void TestMainObjectTransport::record()
{
    _rig->command(3);
    _rig->settle();
    QCOMPARE(mode(), VtrState::Record);
}

void TestMainObjectTransport::playPlaysAtNormalSpeed()
{
    _rig->command(1);
    _rig->settle();
    QCOMPARE(mode(), VtrState::Play);
    QCOMPARE(speed(), 1.0);
    QCOMPARE(_rig->store.number(eParamTransportState), 3u);
    QVERIFY(_rig->transcript.contains(QStringLiteral("media: open read ") +
                                      _rig->pathOf(QStringLiteral("A.mov"))));
}

void TestMainObjectTransport::numbersWithoutACommandDoNothing_data()
{
    QTest::addColumn<QVariant>("value");
    for (const int i : {0, 2, 11, 12, 13, 14, 16, 99, -1})
        QTest::addRow("%d", i) << QVariant(i);
    QTest::addRow("huge") << QVariant(4294967295u);
    QTest::addRow("text") << QVariant(QStringLiteral("play"));
}

void TestMainObjectTransport::numbersWithoutACommandDoNothing()
{
    QFETCH(QVariant, value);
    _rig->change(eParamTransportCommand, value);
    QCOMPARE(_rig->log->records().size(), 1);
    QVERIFY(
        _rig->log->lines().at(0).startsWith(QStringLiteral("3 mainobject.cpp Param Changed: ")));
    QCOMPARE(mode(), VtrState::StandbyOff);
    QVERIFY(_rig->store.sets().empty());
}

void TestMainObjectTransport::aFirstStopPausesAndASecondOneLeaves()
{
    play();
    _rig->command(4);
    _rig->settle();
    QCOMPARE(mode(), VtrState::Play);
    QCOMPARE(speed(), 0.0);
    QCOMPARE(_rig->store.number(eParamTransportState), 15u);
    _rig->command(4);
    _rig->settle();
    QCOMPARE(mode(), VtrState::StandbyOff);
    QCOMPARE(_rig->store.number(eParamTransportState), 1u);
}

void TestMainObjectTransport::fastForwardClimbsItsLadder()
{
    QList<double> speeds;
    for (int i = 0; i < 5; ++i) {
        _rig->command(5);
        _rig->settle(100);
        speeds << speed();
    }
    QCOMPARE(speeds, QList<double>({2, 4, 8, 16, 16}));
    QCOMPARE(mode(), VtrState::Play);
}

void TestMainObjectTransport::rewindClimbsItsLadder()
{
    play();
    _rig->settle(20000);
    QList<double> speeds;
    for (int i = 0; i < 5; ++i) {
        _rig->command(6);
        _rig->settle(100);
        speeds << speed();
    }
    QCOMPARE(speeds, QList<double>({-2, -4, -8, -16, -16}));
}

void TestMainObjectTransport::aLadderStartsAnewFromTheOtherDirection()
{
    play();
    _rig->command(5);
    QCOMPARE(speed(), 2.0); // from 1.0
    _rig->command(5);
    _rig->command(5);
    QCOMPARE(speed(), 8.0);
    _rig->command(6);
    QCOMPARE(speed(), -2.0);
    _rig->command(6);
    _rig->command(6);
    QCOMPARE(speed(), -8.0);
    _rig->command(5);
    QCOMPARE(speed(), 2.0);
    _rig->vtr->play(3.0);
    _rig->command(5);
    QCOMPARE(speed(), 2.0); // only the ladder's own speeds count
}

void TestMainObjectTransport::stepsGoOneFrame()
{
    play();
    _rig->command(7);
    QVERIFY(_rig->log->lines().filter(QStringLiteral("3 vtrobject.cpp Step 1 from ")).size() == 1);
    _rig->settle();
    _rig->clear();
    _rig->command(8);
    QVERIFY(_rig->log->lines().filter(QStringLiteral("3 vtrobject.cpp Step -1 from ")).size() == 1);
    QCOMPARE(speed(), 0.0);
}

void TestMainObjectTransport::recordRecordsAndStopEndsIt()
{
    record();
    QCOMPARE(_rig->store.number(eParamTransportState), 2u);
    const QString clip = _rig->currentClip();
    QCOMPARE(clip, QStringLiteral("R001C0001.mov"));
    QVERIFY(_rig->writeClip(clip, 12));
    _rig->clear();
    _rig->command(4);
    _rig->settle();
    QCOMPARE(mode(), VtrState::StandbyOff);
    // The new clip stands behind the one of 5000 frames.
    QVERIFY(_rig->logged(3, QStringLiteral("New clip R001C0001.mov fnum 5000, playlistIndex 1")));
    QVERIFY(_rig->logged(3, QStringLiteral("added last recorded clip to playlist. 2 entries, "
                                           "returning fnum 5000")));
    QCOMPARE(_rig->store.number(eParamCurrentPlayListIndex), 1u);
    QCOMPARE(_rig->main->findInitialFrame(), 5000);
    QCOMPARE(_rig->main->findInitialFrame(), 0);
}

void TestMainObjectTransport::underCameraInputRecordIsIgnored()
{
    _rig->change(eParamCameraInput, 2);
    _rig->clear();
    _rig->command(3);
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral("2 Ignoring record command due to camera data input")});
    QCOMPARE(mode(), VtrState::StandbyOff);
}

void TestMainObjectTransport::underCameraInputStopIsIgnoredWhileRecording()
{
    record();
    _rig->change(eParamCameraInput, 2);
    _rig->clear();
    _rig->command(4);
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral(
                 "2 Ignoring stop command while in record due to camera data input")});
    QCOMPARE(mode(), VtrState::Record);
    QCOMPARE(_rig->main->findInitialFrame(), 0);
}

void TestMainObjectTransport::underCameraInputStopWorksInPlay()
{
    play();
    _rig->change(eParamCameraInput, 2);
    _rig->command(4);
    QCOMPARE(speed(), 0.0);
    _rig->settle();
    _rig->command(4);
    _rig->settle();
    QCOMPARE(mode(), VtrState::StandbyOff);
}

void TestMainObjectTransport::theQuitValueEndsTheEventLoopAndShutsDown()
{
    QTimer::singleShot(1000, Qt::PreciseTimer, &*_rig->app, [this] { _rig->command(15); });
    QCOMPARE(QCoreApplication::exec(), 0);
    QVERIFY(_rig->logged(3, QStringLiteral("Got shutdown from config, asking for program exit.")));
    QVERIFY(_rig->logged(3, QStringLiteral("Shutting down...")));
    QCOMPARE(_rig->store.number(eParamTransportRunning), 0u);
    QCOMPARE(_rig->store.number(eParamTransportState), 20u);
}

void TestMainObjectTransport::publishedStates_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<double>("speed");
    QTest::addColumn<quint32>("number");
    const double inf = std::numeric_limits<double>::infinity();
    // clang-format off
    QTest::newRow("startup")     << int(VtrState::Startup)    << 0.0 << 1u;
    QTest::newRow("standby off") << int(VtrState::StandbyOff) << 0.0 << 1u;
    QTest::newRow("standby")     << int(VtrState::Standby)    << 0.0 << 15u;
    QTest::newRow("record")      << int(VtrState::Record)     << 1.0 << 2u;
    const QList<QPair<double, quint32>> speeds = {
        {inf, 7},    {20, 7},     {16, 7},     {15.99, 6},  {8, 6},   {7.99, 5},  {4, 5},
        {3.99, 4},   {1.5, 4},    {1.0001, 4}, {1, 3},      {0.5, 3}, {1e-9, 3},  {0, 15},
        {-0.0, 15},  {-inf, 13},  {-20, 13},   {-16, 13},   {-15.99, 12}, {-8, 12}, {-7.99, 11},
        {-4, 11},    {-3.99, 10}, {-1.5, 10},  {-1.0001, 10}, {-1, 9}, {-0.5, 9}, {-1e-9, 9}};
    // clang-format on
    for (const auto &[speed, number] : speeds)
        QTest::addRow("play at %g", speed) << int(VtrState::Play) << speed << number;
}

void TestMainObjectTransport::publishedStates()
{
    QFETCH(int, mode);
    QFETCH(double, speed);
    QFETCH(quint32, number);
    _rig->main->updateTransporterState(stateOf(VtrState::Mode(mode), speed));
    QCOMPARE(_rig->written(eParamTransportState), QList<quint32>{number});
}

void TestMainObjectTransport::speedsThatAreNoNumberAreLoggedAndNotPublished()
{
    _rig->main->updateTransporterState(stateOf(VtrState::Play, std::nan("")));
    QVERIFY(_rig->store.sets().empty());
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("2 Unhandled speed: nan")});
}

void TestMainObjectTransport::modesThatAreNoneAreLoggedAndNotPublished()
{
    _rig->main->updateTransporterState(stateOf(VtrState::Mode(9)));
    QVERIFY(_rig->store.sets().empty());
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("2 Unhandled mode: 9")});
}

void TestMainObjectTransport::shutdownIsNotPublished()
{
    _rig->main->updateTransporterState(stateOf(VtrState::Shutdown));
    QVERIFY(_rig->store.sets().empty());
    QVERIFY(_rig->log->records().isEmpty());
}

void TestMainObjectTransport::onlyModeAndPlaySpeedArePublished()
{
    const auto publishes = [this](const VtrState &from, const VtrState &to) {
        _rig->store.clearSets();
        _rig->main->vtrStateChanged(from, to);
        return _rig->written(eParamTransportState);
    };
    QCOMPARE(publishes(stateOf(VtrState::Play, 2), stateOf(VtrState::Play, 3)), QList<quint32>{4});
    QCOMPARE(publishes(stateOf(VtrState::Play, 1), stateOf(VtrState::Play, 1.5)),
             QList<quint32>{4});
    QCOMPARE(publishes(stateOf(VtrState::Play, 1), stateOf(VtrState::Play, 1)), QList<quint32>());
    QCOMPARE(publishes(stateOf(VtrState::Play, 1), stateOf(VtrState::Record, 1)),
             QList<quint32>{2});
    QCOMPARE(publishes(stateOf(VtrState::Record, 1), stateOf(VtrState::Record, 0)),
             QList<quint32>());
    VtrState looping = stateOf(VtrState::Play, 1);
    looping.setLooping(true);
    QCOMPARE(publishes(stateOf(VtrState::Play, 1), looping), QList<quint32>());
    // A mode change publishes what the engine is in now, whatever it is told.
    _rig->store.clearSets();
    _rig->main->vtrModeChanged(VtrState::Play, VtrState::Record);
    QCOMPARE(_rig->written(eParamTransportState), QList<quint32>{1});
}

void TestMainObjectTransport::timecodesFreezeOutsidePlayAndRecord()
{
    const auto shm = [](const char *name) {
        QFile file(QStringLiteral("/dev/shm/") + QLatin1String(name));
        return file.open(QIODevice::ReadOnly) ? QByteArray(file.readAll().constData())
                                              : QByteArray();
    };
    _rig->main->vbi(OrbVbiInfo(OrbTimecode(1, 2, 3, 4, 25, 0), OrbTimecode()));
    QCOMPARE(shm("rvd_currentTimecode"), OrbTimecode().toString().toLocal8Bit());
    play();
    const OrbTimecode shown(1, 2, 3, 4, 25, 0);
    _rig->main->vbi(OrbVbiInfo(shown, OrbTimecode()));
    QCOMPARE(shm("rvd_currentTimecode"), shown.toString().toLocal8Bit());
    _rig->video->inputTimecode = OrbTimecode(5, 6, 7, 8, 25, 0);
    _rig->vtr->standbyOff();
    _rig->settle();
    const QByteArray frozen = shm("rvd_currentTimecode");
    _rig->main->vbi(OrbVbiInfo(OrbTimecode(9, 0, 0, 0, 25, 0), OrbTimecode()));
    QCOMPARE(shm("rvd_currentTimecode"), frozen);
    QCOMPARE(shm("rvd_inputTimecode"), QByteArray("05:06:07:08"));
}

void TestMainObjectTransport::timecodesRunInRecordAndFreezeInStandby()
{
    const auto shown = [] {
        QFile file(QStringLiteral("/dev/shm/rvd_currentTimecode"));
        return file.open(QIODevice::ReadOnly) ? QByteArray(file.readAll().constData())
                                              : QByteArray();
    };
    record();
    _rig->main->vbi(OrbVbiInfo(OrbTimecode(1, 2, 3, 4, 25, 0), OrbTimecode()));
    QCOMPARE(shown(), QByteArray("01:02:03:04"));
    _rig->vtr->stop();
    _rig->settle();
    QCOMPARE(mode(), VtrState::Standby);
    const QByteArray frozen = shown();
    _rig->main->vbi(OrbVbiInfo(OrbTimecode(9, 0, 0, 0, 25, 0), OrbTimecode()));
    QCOMPARE(shown(), frozen);
}

void TestMainObjectTransport::aFrameWithoutAPlayListPositionPublishesNone()
{
    play();
    _rig->settle();
    for (const MemoryStore::Set &set : _rig->store.sets()) {
        QVERIFY(set.id != eParamCurrentClip);
        QVERIFY(set.id != eParamCurrentPlayListIndex);
    }
}

/// The frame on output says where in the play list it comes from.
void TestMainObjectTransport::aPlayListPositionIsPublished()
{
    play();
    OrbPlayList list = createPlayList(_rig->path(), {});
    OrbPlayListEntry entry;
    entry.setName(QStringLiteral("B.mov"));
    entry.setDesc(QStringLiteral("/m/B.mov"));
    entry.setLength(10);
    list << entry << entry;
    _rig->media->extraMetadata = {
        OrbMetadata(OrbId(OrbIdPlayListIndex), QVariant::fromValue(OrbPlayListIndex(list, 1, 3)))};
    _rig->settle(5000); // past the frames that were read before
    QCOMPARE(_rig->currentClip(), QStringLiteral("B.mov"));
    QCOMPARE(_rig->store.number(eParamCurrentPlayListIndex), 1u);
    QCOMPARE(_rig->video->property(OrbIdPropClipName).toString(), QStringLiteral("B.mov"));
}

void TestMainObjectTransport::inputFormats()
{
    const OrbImageDesc capture = ControllerRig::imageDesc(1280, 720, 50);
    OrbVideoState state = ControllerRig::inputState(capture);
    state.setInputImageDesc(ControllerRig::imageDesc(1920, 1080, 25));
    _rig->main->vtrInputFormatChanged(0, state);
    QCOMPARE(_rig->written(eParamRecordFormat), QList<quint32>{19});
    QCOMPARE(_rig->written(eParamInputFormat), QList<quint32>{20});
    QCOMPARE(_rig->writtenIds(), QList<quint32>({eParamRecordFormat, eParamInputFormat}));
    _rig->store.clearSets();
    _rig->main->vtrInputFormatChanged(0, OrbVideoState());
    QCOMPARE(_rig->written(eParamRecordFormat), QList<quint32>{0});
    QCOMPARE(_rig->written(eParamInputFormat), QList<quint32>{0});
}

void TestMainObjectTransport::anInputThatInhibitsRecordIsPublishedAsTwo()
{
    OrbVideoState state = ControllerRig::inputState();
    state.setRecInhibit(OrbId(2001));
    _rig->main->vtrInputFormatChanged(0, state);
    QCOMPARE(_rig->written(eParamRecordFormat), QList<quint32>{2});
    QCOMPARE(_rig->written(eParamInputFormat), QList<quint32>{20});
    _rig->store.clearSets();
    state.setValid(false);
    _rig->main->vtrInputFormatChanged(0, state);
    QCOMPARE(_rig->written(eParamRecordFormat), QList<quint32>{2});
    QCOMPARE(_rig->written(eParamInputFormat), QList<quint32>{0});
}

void TestMainObjectTransport::otherInputsAreIgnored()
{
    _rig->main->vtrInputFormatChanged(1, ControllerRig::inputState());
    QVERIFY(_rig->store.sets().empty());
}

void TestMainObjectTransport::aFormatChangeDuringRecordRaisesItsAlarmEveryTime()
{
    QSignalSpy spy(_rig->main.get(), &MainObject::alarmTriggered);
    _rig->main->vtrInputFormatChanged(0, ControllerRig::inputState());
    QCOMPARE(spy.count(), 0);
    record();
    _rig->store.clearSets();
    QList<quint32> writtenAtFirst;
    const auto alarmed = connect(_rig->main.get(), &MainObject::alarmTriggered, this,
                                 [&] { writtenAtFirst = _rig->writtenIds(); });
    _rig->main->vtrInputFormatChanged(0, ControllerRig::inputState());
    disconnect(alarmed);
    QCOMPARE(writtenAtFirst, QList<quint32>{eParamAlarm1907}); // before the formats
    _rig->main->vtrInputFormatChanged(0, ControllerRig::inputState());
    _rig->main->vtrInputFormatChanged(0, OrbVideoState());
    QList<OrbAlarm> alarms;
    for (const QVariantList &call : spy) {
        if (call.at(0).value<OrbAlarm>().id() == OrbId(1907))
            alarms << call.at(0).value<OrbAlarm>();
    }
    QCOMPARE(alarms.size(), 2);
    QCOMPARE(int(alarms.at(0).level()), 2);
    QCOMPARE(alarms.at(0).text(),
             QStringLiteral("Input format changed during record, recording stopped"));
    QCOMPARE(alarms.at(0).file(), QStringLiteral("mainobject.cpp"));
}

void TestMainObjectTransport::variableFrameRateAlarm()
{
    QSignalSpy spy(_rig->main.get(), &MainObject::alarmTriggered);
    _rig->video->reportVfr(true);
    _rig->video->reportVfr(false);
    QCOMPARE(spy.count(), 2);
    for (int i = 0; i < 2; ++i) {
        const auto alarm = spy.at(i).at(0).value<OrbAlarm>();
        QCOMPARE(int(alarm.id().value()), 1914);
        QCOMPARE(int(alarm.level()), i == 0 ? 2 : 0);
        QCOMPARE(alarm.text(), QString());
    }
}

void TestMainObjectTransport::stopRecordNowActsOnlyInRecord()
{
    _rig->main->stopRecordNow();
    QVERIFY(_rig->log->records().isEmpty());
    record();
    _rig->clear();
    _rig->main->stopRecordNow();
    QCOMPARE(_rig->controllerLines().at(0), QStringLiteral("3 Stopping record."));
    _rig->settle();
    QCOMPARE(mode(), VtrState::StandbyOff);
}

QTEST_APPLESS_MAIN(TestMainObjectTransport)
#include "tst_mainobject_transport.moc"
