#include "libconfig/config.h"
#include "libmessages/alarm.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QUdpSocket>

#include <memory>
#include <random>

#include <csignal>

namespace
{

class Diary : public ConfigEventListener
{
public:
    using ConfigEventListener::ParamChanged;

    void ParamChanged(ConfigEvent event) override
    {
        const QMutexLocker lock(&_mutex);
        const auto *number = std::get_if<std::uint32_t>(&event.value);
        _lines << QString::fromStdString(GetDescriptor(event.id)->name()).mid(6) + "=" +
                      (number ? QString::number(*number)
                              : QString::fromStdString(std::get<std::string>(event.value)));
        _isOwnThread = _isOwnThread && QThread::currentThreadId() != _maker;
    }

    QStringList lines() const
    {
        const QMutexLocker lock(&_mutex);
        return _lines;
    }
    bool isOwnThread() const
    {
        const QMutexLocker lock(&_mutex);
        return _isOwnThread;
    }

private:
    mutable QMutex _mutex;
    QStringList _lines;
    bool _isOwnThread = true;
    Qt::HANDLE _maker = QThread::currentThreadId();
};

} // namespace

class TestStoreProcesses : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        _folder = std::make_unique<QTemporaryDir>();
        _store.setProcessChannelMode(QProcess::MergedChannels);
        _port = 0;
        startStore();
        qputenv("RVD_STORE_PORT", QByteArray::number(_port));
    }

    void cleanup()
    {
        _store.kill();
        _store.waitForFinished();
    }

    void storeStopsCleanlyOnSignals()
    {
        _store.terminate();
        QVERIFY(_store.waitForFinished());
        QCOMPARE(_store.exitStatus(), QProcess::NormalExit);
        QCOMPARE(_store.exitCode(), 0);
        startStore();
        ::kill(static_cast<pid_t>(_store.processId()), SIGINT);
        QVERIFY(_store.waitForFinished());
        QCOMPARE(_store.exitCode(), 0);
    }

    void secondStoreOnThePortIsRefused()
    {
        QProcess second;
        second.start(RV_STORE, {"--no-db", "--port", QString::number(_port)});
        QVERIFY(second.waitForFinished());
        QCOMPARE(second.exitCode(), 1);
        second.start(RV_STORE, {"--prot", "1"});
        QVERIFY(second.waitForFinished());
        QCOMPARE(second.exitCode(), 2);
    }

    void connectionsShareOneViewAndHearOwnSets()
    {
        const auto config = connect(GetConfigURI("udp"));
        const auto events = connect(GetEventsURI("udp"));
        Diary diary;
        events->registerListener(&diary);
        QVERIFY(config->setUInt32(eParamEncodeType, 2));
        QVERIFY(config->setString(eParamReelName, "7"));
        for (int i = 0; i < 3; i++) {
            QVERIFY(config->setUInt32(eParamTransportCommand, 7));
        }
        unsigned int number = 0;
        QVERIFY(config->getUInt32(eParamEncodeType, number));
        QCOMPARE(number, 2u);
        QTRY_COMPARE(diary.lines(), QStringList({"EncodeType=2", "ReelName=7", "TransportCommand=7",
                                                 "TransportCommand=7", "TransportCommand=7"}));
        QVERIFY(diary.isOwnThread());
        QCOMPARE(rvctl({"get", "reelname"}), 0);
        QCOMPARE(_out, QString("7\n"));
        QVERIFY(config->attributes(eParamAlarm1904)->has("clear_on_play_pressed"));
    }

    /// What a start reads is not told to it a second time, as if somebody had just set it.
    void listenerHearsNothingThatWasThereBefore()
    {
        QCOMPARE(rvctl({"set", "EncodeType", "2"}), 0);
        QCOMPARE(rvctl({"set", "ReelName", "7"}), 0);
        for (int i = 0; i < 200; i++) {
            const auto events = connect(GetEventsURI("udp"));
            Diary diary;
            events->registerListener(&diary);
            unsigned int number = 0;
            QVERIFY(events->getUInt32(eParamEncodeType, number));
            QCOMPARE(number, 2u);
            QTest::qSleep(2);
            QCOMPARE(diary.lines(), QStringList());
        }
    }

    void deletedConnectionHearsNothingMore()
    {
        const auto config = connect(GetConfigURI("udp"));
        auto events = connect(GetEventsURI("udp"));
        Diary gone;
        Diary stays;
        events->registerListener(&gone);
        config->registerListener(&stays);
        events.reset();
        config->setUInt32(eParamEncodeType, 2);
        QTRY_COMPARE(stays.lines().size(), 1);
        QVERIFY(gone.lines().isEmpty());
    }

    void connectionWithoutAStoreCarriesOnWhenItComes()
    {
        cleanup();
        const auto config = connect(GetConfigURI("udp"));
        Diary diary;
        config->registerListener(&diary);
        unsigned int number = 99;
        QVERIFY(config->getUInt32(eParamRecordInterval, number));
        QCOMPARE(number, 1u);
        QVERIFY(!config->setUInt32(eParamEncodeType, 3));
        QVERIFY(!config->setUInt32(eParamTransportCommand, 1));
        startStore();
        QTRY_COMPARE(diary.lines(), QStringList("EncodeType=3"));
        QTRY_COMPARE(get("EncodeType"), QString("ProRes 422 Proxy"));
        QCOMPARE(get("TransportCommand"), QString("None"));
    }

    void killedStoreKeepsSettingsAndListenersHearDifferences()
    {
        const auto config = connect(GetConfigURI("udp"));
        Diary diary;
        config->registerListener(&diary);
        QCOMPARE(rvctl({"set", "LoopPlayback", "on"}), 0);
        QVERIFY(config->setUInt32(eParamEncodeType, 2));
        QVERIFY(config->setUInt32(eParamTransportRunning, 1));
        QVERIFY(config->setUInt32(eParamTransportCommand, 1));
        QTRY_COMPARE(diary.lines().size(), 4);
        const QStringList before = diary.lines();
        // Nothing tells when a value is on the medium: the file of the store does.
        QTRY_VERIFY(isKept(eParamEncodeType) && isKept(eParamLoopPlayback));
        cleanup();
        // The store loses a setting that another had made, as if its file were an older one.
        forget(eParamLoopPlayback);
        startStore();
        QTRY_COMPARE(diary.lines(), before + QStringList("LoopPlayback=0"));
        QTRY_COMPARE(get("TransportRunning"), QString("Yes"));
        QCOMPARE(get("EncodeType"), QString("ProRes 422 LT"));
        QCOMPARE(get("TransportCommand"), QString("None"));
        unsigned int number = 99;
        QVERIFY(config->getUInt32(eParamLoopPlayback, number));
        QCOMPARE(number, 0u);
    }

    void setsBeforeTheEndOfAConnectionArrive()
    {
        for (int i = 0; i < 20; i++) {
            connect(GetConfigURI("udp"))->setUInt32(eParamRecordInterval, unsigned(100 + i));
            QCOMPARE(get("RecordInterval"), QString::number(100 + i));
        }
    }

    void storeSurvivesGarbage()
    {
        std::mt19937 random(1);
        QUdpSocket socket;
        for (int i = 0; i < 2000; i++) {
            QByteArray datagram(int(random() % 1500), '\0');
            for (char &byte : datagram) {
                byte = static_cast<char>(random());
            }
            if (i % 2) {
                datagram.replace(0, 5, QByteArray("RVPS\1", 5));
            }
            socket.writeDatagram(datagram, QHostAddress::LocalHost, _port);
        }
        QCOMPARE(get("EncodeType"), QString("ProRes 422"));
        QCOMPARE(_store.state(), QProcess::Running);
    }

    void exitCodesTellWhatHappened_data()
    {
        QTest::addColumn<QString>("words");
        QTest::addColumn<bool>("isRunning");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("complaint");
        QTest::newRow("status") << "status" << true << 0 << "";
        QTest::newRow("status, daemon gone") << "status" << false << 3 << "not running";
        QTest::newRow("play") << "play" << true << 0 << "";
        QTest::newRow("play, daemon gone") << "play" << false << 3 << "not running";
        QTest::newRow("play and wait in vain")
            << "--wait --timeout 0.1 play" << true << 1 << "Still";
        QTest::newRow("stop and wait") << "--wait --timeout 0.1 stop" << true << 0 << "";
        QTest::newRow("step") << "step -3" << true << 0 << "";
        QTest::newRow("step nowhere") << "step 0" << true << 2 << "-1000 to +1000";
        QTest::newRow("step by a word") << "step x" << true << 2 << "-1000 to +1000";
        QTest::newRow("step too far") << "step -2147483648" << true << 2 << "-1000 to +1000";
        QTest::newRow("go to a clip") << "goto A001" << true << 0 << "";
        QTest::newRow("go to an index") << "goto 3" << true << 0 << "";
        QTest::newRow("go too far") << "goto 4294967295" << true << 2 << "no clip";
        QTest::newRow("standby off") << "standby-off" << true << 0 << "";
        QTest::newRow("next") << "next" << true << 0 << "";
        QTest::newRow("prev") << "prev" << true << 0 << "";
        QTest::newRow("ff") << "ff" << true << 0 << "";
        QTest::newRow("rew") << "rew" << true << 0 << "";
        QTest::newRow("record") << "record" << true << 0 << "";
        QTest::newRow("shutdown") << "shutdown" << true << 0 << "";
        QTest::newRow("get") << "get eParamEncodeType" << false << 0 << "";
        QTest::newRow("unknown name") << "get EncodTyp" << false << 1 << "\"EncodeType\"";
        QTest::newRow("unknown number") << "get 0x1" << false << 1 << "EncodeScanMode";
        QTest::newRow("unknown value")
            << "set EncodeType ProRes444" << false << 1 << "\"ProRes 4444\"";
        QTest::newRow("unknown pattern") << "list xyzzy" << false << 1 << "xyzzy";
        QTest::newRow("unknown command") << "pla" << false << 2 << "\"play\"";
        QTest::newRow("word missing") << "get" << false << 2 << "--help";
        QTest::newRow("no words") << "" << false << 2 << "usage";
        QTest::newRow("unknown option") << "--jsn status" << false << 2 << "usage";
        QTest::newRow("help") << "--help" << false << 0 << "";
    }

    void exitCodesTellWhatHappened()
    {
        QFETCH(QString, words);
        QFETCH(bool, isRunning);
        QFETCH(int, code);
        QFETCH(QString, complaint);
        if (isRunning) {
            QCOMPARE(rvctl({"set", "TransportRunning", "yes"}), 0);
            QCOMPARE(rvctl({"set", "TransportState", "still"}), 0);
        }
        QCOMPARE(rvctl(words.split(' ', Qt::SkipEmptyParts)), code);
        QVERIFY2(_err.contains(complaint), qPrintable(_err));
        QCOMPARE(_err.isEmpty(), complaint.isEmpty());
    }

    void commandLineSaysWhenThereIsNoStore()
    {
        cleanup();
        for (const char *word : {"status", "play", "list", "watch"}) {
            QCOMPARE(rvctl({word}), 3);
            QVERIFY(_err.contains("no parameter store"));
        }
        QCOMPARE(rvctl({"--json", "play"}), 3);
        QCOMPARE(json()["ok"].toBool(true), false);
        QCOMPARE(json()["code"].toInt(), 3);
    }

    void statusIsReadableByMachines()
    {
        rvctl({"set", "TransportRunning", "1"});
        rvctl({"set", "TransportState", "Record"});
        rvctl({"set", "CurrentClip", "a \"b\""});
        QCOMPARE(rvctl({"--json", "status"}), 0);
        QCOMPARE(json()["running"].toBool(), true);
        QCOMPARE(json()["state"].toString(), QString("Record"));
        QCOMPARE(json()["stateNumber"].toInt(), 2);
        QCOMPARE(json()["clip"].toString(), QString("a \"b\""));
        QVERIFY(json()["alarms"].isArray());
        QCOMPARE(rvctl({"--json", "list"}), 0);
        QCOMPARE(QJsonDocument::fromJson(_out.toUtf8()).array().size(),
                 int(allDescriptors().size()));
    }

    void waitEndsWhenTheTransportGetsThere()
    {
        rvctl({"set", "TransportRunning", "1"});
        const auto daemon = connect(GetConfigURI("udp"));
        Diary diary;
        daemon->registerListener(&diary);
        QProcess play;
        play.start(RV_CTL, {"--wait", "--timeout", "30", "--json", "play"});
        QTRY_VERIFY(diary.lines().contains("TransportCommand=1"));
        QCOMPARE(play.state(), QProcess::Running);
        daemon->setUInt32(eParamTransportState, 3);
        QVERIFY(play.waitForFinished());
        QCOMPARE(play.exitCode(), 0);
        QVERIFY(play.readAllStandardOutput().contains("\"state\": \"Play\""));
    }

    void watchPrintsChangesAsTheyCome()
    {
        QProcess watch;
        watch.start(RV_CTL, {"watch", "EncodeType", "TransportCommand"});
        QVERIFY(watch.waitForStarted());
        QString seen;
        const auto sees = [&](const char *text) {
            watch.waitForReadyRead(20);
            seen += QString::fromUtf8(watch.readAllStandardOutput());
            return seen.contains(text);
        };
        // The watch is on once a change shows; until then the change is made again.
        const char *names[] = {"ProRes 4444", "DNxHR HQX"};
        for (int i = 0; !seen.contains("EncodeType = "); i = 1 - i) {
            QCOMPARE(rvctl({"set", "EncodeType", names[i]}), 0);
            sees("EncodeType = ");
        }
        rvctl({"set", "ReelName", "5"});
        rvctl({"set", "TransportCommand", "Stop"});
        QTRY_VERIFY(sees("TransportCommand = Stop"));
        QVERIFY(!seen.contains("ReelName"));
        watch.terminate();
        QVERIFY(watch.waitForFinished());
        QCOMPARE(watch.exitCode(), 0);
    }

    void setIsOnTheMediumWhenTheCommandLineSaysSo()
    {
        for (int i = 0; i < 10; i++) {
            QCOMPARE(rvctl({"set", "RecordInterval", QString::number(i + 100)}), 0);
            cleanup();
            startStore();
            QCOMPARE(get("RecordInterval"), QString::number(i + 100));
        }
    }

    void damagedFileIsPutAsideAndTheStoreStartsWithDefaults()
    {
        QCOMPARE(rvctl({"set", "EncodeType", "2"}), 0);
        // Ended in order, so that everything is in the one file.
        _store.terminate();
        QVERIFY(_store.waitForFinished());
        QFile file(database());
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.write(QByteArray(int(file.size()), '\xa5'));
        file.close();
        startStore();
        QVERIFY2(_started.contains("cannot read") && _started.contains("put aside"), _started.constData());
        QVERIFY(QFile::exists(database() + ".damaged"));
        QCOMPARE(get("EncodeType"), QString("ProRes 422"));
        QCOMPARE(rvctl({"set", "EncodeType", "3"}), 0);
    }

    void onlyLoopbackIsListenedOn_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("complaint");
        QTest::newRow("everywhere") << "0.0.0.0" << "refuses to listen on 0.0.0.0";
        QTest::newRow("a network") << "192.168.1.5" << "refuses to listen on 192.168.1.5";
        QTest::newRow("no address") << "localhost" << "no IPv4 address";
        QTest::newRow("loopback") << "127.0.0.2" << "";
    }

    void onlyLoopbackIsListenedOn()
    {
        QFETCH(QString, address);
        QFETCH(QString, complaint);
        QProcess store;
        store.setProcessChannelMode(QProcess::MergedChannels);
        store.start(RV_STORE, {"--no-db", "--port", "0", "--listen", address});
        QVERIFY(store.waitForReadyRead());
        if (complaint.isEmpty())
            store.terminate(); // one that refuses ends by itself
        store.waitForFinished();
        const QString said = QString::fromUtf8(store.readAllStandardOutput());
        QVERIFY2(said.contains(complaint.isEmpty() ? "ready on 127.0.0.2:" : complaint), qPrintable(said));
        QCOMPARE(store.exitCode(), complaint.isEmpty() ? 0 : 2);
    }

    void describeSaysWhatTheCatalogueKnows_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("unsigned") << "recordinterval"
                                  << QStringList{"0x0901000a", "Unsigned", "0 to 3600 frames", "Default    1",
                                                 "clients", "kept over a restart"};
        QTest::newRow("enumerated") << "TransportState"
                                    << QStringList{"Enumerated", "the transport daemon", "not kept", "  2  Record",
                                                   " 15  Still"};
        QTest::newRow("command") << "TransportCommand" << QStringList{"momentary", "  1  Play"};
        QTest::newRow("text") << "ReelName" << QStringList{"String", "up to 900 bytes", "Default    \"1\""};
        QTest::newRow("alarm") << "0x7e070b00" << QStringList{"Alarm", "waits, and is shown when record is pressed"};
        QTest::newRow("event alarm") << "Alarm1904"
                                     << QStringList{"shown at once; cleared when play is pressed or record is pressed"};
    }

    void describeSaysWhatTheCatalogueKnows()
    {
        QFETCH(QString, name);
        QFETCH(QStringList, lines);
        cleanup();
        QCOMPARE(rvctl({"describe", name}), 0);
        for (const QString &line : lines) {
            QVERIFY2(_out.contains(line), qPrintable(line + "\n" + _out));
        }
        QCOMPARE(rvctl({"--json", "describe", name}), 0);
        QVERIFY(json()["ok"].toBool());
        QVERIFY(!json()["meaning"].toString().isEmpty());
        QCOMPARE(rvctl({"describe", "TransportStat"}), 1);
        QVERIFY(_err.contains("\"TransportState\""));
    }

    void exportedSettingsComeBack()
    {
        QCOMPARE(rvctl({"set", "EncodeType", "ProRes 422 HQ"}), 0);
        QCOMPARE(rvctl({"set", "ReelName", " a \"b\" \\ \t"}), 0);
        QCOMPARE(rvctl({"set", "LutFile", "/luts/a.cube"}), 0);
        QCOMPARE(rvctl({"export"}), 0);
        const QString text = _out;
        QVERIFY(text.contains("EncodeType = ProRes 422 HQ\n"));
        QVERIFY(text.contains("LutFile = \"/luts/a.cube\"\n"));
        QVERIFY(!text.contains("TransportState"));
        write("settings.txt", text);
        QCOMPARE(rvctl({"set", "EncodeType", "0"}), 0);
        QCOMPARE(rvctl({"set", "ReelName", "x"}), 0);
        QCOMPARE(rvctl({"set", "LutFile", ""}), 0);
        QCOMPARE(rvctl({"import", _folder->filePath("settings.txt")}), 0);
        QCOMPARE(rvctl({"export"}), 0);
        QCOMPARE(_out, text);
    }

    void importWithAWrongLineSetsNothingAndNamesEveryWrongLine()
    {
        write("settings.txt", "# mine\nEncodeType = ProRes 422 HQ\nEncodTyp = 1\nRecordInterval = 4000\nReelName 7\n"
                              "ReelName = \"7\nTransportState = Play\nEncodeType = 0\n");
        const QString path = _folder->filePath("settings.txt");
        QCOMPARE(rvctl({"import", path}), 1);
        const QStringList complaints{path + ":3: no parameter is called \"EncodTyp\"; did you mean \"EncodeType\"?",
                                     path + ":4: RecordInterval goes from 0 to 3600",
                                     path + ":5: a setting reads NAME = VALUE",
                                     path + ":6: the closing quote is missing",
                                     path + ":7: TransportState is no setting; it is not kept",
                                     path + ":8: EncodeType stands already in line 2", "nothing was set"};
        QStringList expected;
        for (const QString &complaint : complaints) {
            expected << "rvctl: " + complaint;
        }
        QCOMPARE(_err.split('\n', Qt::SkipEmptyParts), expected);
        QCOMPARE(get("EncodeType"), QString("ProRes 422"));
        QCOMPARE(rvctl({"--json", "import", path}), 1);
        QVERIFY(json()["error"].toString().contains(":5: "));
        QCOMPARE(rvctl({"import", _folder->filePath("missing.txt")}), 1);
        QVERIFY(_err.contains("cannot read"));
    }

    void alarmsAreListedAndTellByTheExitStatus()
    {
        QCOMPARE(rvctl({"alarms"}), 0);
        QCOMPARE(_out, QString("no alarm is raised\n"));
        const auto config = connect(GetConfigURI("udp"));
        lumo::alarms::Alarm alarm;
        alarm.set_active(true);
        alarm.set_severity(lumo::alarms::Alarm_WARNING);
        alarm.set_message("frame\x1b[2J 7");
        const auto before = QDateTime::currentSecsSinceEpoch();
        QVERIFY(config->setData(eParamAlarm1904, alarm.SerializeAsString()));
        QTRY_COMPARE(rvctl({"alarms"}), 1);
        QVERIFY2(_out.startsWith("Alarm1904  warning since 2"), qPrintable(_out));
        QVERIFY2(_out.contains("Alarm: a frame was dropped. frame\\x1b[2J 7"), qPrintable(_out));
        QCOMPARE(_out.count('\n'), 1);
        QCOMPARE(rvctl({"--json", "alarms"}), 1);
        const QJsonObject raised = json()["alarms"].toArray().at(0).toObject();
        QCOMPARE(raised["severity"].toString(), QString("warning"));
        QVERIFY(qAbs(raised["sinceSeconds"].toInteger() - before) < 60);
        QCOMPARE(rvctl({"set", "Alarm1904", "clear"}), 0);
        QCOMPARE(rvctl({"alarms"}), 0);
    }

    void bashCompletesCommandsNamesAndValues_data()
    {
        QTest::addColumn<QString>("words");
        QTest::addColumn<QString>("choices");
        QTest::newRow("command") << "des" << "describe";
        QTest::newRow("option") << "--js" << "--json";
        QTest::newRow("name") << "get transportst" << "TransportState";
        QTest::newRow("name after options") << "--json --timeout 3 describe reel" << "ReelName";
        QTest::newRow("value with blanks") << "set encodetype \"prores\\ 422\\ h\"" << "ProRes\\ 422\\ HQ";
        QTest::newRow("value") << "set eParamLoopPlayback o" << "Off On";
        QTest::newRow("shell") << "completion b" << "bash";
        QTest::newRow("edit") << "playlist m" << "move";
        QTest::newRow("switch") << "rollover o" << "on off";
        QTest::newRow("medium") << "ej" << "eject";
        QTest::newRow("no slots are told of") << "eject /" << "";
        QTest::newRow("nothing") << "get xyz" << "";
    }

    void bashCompletesCommandsNamesAndValues()
    {
        QFETCH(QString, words);
        QFETCH(QString, choices);
        QCOMPARE(rvctl({"completion", "bash"}), 0);
        write("completion.sh", _out);
        QProcess bash;
        bash.start("bash", {"-c", QString("source %1; eval 'COMP_WORDS=(rvctl %2)'; "
                                          "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _rvctl; echo \"${COMPREPLY[*]}\"")
                                      .arg(_folder->filePath("completion.sh"), words)});
        QVERIFY(bash.waitForFinished());
        QCOMPARE(QString::fromUtf8(bash.readAllStandardError()), QString());
        QCOMPARE(QString::fromUtf8(bash.readAllStandardOutput()).trimmed(), choices);
        QCOMPARE(rvctl({"completion", "fish"}), 2);
    }

