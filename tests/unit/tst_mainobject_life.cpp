#include "controllerrig.h"
#include "aux/keyboardtransport.h"
#include "liborb/orbstream.h"
#include "stdoutcapture.h"

#include <QMetaMethod>
#include <QTimer>

#include <type_traits>

/// Birth, command line, console and shutdown of the controller.
class TestMainObjectLife : public QObject
{
    Q_OBJECT
private slots:
    void signalsAndSlotsStandInTheirOrder();
    void signalsAndSlotsNameTheirParameters();
    void thirtySixParametersAreReplayedInTheirOrderOneTwiceDeliberately();
    void theTransportIsPublishedAsRunningFirst();
    void theEngineStartsAfterTheSettings();
    void withoutAStoreItStartsAllTheSame();
    void theCommandLineIsLogged();
    void helpIsPrintedAndTheStartGoesOn_data();
    void helpIsPrintedAndTheStartGoesOn();
    void lettersOfTheShellAreAccepted();
    void aClipSetsPathAndClip_data();
    void aClipSetsPathAndClip();
    void loopedPlaybackIsSwitchedOn();
    void statisticsAreLoggedEverySecond();
    void theBenchmarkIsSwitchedOn();
    void extraParametersAreLoggedOnRequest();
    void parseErrorsAreLogged_data();
    void parseErrorsAreLogged();
    void withoutAConsoleItsSlotsDoNothing();
    void theConsolesKeysReachTheEngine();
    void theConsoleShowsTheTransport();
    void theCamerasFlagTurnsOverEvenUnstampedDeliberately();
    void theConsoleQuits();
    void shutdownPublishesRunningBeforeState();
    void shutdownWaitsForAModeChange();
    void shutdownWaitsForTheStream();
    void shutdownHoldsAgainstACommandThatComesBetween();
    void afterShutdownNothingIsDispatched();
    void destroyedWithoutAShutdownItGoesQuietly_data();
    void destroyedWithoutAShutdownItGoesQuietly();
};

namespace
{

ControllerRig::Start with(const QStringList &arguments, bool console = false)
{
    ControllerRig::Start start;
    start.arguments = QStringList{QStringLiteral("rvd")} + arguments;
    start.console = console;
    return start;
}

const QByteArray usage = "Usage: rvd [flags]\n"
                         "Flags:\n"
                         "-d                  Don't daemonize\n"
                         "-D                  Debug (will not daemonize)\n"
                         "-h                  Print this help screen\n"
                         "-c <path to clip>   Set initial clip file\n"
                         "-l                  Enable looped playback\n"
                         "-s                  Log system stats every second\n"
                         "-b                  Benchmark the stream (disk) I/O\n"
                         "-p                  Log extra config parameters\n";

struct Receivers : QObject {
    using QObject::receivers;
};

// What the other parts and a test may call, said to the compiler.
template <typename T> T &a();
#define ANSWERS(Answer, Expression) static_assert(std::is_same_v<Answer, decltype(Expression)>)
static_assert(std::is_constructible_v<MainObject, bool, QObject *> &&
              std::is_base_of_v<QObject, MainObject>);
ANSWERS(void, a<MainObject>().loadInitialState());
ANSWERS(void, a<MainObject>().parseCommandLine());
ANSWERS(void, a<MainObject>().updateTransporterState(a<const VtrState>()));
ANSWERS(QString, a<MainObject>().currentClip());
ANSWERS(void, a<MainObject>().setCurrentClip(a<const QString>()));
ANSWERS(void, a<MainObject>().updateAllClips());
ANSWERS(void, a<MainObject>().updatePlayList());
ANSWERS(void, a<MainObject>().setInitialClip());
ANSWERS(OrbPlayList, a<MainObject>().playListInUse());
ANSWERS(int, a<MainObject>().findCurrentClipIndex());
ANSWERS(void, a<MainObject>().gotoClipByName(a<const QString>()));
ANSWERS(void, a<MainObject>().gotoClipByIndex(1));
ANSWERS(void, a<MainObject>().gotoClipByRelativeIndex(1));
ANSWERS(int, a<MainObject>().findClipFirstFrame(a<const std::list<Clip>>(), a<const QString>()));
ANSWERS(int, a<MainObject>().addClip(a<std::list<Clip>>(), a<OrbPlayList>(), a<const QString>()));
ANSWERS(int, a<MainObject>().addLastRecordedClip(a<const QString>()));
ANSWERS(int, a<MainObject>().findInitialFrame());
ANSWERS(void, a<MainObject>().generateNormalRecordStreamDesc(a<QVariant>()));
ANSWERS(void, a<MainObject>().generateRolloverRecordStreamDesc(a<QVariant>()));
ANSWERS(void, a<MainObject>().validateAudioChannels());
ANSWERS(void, a<MainObject>().loadLuts());
ANSWERS(OrbPlayList, createPlayList(a<const QString>(), a<const std::list<Clip>>()));
ANSWERS(int, imageDescToInputFormat(a<const OrbImageDesc>()));
ANSWERS(int, imageDescToMediaFormat(a<const OrbImageDesc>()));
ANSWERS(int, imageDescToRecordFormat(a<const OrbImageDesc>()));
ANSWERS(OrbImageDesc, sigGenFormatToImgDesc(1));
ANSWERS(OrbId, encodeTypeToID(1));
ANSWERS(OrbId, videoInputToID(1));
ANSWERS(OrbId, videoOutputToID(1));
ANSWERS(OrbId, audioInputToID(1));
ANSWERS(OrbId, syncSourceToID(1));
ANSWERS(int, imageDataTypeToDecodeType(a<const OrbId>()));

} // namespace

