#include "libconfig/memoryconfig.h"
#include "libvanta/clipfinder.h"
#include "libvanta/sharedlist.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

using lumo::media::SharedList;

namespace {

Clip clipNamed(const std::string &name, const std::string &path, bool complete = true)
{
    Clip clip;
    clip.setName(name);
    clip.setPath(path);
    clip.setFrameCount(10);
    clip.setComplete(complete);
    return clip;
}

constexpr const char *prefix = "tst_clipfinder_list";

} // namespace

class TestClipFinder : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();
    void aNameIsReelAndCounter();
    void namesInUseAreSkipped();
    void theLastNumberTakenIsAFailure();
    void theCounterMovesOnPastTheNameBuilt();
    void continuationNames_data();
    void continuationNames();
    void continuationsSkipWhatIsOnTheOtherMedium();
    void namesOnAnyMediumInTheListsAreSkipped();
    void aLinkToNowhereIsInTheWay();
    void theThreeFlagsChooseMediumListAndState();
    void aSharedListComesBackEqual();
    void aTornListIsNotBelieved();
    void aListThatDoesNotFitLeavesTheOneBefore();

private:
    MemoryStore _store;
    std::unique_ptr<Config> _config;
    QTemporaryDir _dir;
};

void TestClipFinder::initTestCase()
{
    CreateDescriptors();
    _config.reset(_store.connect());
}

void TestClipFinder::init()
{
    _config->setString(eParamActivePath, _dir.path().toStdString());
    _config->setString(eParamReelName, "7");
    _config->setUInt32(eParamClipCounter, 42);
    SharedList::remove(prefix);
}

void TestClipFinder::cleanup()
{
    SharedList::remove(prefix);
}

void TestClipFinder::cleanupTestCase()
{
    SharedList::remove("NewCacheSharedClipCache");
    SharedList::remove("NewCacheSharedPlaylistCache");
}

void TestClipFinder::aNameIsReelAndCounter()
{
    ClipFinder finder(_config.get());
    std::string name;
    QCOMPARE(finder.buildClipName(name, {}), 0);
    QCOMPARE(name, std::string("R007C0042.mov"));
    _config->setString(eParamReelName, "../A B1");
    QCOMPARE(finder.buildClipName(name, {}), 0);
    QCOMPARE(name, std::string("RAB1C0042.mov"));
}

void TestClipFinder::namesInUseAreSkipped()
{
    QFile onMedium(_dir.filePath(QStringLiteral("R007C0043.mov")));
    QVERIFY(onMedium.open(QIODevice::WriteOnly));
    ClipFinder finder(_config.get());
    std::string name;
    QCOMPARE(finder.buildClipName(name, {clipNamed("R007C0042.mov", "")}), 0);
    QCOMPARE(name, std::string("R007C0044.mov"));
    onMedium.remove();
}

void TestClipFinder::theLastNumberTakenIsAFailure()
{
    _config->setUInt32(eParamClipCounter, 9999);
    ClipFinder finder(_config.get());
    std::string name;
    QCOMPARE(finder.buildClipName(name, {clipNamed("R007C9999.mov", "")}), -1);
    QCOMPARE(name, std::string("R007C9999.mov"));
}

void TestClipFinder::theCounterMovesOnPastTheNameBuilt()
{
    ClipFinder finder(_config.get());
    finder.incrementTakeIfAppropriate();
    unsigned int counter = 0;
    _config->getUInt32(eParamClipCounter, counter);
    QCOMPARE(counter, 42u);
    std::string name;
    finder.buildClipName(name, {clipNamed("R007C0042.mov", "")});
    finder.incrementTakeIfAppropriate();
    _config->getUInt32(eParamClipCounter, counter);
    QCOMPARE(counter, 44u);
}

void TestClipFinder::continuationNames_data()
{
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("next");
    QTest::newRow("first") << "R001C0042.mov" << "R001C0042_2.mov";
    QTest::newRow("second") << "R001C0042_2.mov" << "R001C0042_3.mov";
    QTest::newRow("tenth") << "R001C0042_10.mov" << "R001C0042_11.mov";
    QTest::newRow("no extension") << "A" << "A_2";
    QTest::newRow("mark without number") << "A_b.mov" << "A_b_2.mov";
    QTest::newRow("number one is a name") << "A_1.mov" << "A_1_2.mov";
    QTest::newRow("no name") << "" << QString();
    QTest::newRow("last part") << "A_9999.mov" << QString();
}

void TestClipFinder::continuationNames()
{
    QFETCH(QString, current);
    QFETCH(QString, next);
    ClipFinder finder(_config.get());
    std::string name;
    const int result =
        finder.getClipNameWithIncrementedRolloverIndex(current.toStdString(), name);
    QCOMPARE(result == 0, !next.isEmpty());
    if (!next.isEmpty())
        QCOMPARE(QString::fromStdString(name), next);
}

void TestClipFinder::continuationsSkipWhatIsOnTheOtherMedium()
{
    QTemporaryDir other;
    _config->setString(eParamRolloverPath, other.path().toStdString());
    for (const char *taken : {"A_2.mov", "A_3.mov"})
        QVERIFY(QFile(other.filePath(QString::fromLatin1(taken))).open(QIODevice::WriteOnly));
    ClipFinder finder(_config.get());
    std::string name;
    QCOMPARE(finder.getClipNameWithIncrementedRolloverIndex("A.mov", name), 0);
    QCOMPARE(name, std::string("A_4.mov"));
    QVERIFY(QFile(other.filePath(QStringLiteral("A_9999.mov"))).open(QIODevice::WriteOnly));
    QVERIFY(finder.getClipNameWithIncrementedRolloverIndex("A_9998.mov", name) != 0);
    QCOMPARE(name, std::string("A_9999.mov")); // the one that is in the way
    _config->setString(eParamRolloverPath, std::string());
}

