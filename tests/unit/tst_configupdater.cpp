#include "config/configinterface.h"
#include "config/configupdater.h"
#include "libconfig/memoryconfig.h"
#include "liborb/orb.h"
#include "libvanta/shmstring.h"
#include "logcollector.h"

#include <QTest>

namespace {

/// The sets made since the last call, as "name=value".
QStringList setsOf(MemoryStore &store)
{
    QStringList list;
    for (const MemoryStore::Set &set : store.sets()) {
        const auto *number = std::get_if<std::uint32_t>(&set.value);
        list << QString::fromStdString(GetDescriptor(set.id)->name()) + QLatin1Char('=') +
                    (number ? QString::number(*number)
                            : QString::fromStdString(std::get<std::string>(set.value)));
    }
    store.clearSets();
    return list;
}

QString published(const char *name)
{
    ShmString reader(name);
    return reader.open() ? QString::fromStdString(reader.read()) : QString();
}

} // namespace

class TestConfigUpdater : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void constructionReplaysThreeParametersAndBlanksTheTimecodes();
    void storageUsesTheCodesOneAndTwo();
    void aClipNameFromTheStoreIsNotWrittenBack();
    void aNegativeIndexIsWrittenAsUnsigned();
    void timecodesAreWrittenWhenTheyChange();

private:
    std::unique_ptr<MemoryStore> _store;
};

void TestConfigUpdater::initTestCase()
{
    Orb::init(0);
}

void TestConfigUpdater::init()
{
    _store = std::make_unique<MemoryStore>();
    _store->install();
}

void TestConfigUpdater::constructionReplaysThreeParametersAndBlanksTheTimecodes()
{
    ConfigInterface config;
    QList<quint32> replayed;
    connect(&config, &ConfigInterface::paramChanged, this,
            [&](quint32 id) { replayed << id; });
    ConfigUpdater updater(&config);
    QCOMPARE(replayed, QList<quint32>({0x7b04000a, 0x7b04020a, 0x79090000}));
    QCOMPARE(published("/rvd_currentTimecode"), QStringLiteral("--:--:--:--"));
    QCOMPARE(published("/rvd_inputTimecode"), QStringLiteral("--:--:--:--"));
}

void TestConfigUpdater::storageUsesTheCodesOneAndTwo()
{
    ConfigInterface config;
    ConfigUpdater updater(&config);
    LogCollector log;
    updater.setStorageInUse(false);
    QCOMPARE(setsOf(*_store), QStringList());
    updater.setStorageInUse(true);
    updater.setStorageInUse(true);
    updater.setStorageInUse(false);
    QCOMPARE(setsOf(*_store), QStringList({QStringLiteral("eParamStorageInUse=1"),
                                           QStringLiteral("eParamStorageInUse=2")}));
    QCOMPARE(log.lines(),
             QStringList({QStringLiteral("3 configupdater.cpp *** Storage media is now in use"),
                          QStringLiteral("3 configupdater.cpp *** Storage media has been released")}));
}

void TestConfigUpdater::aClipNameFromTheStoreIsNotWrittenBack()
{
    ConfigInterface config;
    ConfigUpdater updater(&config);
    _store->put(eParamCurrentClip, ParamValue(std::string("A001.mov")));
    updater.setCurrentClip(QStringLiteral("A001.mov"));
    QCOMPARE(setsOf(*_store), QStringList());
    updater.setCurrentClip(QStringLiteral("A002.mov"));
    QCOMPARE(setsOf(*_store), QStringList{QStringLiteral("eParamCurrentClip=A002.mov")});
}

void TestConfigUpdater::aNegativeIndexIsWrittenAsUnsigned()
{
    ConfigInterface config;
    ConfigUpdater updater(&config);
    updater.setCurrentPlayListIndex(3);
    updater.setCurrentPlayListIndex(-1);
    QCOMPARE(setsOf(*_store), QStringList({QStringLiteral("eParamCurrentPlayListIndex=3"),
                                           QStringLiteral("eParamCurrentPlayListIndex=4294967295")}));
    // What comes back from the store reads as -1 again.
    updater.setCurrentPlayListIndex(-1);
    QCOMPARE(setsOf(*_store), QStringList());
}

void TestConfigUpdater::timecodesAreWrittenWhenTheyChange()
{
    ConfigInterface config;
    ConfigUpdater updater(&config);
    updater.setCurrentTimecode(OrbTimecode(10, 0, 0, 5, 25, 0));
    updater.setInputTimecode(OrbTimecode(1, 2, 3, 4, 30, OrbTimecode::DropFrame));
    QCOMPARE(published("/rvd_currentTimecode"), QStringLiteral("10:00:00:05"));
    QCOMPARE(published("/rvd_inputTimecode"), QStringLiteral("01:02:03;04"));
    // An equal one is not written: what another hand put there stays.
    ShmString other("/rvd_currentTimecode");
    QVERIFY(other.create(64));
    other.set("untouched");
    updater.setCurrentTimecode(OrbTimecode(10, 0, 0, 5, 25, 0));
    QCOMPARE(published("/rvd_currentTimecode"), QStringLiteral("untouched"));
    updater.setCurrentTimecode(OrbTimecode());
    QCOMPARE(published("/rvd_currentTimecode"), QStringLiteral("--:--:--:--"));
}

QTEST_GUILESS_MAIN(TestConfigUpdater)
#include "tst_configupdater.moc"