void TestMainObjectLife::signalsAndSlotsStandInTheirOrder()
{
    const QMetaObject &meta = MainObject::staticMetaObject;
    QStringList names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        names << QString::fromLatin1(meta.method(i).methodSignature());
    const char *expected[] = {
        "alarmTriggered(OrbAlarm)",
        "shutdown()",
        "vbi(OrbVbiInfo)",
        "transportRefreshed()",
        "toggleMeta()",
        "cameraRecord()",
        "configParamChanged(uint,QVariant,OrbTimeStamp)",
        "vtrStateChanged(VtrState,VtrState)",
        "vtrModeChanged(VtrState::Mode,VtrState::Mode)",
        "vtrInputFormatChanged(int,OrbVideoState)",
        "vtrStreamIsOpen(OrbError,OrbStreamInfo)",
        "vtrStreamIsClosed()",
        "vtrRaiseVFRAlarm(bool)",
        "generateRecordStreamDesc(QVariant&)",
        "generatePlaybackStreamDesc(QVariant&,int&)",
        "firmwareLoading(QString,bool)",
        "shouldInhibitRecord(OrbId&)",
        "vtrVideoDeviceSetupChanged(OrbVideoDeviceSetup)",
        "startRollover()",
        "checkForRolloverComplete()",
        "finishRollover(bool,QString,QString)",
        "stopRecordNow()",
        "recordFailedToStart(OrbId&)",
    };
    QStringList wanted;
    for (const char *name : expected)
        wanted << QString::fromLatin1(name);
    QCOMPARE(names, wanted);
}

