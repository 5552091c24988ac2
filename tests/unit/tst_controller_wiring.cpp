#include "config/configinterface.h"
#include "aux/keyboardtransport.h"
#include "liborb/orbconnect.h"
#include "controllerrig.h"

#include <QFile>
#include <QRegularExpression>

#include <sys/stat.h>
#include <unistd.h>

/// How the controller is put together: every connection as it is written and in its order, what is
/// made before what, and what the log says when a step fails.
class TestControllerWiring : public QObject
{
    Q_OBJECT
private slots:
    void everyConnectionStandsAsItIsLogged_data();
    void everyConnectionStandsAsItIsLogged();
    void theStepsOfConstructionAreInOrder();
    void aFailedStatementIsLoggedAsItIsWritten();
    void noConnectionFails();
    void theEnginesAndTheManagersSignalsAreConnectedOnce();
    void sharedTextsThatCannotBeMadeAreLoggedAndTheStartGoesOn();
    void theObjectsBelongToTheController();
    void theConsoleHasItsTwelveConnections();
    void beforeTheEngineIsThereChangesAreDropped();
    void everyAlarmNamesTheControllersFileAndALine();
};

namespace
{

QString source(const QString &path)
{
    QFile file(QStringLiteral(RV_SOURCE_DIR "/") + path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

/// The statements that are tested in a source file, in order, as the preprocessor makes texts of
/// them: all space between two words is one blank.
QStringList testedStatements(const QString &text)
{
    QStringList list;
    const QString start = QStringLiteral("ORB_TESTED(");
    for (qsizetype at = text.indexOf(start); at >= 0; at = text.indexOf(start, at + 1)) {
        qsizetype end = at + start.size();
        for (int depth = 1; depth > 0 && end < text.size(); ++end)
            depth += text.at(end) == u'(' ? 1 : text.at(end) == u')' ? -1 : 0;
        const QString inside = text.mid(at + start.size(), end - 1 - at - start.size());
        list << inside.simplified();
    }
    return list;
}

} // namespace

void TestControllerWiring::everyConnectionStandsAsItIsLogged_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QStringList>("statements");
    // clang-format off
    QTest::newRow("controller") << "src/app/mainobject.cpp" << QStringList{
        "connect(_config, SIGNAL(paramChanged(quint32, const QVariant &, const OrbTimeStamp &)), this, SLOT(configParamChanged(quint32, const QVariant &, const OrbTimeStamp &)))",
        "connect(QCoreApplication::instance(), SIGNAL(aboutToQuit()), this, SLOT(shutdown()))",
        "connect(_mediaManager, SIGNAL(shouldRolloverNow()), this, SLOT(startRollover()))",
        "connect(_mediaManager, SIGNAL(rolloverCompleted(bool, const QString &, const QString &)), this, SLOT(finishRollover(bool, const QString &, const QString &)))",
        "connect(_mediaManager, SIGNAL(storageInUse(bool)), _configUpdater, SLOT(setStorageInUse(bool)))",
        "connect(_mediaManager, SIGNAL(stopRecordNow()), this, SLOT(stopRecordNow()))",
        "connect(_vtr, SIGNAL(vbi(const OrbVbiInfo &)), this, SLOT(vbi(const OrbVbiInfo &)))",
        "connect(_vtr, SIGNAL(streamIsOpen(const OrbError &, const OrbStreamInfo &)), this, SLOT(vtrStreamIsOpen(const OrbError &, const OrbStreamInfo &)))",
        "connect(_vtr, SIGNAL(streamIsClosed()), this, SLOT(vtrStreamIsClosed()))",
        "connect(_vtr, SIGNAL(stateChanged(const VtrState &, const VtrState &)), this, SLOT(vtrStateChanged(const VtrState &, const VtrState &)))",
        "connect(_vtr, SIGNAL(modeChanged(VtrState::Mode, VtrState::Mode)), this, SLOT(vtrModeChanged(const VtrState::Mode, VtrState::Mode)))",
        "connect(_vtr, SIGNAL(inputFormatChanged(int, const OrbVideoState &)), this, SLOT(vtrInputFormatChanged(int, const OrbVideoState &)))",
        "connect(_vtr, SIGNAL(requestRecordStreamDesc(QVariant &)), this, SLOT(generateRecordStreamDesc(QVariant &)))",
        "connect(_vtr, SIGNAL(requestPlaybackStreamDesc(QVariant &, int&)), this, SLOT(generatePlaybackStreamDesc(QVariant &, int&)))",
        "connect(_vtr, SIGNAL(requestRecordInhibit(OrbId &)), this, SLOT(shouldInhibitRecord(OrbId &)))",
        "connect(_vtr, SIGNAL(firmwareLoading(const QString &, bool)), this, SLOT(firmwareLoading(const QString &, bool)))",
        "connect(_vtr, SIGNAL(videoDeviceSetupChanged(const OrbVideoDeviceSetup &)), this, SLOT(vtrVideoDeviceSetupChanged(const OrbVideoDeviceSetup &)))",
        "connect(_vtr, SIGNAL(raiseVFRAlarm(bool)), this, SLOT(vtrRaiseVFRAlarm(bool)))",
        "connect(_vtr, SIGNAL(recordFailedToStart(OrbId &)), this, SLOT(recordFailedToStart(OrbId &)))",
        "connect(_vtr, SIGNAL(storageInUse(bool)), _mediaManager, SLOT(setStorageInUse(bool)))",
        "connect(_kbtrans, SIGNAL(quit()), QCoreApplication::instance(), SLOT(quit()))",
        "connect(_kbtrans, SIGNAL(play(double)), _vtr, SLOT(play(double)))",
        "connect(_kbtrans, SIGNAL(stop()), _vtr, SLOT(stop()))",
        "connect(_kbtrans, SIGNAL(still()), _vtr, SLOT(still()))",
        "connect(_kbtrans, SIGNAL(rewind()), _vtr, SLOT(rewind()))",
        "connect(_kbtrans, SIGNAL(fastfwd()), _vtr, SLOT(fastfwd()))",
        "connect(_kbtrans, SIGNAL(step(int)), _vtr, SLOT(step(int)))",
        "connect(_kbtrans, SIGNAL(record()), _vtr, SLOT(record()))",
        "connect(_kbtrans, SIGNAL(standbyOff()), _vtr, SLOT(standbyOff()))",
        "connect(_kbtrans, SIGNAL(toggleMeta()), this, SLOT(toggleMeta()))",
        "connect(_kbtrans, SIGNAL(cameraRecord()), this, SLOT(cameraRecord()))",
        "connect(_kbtrans, SIGNAL(refreshed()), this, SLOT(transportRefreshed()))",
        "connect(this, SIGNAL(alarmTriggered(const OrbAlarm &)), _alarmHandler, SLOT(handleAlarm(const OrbAlarm &)))",
        "connect(_vtr, SIGNAL(alarmTriggered(const OrbAlarm &)), _alarmHandler, SLOT(handleAlarm(const OrbAlarm &)))",
        "connect(_vtr, SIGNAL(stateChanged(const VtrState &, const VtrState &)), _alarmHandler, SLOT(stateChanged(const VtrState &, const VtrState &)))",
    };
    QTest::newRow("status publisher") << "src/config/configupdater.cpp" << QStringList{
        "_shmStringCurrentTimecode->create(64)",
        "_shmStringInputTimecode->create(64)",
        "connect(_config, SIGNAL(paramChanged(quint32, const QVariant &, const OrbTimeStamp &)), this, SLOT(configParamChanged(quint32, const QVariant &, const OrbTimeStamp &)))",
    };
    // clang-format on
}

void TestControllerWiring::everyConnectionStandsAsItIsLogged()
{
    QFETCH(QString, file);
    QFETCH(QStringList, statements);
    const QString text = source(file);
    QCOMPARE(testedStatements(text), statements);
    // And none goes untested.
    static const QRegularExpression anyConnect(QStringLiteral("\\bconnect\\s*\\("));
    QCOMPARE(text.count(anyConnect),
             statements.filter(QRegularExpression(QStringLiteral("^connect\\("))).size());
}

/// Later objects need earlier ones.
void TestControllerWiring::theStepsOfConstructionAreInOrder()
{
    const QString text = source(QStringLiteral("src/app/mainobject.cpp"));
    const qsizetype start = text.indexOf(QStringLiteral("MainObject::MainObject("));
    QVERIFY(start > 0);
    const QString body = text.mid(start, text.indexOf(QStringLiteral("\n}\n"), start) - start);
    const QStringList steps = {
        "_config = new ConfigInterface(this)",
        "SLOT(configParamChanged(",
        "_configUpdater = new ConfigUpdater(_config, this)",
        "_clipFinder = new ClipFinder(_config->configObject())",
        "_mediaManager = new MediaManager(this)",
        "wireMediaManager()",
        "_vtr = new VtrObject(this)",
        "SIGNAL(aboutToQuit())",
        "wireEngine()",
        "_kbtrans = new KeyboardTransport(this)",
        "wireConsole()",
        "_config->set(eParamTransportState, 1)",
        "_config->set(eParamTransportRunning, 1)",
        "_alarmHandler = new AlarmHandler(this)",
        "_alarmHandler->setConfigInterface(_config)",
        "wireAlarms()",
        "loadInitialState()",
        "parseCommandLine()",
        "_vtr->start()",
    };
    qsizetype at = 0;
    for (const QString &step : steps) {
        const qsizetype next = body.indexOf(step, at);
        QVERIFY2(next >= at, qPrintable(step));
        QCOMPARE(body.indexOf(step, next + 1), qsizetype(-1));
        at = next;
    }
}

void TestControllerWiring::aFailedStatementIsLoggedAsItIsWritten()
{
    LogCollector log;
    constexpr const char *logFile = "mainobject.cpp";
    QObject a;
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("No such signal")));
    QVERIFY(!ORB_TESTED(connect(&a, SIGNAL(streamIsClosed()), this, SLOT(vtrStreamIsClosed()))));
    QCOMPARE(log.records().size(), 1);
    QCOMPARE(log.records().at(0).level, 2);
    QCOMPARE(log.records().at(0).file, QStringLiteral("mainobject.cpp"));
    QCOMPARE(log.records().at(0).text,
             QStringLiteral("FAILED: connect(&a, SIGNAL(streamIsClosed()), this, "
                            "SLOT(vtrStreamIsClosed()))"));
    QVERIFY(ORB_TESTED(connect(&a, SIGNAL(objectNameChanged(QString)), &a, SLOT(deleteLater()))));
    QCOMPARE(log.records().size(), 1);
}

