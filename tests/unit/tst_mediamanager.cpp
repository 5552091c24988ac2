#include "logcollector.h"
#include "media/mediamanager.h"
#include "scriptedfilesystems.h"
#include "simdispatcher.h"

#include <QFile>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>
#include <QTimerEvent>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace
{

const QString active = QStringLiteral("/media/a");
const QString rollover = QStringLiteral("/media/b");
constexpr int tick = 500;

/// A file system that answers nobody until it is let go.
class HangingFileSystem
{
public:
    ~HangingFileSystem() { letGo(); }
    FileSystemQuestion question()
    {
        return [state = _state](const char *, FileSystemUse &use) {
            std::unique_lock lock(state->mutex);
            ++state->asked;
            state->changed.notify_all();
            state->changed.wait(lock, [&] { return state->isFree; });
            use.totalBlocks = 100;
            use.freeBlocks = 50;
            return true;
        };
    }
    void letGo()
    {
        const std::lock_guard lock(_state->mutex);
        _state->isFree = true;
        _state->changed.notify_all();
    }
    void waitAsked(int count)
    {
        std::unique_lock lock(_state->mutex);
        _state->changed.wait(lock, [&] { return _state->asked >= count; });
    }
    int asked() const
    {
        const std::lock_guard lock(_state->mutex);
        return _state->asked;
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool isFree = false;
        int asked = 0;
    };
    std::shared_ptr<State> _state = std::make_shared<State>();
};

bool answerFivePercent(const char *, FileSystemUse &use)
{
    use = {100, 5, {1}};
    return true;
}

} // namespace

class TestMediaManager : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void signalsAndSlotsStandInTheirOrder();
    void atNinePercentRolloverIsAskedForOnEveryTickUntilItIsMarked();
    void atEightPercentRecordingStopsInsteadOfRollingOver();
    void atNineAndAHalfPercentItRollsOverAndAtEightAndAHalfToo();
    void withoutRolloverRecordingStopsAtTenPercentOnEveryTick();
    void withoutRolloverNothingHappensAtElevenPercent();
    void sharesAreRoundedBeforeTheyAreCompared_data();
    void sharesAreRoundedBeforeTheyAreCompared();
    void aRolloverThatIsInhibitedIsNotAskedFor_data();
    void aRolloverThatIsInhibitedIsNotAskedFor();
    void inhibitReasons_data();
    void inhibitReasons();
    void inhibitIsInProgressBeforeItIsNotMounted();
    void theFirstTickOfAPathThatCouldNotBeMeasuredOnlyStores();
    void aTickThatCannotMeasureDoesNothing();
    void aPathNotSetIsNoMedium();
    void aRolloverSucceedsAndTheMediaTakeTurns();
    void aMediumThatCannotBeMeasuredBecomesActiveAllTheSame();
    void theEndIsSignalledBeforeItIsLoggedAndTheStartAfter();
    void aRolloverThatFailsKeepsBothPaths();
    void aRefusedRolloverIsLoggedWithItsReason();
    void storageUseIsRefusedWhileARolloverRuns();
    void aFileSystemThatHangsBlocksNoTick();
    void aFileSystemThatHangsIsMeasuredAgainOnceItAnswers();
    void otherPathsAreMeasuredWhileOneHangs();
    void anyNumberOfPathsTakesSixteenThreads();
    void sixteenMediaThatHangAreTheLastToBeAsked();
    void otherTimersAreNotTicks();

private:
    void pass(int ticks) { SimDispatcher::runFor(ticks * tick); }
    /// Two media with so many thousandths free, and rollover from the first to the second.
    void useBoth(quint64 activePermille, quint64 rolloverPermille);

    std::optional<QCoreApplication> _app;
    std::optional<ScriptedFileSystems> _disks;
    std::optional<MediaManager> _manager;
    std::optional<QSignalSpy> _rollovers;
    std::optional<QSignalSpy> _stops;
};