/// Those that a slot makes nothing of have no name.
void TestMainObjectLife::signalsAndSlotsNameTheirParameters()
{
    const QStringList expected = {
        "alarmTriggered: alarm",
        "shutdown: ",
        "vbi: ",
        "transportRefreshed: ",
        "toggleMeta: ",
        "cameraRecord: ",
        "configParamChanged: id value ts",
        "vtrStateChanged: oldState newState",
        "vtrModeChanged: oldMode newMode",
        "vtrInputFormatChanged: inputNumber state",
        "vtrStreamIsOpen: err info",
        "vtrStreamIsClosed: ",
        "vtrRaiseVFRAlarm: state",
        "generateRecordStreamDesc: streamDesc",
        "generatePlaybackStreamDesc: streamDesc fnum",
        "firmwareLoading: id done",
        "shouldInhibitRecord: reason",
        "vtrVideoDeviceSetupChanged: val",
        "startRollover: ",
        "checkForRolloverComplete: ",
        "finishRollover: success activePath rolloverPath",
        "stopRecordNow: ",
        "recordFailedToStart: ",
    };
    const QMetaObject &meta = MainObject::staticMetaObject;
    QStringList found;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        found << QString::fromLatin1(method.name() + ": " + method.parameterNames().join(' '));
    }
    QCOMPARE(found, expected);
}

void TestMainObjectLife::thirtySixParametersAreReplayedInTheirOrderOneTwiceDeliberately()
{
    // 0xf01000a stands twice, deliberately.
    const QStringList expected = QStringLiteral("7b03050a 7b01010a 7b010a0a c020000 f02000a "
                                                "e01000a 201000a 202000a 2030000 601000a 802000a "
                                                "2901000a 2902000a 2903000a d01000a d03000a "
                                                "d04000a f01000a 104000a 105000a 101000a 103000a "
                                                "106000a 108000a 109000a 900000a 901000a 902000a "
                                                "4010000 800020a f04000a 1100000a 803000a "
                                                "d02000a 2000000a f01000a")
                                     .split(QLatin1Char(' '));
    QCOMPARE(expected.size(), 36);
    ControllerRig rig;
    QStringList replayed;
    const QString start = QStringLiteral("3 mainobject.cpp Param Changed: [");
    QStringList own;
    for (const MemoryStore::Set &set : rig.store.sets())
        own << QString::number(quint32(set.id), 16);
    const QStringList lines = rig.log->lines();
    for (const QString &line : lines) {
        const QString id = line.mid(start.size()).section(QLatin1Char(']'), 0, 0);
        if (line.startsWith(start) && !own.contains(id))
            replayed << id;
    }
    QCOMPARE(replayed, expected);
    QVERIFY(!rig.log->lines().join(' ').contains(QStringLiteral("FAILED")));
    QVERIFY(!rig.log->lines().join(' ').contains(QStringLiteral("not found")));
}

void TestMainObjectLife::theTransportIsPublishedAsRunningFirst()
{
    ControllerRig rig;
    const auto sets = rig.store.sets();
    QVERIFY(sets.size() >= 2);
    QCOMPARE(sets.at(0).id, eParamTransportState);
    QCOMPARE(sets.at(1).id, eParamTransportRunning);
    QCOMPARE(rig.store.number(eParamTransportState), 1u);
    QCOMPARE(rig.store.number(eParamTransportRunning), 1u);
}

void TestMainObjectLife::theEngineStartsAfterTheSettings()
{
    ControllerRig rig;
    const QStringList lines = rig.log->lines();
    const auto last =
        lines.lastIndexOf(QStringLiteral("3 mainobject.cpp Parse Command Line 'rvd'"));
    const auto start = lines.indexOf(QStringLiteral("3 vtrobject.cpp VtrObject is starting..."));
    QVERIFY(last >= 0);
    QVERIFY(start > last);
    QVERIFY(lines.filter(QStringLiteral("Param Changed: [f01000a]")).size() == 2);
    QVERIFY(lines.indexOf(lines.filter(QStringLiteral("Param Changed: [f01000a]")).last()) < last);
    rig.settle();
    QCOMPARE(rig.vtr->state().mode(), VtrState::StandbyOff);
}

