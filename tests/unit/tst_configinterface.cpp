#include "config/configinterface.h"
#include "libconfig/memoryconfig.h"
#include "liborb/orb.h"
#include "logcollector.h"

#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <thread>

class TestConfigInterface : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void setChoosesByTheVariantsType();
    void failedReadsAreEmpty();
    void replayKnowsOnlyStringsAndNumbers();
    void anUnknownNumberIsLoggedAndTheRestIsReplayed();
    void aCountBelowOneReplaysNothing();
    void changesCarryValueAndTimeOfChange();
    void dataKeepsItsZeroBytes();
    void textOfAValue();
    void slotsStandInTheirOrder();
    void aMissingConnectionIsLogged();
    void oneMissingConnectionIsLoggedAndTheOtherWorks_data();
    void oneMissingConnectionIsLoggedAndTheOtherWorks();
    void everyTypeIsWrittenByItsOwnSetter_data();
    void everyTypeIsWrittenByItsOwnSetter();
    void aReplayIsDeliveredDirectlyWithTheTimeOfTheReplay();
    void aDataParameterIsReplayedAsANumberDeliberately();
    void aChangeFromAnotherThreadIsQueuedWithValueAndTime();
    void textsOfEveryKind_data();
    void textsOfEveryKind();
    void aSecondInstanceDoesNotMakeTheDescriptorsAgain();
    void theStoreThatComesAndGoesIsLogged();
    void afterItsEndNoChangeArrives();

private:
    MemoryStore _store;
};

void TestConfigInterface::initTestCase()
{
    Orb::init(0);
    _store.install();
}

void TestConfigInterface::setChoosesByTheVariantsType()
{
    ConfigInterface config;
    QVERIFY(config.set(eParamLoopPlayback, QVariant(true)));
    QCOMPARE(config.getUInt32(eParamLoopPlayback), 1u);
    QVERIFY(config.set(eParamReelName, QVariant(QStringLiteral("42"))));
    QCOMPARE(config.getString(eParamReelName), QStringLiteral("42"));
    QVERIFY(config.set(eParamLutFile, QVariant(QByteArray("a\0b", 3))));
    QCOMPARE(config.getData(eParamLutFile), QByteArray("a\0b", 3));
    // The kind in the store is not consulted: a text for a number is refused by the store.
    QVERIFY(!config.set(eParamLoopPlayback, QVariant(QStringLiteral("5"))));
}

void TestConfigInterface::failedReadsAreEmpty()
{
    ConfigInterface config;
    QCOMPARE(config.getUInt32(0x12345678), 0u);
    QCOMPARE(config.getString(0x12345678), QString());
    QCOMPARE(config.getData(0x12345678), QByteArray());
}

void TestConfigInterface::replayKnowsOnlyStringsAndNumbers()
{
    ConfigInterface config;
    config.setString(eParamReelName, QStringLiteral("7"));
    config.setUInt32(eParamEncodeType, 1);
    QSignalSpy spy(&config, &ConfigInterface::paramChanged);
    const quint32 list[] = {eParamReelName, eParamEncodeType, eParamLutFile};
    config.loadParams(list, 3);
    QCOMPARE(spy.count(), 3);
    QCOMPARE(spy.at(0).at(1).typeId(), int(QMetaType::QString));
    QCOMPARE(spy.at(0).at(1).toString(), QStringLiteral("7"));
    QCOMPARE(spy.at(1).at(1).typeId(), int(QMetaType::UInt));
    QCOMPARE(spy.at(1).at(1).toUInt(), 1u);
    QCOMPARE(spy.at(2).at(1).typeId(), int(QMetaType::UInt));
}

void TestConfigInterface::anUnknownNumberIsLoggedAndTheRestIsReplayed()
{
    ConfigInterface config;
    QSignalSpy spy(&config, &ConfigInterface::paramChanged);
    LogCollector log;
    const quint32 list[] = {0x12345678, eParamReelName};
    config.loadParams(list, 2);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(log.lines(),
             QStringList{QStringLiteral("1 configinterface.cpp Param ID 305419896 not found")});
}

void TestConfigInterface::aCountBelowOneReplaysNothing()
{
    ConfigInterface config;
    QSignalSpy spy(&config, &ConfigInterface::paramChanged);
    const quint32 list[] = {eParamReelName};
    config.loadParams(list, 0);
    config.loadParams(list, -3);
    QVERIFY(spy.isEmpty());
}

void TestConfigInterface::changesCarryValueAndTimeOfChange()
{
    ConfigInterface config;
    QSignalSpy spy(&config, &ConfigInterface::paramChanged);
    _store.setTime(timeval{1234, 5678});
    _store.put(eParamEncodeType, ParamValue(std::uint32_t(2)));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toUInt(), quint32(eParamEncodeType));
    QCOMPARE(spy.at(0).at(1).toUInt(), 2u);
    QCOMPARE(spy.at(0).at(2).value<OrbTimeStamp>(), OrbTimeStamp(1234, 5678));
}