void TestControllerWiring::noConnectionFails()
{
    ControllerRig::Start start;
    start.arguments << "-s"
                    << "-b";
    start.console = true;
    ControllerRig rig(start);
    rig.settle();
    QVERIFY(rig.log->lines().filter(QStringLiteral("FAILED")).isEmpty());
}

namespace
{

struct Receivers : QObject {
    using QObject::receivers;
    static int of(const QObject *object, const char *signal)
    {
        return (object->*&Receivers::receivers)(signal);
    }
};

} // namespace

void TestControllerWiring::theEnginesAndTheManagersSignalsAreConnectedOnce()
{
    ControllerRig rig;
    for (const char *signal :
         {SIGNAL(vbi(OrbVbiInfo)), SIGNAL(streamIsOpen(OrbError, OrbStreamInfo)),
          SIGNAL(streamIsClosed()), SIGNAL(modeChanged(VtrState::Mode, VtrState::Mode)),
          SIGNAL(inputFormatChanged(int, OrbVideoState)),
          SIGNAL(requestRecordStreamDesc(QVariant &)),
          SIGNAL(requestPlaybackStreamDesc(QVariant &, int &)),
          SIGNAL(requestRecordInhibit(OrbId &)), SIGNAL(firmwareLoading(QString, bool)),
          SIGNAL(videoDeviceSetupChanged(OrbVideoDeviceSetup)), SIGNAL(raiseVFRAlarm(bool)),
          SIGNAL(recordFailedToStart(OrbId &)), SIGNAL(storageInUse(bool)),
          SIGNAL(alarmTriggered(OrbAlarm))})
        QVERIFY2(Receivers::of(rig.vtr, signal) == 1, signal);
    // The controller and the alarms.
    QCOMPARE(Receivers::of(rig.vtr, SIGNAL(stateChanged(VtrState, VtrState))), 2);
    for (const char *signal :
         {SIGNAL(shouldRolloverNow()), SIGNAL(rolloverCompleted(bool, QString, QString)),
          SIGNAL(storageInUse(bool)), SIGNAL(stopRecordNow())})
        QVERIFY2(Receivers::of(rig.manager, signal) == 1, signal);
    QCOMPARE(Receivers::of(rig.main.get(), SIGNAL(alarmTriggered(OrbAlarm))), 1);
    QCOMPARE(Receivers::of(&*rig.app, SIGNAL(aboutToQuit())), 1);
    QObject *config = rig.main->findChild<ConfigInterface *>();
    QCOMPARE(Receivers::of(config, SIGNAL(paramChanged(quint32, QVariant, OrbTimeStamp))), 2);
}