void TestMainObjectLife::withoutAStoreItStartsAllTheSame()
{
    ControllerRig::Start start;
    start.prepare = [](ControllerRig &) {
        ConfigFactoryImpl::GetInstance()->setCreator([](const std::string &) { return nullptr; });
    };
    ControllerRig rig(start);
    rig.settle();
    rig.command(1);
    rig.settle();
    QCOMPARE(rig.vtr->state().mode(), VtrState::StandbyOff);
    QVERIFY(rig.log->lines().join(' ').contains(QStringLiteral("Failed to create config: ")));
}

void TestMainObjectLife::theCommandLineIsLogged()
{
    ControllerRig rig(with({QStringLiteral("-d"), QStringLiteral("-l"), QStringLiteral("a %1 b")}));
    QVERIFY(rig.logged(3, QStringLiteral("Parse Command Line 'rvd -d -l a %1 b'")));
}

void TestMainObjectLife::helpIsPrintedAndTheStartGoesOn_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("times");
    const QString l = QStringLiteral("-l");
    QTest::newRow("-h") << QStringList{QStringLiteral("-h"), l} << 1;
    QTest::newRow("unknown letter") << QStringList{QStringLiteral("-x"), l} << 1;
    QTest::newRow("two of them") << QStringList{QStringLiteral("-xh"), l} << 2;
    QTest::newRow("no argument") << QStringList{l, QStringLiteral("-c")} << 1;
    QTest::newRow("long word") << QStringList{QStringLiteral("--help"), l} << 1;
}

void TestMainObjectLife::helpIsPrintedAndTheStartGoesOn()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, times);
    StdoutCapture capture;
    ControllerRig rig(with(arguments));
    rig.settle();
    QCOMPARE(capture.finish(), usage.repeated(times));
    QCOMPARE(rig.vtr->state().mode(), VtrState::StandbyOff);
    QVERIFY(rig.vtr->state().isLooping()); // parsing went on
}

void TestMainObjectLife::lettersOfTheShellAreAccepted()
{
    StdoutCapture capture;
    ControllerRig rig(with({QStringLiteral("-dDl")}));
    QCOMPARE(capture.finish(), QByteArray());
    QVERIFY(rig.vtr->state().isLooping());
    QVERIFY(!rig.log->lines().join(' ').contains(QStringLiteral("Command line parse failure")));
}

void TestMainObjectLife::aClipSetsPathAndClip_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("clip");
    QTest::newRow("in a folder") << QStringLiteral("/media/clips/A001.mov")
                                 << QStringLiteral("/media/clips") << QStringLiteral("A001.mov");
    QTest::newRow("in the root") << QStringLiteral("/A001.mov") << QString()
                                 << QStringLiteral("A001.mov");
    QTest::newRow("a folder") << QStringLiteral("/media/clips/") << QStringLiteral("/media/clips")
                              << QString();
}

void TestMainObjectLife::aClipSetsPathAndClip()
{
    QFETCH(QString, argument);
    ControllerRig rig(with({QStringLiteral("-c"), argument}));
    QTEST(rig.manager->activePath(), "path");
    QTEST(rig.currentClip(), "clip");
    QTEST(rig.video->property(OrbIdPropClipName).toString(), "clip");
}

void TestMainObjectLife::loopedPlaybackIsSwitchedOn()
{
    QVERIFY(!ControllerRig().vtr->state().isLooping());
    QVERIFY(ControllerRig(with({QStringLiteral("-l")})).vtr->state().isLooping());
}

void TestMainObjectLife::statisticsAreLoggedEverySecond()
{
    ControllerRig rig(with({QStringLiteral("-s")}));
    rig.log->clear();
    rig.settle(5000);
    QCOMPARE(rig.log->lines().filter(QStringLiteral("3 vtrobject.cpp STM: ")).size(), 5);
    QVERIFY(!rig.log->lines().join(' ').contains(QStringLiteral("FAILED")));
}

