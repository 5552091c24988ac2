#include "config/configinterface.h"
#include "libconfig/memoryconfig.h"
#include "liborb/orb.h"
#include "logcollector.h"

#include <QSignalSpy>
#include <QTest>

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
    QCOMPARE(log.lines(), QStringList{QStringLiteral(
                              "1 configinterface.cpp Param ID 305419896 not found")});
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
    const auto name =
        QString::fromStdString(GetDescriptor(eParamTransportCommand)->valueName(1));
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
    QCOMPARE(names, QStringList({QStringLiteral("paramChanged(uint,QVariant,OrbTimeStamp)"),
                                 QStringLiteral("loadParam(uint)"),
                                 QStringLiteral("loadParams(const quint32*,int)"),
                                 QStringLiteral("set(uint,QVariant)"),
                                 QStringLiteral("setString(uint,QString)"),
                                 QStringLiteral("setUInt32(uint,uint)"),
                                 QStringLiteral("setData(uint,QByteArray)")}));
    ConfigInterface config;
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

QTEST_GUILESS_MAIN(TestConfigInterface)
#include "tst_configinterface.moc"
