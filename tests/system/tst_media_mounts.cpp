// Free space of file systems that are really mounted: memory file systems of a thousand blocks, filled to the
// block, and an ext4 with blocks reserved for the superuser. In mounts of its own; needs root.

#include "media/mediamanager.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sched.h>
#include <sys/mount.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr int blocks = 1000;

/// A memory file system of a thousand blocks of which so many are free.
class Medium
{
public:
    explicit Medium(const QString &path) : _path(path)
    {
        QDir().mkpath(path);
        const QByteArray options = "size=" + QByteArray::number(blocks * qint64(sysconf(_SC_PAGESIZE)));
        _isMounted = mount("tmpfs", qPrintable(path), "tmpfs", 0, options.constData()) == 0;
    }
    ~Medium()
    {
        if (_isMounted)
            umount2(qPrintable(_path), MNT_DETACH);
    }
    Medium(const Medium &) = delete;
    Medium &operator=(const Medium &) = delete;

    bool fillTo(int freeBlocks) const
    {
        QFile file(_path + QStringLiteral("/ballast"));
        const QByteArray bytes((blocks - freeBlocks) * qsizetype(sysconf(_SC_PAGESIZE)), 'x');
        if (!_isMounted || !file.open(QIODevice::WriteOnly | QIODevice::Truncate)
            || file.write(bytes) != bytes.size() || !file.flush())
            return false;
        struct statfs64 fs = {};
        return statfs64(qPrintable(_path), &fs) == 0 && fs.f_blocks == blocks
               && fs.f_bfree == quint64(freeBlocks);
    }
    QString path() const { return _path; }

private:
    const QString _path;
    bool _isMounted = false;
};

} // namespace

class tst_media_mounts : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void levelsOfARealMedium_data();
    void levelsOfARealMedium();
    void blocksReservedForTheSuperuserAreFree();
    void aFolderOfTheRootIsNoMedium();
    void aMediumThatGoesIsNoneAnyMore();
    void ticksFollowARealMedium();

private:
    QString pathOf(const char *name) const { return _dir.filePath(QString::fromLatin1(name)); }
    QTemporaryDir _dir;
};

void tst_media_mounts::initTestCase()
{
    if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0
        || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        QSKIP("mounts need root");
}

void tst_media_mounts::levelsOfARealMedium_data()
{
    QTest::addColumn<int>("free");
    QTest::addColumn<double>("percent");
    QTest::addColumn<bool>("rollover");
    QTest::addColumn<bool>("minimum");
    QTest::addColumn<bool>("stop");
    // clang-format off
    QTest::newRow("nothing")  << 0   << 0.0   << true  << true  << true;
    QTest::newRow("8.0 %")    << 80  << 8.0   << true  << true  << true;
    QTest::newRow("8.4 %")    << 84  << 8.0   << true  << true  << true;
    QTest::newRow("8.5 %")    << 85  << 9.0   << true  << true  << false;
    QTest::newRow("10.0 %")   << 100 << 10.0  << true  << true  << false;
    QTest::newRow("10.4 %")   << 104 << 10.0  << true  << true  << false;
    QTest::newRow("10.5 %")   << 105 << 11.0  << false << true  << false;
    QTest::newRow("15.0 %")   << 150 << 15.0  << false << true  << false;
    QTest::newRow("15.4 %")   << 154 << 15.0  << false << true  << false;
    QTest::newRow("15.5 %")   << 155 << 16.0  << false << false << false;
    QTest::newRow("99.9 %")   << 999 << 100.0 << false << false << false;
    // clang-format on
}

void tst_media_mounts::levelsOfARealMedium()
{
    QFETCH(int, free);
    const Medium medium(pathOf("a"));
    QVERIFY(medium.fillTo(free));
    MediaManager::PathInfo info;
    QVERIFY(MediaManager::getPathInfo(medium.path(), info));
    QCOMPARE(info.path, medium.path());
    QVERIFY(info.mounted);
    QTEST(info.freePercent, "percent");
    QTEST(info.atRolloverLevel, "rollover");
    QTEST(info.atTargetMinimum, "minimum");
    QTEST(info.atStopLevel, "stop");
    // A folder on it is the same medium.
    QVERIFY(QDir(medium.path()).mkdir(QStringLiteral("Clips ü %1")));
    QVERIFY(MediaManager::getPathInfo(medium.path() + QStringLiteral("/Clips ü %1"), info));
    QVERIFY(info.mounted);
    QTEST(info.freePercent, "percent");
}