void TestConfigInterface::dataKeepsItsZeroBytes()
{
    ConfigInterface config;
    QSignalSpy spy(&config, &ConfigInterface::paramChanged);
    std::string bytes("x\0y\0", 4);
    QVERIFY(config.DataChanged(eParamLutFile, bytes, timeval{1, 2}));
    QCOMPARE(spy.at(0).at(1).toByteArray(), QByteArray("x\0y\0", 4));
}

void TestConfigInterface::textOfAValue()
{
    QCOMPARE(ConfigInterface::paramToString(0x12345678, 5), QString());
    QCOMPARE(ConfigInterface::paramToString(eParamReelName, QStringLiteral("7")),
             QStringLiteral("[1100000a] eParamReelName = 7"));
    const auto name = QString::fromStdString(GetDescriptor(eParamTransportCommand)->valueName(1));
    QVERIFY(!name.isEmpty());
    QCOMPARE(ConfigInterface::paramToString(eParamTransportCommand, 1u),
             QStringLiteral("[7d01000a] eParamTransportCommand = [1] ") + name);
    QVERIFY(ConfigInterface::paramToString(eParamLutFile, QByteArray("x"))
                .endsWith(QStringLiteral("Data Parameter - no details available")));
}

void TestConfigInterface::slotsStandInTheirOrder()
{
    const QMetaObject &meta = ConfigInterface::staticMetaObject;
    QStringList names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        names << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(
        names,
        QStringList(
            {QStringLiteral("paramChanged(uint,QVariant,OrbTimeStamp)"),
             QStringLiteral("loadParam(uint)"), QStringLiteral("loadParams(const quint32*,int)"),
             QStringLiteral("set(uint,QVariant)"), QStringLiteral("setString(uint,QString)"),
             QStringLiteral("setUInt32(uint,uint)"), QStringLiteral("setData(uint,QByteArray)")}));
    QByteArrayList parameters;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        parameters << meta.method(i).parameterNames().join(' ');
    QCOMPARE(parameters, QByteArrayList({"id value ts", "", "idlist listSize", "paramID value", " ",
                                         " ", " "}));
    for (int i = 3; i < 7; ++i)
        QCOMPARE(meta.method(meta.methodOffset() + i).returnMetaType(), QMetaType::fromType<bool>());
    ConfigInterface config;
    QCOMPARE(config.qt_metacast("ConfigInterface"), static_cast<void *>(&config));
    QCOMPARE(config.qt_metacast("ConfigEventListener"),
             static_cast<void *>(static_cast<ConfigEventListener *>(&config)));
}

void TestConfigInterface::aMissingConnectionIsLogged()
{
    ConfigFactoryImpl::GetInstance()->setCreator([](const std::string &) { return nullptr; });
    LogCollector log;
    {
        ConfigInterface config;
        QCOMPARE(config.getUInt32(eParamEncodeType), 0u);
        QVERIFY(!config.set(eParamEncodeType, 1));
    }
    QCOMPARE(log.lines().size(), 2);
    QVERIFY(log.lines().at(0).startsWith(
        QStringLiteral("1 configinterface.cpp Failed to create config: ")));
    QVERIFY(log.lines().at(1).startsWith(
        QStringLiteral("1 configinterface.cpp Failed to create events: ")));
    _store.install();
}

void TestConfigInterface::oneMissingConnectionIsLoggedAndTheOtherWorks_data()
{
    QTest::addColumn<bool>("hasValues");
    QTest::newRow("no values") << false;
    QTest::newRow("no events") << true;
}