private:
    void write(const QString &name, const QString &text)
    {
        QFile file(_folder->filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text.toUtf8());
    }

    void startStore()
    {
        _store.start(RV_STORE, {"--db", database(), "--port", QString::number(_port)});
        QByteArray line;
        while (!line.contains("ready on") && _store.waitForReadyRead(30000)) {
            line += _store.readAllStandardOutput();
        }
        const auto match = QRegularExpression("ready on 127.0.0.1:(\\d+)").match(line);
        QVERIFY2(match.hasMatch(), line.constData());
        _port = match.captured(1).toUShort();
        _started = line;
    }

    QString database() const { return _folder->filePath("store.db"); }

    static std::unique_ptr<Config> connect(const std::string &uri)
    {
        return std::unique_ptr<Config>(ConfigFactoryImpl::GetInstance()->create(uri));
    }

    int rvctl(const QStringList &words)
    {
        QProcess process;
        process.start(RV_CTL, words);
        process.waitForFinished(-1);
        _out = QString::fromUtf8(process.readAllStandardOutput());
        _err = QString::fromUtf8(process.readAllStandardError());
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

    QString get(const QString &name)
    {
        rvctl({"get", name});
        return _out.trimmed();
    }

    QJsonObject json() const { return QJsonDocument::fromJson(_out.toUtf8()).object(); }

    QByteArray sql(const QString &statement)
    {
        QProcess sqlite;
        sqlite.start("sqlite3", {database(), statement});
        sqlite.waitForFinished(-1);
        return sqlite.readAllStandardOutput().trimmed();
    }

    bool isKept(eParam_t id)
    {
        return sql(QString("SELECT count(*) FROM parameter WHERE number = %1").arg(unsigned(id))) ==
               "1";
    }

    void forget(eParam_t id)
    {
        sql(QString("DELETE FROM parameter WHERE number = %1").arg(unsigned(id)));
        QVERIFY(!isKept(id));
    }

    std::unique_ptr<QTemporaryDir> _folder;
    QProcess _store;
    quint16 _port = 0;
    QByteArray _started; ///< what the store said at its start
    QString _out;
    QString _err;
};

QTEST_GUILESS_MAIN(TestStoreProcesses)
#include "tst_store_processes.moc"