void TestControllerWiring::sharedTextsThatCannotBeMadeAreLoggedAndTheStartGoesOn()
{
    // Folders stand where the objects should.
    const char *const names[] = {"/dev/shm/rvd_currentTimecode", "/dev/shm/rvd_inputTimecode"};
    for (const char *name : names) {
        ::unlink(name);
        QCOMPARE(::mkdir(name, 0700), 0);
    }
    {
        ControllerRig rig;
        rig.settle();
        const QStringList failed = rig.log->lines().filter(QStringLiteral("FAILED"));
        QCOMPARE(failed,
                 QStringList({"2 configupdater.cpp FAILED: _shmStringCurrentTimecode->create(64)",
                              "2 configupdater.cpp FAILED: _shmStringInputTimecode->create(64)"}));
        QCOMPARE(rig.vtr->state().mode(), VtrState::StandbyOff);
        rig.main->vbi(OrbVbiInfo(OrbTimecode(1, 2, 3, 4, 25, 0), OrbTimecode()));
    }
    for (const char *name : names)
        QCOMPARE(::rmdir(name), 0);
}

void TestControllerWiring::theObjectsBelongToTheController()
{
    ControllerRig::Start start;
    start.console = true;
    ControllerRig rig(start);
    QStringList classes;
    for (const QObject *child : rig.main->children())
        classes << QString::fromLatin1(child->metaObject()->className());
    QCOMPARE(classes, QStringList({"ConfigInterface", "ConfigUpdater", "MediaManager", "VtrObject",
                                   "KeyboardTransport", "AlarmHandler"}));
    rig.main->shutdown();
    classes.clear();
    for (const QObject *child : rig.main->children())
        classes << QString::fromLatin1(child->metaObject()->className());
    QCOMPARE(classes, QStringList({"ConfigInterface", "ConfigUpdater", "MediaManager",
                                   "KeyboardTransport"}));
}

