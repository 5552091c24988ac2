#include "libconfig/memoryconfig.h"

#include <QStringList>
#include <QTest>

#include <memory>

namespace
{

/// Keeps what it is told, as text.
class Diary : public ConfigEventListener
{
public:
    using ConfigEventListener::ParamChanged;

    void ParamChanged(eParam_t id, unsigned int value, timeval) override
    {
        lines << QString("%1 number %2").arg(name(id)).arg(value);
    }
    void ParamChanged(eParam_t id, std::string value, timeval when) override
    {
        lines << QString("%1 text %2 at %3.%4")
                     .arg(name(id), QString::fromStdString(value))
                     .arg(when.tv_sec)
                     .arg(when.tv_usec);
    }
    bool DataChanged(eParam_t id, std::string &data, timeval) override
    {
        lines << QString("%1 data %2").arg(name(id), QByteArray::fromStdString(data).toHex());
        return true;
    }

    QStringList lines;

private:
    static QString name(eParam_t id) { return QString::fromStdString(GetDescriptor(id)->name()); }
};

} // namespace

class TestConfigMemory : public QObject
{
    Q_OBJECT

private slots:
    void readsGiveTheDefaultsAtFirst()
    {
        MemoryStore store;
        const std::unique_ptr<Config> config(store.connect());
        unsigned int number = 99;
        std::string text;
        QVERIFY(config->getUInt32(eParamRecordInterval, number));
        QCOMPARE(number, 1u);
        QVERIFY(config->getString(eParamCurrentClip, text));
        QCOMPARE(text, std::string("N/A"));
        QVERIFY(config->getData(eParamLutFile, text));
        QCOMPARE(text, std::string());
    }

    void readsOfAnotherKindFailAndLeaveTheOutputAlone()
    {
        MemoryStore store;
        const std::unique_ptr<Config> config(store.connect());
        unsigned int number = 99;
        std::string text = "kept";
        QVERIFY(!config->getUInt32(eParamReelName, number));
        QVERIFY(!config->getUInt32(eParamLutFile, number));
        QVERIFY(!config->getUInt32(static_cast<eParam_t>(1), number));
        QVERIFY(!config->getString(eParamLutFile, text));
        QVERIFY(!config->getString(eParamEncodeType, text));
        QVERIFY(!config->getData(eParamReelName, text));
        QCOMPARE(number, 99u);
        QCOMPARE(text, std::string("kept"));
    }

    void setsAreReadBackAndRecorded()
    {
        MemoryStore store;
        const std::unique_ptr<Config> config(store.connect());
        const std::string bytes("a\0b", 3);
        QVERIFY(config->setUInt32(eParamEncodeType, 3));
        QVERIFY(config->setString(eParamReelName, "42"));
        QVERIFY(config->setData(eParamLutFile, bytes));
        QCOMPARE(store.number(eParamEncodeType), 3u);
        QCOMPARE(store.text(eParamReelName), std::string("42"));
        QCOMPARE(store.text(eParamLutFile), bytes);
        QCOMPARE(store.sets().size(), std::size_t(3));
        QCOMPARE(store.sets()[1].id, eParamReelName);
        QVERIFY(store.sets()[1].accepted);
    }

    void valuesThatDoNotFitAreRefused_data()
    {
        QTest::addColumn<int>("row");
        QTest::newRow("no name for the value") << 0;
        QTest::newRow("out of range") << 1;
        QTest::newRow("string for a number") << 2;
        QTest::newRow("number for a string") << 3;
        QTest::newRow("string for data") << 4;
        QTest::newRow("data for a string") << 5;
        QTest::newRow("too long") << 6;
        QTest::newRow("unknown") << 7;
    }

    void valuesThatDoNotFitAreRefused()
    {
        QFETCH(int, row);
        MemoryStore store;
        const std::unique_ptr<Config> config(store.connect());
        Diary diary;
        config->registerListener(&diary);
        const bool results[] = {
            row == 0 && config->setUInt32(eParamEncodeType, 4),
            row == 1 && config->setUInt32(eParamTimecodeValue, 24),
            row == 2 && config->setString(eParamEncodeType, "3"),
            row == 3 && config->setUInt32(eParamReelName, 3),
            row == 4 && config->setString(eParamLutFile, "x"),
            row == 5 && config->setData(eParamReelName, "x"),
            row == 6 && config->setString(eParamReelName, std::string(901, 'x')),
            row == 7 && config->setUInt32(static_cast<eParam_t>(1), 1),
        };
        QVERIFY(!results[row]);
        QCOMPARE(store.sets().size(), std::size_t(1));
        QVERIFY(!store.sets()[0].accepted);
        QVERIFY(diary.lines.isEmpty());
        QCOMPARE(store.text(eParamReelName), std::string("1"));
        QCOMPARE(store.text(eParamLutFile), std::string());
    }