void TestClipFinder::namesOnAnyMediumInTheListsAreSkipped()
{
    lumo::media::MediaCache cache("NewCache");
    Clip bad = clipNamed("R007C0043.mov", "/media/third");
    bad.setState(ClipState::Bad);
    QVERIFY(cache.setClips({clipNamed("R007C0042.mov", "/media/second"), bad,
                            clipNamed("A_2.mov", "/media/third")}));
    ClipFinder finder(_config.get());
    std::string name;
    QCOMPARE(finder.buildClipName(name, {}), 0);
    QCOMPARE(name, std::string("R007C0044.mov"));
    QCOMPARE(finder.getClipNameWithIncrementedRolloverIndex("A.mov", name), 0);
    QCOMPARE(name, std::string("A_3.mov"));
    QVERIFY(cache.setClips({}));
}

void TestClipFinder::aLinkToNowhereIsInTheWay()
{
    const QByteArray link = _dir.filePath(QStringLiteral("R007C0042.mov")).toLocal8Bit();
    QCOMPARE(::symlink("/nowhere", link.constData()), 0);
    ClipFinder finder(_config.get());
    std::string name;
    QCOMPARE(finder.buildClipName(name, {}), 0);
    QCOMPARE(name, std::string("R007C0043.mov"));
    ::unlink(link.constData());
}

void TestClipFinder::theThreeFlagsChooseMediumListAndState()
{
    const std::string active = _dir.path().toStdString();
    const Clip ready = clipNamed("A.mov", active);
    const Clip growing = clipNamed("B.mov", active, false);
    const Clip other = clipNamed("C.mov", "/media/other");
    Clip missing = clipNamed("D.mov", active);
    missing.setState(ClipState::Missing);
    lumo::media::MediaCache cache("NewCache");
    QVERIFY(cache.setClips({ready, growing, other}));
    QVERIFY(cache.setPlaylist({missing, ready, other}));
    ClipFinder finder(_config.get());
    using Clips = std::list<Clip>;
    QVERIFY(finder.findClips(true, false, true) == Clips({ready}));
    QVERIFY(finder.findClips(true, false, false) == Clips({ready, growing}));
    QVERIFY(finder.findClips(false, false, true) == Clips({ready, other}));
    QVERIFY(finder.findClips(false, false, false) == Clips({ready, growing, other}));
    QVERIFY(finder.findClips(true, true, true) == Clips({ready}));
    QVERIFY(finder.findClips(true, true, false) == Clips({missing, ready}));
    QVERIFY(finder.findClips(false, true, true) == Clips({ready, other}));
    QVERIFY(finder.findClips(false, true, false) == Clips({missing, ready, other}));
    QVERIFY(cache.setClips({}));
    QVERIFY(cache.setPlaylist({}));
}

void TestClipFinder::aSharedListComesBackEqual()
{
    SharedList writer(prefix, 65536);
    SharedList reader(prefix, 65536);
    std::list<Clip> clips{clipNamed("x", "y")};
    QVERIFY(!reader.load(clips));
    QCOMPARE(clips.size(), std::size_t(1));
    const std::list<Clip> written{clipNamed("A.mov", "/m"), clipNamed("B.mov", "/m", false)};
    QVERIFY(writer.store(written));
    QVERIFY(reader.load(clips));
    QVERIFY(clips == written);
    QVERIFY(writer.store({}));
    QVERIFY(reader.load(clips));
    QVERIFY(clips.empty());
}

void TestClipFinder::aTornListIsNotBelieved()
{
    SharedList list(prefix, 65536);
    QVERIFY(list.store({clipNamed("A.mov", "/m")}));
    const int fd = shm_open((std::string("/") + prefix + "_shm").c_str(), O_RDWR, 0);
    QVERIFY(fd >= 0);
    auto *bytes = static_cast<unsigned char *>(
        mmap(nullptr, 65536, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    ::close(fd);
    QVERIFY(bytes != MAP_FAILED);
    std::list<Clip> clips;
    for (int at = 0; at < 40; ++at) {
        if (at >= 20 && at < 32)
            continue; // reserved, and who holds the mutex
        bytes[at] ^= 0x5a;
        QVERIFY2(!list.load(clips), qPrintable(QString::number(at)));
        bytes[at] ^= 0x5a;
    }
    QVERIFY(list.load(clips));
    munmap(bytes, 65536);
}

void TestClipFinder::aListThatDoesNotFitLeavesTheOneBefore()
{
    SharedList list(prefix, 4096);
    QVERIFY(list.store({clipNamed("A.mov", "/m")}));
    QVERIFY(!list.store({clipNamed(std::string(5000, 'x'), "/m")}));
    std::list<Clip> clips;
    QVERIFY(list.load(clips));
    QCOMPARE(clips.front().getName(), std::string("A.mov"));
}

QTEST_APPLESS_MAIN(TestClipFinder)
#include "tst_clipfinder.moc"