void TestControllerWiring::theConsoleHasItsTwelveConnections()
{
    ControllerRig::Start start;
    start.console = true;
    ControllerRig rig(start);
    const auto *keys = rig.main->findChild<KeyboardTransport *>();
    QVERIFY(keys);
    for (const char *signal :
         {SIGNAL(quit()), SIGNAL(play(double)), SIGNAL(stop()), SIGNAL(still()), SIGNAL(rewind()),
          SIGNAL(fastfwd()), SIGNAL(step(int)), SIGNAL(record()), SIGNAL(standbyOff()),
          SIGNAL(toggleMeta()), SIGNAL(cameraRecord()), SIGNAL(refreshed())})
        QVERIFY2(Receivers::of(keys, signal) == 1, signal);
}

/// The status publisher replays three parameters when it is made; the controller hears them, too,
/// and has nothing to do them with.
void TestControllerWiring::beforeTheEngineIsThereChangesAreDropped()
{
    ControllerRig rig;
    const QString start = QStringLiteral("Param Changed: [");
    QStringList ids;
    for (const LogCollector::Record &r : rig.log->records()) {
        if (r.text.startsWith(start))
            ids << r.text.mid(start.size()).section(u']', 0, 0);
    }
    const qsizetype first = ids.indexOf(QStringLiteral("7b03050a"));
    QVERIFY(first >= 0);
    for (const char *primed : {"7b04000a", "7b04020a", "79090000"})
        QVERIFY(!ids.mid(0, first).contains(QString::fromLatin1(primed)));
}

void TestControllerWiring::everyAlarmNamesTheControllersFileAndALine()
{
    ControllerRig rig;
    rig.settle();
    rig.connectInput();
    rig.command(3);
    rig.settle();
    QSignalSpy spy(rig.main.get(), &MainObject::alarmTriggered);
    rig.main->validateAudioChannels();
    rig.main->vtrRaiseVFRAlarm(true);
    rig.main->vtrInputFormatChanged(0, ControllerRig::inputState());
    rig.main->loadLuts();
    QVariant desc;
    rig.main->generateRecordStreamDesc(desc);
    QList<int> ids;
    QSet<int> lines;
    for (const QVariantList &call : spy) {
        const auto alarm = call.at(0).value<OrbAlarm>();
        QCOMPARE(alarm.file(), QStringLiteral("mainobject.cpp"));
        ids << int(alarm.id().value());
        lines << alarm.line();
    }
    QVERIFY(QSet<int>(ids.begin(), ids.end()).contains(QSet<int>{1902, 1907, 1911, 1914}));
    QVERIFY(!lines.contains(0));
    QCOMPARE(lines.size(), ids.size()); // each from a line of its own
}

QTEST_APPLESS_MAIN(TestControllerWiring)
#include "tst_controller_wiring.moc"