    void listenersOfEveryConnectionAreToldBeforeTheSetReturns()
    {
        MemoryStore store;
        store.setTime({12, 34});
        const std::unique_ptr<Config> one(store.connect());
        std::unique_ptr<Config> two(store.connect());
        Diary first;
        Diary second;
        one->registerListener(&first);
        two->registerListener(&second);
        one->setUInt32(eParamEncodeType, 3);
        one->setString(eParamReelName, "A");
        one->setData(eParamAlarm1901, std::string("\0\1", 2));
        const QStringList expected{"eParamEncodeType number 3", "eParamReelName text A at 12.34",
                                   "eParamAlarm1901 data 0001"};
        QCOMPARE(first.lines, expected);
        QCOMPARE(second.lines, expected);
        two.reset();
        one->setUInt32(eParamEncodeType, 0);
        QCOMPARE(second.lines, expected);
        QCOMPARE(first.lines.size(), 4);
    }

    void onlyMomentaryParametersTellOfUnchangedValues()
    {
        MemoryStore store;
        const std::unique_ptr<Config> config(store.connect());
        Diary diary;
        config->registerListener(&diary);
        for (int i = 0; i < 3; i++) {
            QVERIFY(config->setUInt32(eParamEncodeType, 2));
            QVERIFY(config->setUInt32(eParamTransportCommand, 5));
        }
        QCOMPARE(diary.lines.filter("eParamEncodeType").size(), 1);
        QCOMPARE(diary.lines.filter("eParamTransportCommand").size(), 3);
    }

    void setsFailWhileUnreachable()
    {
        MemoryStore store;
        const std::unique_ptr<Config> config(store.connect());
        store.setReachable(false);
        QVERIFY(!config->setUInt32(eParamEncodeType, 2));
        QCOMPARE(store.number(eParamEncodeType), 0u);
        store.setReachable(true);
        QVERIFY(config->setUInt32(eParamEncodeType, 2));
    }

    void outsideSetsAreNotRecordedAndMayGoBeyondTheCatalogue()
    {
        MemoryStore store;
        QVERIFY(!store.put(eParamEncodeType, 4u));
        QVERIFY(store.putUnchecked(eParamEncodeType, 4u));
        QVERIFY(!store.putUnchecked(eParamEncodeType, std::string("4")));
        QCOMPARE(store.number(eParamEncodeType), 4u);
        QVERIFY(store.sets().empty());
    }

    void attributesBelongToTheParameter()
    {
        MemoryStore store;
        const std::unique_ptr<Config> config(store.connect());
        QVERIFY(config->attributes(eParamAlarm1904)->has("clear_on_play_pressed"));
        QVERIFY(!config->attributes(eParamAlarm1910)->has("clear_on_play_pressed"));
        QVERIFY(!config->attributes(eParamReelName)->has(""));
        QVERIFY(!config->attributes(static_cast<eParam_t>(1)));
    }

    void installedStoreIsWhatTheFactoryHandsOut()
    {
        const std::string uri = GetConfigURI("udp");
        {
            MemoryStore store;
            store.install();
            const std::unique_ptr<Config> config(ConfigFactoryImpl::GetInstance()->create(uri));
            QVERIFY(config->setUInt32(eParamEncodeType, 2));
            QCOMPARE(store.number(eParamEncodeType), 2u);
        }
        QVERIFY(!ConfigFactoryImpl::GetInstance()->create("udp:nonsense"));
    }

    void addressesFollowTheEnvironment()
    {
        qunsetenv("RVD_STORE_PORT");
        QCOMPARE(GetConfigURI("udp"), std::string("udp://127.0.0.1:7461/values"));
        QCOMPARE(GetEventsURI("udp"), std::string("udp://127.0.0.1:7461/events"));
        QCOMPARE(GetConfigURI("tcp"), std::string());
        qputenv("RVD_STORE_PORT", "9000");
        QCOMPARE(GetConfigURI("udp"), std::string("udp://127.0.0.1:9000/values"));
        qputenv("RVD_STORE_PORT", "90000");
        QCOMPARE(GetConfigURI("udp"), std::string("udp://127.0.0.1:7461/values"));
        qunsetenv("RVD_STORE_PORT");
    }
};

QTEST_GUILESS_MAIN(TestConfigMemory)
#include "tst_config_memory.moc"