void TestMainObjectLife::theBenchmarkIsSwitchedOn()
{
    const auto receivers = [](ControllerRig &rig) {
        const auto *stream = rig.vtr->findChild<OrbStream *>();
        return (stream->*&Receivers::receivers)(SIGNAL(benchmark(int, OrbTimeStamp)));
    };
    {
        ControllerRig without;
        QCOMPARE(receivers(without), 0);
    }
    ControllerRig rig(with({QStringLiteral("-b")}));
    QCOMPARE(receivers(rig), 1);
    QVERIFY(!rig.log->lines().join(' ').contains(QStringLiteral("FAILED")));
}

void TestMainObjectLife::extraParametersAreLoggedOnRequest()
{
    ControllerRig rig(with({QStringLiteral("-p")}));
    rig.log->clear();
    rig.change(0x7b03050a, 1u);
    const QStringList lines = rig.controllerLines();
    QCOMPARE(lines.size(), 1);
    QVERIFY(lines.at(0).startsWith(QStringLiteral("2 Changed: [7b03050a] ")));
    rig.log->clear();
    rig.change(eParamLoopPlayback, 1u);
    QVERIFY(rig.controllerLines().isEmpty());
}

void TestMainObjectLife::parseErrorsAreLogged_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("error");
    QTest::newRow("letter") << QStringLiteral("-x") << QStringLiteral("unknown option '-x'");
    QTest::newRow("argument") << QStringLiteral("-c")
                              << QStringLiteral("option '-c' needs an argument");
}

void TestMainObjectLife::parseErrorsAreLogged()
{
    QFETCH(QString, argument);
    QFETCH(QString, error);
    StdoutCapture capture;
    ControllerRig rig(with({argument}));
    QVERIFY(rig.logged(1, QStringLiteral("Command line parse failure: ") + error));
}

void TestMainObjectLife::withoutAConsoleItsSlotsDoNothing()
{
    ControllerRig rig;
    QVERIFY(!rig.main->findChild<KeyboardTransport *>());
    rig.log->clear();
    rig.main->transportRefreshed();
    rig.main->toggleMeta();
    rig.main->cameraRecord();
    QVERIFY(rig.log->records().isEmpty());
}

void TestMainObjectLife::theConsolesKeysReachTheEngine()
{
    StdoutCapture capture;
    ControllerRig rig(with({}, true));
    rig.setClips({{QStringLiteral("A.mov"), 5000}});
    rig.change(eParamMediaUpdated, 1);
    rig.settle();
    auto *keys = rig.main->findChild<KeyboardTransport *>();
    QVERIFY(keys);
    const auto speedAfter = [&](const char *key) {
        QMetaObject::invokeMethod(keys, key);
        const double speed = rig.vtr->state().speed();
        rig.settle(500);
        return speed;
    };
    QMetaObject::invokeMethod(keys, "play", Q_ARG(double, 1.5));
    rig.settle(500);
    QCOMPARE(rig.vtr->state().speed(), 1.5);
    QCOMPARE(speedAfter("fastfwd"), 20.0);
    QCOMPARE(speedAfter("rewind"), -20.0);
    QCOMPARE(speedAfter("still"), 0.0);
    rig.log->clear();
    QMetaObject::invokeMethod(keys, "step", Q_ARG(int, 1));
    QCOMPARE(rig.log->lines().filter(QStringLiteral("vtrobject.cpp Step 1 from")).size(), 1);
    rig.settle();
    QMetaObject::invokeMethod(keys, "stop");
    rig.settle();
    QCOMPARE(rig.vtr->state().mode(), VtrState::Standby);
    QMetaObject::invokeMethod(keys, "standbyOff");
    rig.settle();
    QCOMPARE(rig.vtr->state().mode(), VtrState::StandbyOff);
    rig.connectInput();
    QMetaObject::invokeMethod(keys, "record");
    rig.settle();
    QCOMPARE(rig.vtr->state().mode(), VtrState::Record);
}

