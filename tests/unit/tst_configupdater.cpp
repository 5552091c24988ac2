#include "config/configinterface.h"
#include "config/configupdater.h"
#include "libconfig/memoryconfig.h"
#include "liborb/orb.h"
#include "libvanta/shmstring.h"
#include "logcollector.h"

#include <QMetaMethod>
#include <QScopeGuard>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

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
    void storageDeliberatelyUsesTheCodesOneAndTwo();
    void aClipNameFromTheStoreIsNotWrittenBack();
    void aNegativeIndexIsWrittenAsUnsigned();
    void timecodesAreWrittenWhenTheyChange();
    void anEqualTimecodeWritesNothing();
    void whatTheStoreHoldsAtTheStartIsNotWrittenAgain();
    void otherParametersAreNotMirrored();
    void aTextThatCannotBeSharedIsLoggedAndTheRestWorks();
    void slotsStandInTheirOrder();
    void anotherProcessReadsEveryTimecodeWhole();

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
    connect(&config, &ConfigInterface::paramChanged, this, [&](quint32 id) { replayed << id; });
    ConfigUpdater updater(&config);
    QCOMPARE(replayed, QList<quint32>({0x7b04000a, 0x7b04020a, 0x79090000}));
    QCOMPARE(published("/rvd_currentTimecode"), QStringLiteral("--:--:--:--"));
    QCOMPARE(published("/rvd_inputTimecode"), QStringLiteral("--:--:--:--"));
}