void TestConfigInterface::oneMissingConnectionIsLoggedAndTheOtherWorks()
{
    QFETCH(bool, hasValues);
    int count = 0;
    ConfigFactoryImpl::GetInstance()->setCreator([&](const std::string &) {
        const bool isValues = count++ == 0;
        return isValues == hasValues ? _store.connect() : nullptr;
    });
    _store.put(eParamEncodeType, ParamValue(std::uint32_t(0)));
    LogCollector log;
    {
        ConfigInterface config;
        QSignalSpy spy(&config, &ConfigInterface::paramChanged);
        _store.put(eParamEncodeType, ParamValue(std::uint32_t(hasValues ? 3 : 2)));
        QCOMPARE(spy.count(), hasValues ? 0 : 1);
        QCOMPARE(config.getUInt32(eParamEncodeType), hasValues ? 3u : 0u);
        QCOMPARE(config.setUInt32(eParamEncodeType, 1), hasValues);
        QCOMPARE(config.setString(eParamReelName, QStringLiteral("8")), hasValues);
        QCOMPARE(config.setData(eParamLutFile, QByteArray("d")), hasValues);
        QCOMPARE(config.getString(eParamReelName), hasValues ? QStringLiteral("8") : QString());
        QCOMPARE(config.getData(eParamLutFile), hasValues ? QByteArray("d") : QByteArray());
        QCOMPARE(config.configObject() != nullptr, hasValues);
        // A replay of nothing readable arrives all the same.
        config.loadParam(eParamEncodeType);
        QCOMPARE(spy.last().at(1).toUInt(), hasValues ? 1u : 0u);
    }
    const QString uri =
        QString::fromStdString(hasValues ? GetEventsURI("udp") : GetConfigURI("udp"));
    QCOMPARE(log.lines(),
             QStringList{
                 QStringLiteral("1 configinterface.cpp Failed to create %1: %2")
                     .arg(hasValues ? QStringLiteral("events") : QStringLiteral("config"), uri)});
    _store.install();
}

void TestConfigInterface::everyTypeIsWrittenByItsOwnSetter_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<quint32>("id"); ///< of a kind that takes it
    QTest::addColumn<QVariant>("stored");
    const quint32 number = eParamRecordInterval;
    // clang-format off
    QTest::newRow("uint")       << QVariant(7u)                          << number                  << QVariant(7u);
    QTest::newRow("int")        << QVariant(9)                           << number                  << QVariant(9u);
    QTest::newRow("true")       << QVariant(true)                        << quint32(eParamLoopPlayback) << QVariant(1u);
    QTest::newRow("false")      << QVariant(false)                       << quint32(eParamLoopPlayback) << QVariant(0u);
    QTest::newRow("double")     << QVariant(12.0)                        << number                  << QVariant(12u);
    QTest::newRow("long")       << QVariant(qlonglong(11))               << number                  << QVariant(11u);
    QTest::newRow("no value")   << QVariant()                            << quint32(eParamLoopPlayback) << QVariant(0u);
    QTest::newRow("text")       << QVariant(QStringLiteral("5"))         << quint32(eParamReelName) << QVariant(QStringLiteral("5"));
    QTest::newRow("accents")    << QVariant(QStringLiteral("\u00e9\u4e2d")) << quint32(eParamReelName) << QVariant(QStringLiteral("\u00e9\u4e2d"));
    QTest::newRow("bytes")      << QVariant(QByteArray("\0\xff\0", 3))   << quint32(eParamLutFile)  << QVariant(QByteArray("\0\xff\0", 3));
    QTest::newRow("no bytes")   << QVariant(QByteArray())                << quint32(eParamLutFile)  << QVariant(QByteArray());
    // clang-format on
}

void TestConfigInterface::everyTypeIsWrittenByItsOwnSetter()
{
    QFETCH(QVariant, value);
    QFETCH(quint32, id);
    QFETCH(QVariant, stored);
    ConfigInterface config;
    _store.clearSets();
    QVERIFY(config.set(id, value));
    QCOMPARE(_store.sets().size(), 1u);
    const MemoryStore::Set set = _store.sets().at(0);
    QCOMPARE(quint32(set.id), id);
    if (stored.typeId() == QMetaType::UInt)
        QCOMPARE(std::get<std::uint32_t>(set.value), stored.toUInt());
    else
        QCOMPARE(std::get<std::string>(set.value), stored.toByteArray().toStdString());
}

void TestConfigInterface::aReplayIsDeliveredDirectlyWithTheTimeOfTheReplay()
{
    ConfigInterface config;
    QThread *thread = nullptr;
    OrbTimeStamp stamp;
    connect(&config, &ConfigInterface::paramChanged, this,
            [&](quint32, const QVariant &, const OrbTimeStamp &ts) {
                thread = QThread::currentThread();
                stamp = ts;
            });
    const OrbTimeStamp before = OrbTimeStamp::getCurrent();
    config.loadParam(eParamEncodeType);
    const OrbTimeStamp after = OrbTimeStamp::getCurrent();
    QCOMPARE(thread, QThread::currentThread()); // before loadParam() returned
    QVERIFY(stamp.toDouble() >= before.toDouble() && stamp.toDouble() <= after.toDouble());
}

void TestConfigInterface::aDataParameterIsReplayedAsANumberDeliberately()
{
    ConfigInterface config;
    QVERIFY(config.setData(eParamLutFile, QByteArray("bytes")));
    QSignalSpy spy(&config, &ConfigInterface::paramChanged);
    config.loadParam(eParamLutFile);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(1), QVariant(0u));
}