void TestMainObjectLife::theConsoleShowsTheTransport()
{
    StdoutCapture capture;
    ControllerRig rig(with({}, true));
    rig.settle();
    const QByteArray printed = capture.finish();
    QVERIFY2(printed.contains("Standby Off"), printed.constData());
}

/// The flag turns over even while it is not stamped, deliberately.
void TestMainObjectLife::theCamerasFlagTurnsOverEvenUnstampedDeliberately()
{
    StdoutCapture capture;
    ControllerRig rig(with({}, true));
    rig.settle();
    rig.connectInput();
    rig.command(3);
    rig.settle();
    QCOMPARE(rig.vtr->state().mode(), VtrState::Record);
    const QString path = rig.pathOf(QStringLiteral("R001C0001.mov"));
    const auto stamped = [&] {
        rig.settle(1000);
        return rig.media->recordings().value(path).last().meta().valueFor(OrbId(705));
    };
    auto *keys = rig.main->findChild<KeyboardTransport *>();
    QMetaObject::invokeMethod(keys, "cameraRecord"); // true now, and not stamped
    QVERIFY(!stamped().isValid());
    rig.log->clear();
    QMetaObject::invokeMethod(keys, "toggleMeta");
    QVERIFY(rig.logged(3, QStringLiteral("_insertMeta = 1")));
    QVERIFY(!stamped().isValid());
    QMetaObject::invokeMethod(keys, "cameraRecord");
    QCOMPARE(stamped(), QVariant(false));
    QMetaObject::invokeMethod(keys, "cameraRecord");
    QCOMPARE(stamped(), QVariant(true));
    QMetaObject::invokeMethod(keys, "toggleMeta");
    QVERIFY(rig.logged(3, QStringLiteral("_insertMeta = 0")));
    QMetaObject::invokeMethod(keys, "cameraRecord");
    QCOMPARE(stamped(), QVariant(true)); // what was stamped stays
}

void TestMainObjectLife::theConsoleQuits()
{
    StdoutCapture capture;
    ControllerRig rig(with({}, true));
    auto *keys = rig.main->findChild<KeyboardTransport *>();
    QTimer::singleShot(1000, Qt::PreciseTimer, &*rig.app,
                       [keys] { QMetaObject::invokeMethod(keys, "quit"); });
    QCOMPARE(QCoreApplication::exec(), 0);
    QCOMPARE(rig.store.number(eParamTransportState), 20u);
}

void TestMainObjectLife::shutdownPublishesRunningBeforeState()
{
    ControllerRig rig;
    rig.settle();
    rig.clear();
    rig.main->shutdown();
    const auto sets = rig.store.sets();
    QVERIFY(sets.size() >= 2);
    QCOMPARE(sets.at(sets.size() - 2).id, eParamTransportRunning);
    QCOMPARE(sets.at(sets.size() - 1).id, eParamTransportState);
    QCOMPARE(rig.store.number(eParamTransportRunning), 0u);
    QCOMPARE(rig.store.number(eParamTransportState), 20u);
    QVERIFY(!rig.written(eParamTransportState)
                 .mid(0, rig.written(eParamTransportState).size() - 1)
                 .contains(20u));
    QCOMPARE(rig.controllerLines().first(), QStringLiteral("3 Shutting down..."));
    QVERIFY(!rig.main->findChild<VtrObject *>());
    QVERIFY(!rig.main->findChild<AlarmHandler *>());
    // A second request finds nothing left to do.
    rig.clear();
    rig.main->shutdown();
    QVERIFY(rig.store.sets().empty());
}