void TestMediaManager::init()
{
    static int argc = 1;
    static char name[] = "tst_mediamanager";
    static char *argv[] = {name, nullptr};
    QCoreApplication::setEventDispatcher(new SimDispatcher); // the application's from now on
    _app.emplace(argc, argv);
    _disks.emplace();
    _manager.emplace();
    _rollovers.emplace(&*_manager, SIGNAL(shouldRolloverNow()));
    _stops.emplace(&*_manager, SIGNAL(stopRecordNow()));
}

/// The next test asks the root, too: whoever still hangs in it is waited for.
void TestMediaManager::cleanup()
{
    FileSystemUse use;
    setFileSystemQuestion(answerFivePercent, std::chrono::minutes(1));
    while (!queryFileSystem(QStringLiteral("/"), use))
        std::this_thread::yield();
    _rollovers.reset();
    _stops.reset();
    _manager.reset();
    _disks.reset();
    _app.reset();
}

void TestMediaManager::useBoth(quint64 activePermille, quint64 rolloverPermille)
{
    _disks->mount(active, activePermille);
    _disks->mount(rollover, rolloverPermille);
    _manager->setRolloverEnabled(true);
    _manager->setRolloverPath(rollover);
    _manager->setActivePath(active);
}

void TestMediaManager::signalsAndSlotsStandInTheirOrder()
{
    const QMetaObject &meta = MediaManager::staticMetaObject;
    QStringList names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        names << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(
        names,
        QStringList(
            {QStringLiteral("shouldRolloverNow()"),
             QStringLiteral("rolloverStarted(QString,QString)"),
             QStringLiteral("rolloverCompleted(bool,QString,QString)"),
             QStringLiteral("stopRecordNow()"), QStringLiteral("storageInUse(bool)"),
             QStringLiteral("setRolloverEnabled(bool)"), QStringLiteral("markRolloverInProgress()"),
             QStringLiteral("markRolloverComplete(bool)"), QStringLiteral("setActivePath(QString)"),
             QStringLiteral("setRolloverPath(QString)"), QStringLiteral("setStorageInUse(bool)")}));
    QByteArrayList parameters;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        parameters << meta.method(i).parameterNames().join(' ');
    QCOMPARE(parameters,
             QByteArrayList({"", "activePath rolloverPath", "success activePath rolloverPath", "",
                             "isInUse", "val", "", "success", "", "", ""}));
}

void TestMediaManager::atNinePercentRolloverIsAskedForOnEveryTickUntilItIsMarked()
{
    useBoth(90, 500);
    pass(3);
    QCOMPARE(_rollovers->count(), 3);
    QVERIFY(_manager->markRolloverInProgress());
    pass(3);
    QCOMPARE(_rollovers->count(), 3);
    QCOMPARE(_stops->count(), 0);
}

void TestMediaManager::atEightPercentRecordingStopsInsteadOfRollingOver()
{
    useBoth(80, 500);
    pass(2);
    QCOMPARE(_stops->count(), 2);
    QCOMPARE(_rollovers->count(), 0);
    // Also while a rollover is under way: the old medium is really full now.
    QVERIFY(_manager->markRolloverInProgress());
    pass(1);
    QCOMPARE(_stops->count(), 3);
}

void TestMediaManager::atNineAndAHalfPercentItRollsOverAndAtEightAndAHalfToo()
{
    useBoth(95, 160);
    pass(1);
    QCOMPARE(_rollovers->count(), 1);
    _disks->mount(active, 85);
    pass(1);
    QCOMPARE(_rollovers->count(), 2);
    QCOMPARE(_stops->count(), 0);
}

void TestMediaManager::withoutRolloverRecordingStopsAtTenPercentOnEveryTick()
{
    _disks->mount(active, 100);
    _manager->setActivePath(active);
    pass(4);
    QCOMPARE(_stops->count(), 4);
    QCOMPARE(_rollovers->count(), 0);
}