/// The store's library calls from a thread of its own; receivers get it in theirs.
void TestConfigInterface::aChangeFromAnotherThreadIsQueuedWithValueAndTime()
{
    ConfigInterface config;
    QObject receiver;
    QList<QVariant> values;
    QList<OrbTimeStamp> stamps;
    connect(&config, &ConfigInterface::paramChanged, &receiver,
            [&](quint32, const QVariant &value, const OrbTimeStamp &ts) {
                QCOMPARE(QThread::currentThread(), receiver.thread());
                values << value;
                stamps << ts;
            });
    std::thread([&config] {
        config.ParamChanged(eParamEncodeType, 2u, timeval{10, 1});
        config.ParamChanged(eParamReelName, std::string("\xc3\xa9"), timeval{11, 2});
        std::string bytes("\0z", 2);
        QVERIFY(config.DataChanged(eParamLutFile, bytes, timeval{12, 3}));
        bytes = "gone";
    }).join();
    QVERIFY(values.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(values, QList<QVariant>({QVariant(2u), QVariant(QStringLiteral("\u00e9")),
                                      QVariant(QByteArray("\0z", 2))}));
    QCOMPARE(values.at(0).typeId(), int(QMetaType::UInt));
    QCOMPARE(stamps,
             QList<OrbTimeStamp>({OrbTimeStamp(10, 1), OrbTimeStamp(11, 2), OrbTimeStamp(12, 3)}));
}

void TestConfigInterface::textsOfEveryKind_data()
{
    QTest::addColumn<quint32>("id");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");
    // clang-format off
    QTest::newRow("a number")           << 0x0901000au << QVariant(5u) << "[901000a] eParamRecordInterval = 5";
    QTest::newRow("leading zero")       << 0x0f02000au << QVariant(true) << "[f02000a] eParamLoopPlayback = [1] On";
    QTest::newRow("negative")           << 0x7b04020au << QVariant(-1) << "[7b04020a] eParamCurrentPlayListIndex = -1";
    QTest::newRow("a text")             << 0x7b04000au << QVariant(QStringLiteral("A.mov")) << "[7b04000a] eParamCurrentClip = A.mov";
    QTest::newRow("no value")           << 0x7b04000au << QVariant() << "[7b04000a] eParamCurrentClip = ";
    QTest::newRow("percents")           << 0x7b04000au << QVariant(QStringLiteral("%1 %2 %3")) << "[7b04000a] eParamCurrentClip = %1 %2 %3";
    QTest::newRow("data")               << 0x0d04000au << QVariant(QByteArray("x")) << "[d04000a] eParamLutFile = Data Parameter - no details available";
    QTest::newRow("an alarm")           << 0x7e070900u << QVariant(1) << "[7e070900] eParamAlarm1901 = Data Parameter - no details available";
    QTest::newRow("unknown name")       << 0x7d01000au << QVariant(77) << "[7d01000a] eParamTransportCommand = [77] ";
    QTest::newRow("negative name")      << 0x7d01000au << QVariant(-2) << "[7d01000a] eParamTransportCommand = [-2] ";
    QTest::newRow("word for a number")  << 0x7d01000au << QVariant(QStringLiteral("99")) << "[7d01000a] eParamTransportCommand = [99] ";
    QTest::newRow("unknown parameter")  << 0x12345678u << QVariant(1) << "";
    // clang-format on
}

void TestConfigInterface::textsOfEveryKind()
{
    QFETCH(quint32, id);
    QFETCH(QVariant, value);
    QTEST(ConfigInterface::paramToString(id, value), "text");
}

void TestConfigInterface::aSecondInstanceDoesNotMakeTheDescriptorsAgain()
{
    const ConfigInterface first;
    const ParamDescriptor *before = GetDescriptor(eParamReelName);
    const ConfigInterface second;
    QVERIFY(before);
    QCOMPARE(GetDescriptor(eParamReelName), before);
}

void TestConfigInterface::theStoreThatComesAndGoesIsLogged()
{
    ConfigInterface config;
    LogCollector log;
    config.StoreReachable(false);
    config.StoreReachable(true);
    QCOMPARE(log.lines(), QStringList({"2 configinterface.cpp The parameter store does not answer",
                                       "3 configinterface.cpp The parameter store answers"}));
}

void TestConfigInterface::afterItsEndNoChangeArrives()
{
    int changes = 0;
    {
        ConfigInterface config;
        connect(&config, &ConfigInterface::paramChanged, this, [&] { ++changes; });
        _store.put(eParamRecordInterval, ParamValue(std::uint32_t(21)));
    }
    _store.put(eParamRecordInterval, ParamValue(std::uint32_t(22)));
    QCOMPARE(changes, 1);
}

QTEST_GUILESS_MAIN(TestConfigInterface)
#include "tst_configinterface.moc"