void TestMainObjectLife::shutdownWaitsForAModeChange()
{
    ControllerRig::Start start;
    start.prepare = [](ControllerRig &rig) {
        rig.video->setups = {{OrbError(), OrbError(), ScriptedVideo::held}};
    };
    ControllerRig rig(start);
    rig.settle();
    rig.command(1); // waits for the setup
    QVERIFY(rig.vtr->hasPendingModeChange());
    rig.clear();
    bool isLetGo = false;
    QTimer::singleShot(20000, Qt::PreciseTimer, rig.main.get(), [&] {
        isLetGo = true;
        rig.video->finishSetup();
    });
    rig.main->shutdown();
    QVERIFY(isLetGo);
    QCOMPARE(rig.store.number(eParamTransportState), 20u);
    // Asked once, refused once, and asked again when it could be granted.
    QCOMPARE(rig.log->lines().filter(QStringLiteral("vtrobject.cpp Mode change is pending")).size(),
             1);
    QCOMPARE(rig.log->lines().filter(QStringLiteral("VtrObject shutdown requested...")).size(), 2);
}

void TestMainObjectLife::shutdownWaitsForTheStream()
{
    ControllerRig rig;
    rig.settle();
    rig.connectInput();
    rig.command(3);
    rig.settle();
    QCOMPARE(rig.vtr->state().mode(), VtrState::Record);
    rig.media->closes = {{false, OrbError(), ScriptedMedia::held}};
    bool isLetGo = false;
    QTimer::singleShot(60000, Qt::PreciseTimer, rig.main.get(), [&] {
        isLetGo = true;
        rig.media->finishClose();
    });
    rig.main->shutdown();
    QVERIFY(isLetGo);
    QCOMPARE(rig.store.number(eParamTransportRunning), 0u);
}

void TestMainObjectLife::shutdownHoldsAgainstACommandThatComesBetween()
{
    ControllerRig rig;
    rig.settle();
    rig.setClips({{QStringLiteral("A.mov"), 5000}});
    rig.change(eParamMediaUpdated, 1);
    rig.video->setups = {{OrbError(), OrbError(), ScriptedVideo::held}};
    QTimer::singleShot(1000, Qt::PreciseTimer, rig.main.get(), [&] {
        rig.command(1);
        rig.video->finishSetup();
        rig.command(1);
    });
    rig.main->shutdown();
    QCOMPARE(rig.store.number(eParamTransportState), 20u);
}

void TestMainObjectLife::afterShutdownNothingIsDispatched()
{
    ControllerRig rig;
    rig.setClips({{QStringLiteral("A.mov"), 5000}});
    rig.settle();
    rig.main->shutdown();
    rig.clear();
    rig.command(1);
    rig.change(eParamLutMode, 1);
    rig.main->loadLuts();
    rig.main->stopRecordNow();
    rig.main->startRollover();
    rig.main->finishRollover(true, QString(), QString());
    rig.main->transportRefreshed();
    rig.main->toggleMeta();
    rig.main->cameraRecord();
    rig.settle(10000);
    QVERIFY(rig.log->records().isEmpty());
    QCOMPARE(rig.written(eParamTransportState), QList<quint32>());
}

void TestMainObjectLife::destroyedWithoutAShutdownItGoesQuietly_data()
{
    QTest::addColumn<int>("command");
    QTest::newRow("standby off") << 0;
    QTest::newRow("playing") << 1;
    QTest::newRow("recording") << 3;
}

void TestMainObjectLife::destroyedWithoutAShutdownItGoesQuietly()
{
    QFETCH(int, command);
    ControllerRig rig;
    rig.setClips({{QStringLiteral("A.mov"), 5000}});
    rig.change(eParamMediaUpdated, 1);
    rig.settle();
    rig.connectInput();
    rig.command(command);
    rig.settle();
    rig.clear();
    rig.main.reset();
    rig.settle();
    QVERIFY(
        !rig.written(eParamTransportState).contains(20u)); // only a shutdown says that it is over
    QCOMPARE(rig.log->lines().filter(QStringLiteral("mainobject.cpp")), QStringList());
}

QTEST_APPLESS_MAIN(TestMainObjectLife)
#include "tst_mainobject_life.moc"