void TestMediaManager::withoutRolloverNothingHappensAtElevenPercent()
{
    _disks->mount(active, 110);
    _manager->setActivePath(active);
    pass(4);
    QCOMPARE(_stops->count(), 0);
    QCOMPARE(_rollovers->count(), 0);
}

void TestMediaManager::sharesAreRoundedBeforeTheyAreCompared_data()
{
    QTest::addColumn<quint64>("permille");
    QTest::addColumn<int>("stops");
    QTest::newRow("10.4 % is 10 %") << quint64(104) << 1;
    QTest::newRow("10.5 % is 11 %") << quint64(105) << 0;
}

void TestMediaManager::sharesAreRoundedBeforeTheyAreCompared()
{
    QFETCH(quint64, permille);
    _disks->mount(active, permille);
    _manager->setActivePath(active);
    pass(1);
    QTEST(int(_stops->count()), "stops");
}

void TestMediaManager::aRolloverThatIsInhibitedIsNotAskedFor_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<quint64>("permille");
    QTest::addColumn<int>("rollovers");
    QTest::newRow("no path") << QString() << quint64(500) << 0;
    QTest::newRow("15 % free") << rollover << quint64(150) << 0;
    QTest::newRow("16 % free") << rollover << quint64(160) << 1;
    QTest::newRow("not mounted") << QStringLiteral("/tmp") << quint64(500) << 0;
}

void TestMediaManager::aRolloverThatIsInhibitedIsNotAskedFor()
{
    QFETCH(QString, path);
    QFETCH(quint64, permille);
    _disks->mount(active, 90);
    _disks->mount(rollover, permille);
    _manager->setRolloverEnabled(true);
    _manager->setRolloverPath(path);
    _manager->setActivePath(active);
    pass(1);
    QTEST(int(_rollovers->count()), "rollovers");
    QCOMPARE(_stops->count(), 0);
}

void TestMediaManager::inhibitReasons_data()
{
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("path");
    QTest::addColumn<quint64>("permille");
    QTest::addColumn<int>("reason");
    // clang-format off
    QTest::newRow("possible")                             << true  << rollover               << quint64(160) << 0;
    QTest::newRow("disabled")                             << false << rollover               << quint64(500) << 1;
    QTest::newRow("no path is not measurable")            << true  << QString()              << quint64(500) << 3;
    QTest::newRow("no path, disabled: not measurable too")<< false << QString()              << quint64(500) << 3;
    QTest::newRow("query fails")                          << true  << QStringLiteral("/bad") << quint64(500) << 3;
    QTest::newRow("query fails, disabled: that comes first") << false << QStringLiteral("/bad") << quint64(500) << 3;
    QTest::newRow("on the root's file system")            << true  << QStringLiteral("/tmp") << quint64(500) << 5;
    QTest::newRow("15 % free")                            << true  << rollover               << quint64(150) << 6;
    QTest::newRow("15.4 % free")                          << true  << rollover               << quint64(154) << 6;
    QTest::newRow("15.5 % free")                          << true  << rollover               << quint64(155) << 0;
    // clang-format on
}

void TestMediaManager::inhibitReasons()
{
    QFETCH(bool, enabled);
    QFETCH(QString, path);
    QFETCH(quint64, permille);
    _disks->mount(rollover, permille);
    _disks->fail(QStringLiteral("/bad"));
    _manager->setRolloverEnabled(enabled);
    _manager->setRolloverPath(path);
    QTEST(_manager->getRolloverInhibit(), "reason");
}