void TestConfigUpdater::storageDeliberatelyUsesTheCodesOneAndTwo()
{
    ConfigInterface config;
    ConfigUpdater updater(&config);
    LogCollector log;
    QList<std::size_t> setsWhenLogged;
    const int sink = OrbLog::defaultLog()->addSink([&](int, const QString &, int, const QString &) {
        setsWhenLogged << _store->sets().size();
    });
    updater.setStorageInUse(false);
    QCOMPARE(setsOf(*_store), QStringList());
    updater.setStorageInUse(true);
    updater.setStorageInUse(true);
    updater.setStorageInUse(false);
    OrbLog::defaultLog()->removeSink(sink);
    QCOMPARE(setsWhenLogged, QList<std::size_t>({1, 2})); // published first
    QCOMPARE(setsOf(*_store), QStringList({QStringLiteral("eParamStorageInUse=1"),
                                           QStringLiteral("eParamStorageInUse=2")}));
    QCOMPARE(
        log.lines(),
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
    QCOMPARE(setsOf(*_store),
             QStringList({QStringLiteral("eParamCurrentPlayListIndex=3"),
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

void TestConfigUpdater::anEqualTimecodeWritesNothing()
{
    ConfigInterface config;
    ConfigUpdater updater(&config);
    for (const char *name : {"/rvd_currentTimecode", "/rvd_inputTimecode"}) {
        ShmString other(name);
        QVERIFY(other.create(64));
        other.set("by hand");
    }
    updater.setCurrentTimecode(OrbTimecode()); // what stands there since construction
    updater.setInputTimecode(OrbTimecode());
    QCOMPARE(published("/rvd_currentTimecode"), QStringLiteral("by hand"));
    QCOMPARE(published("/rvd_inputTimecode"), QStringLiteral("by hand"));
    for (int i = 0; i < 3; ++i) {
        updater.setInputTimecode(OrbTimecode(1, 0, 0, i, 25, 0));
        QCOMPARE(published("/rvd_inputTimecode"), QStringLiteral("01:00:00:0%1").arg(i));
    }
    QCOMPARE(published("/rvd_currentTimecode"), QStringLiteral("by hand"));
}

void TestConfigUpdater::whatTheStoreHoldsAtTheStartIsNotWrittenAgain()
{
    _store->put(eParamCurrentClip, ParamValue(std::string("B.mov")));
    _store->put(eParamCurrentPlayListIndex, ParamValue(std::uint32_t(4)));
    _store->put(eParamStorageInUse, ParamValue(std::uint32_t(1)));
    ConfigInterface config;
    ConfigUpdater updater(&config);
    updater.setCurrentClip(QStringLiteral("B.mov"));
    updater.setCurrentPlayListIndex(4);
    updater.setStorageInUse(false); // of this the store is not asked
    QCOMPARE(setsOf(*_store), QStringList());
    // Another value than the initial one came: now the initial one is written.
    updater.setCurrentPlayListIndex(-1);
    QCOMPARE(setsOf(*_store), QStringList{QStringLiteral("eParamCurrentPlayListIndex=4294967295")});
    // A change by another hand is mirrored, too.
    _store->put(eParamCurrentPlayListIndex, ParamValue(std::uint32_t(6)));
    updater.setCurrentPlayListIndex(6);
    QCOMPARE(setsOf(*_store), QStringList());
}

void TestConfigUpdater::otherParametersAreNotMirrored()
{
    ConfigInterface config;
    ConfigUpdater updater(&config);
    updater.setCurrentClip(QStringLiteral("A.mov"));
    updater.setCurrentPlayListIndex(2);
    setsOf(*_store);
    for (const quint32 id : {0x79090000u, 0x7b01030au, 0x7d04060au, 0u})
        updater.configParamChanged(id, QVariant(QStringLiteral("9")), OrbTimeStamp());
    updater.setCurrentClip(QStringLiteral("A.mov"));
    updater.setCurrentPlayListIndex(2);
    updater.setStorageInUse(false);
    QCOMPARE(setsOf(*_store), QStringList());
}

void TestConfigUpdater::aTextThatCannotBeSharedIsLoggedAndTheRestWorks()
{
    unlink("/dev/shm/rvd_inputTimecode");
    QCOMPARE(mkdir("/dev/shm/rvd_inputTimecode", 0700), 0); // stands in the way
    const auto outOfTheWay = qScopeGuard([] { rmdir("/dev/shm/rvd_inputTimecode"); });
    LogCollector log;
    ConfigInterface config;
    ConfigUpdater updater(&config);
    QCOMPARE(log.lines(),
             QStringList{"2 configupdater.cpp FAILED: _shmStringInputTimecode->create(64)"});
    updater.setInputTimecode(OrbTimecode(1, 2, 3, 4, 25, 0));
    updater.setCurrentTimecode(OrbTimecode(1, 2, 3, 4, 25, 0));
    QCOMPARE(published("/rvd_currentTimecode"), QStringLiteral("01:02:03:04"));
}

void TestConfigUpdater::slotsStandInTheirOrder()
{
    const QMetaObject &meta = ConfigUpdater::staticMetaObject;
    QStringList names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        names << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(names, QStringList({"setStorageInUse(bool)", "setCurrentClip(QString)",
                                 "setCurrentPlayListIndex(int)", "setCurrentTimecode(OrbTimecode)",
                                 "setInputTimecode(OrbTimecode)",
                                 "configParamChanged(uint,QVariant,OrbTimeStamp)"}));
    QByteArrayList parameters;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        parameters << meta.method(i).parameterNames().join(' ');
    QCOMPARE(parameters, QByteArrayList({"val", "", "", "", "", "id value ts"}));
}

/// The daemon writes with every frame, and a reader in another process never has a part of one
/// timecode and a part of the next.
void TestConfigUpdater::anotherProcessReadsEveryTimecodeWhole()
{
    ConfigInterface config;
    ConfigUpdater updater(&config);
    int seen[2];
    QCOMPARE(pipe(seen), 0);
    const pid_t child = fork();
    if (child == 0) {
        ShmString text("/rvd_currentTimecode");
        int count = 0;
        std::string before;
        for (bool isOpen = text.open(); isOpen;) {
            const std::string now = text.read();
            if (now == "23:59:59:24")
                _exit(0);
            // Hour, minute, second and frame are alike in all that the writer writes.
            const bool isBlank = now == "--:--:--:--";
            const bool isWhole = now.size() == 11 && now.substr(0, 2) == now.substr(3, 2) &&
                                 now.substr(0, 2) == now.substr(6, 2) &&
                                 now.substr(0, 2) == now.substr(9, 2);
            if (!isWhole && !isBlank)
                _exit(1);
            count += now != before;
            before = now;
            if (count == 20 && ::write(seen[1], "", 1) != 1)
                _exit(2);
            count += count == 20;
        }
        _exit(3);
    }
    ::close(seen[1]);
    const int flags = fcntl(seen[0], F_GETFL);
    fcntl(seen[0], F_SETFL, flags | O_NONBLOCK);
    char byte;
    for (int i = 0; ::read(seen[0], &byte, 1) == -1; ++i) {
        const int n = i % 23;
        updater.setCurrentTimecode(OrbTimecode(n, n, n, n, 25, 0));
    }
    updater.setCurrentTimecode(OrbTimecode(23, 59, 59, 24, 25, 0));
    ::close(seen[0]);
    int status = -1;
    QCOMPARE(waitpid(child, &status, 0), child);
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
}

QTEST_GUILESS_MAIN(TestConfigUpdater)
#include "tst_configupdater.moc"
