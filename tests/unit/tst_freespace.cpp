#include "logcollector.h"
#include "media/freespace.h"
#include "media/mediamanager.h"

#include <QSignalSpy>
#include <QTest>

class TestFreeSpace : public QObject
{
    Q_OBJECT
private slots:
    void levelsAreJudgedOnTheRoundedPercentage_data();
    void levelsAreJudgedOnTheRoundedPercentage();
    void aMediumIsMountedWhenItsFileSystemIsAnother();
    void noBlocksAtAllIsAtNoLevel();
    void anEmptyOrMissingPathIsNotMeasured();
    void theRootIsMeasuredAndNotMounted();
    void inhibitReasonsComeInTheirOrder();
    void anEmptyRolloverPathIsNotMeasurableRatherThanMissing();
    void settersLogOnlyChanges();
    void storageInUseIsSignalledOnce();
    void completingARolloverThatDoesNotRunIsLogged();
};

void TestFreeSpace::levelsAreJudgedOnTheRoundedPercentage_data()
{
    QTest::addColumn<quint64>("free");
    QTest::addColumn<double>("percent");
    QTest::addColumn<bool>("rollover");
    QTest::addColumn<bool>("minimum");
    QTest::addColumn<bool>("stop");
    // clang-format off
    QTest::newRow("10.4 rounds to 10")  << quint64(104) << 10.0 << true  << true  << false;
    QTest::newRow("10.5 rounds to 11")  << quint64(105) << 11.0 << false << true  << false;
    QTest::newRow("15 is the minimum")  << quint64(150) << 15.0 << false << true  << false;
    QTest::newRow("15.5 rounds to 16")  << quint64(155) << 16.0 << false << false << false;
    QTest::newRow("8.4 rounds to 8")    << quint64(84)  << 8.0  << true  << true  << true;
    QTest::newRow("8.5 rounds to 9")    << quint64(85)  << 9.0  << true  << true  << false;
    QTest::newRow("nothing free")       << quint64(0)   << 0.0  << true  << true  << true;
    QTest::newRow("all free")           << quint64(1000)<< 100.0<< false << false << false;
    // clang-format on
}

void TestFreeSpace::levelsAreJudgedOnTheRoundedPercentage()
{
    QFETCH(quint64, free);
    FileSystemUse root;
    FileSystemUse medium{1000, free, {1, 2, 3, 4, 5, 6, 7, 8}};
    MediaManager::PathInfo info;
    applyUse(root, medium, info);
    QTEST(info.freePercent, "percent");
    QTEST(info.atRolloverLevel, "rollover");
    QTEST(info.atTargetMinimum, "minimum");
    QTEST(info.atStopLevel, "stop");
}

void TestFreeSpace::aMediumIsMountedWhenItsFileSystemIsAnother()
{
    FileSystemUse root{10, 5, {1, 0, 0, 0, 0, 0, 0, 9}};
    FileSystemUse medium = root;
    MediaManager::PathInfo info;
    applyUse(root, medium, info);
    QVERIFY(!info.mounted);
    medium.id[7] = 8;
    applyUse(root, medium, info);
    QVERIFY(info.mounted);
}

void TestFreeSpace::noBlocksAtAllIsAtNoLevel()
{
    MediaManager::PathInfo info;
    applyUse(FileSystemUse(), FileSystemUse(), info);
    QVERIFY(!info.atRolloverLevel);
    QVERIFY(!info.atTargetMinimum);
    QVERIFY(!info.atStopLevel);
}

void TestFreeSpace::anEmptyOrMissingPathIsNotMeasured()
{
    MediaManager::PathInfo info;
    QVERIFY(!MediaManager::getPathInfo(QString(), info));
    QVERIFY(!MediaManager::getPathInfo(QStringLiteral("/no/such/medium"), info));
    QVERIFY(info.path.isEmpty());
}

void TestFreeSpace::theRootIsMeasuredAndNotMounted()
{
    MediaManager::PathInfo info;
    QVERIFY(MediaManager::getPathInfo(QStringLiteral("/"), info));
    QCOMPARE(info.path, QStringLiteral("/"));
    QVERIFY(!info.mounted);
}

void TestFreeSpace::inhibitReasonsComeInTheirOrder()
{
    MediaManager manager;
    MediaManager::PathInfo info;
    info.mounted = true;
    QCOMPARE(manager.getRolloverInhibit(info), 1);
    manager.setRolloverEnabled(true);
    QCOMPARE(manager.getRolloverInhibit(info), 4);
    manager.setRolloverPath(QStringLiteral("/media/b"));
    QCOMPARE(manager.getRolloverInhibit(info), 0);
    info.atTargetMinimum = true;
    QCOMPARE(manager.getRolloverInhibit(info), 6);
    info.mounted = false;
    QCOMPARE(manager.getRolloverInhibit(info), 5);
    manager.setRolloverEnabled(false);
    QCOMPARE(manager.getRolloverInhibit(info), 1);
}

void TestFreeSpace::anEmptyRolloverPathIsNotMeasurableRatherThanMissing()
{
    MediaManager manager;
    QCOMPARE(manager.getRolloverInhibit(), 3);
    manager.setRolloverEnabled(true);
    QCOMPARE(manager.getRolloverInhibit(), 3);
    LogCollector log;
    QVERIFY(!manager.markRolloverInProgress());
    QCOMPARE(log.lines(), QStringList{QStringLiteral(
                              "1 mediamanager.cpp Can't mark rollover in progress, rollover is "
                              "inhibited (3)")});
}

void TestFreeSpace::settersLogOnlyChanges()
{
    MediaManager manager;
    LogCollector log;
    manager.setActivePath(QStringLiteral("/no/such/medium"));
    manager.setActivePath(QStringLiteral("/no/such/medium"));
    manager.setRolloverPath(QStringLiteral("/b"));
    manager.setRolloverPath(QStringLiteral("/b"));
    manager.setRolloverEnabled(false);
    manager.setRolloverEnabled(true);
    manager.setRolloverEnabled(true);
    manager.setRolloverEnabled(false);
    QCOMPARE(log.lines(),
             QStringList({QStringLiteral("3 mediamanager.cpp Active Media Path: /no/such/medium"),
                          QStringLiteral("1 mediamanager.cpp getPathInfo failed for /no/such/medium"),
                          QStringLiteral("3 mediamanager.cpp Rollover Media Path: /b"),
                          QStringLiteral("3 mediamanager.cpp Rollover Enabled"),
                          QStringLiteral("3 mediamanager.cpp Rollover Disabled")}));
}

void TestFreeSpace::storageInUseIsSignalledOnce()
{
    MediaManager manager;
    QSignalSpy spy(&manager, &MediaManager::storageInUse);
    manager.setStorageInUse(false);
    manager.setStorageInUse(true);
    manager.setStorageInUse(true);
    manager.setStorageInUse(false);
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(0).at(0).toBool(), true);
    QCOMPARE(spy.at(1).at(0).toBool(), false);
}

void TestFreeSpace::completingARolloverThatDoesNotRunIsLogged()
{
    MediaManager manager;
    QSignalSpy spy(&manager, &MediaManager::rolloverCompleted);
    LogCollector log;
    manager.markRolloverComplete(true);
    QVERIFY(spy.isEmpty());
    QVERIFY(log.contains(1, QStringLiteral("mediamanager.cpp"),
                         QStringLiteral("Can't mark rollover complete, since no rollover is in "
                                        "progress")));
}

QTEST_GUILESS_MAIN(TestFreeSpace)
#include "tst_freespace.moc"