void TestMediaManager::inhibitIsInProgressBeforeItIsNotMounted()
{
    _disks->mount(rollover, 500);
    _manager->setRolloverEnabled(true);
    _manager->setRolloverPath(rollover);
    QVERIFY(_manager->markRolloverInProgress());
    QCOMPARE(_manager->getRolloverInhibit(), 2);
    QCOMPARE(_manager->getRolloverInhibit(MediaManager::PathInfo()), 2);
    _disks->fail(rollover);
    QCOMPARE(_manager->getRolloverInhibit(), 3);
    // Nor does a path that is taken away meanwhile come first.
    _manager->setRolloverPath(QString());
    QCOMPARE(_manager->getRolloverInhibit(), 3);
    QCOMPARE(_manager->getRolloverInhibit(MediaManager::PathInfo()), 2);
    _manager->setRolloverEnabled(false);
    QCOMPARE(_manager->getRolloverInhibit(MediaManager::PathInfo()), 1);
}

void TestMediaManager::theFirstTickOfAPathThatCouldNotBeMeasuredOnlyStores()
{
    _disks->mount(active, 50);
    _disks->fail(active);
    LogCollector log;
    _manager->setActivePath(active);
    QCOMPARE(log.lines(),
             QStringList({QStringLiteral("3 mediamanager.cpp Active Media Path: /media/a"),
                          QStringLiteral("1 mediamanager.cpp getPathInfo failed for /media/a")}));
    pass(2);
    _disks->mount(active, 50);
    pass(1);
    QCOMPARE(_stops->count(), 0);
    pass(1);
    QCOMPARE(_stops->count(), 1);
}

void TestMediaManager::aTickThatCannotMeasureDoesNothing()
{
    _disks->mount(active, 50);
    _manager->setActivePath(active);
    _disks->fail(active);
    pass(2);
    QCOMPARE(_stops->count(), 0);
    // What was measured before still counts: no tick is lost when the medium answers again.
    _disks->mount(active, 50);
    pass(1);
    QCOMPARE(_stops->count(), 1);
}

void TestMediaManager::aPathNotSetIsNoMedium()
{
    _disks->mount(active, 50);
    _manager->setActivePath(active);
    _manager->setActivePath(QString());
    pass(3);
    QCOMPARE(_stops->count(), 0);
    MediaManager::PathInfo info;
    QVERIFY(!_manager->getActivePathInfo(info));
    QVERIFY(!_manager->getRolloverPathInfo(info));
}

void TestMediaManager::aRolloverSucceedsAndTheMediaTakeTurns()
{
    useBoth(90, 95);
    _disks->mount(rollover, 500);
    QSignalSpy started(&*_manager, &MediaManager::rolloverStarted);
    QSignalSpy completed(&*_manager, &MediaManager::rolloverCompleted);
    LogCollector log;
    QVERIFY(_manager->markRolloverInProgress());
    QVERIFY(_manager->isRolloverInProgress());
    QCOMPARE(started, QList<QVariantList>({{active, rollover}}));
    _disks->mount(rollover, 80);
    _manager->markRolloverComplete(true);
    QVERIFY(!_manager->isRolloverInProgress());
    QCOMPARE(_manager->activePath(), rollover);
    QCOMPARE(_manager->rolloverPath(), QString());
    QCOMPARE(completed, QList<QVariantList>({{true, active, rollover}}));
    QCOMPARE(_manager->getRolloverInhibit(), 3);
    QCOMPARE(
        log.lines(),
        QStringList(
            {QStringLiteral("3 mediamanager.cpp Rollover from /media/a to /media/b has started"),
             QStringLiteral("3 mediamanager.cpp Rollover from /media/a to /media/b has "
                            "completed.")}));
    // The new medium was measured with the change: its first tick already counts.
    pass(1);
    QCOMPARE(_stops->count(), 1);
}

void TestMediaManager::aMediumThatCannotBeMeasuredBecomesActiveAllTheSame()
{
    useBoth(90, 500);
    QVERIFY(_manager->markRolloverInProgress());
    _disks->fail(rollover);
    LogCollector log;
    _manager->markRolloverComplete(true);
    QCOMPARE(_manager->activePath(), rollover);
    QCOMPARE(log.lines().size(), 1); // nothing of the measurement
    // Its first measurement is only stored.
    _disks->mount(rollover, 50);
    pass(1);
    QCOMPARE(_stops->count(), 0);
    pass(1);
    QCOMPARE(_stops->count(), 1);
}