void tst_media_mounts::blocksReservedForTheSuperuserAreFree()
{
    const QString image = pathOf("image");
    QFile file(image);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.resize(32 << 20));
    file.close();
    if (QProcess::execute(QStringLiteral("mkfs.ext4"), {QStringLiteral("-q"), QStringLiteral("-m"),
                                                        QStringLiteral("40"), image}) != 0)
        QSKIP("no mkfs.ext4");
    const QString path = pathOf("loop");
    QVERIFY(QDir().mkpath(path));
    if (QProcess::execute(QStringLiteral("mount"), {QStringLiteral("-o"), QStringLiteral("loop"), image, path}) != 0)
        QSKIP("no loop devices");
    struct statfs64 fs = {};
    const bool isAsked = statfs64(qPrintable(path), &fs) == 0;
    MediaManager::PathInfo info;
    const bool isMeasured = MediaManager::getPathInfo(path, info);
    umount2(qPrintable(path), MNT_DETACH);
    QVERIFY(isAsked && isMeasured && info.mounted);
    const auto percentOf = [&](quint64 free) { return std::round(double(free) / double(fs.f_blocks) * 100.0); };
    QCOMPARE(info.freePercent, percentOf(fs.f_bfree));
    QVERIFY(percentOf(fs.f_bavail) < info.freePercent - 20);
}

void tst_media_mounts::aFolderOfTheRootIsNoMedium()
{
    MediaManager::PathInfo info;
    QVERIFY(MediaManager::getPathInfo(QStringLiteral("/etc"), info));
    QVERIFY(!info.mounted);
    MediaManager manager;
    manager.setRolloverEnabled(true);
    manager.setRolloverPath(QStringLiteral("/etc"));
    QCOMPARE(manager.getRolloverInhibit(), 5);
    manager.setRolloverPath(pathOf("no such folder"));
    QCOMPARE(manager.getRolloverInhibit(), 3);
}

void tst_media_mounts::aMediumThatGoesIsNoneAnyMore()
{
    MediaManager manager;
    manager.setRolloverEnabled(true);
    manager.setRolloverPath(pathOf("b"));
    {
        const Medium medium(pathOf("b"));
        QVERIFY(medium.fillTo(160));
        QCOMPARE(manager.getRolloverInhibit(), 0);
        QVERIFY(medium.fillTo(150));
        QCOMPARE(manager.getRolloverInhibit(), 6);
    }
    MediaManager::PathInfo info;
    QVERIFY(manager.getRolloverPathInfo(info)); // the folder is still there
    QVERIFY(QDir().rmdir(pathOf("b")));
    QVERIFY(!manager.getRolloverPathInfo(info));
    QCOMPARE(manager.getRolloverInhibit(), 3);
}

void tst_media_mounts::ticksFollowARealMedium()
{
    const Medium medium(pathOf("c"));
    const Medium other(pathOf("d"));
    QVERIFY(medium.fillTo(105));
    QVERIFY(other.fillTo(500));
    MediaManager manager;
    QSignalSpy rollovers(&manager, &MediaManager::shouldRolloverNow);
    QSignalSpy stops(&manager, &MediaManager::stopRecordNow);
    manager.setRolloverEnabled(true);
    manager.setRolloverPath(other.path());
    manager.setActivePath(medium.path());
    QTest::qWait(1100); // two ticks of nothing
    QCOMPARE(rollovers.count() + stops.count(), 0);
    QVERIFY(medium.fillTo(104));
    QVERIFY(rollovers.wait(10'000));
    QVERIFY(manager.markRolloverInProgress());
    QVERIFY(medium.fillTo(84));
    QVERIFY(stops.wait(10'000));
    manager.markRolloverComplete(true);
    QCOMPARE(manager.activePath(), other.path());
    MediaManager::PathInfo info;
    QVERIFY(manager.getActivePathInfo(info));
    QCOMPARE(info.freePercent, 50.0);
}

QTEST_GUILESS_MAIN(tst_media_mounts)
#include "tst_media_mounts.moc"
