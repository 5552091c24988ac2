// What the media service answers to requests, with a parameter store in memory that is told what the test says.

#include "mediaservice.h"

#include "libconfig/memoryconfig.h"

#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <memory>

namespace
{

constexpr unsigned int standbyOff = 1, record = 2, still = 15; // of eParamTransportState
constexpr unsigned int isUsed = 1, isReleased = 2;             // of eParamStorageInUse

} // namespace

class TestMediaRequests : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void anEjectBehindTheTransportStateWaitsForTheRelease();
    void anEjectWaitsNoLongerThanTheReleaseMayTake();
    void anEjectThatWaitsIsRefusedWhenAClipIsUsedAgain();
    void anEjectThatWaitsGoesOnWhenTheDaemonIsGone();
    void aMediumThatIsUsedIsRefusedAtOnce_data();
    void aMediumThatIsUsedIsRefusedAtOnce();
    void otherMediaDoNotWait();
    void onlySoManyEjectsWait();
    void aServiceThatStartsKeepsTheRolloverPathOfAClient();

private:
    void start(std::chrono::milliseconds releasePatience = std::chrono::hours(1));
    void eject(const std::string &token, const std::string &path);
    void transport(unsigned int state, unsigned int use);
    std::string answer() const { return _store->text(eParamMediaAnswer); }

    std::unique_ptr<QTemporaryDir> _dir;
    std::string _path;
    /// The answer of who was let: nothing is mounted in the folder.
    std::string _nothingThere;
    std::unique_ptr<MemoryStore> _store;
    std::unique_ptr<MediaService> _service;
};

void TestMediaRequests::init()
{
    _dir = std::make_unique<QTemporaryDir>();
    _path = _dir->path().toStdString();
    _nothingThere = "failed no medium is in " + _path;
    _store = std::make_unique<MemoryStore>();
    _store->install();
    _store->put(eParamTransportRunning, 1u);
    _store->put(eParamActivePath, _path);
}

void TestMediaRequests::cleanup()
{
    _service.reset();
    _store.reset();
}

void TestMediaRequests::start(std::chrono::milliseconds releasePatience)
{
    MediaService::Setup setup;
    setup.cachePrefix = "TestMediaRequests";
    setup.releasePatience = releasePatience;
    _service = std::make_unique<MediaService>(setup);
    QVERIFY(_service->start());
}

void TestMediaRequests::eject(const std::string &token, const std::string &path)
{
    _store->put(eParamMediaRequest, token + " eject " + path);
    QCoreApplication::processEvents();
}

void TestMediaRequests::transport(unsigned int state, unsigned int use)
{
    _store->put(eParamTransportState, state);
    _store->put(eParamStorageInUse, use);
}

void TestMediaRequests::anEjectBehindTheTransportStateWaitsForTheRelease()
{
    transport(still, isUsed);
    start();
    _store->put(eParamTransportState, standbyOff);
    eject("one", _path);
    QCOMPARE(answer(), std::string());
    _store->put(eParamStorageInUse, isReleased);
    QTRY_COMPARE(answer(), "one " + _nothingThere);
}

void TestMediaRequests::anEjectWaitsNoLongerThanTheReleaseMayTake()
{
    transport(standbyOff, isUsed);
    start(std::chrono::milliseconds(1));
    eject("one", _path);
    QTRY_COMPARE(answer(), "one failed " + _path + " is still in use");
}

void TestMediaRequests::anEjectThatWaitsIsRefusedWhenAClipIsUsedAgain()
{
    transport(standbyOff, isUsed);
    start();
    eject("one", _path);
    QCOMPARE(answer(), std::string());
    _store->put(eParamTransportState, record);
    QTRY_COMPARE(answer(), "one failed " + _path + " is recorded on; stop ends that");
}

void TestMediaRequests::anEjectThatWaitsGoesOnWhenTheDaemonIsGone()
{
    transport(standbyOff, isUsed);
    start();
    eject("one", _path);
    QCOMPARE(answer(), std::string());
    _store->put(eParamTransportRunning, 0u);
    QTRY_COMPARE(answer(), "one " + _nothingThere);
}

void TestMediaRequests::aMediumThatIsUsedIsRefusedAtOnce_data()
{
    QTest::addColumn<unsigned int>("state");
    QTest::addColumn<unsigned int>("use");
    QTest::addColumn<QString>("why");
    QTest::newRow("recorded on") << record << isUsed << " is recorded on; stop ends that";
    QTest::newRow("recorded on, the use still to be told") << record << isReleased << " is recorded on; stop ends that";
    QTest::newRow("played from") << still << isUsed << " is played from; standby-off ends that";
}

void TestMediaRequests::aMediumThatIsUsedIsRefusedAtOnce()
{
    QFETCH(unsigned int, state);
    QFETCH(unsigned int, use);
    QFETCH(QString, why);
    transport(state, use);
    start();
    eject("one", _path);
    QCOMPARE(answer(), "one failed " + _path + why.toStdString());
}

void TestMediaRequests::otherMediaDoNotWait()
{
    transport(standbyOff, isUsed);
    QTemporaryDir other;
    _store->put(eParamRolloverPath, other.path().toStdString());
    start();
    eject("one", other.path().toStdString());
    QCOMPARE(answer(), "one failed no medium is in " + other.path().toStdString());
    eject("two", "/nowhere");
    QCOMPARE(answer(), std::string("two failed there is no such slot"));
}

void TestMediaRequests::onlySoManyEjectsWait()
{
    transport(standbyOff, isUsed);
    start();
    for (int i = 0; i < 16; ++i)
        eject(std::to_string(i), _path);
    QCOMPARE(answer(), std::string());
    eject("more", _path);
    QCOMPARE(answer(), "more failed " + _path + " is still in use");
    _store->put(eParamStorageInUse, isReleased);
    QTRY_COMPARE(answer(), "15 " + _nothingThere);
}

void TestMediaRequests::aServiceThatStartsKeepsTheRolloverPathOfAClient()
{
    QTemporaryDir other;
    _store->put(eParamRolloverPath, other.path().toStdString());
    start();
    for (const MemoryStore::Set &set : _store->sets())
        QVERIFY(set.id != eParamRolloverPath);
    QCOMPARE(_store->text(eParamRolloverPath), other.path().toStdString());
}

QTEST_GUILESS_MAIN(TestMediaRequests)

#include "tst_media_requests.moc"