void TestMediaManager::theEndIsSignalledBeforeItIsLoggedAndTheStartAfter()
{
    _disks->mount(rollover, 500);
    _manager->setRolloverPath(rollover);
    _manager->setRolloverEnabled(true);
    LogCollector log;
    QList<qsizetype> lines;
    connect(&*_manager, &MediaManager::rolloverStarted, this, [&] {
        lines << log.lines().size();
        QVERIFY(_manager->isRolloverInProgress());
    });
    connect(&*_manager, &MediaManager::rolloverCompleted, this, [&] {
        lines << log.lines().size();
        QVERIFY(!_manager->isRolloverInProgress());
    });
    QVERIFY(_manager->markRolloverInProgress());
    _manager->markRolloverComplete(false);
    QCOMPARE(lines, QList<qsizetype>({1, 1}));
    QCOMPARE(log.lines().size(), 2);
}

void TestMediaManager::aRolloverThatFailsKeepsBothPaths()
{
    useBoth(90, 500);
    QVERIFY(_manager->markRolloverInProgress());
    QSignalSpy completed(&*_manager, &MediaManager::rolloverCompleted);
    LogCollector log;
    _manager->markRolloverComplete(false);
    QCOMPARE(_manager->activePath(), active);
    QCOMPARE(_manager->rolloverPath(), rollover);
    QCOMPARE(completed, QList<QVariantList>({{false, active, rollover}}));
    QCOMPARE(log.lines(), QStringList{QStringLiteral("1 mediamanager.cpp Rollover from /media/a to "
                                                     "/media/b has failed.")});
    // It is asked for again.
    pass(1);
    QCOMPARE(_rollovers->count(), 1);
}

void TestMediaManager::aRefusedRolloverIsLoggedWithItsReason()
{
    _disks->mount(rollover, 100);
    _manager->setRolloverPath(rollover);
    _manager->setRolloverEnabled(true);
    QSignalSpy started(&*_manager, &MediaManager::rolloverStarted);
    LogCollector log;
    QVERIFY(!_manager->markRolloverInProgress());
    QVERIFY(!_manager->isRolloverInProgress());
    QCOMPARE(started.count(), 0);
    QCOMPARE(log.lines(), QStringList{QStringLiteral(
                              "1 mediamanager.cpp Can't mark rollover in progress, rollover is "
                              "inhibited (6)")});
}

void TestMediaManager::storageUseIsRefusedWhileARolloverRuns()
{
    _disks->mount(rollover, 500);
    _manager->setRolloverPath(rollover);
    _manager->setRolloverEnabled(true);
    _manager->setStorageInUse(true);
    QVERIFY(_manager->markRolloverInProgress());
    QSignalSpy used(&*_manager, &MediaManager::storageInUse);
    LogCollector log;
    _manager->setStorageInUse(true);
    _manager->setStorageInUse(false);
    QCOMPARE(used.count(), 0);
    QCOMPARE(log.lines(),
             QStringList{QStringLiteral("3 mediamanager.cpp Rollover in progress, ignoring "
                                        "setStorageInUse(false)")});
    _manager->markRolloverComplete(false);
    _manager->setStorageInUse(false);
    QCOMPARE(used, QList<QVariantList>({{false}}));
    QVERIFY(_manager->markRolloverInProgress());
    log.clear();
    _manager->setStorageInUse(true);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("3 mediamanager.cpp Rollover in progress, ignoring "
                                                     "setStorageInUse(true)")});
    QCOMPARE(used.count(), 1);
}

/// Were a query waited for, this test would never end.
void TestMediaManager::aFileSystemThatHangsBlocksNoTick()
{
    HangingFileSystem hanging;
    setFileSystemQuestion(hanging.question(), std::chrono::milliseconds(1));
    LogCollector log;
    _manager->setActivePath(QStringLiteral("/media/hangs"));
    pass(100);
    QCOMPARE(_stops->count(), 0);
    QVERIFY(log.contains(1, QStringLiteral("mediamanager.cpp"),
                         QStringLiteral("getPathInfo failed for /media/hangs")));
    // Nor is it asked again and again while the first question hangs.
    hanging.waitAsked(1);
    QCOMPARE(hanging.asked(), 1);
    hanging.letGo();
}

void TestMediaManager::aFileSystemThatHangsIsMeasuredAgainOnceItAnswers()
{
    const QString path = QStringLiteral("/media/hangs for a while");
    HangingFileSystem hanging;
    FileSystemUse use;
    setFileSystemQuestion(hanging.question(), std::chrono::milliseconds(1));
    QVERIFY(!queryFileSystem(path, use));
    hanging.waitAsked(1);
    setFileSystemQuestion(answerFivePercent, std::chrono::minutes(1));
    QVERIFY(!queryFileSystem(path, use));
    hanging.letGo();
    while (!queryFileSystem(path, use))
        std::this_thread::yield();
    _manager->setActivePath(path);
    pass(1);
    QCOMPARE(_stops->count(), 1);
}

void TestMediaManager::otherPathsAreMeasuredWhileOneHangs()
{
    HangingFileSystem hanging;
    FileSystemUse use;
    setFileSystemQuestion(hanging.question(), std::chrono::milliseconds(1));
    QVERIFY(!queryFileSystem(QStringLiteral("/media/hangs alone"), use));
    setFileSystemQuestion(answerFivePercent, std::chrono::minutes(1));
    MediaManager::PathInfo info;
    QVERIFY(MediaManager::getPathInfo(active, info));
    QCOMPARE(info.freePercent, 5.0);
    hanging.letGo();
}

void TestMediaManager::anyNumberOfPathsTakesSixteenThreads()
{
    setFileSystemQuestion(answerFivePercent, std::chrono::minutes(1));
    FileSystemUse use;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 50; ++i)
            QVERIFY(queryFileSystem(QStringLiteral("/media/%1").arg(i), use));
    }
    QVERIFY(!queryFileSystem(QString(), use));
    QFile tasks(QStringLiteral("/proc/self/status"));
    QVERIFY(tasks.open(QIODevice::ReadOnly));
    const QByteArray status = tasks.readAll();
    const qsizetype at = status.indexOf("Threads:");
    // Those that were sent away may still be on their way out; there are never fifty.
    QVERIFY(at > 0 && status.mid(at + 8, 8).trimmed().split('\n').first().toInt() < 50);
}

void TestMediaManager::sixteenMediaThatHangAreTheLastToBeAsked()
{
    HangingFileSystem hanging;
    FileSystemUse use;
    setFileSystemQuestion(hanging.question(), std::chrono::milliseconds(1));
    for (int i = 0; i < 16; ++i)
        QVERIFY(!queryFileSystem(QStringLiteral("/media/dead %1").arg(i), use));
    hanging.waitAsked(16);
    // Not even a healthy one: no thread is left to ask it.
    setFileSystemQuestion(answerFivePercent, std::chrono::minutes(1));
    QVERIFY(!queryFileSystem(QStringLiteral("/media/healthy"), use));
    hanging.letGo();
    while (!queryFileSystem(QStringLiteral("/media/healthy"), use))
        std::this_thread::yield();
    QCOMPARE(use.freeBlocks, quint64(5));
}

void TestMediaManager::otherTimersAreNotTicks()
{
    _disks->mount(active, 50);
    _manager->setActivePath(active);
    QTimerEvent other(-1);
    QCoreApplication::sendEvent(&*_manager, &other);
    _manager->timerEvent(&other);
    QCOMPARE(_stops->count(), 0);
    pass(1);
    QCOMPARE(_stops->count(), 1);
}

QTEST_APPLESS_MAIN(TestMediaManager)
#include "tst_mediamanager.moc"
