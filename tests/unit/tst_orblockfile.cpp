#include "liborb/orblockfile.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/// Runs \a work in a process of its own; its answer becomes the exit status.
static int inChild(const std::function<int()> &work)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(work());
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class TestOrbLockFile : public QObject
{
    Q_OBJECT

private slots:
    void init() { _dir = std::make_unique<QTemporaryDir>(); }
    void aLockIsTakenAndGivenBack();
    void lockingAgainStillHolds();
    void theFileTellsTheHolder();
    void aSecondProcessIsKeptAwayAndToldWho();
    void aSecondObjectOfThisProcessIsKeptAwayToo();
    void aLockDiesWithItsProcess();
    void theFileOfADeadHolderIsTakenOver();
    void garbageInTheFileIsNobody_data();
    void garbageInTheFileIsNobody();
    void whoAskingDoesNotDisturb();
    void aFolderThatCannotBeWrittenIsARefusal();
    void linksAndFoldersAreRefused();
    void aFileRemovedUnderTheHolderLetsANewOneLock();

private:
    QString path() const { return _dir->filePath(QStringLiteral("rvd.lock")); }
    QByteArray text() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
    }

    std::unique_ptr<QTemporaryDir> _dir;
};

void TestOrbLockFile::aLockIsTakenAndGivenBack()
{
    {
        OrbLockFile lock(path());
        QCOMPARE(lock.filename(), path());
        QVERIFY2(!QFile::exists(path()), "nothing happens before lock()");
        QVERIFY(lock.lock());
        QCOMPARE(inChild([this] { return OrbLockFile(path()).lock() ? 1 : 0; }), 0);
    }
    QCOMPARE(inChild([this] { return OrbLockFile(path()).lock() ? 1 : 0; }), 1);
}

void TestOrbLockFile::lockingAgainStillHolds()
{
    OrbLockFile lock(path());
    QVERIFY(lock.lock());
    QVERIFY(lock.lock());
    QCOMPARE(lock.whoHasLock(), ::getpid());
}

void TestOrbLockFile::theFileTellsTheHolder()
{
    OrbLockFile lock(path());
    QVERIFY(lock.lock());
    QCOMPARE(text(), QByteArray::number(::getpid()) + '\n');
}

void TestOrbLockFile::aSecondProcessIsKeptAwayAndToldWho()
{
    OrbLockFile lock(path());
    QVERIFY(lock.lock());
    const pid_t holder = ::getpid();
    QCOMPARE(inChild([this, holder] {
                 OrbLockFile second(path());
                 return (second.lock() ? 1 : 0) + (second.whoHasLock() == holder ? 2 : 0);
             }),
             2);
    QCOMPARE(text(), QByteArray::number(holder) + '\n');
}

void TestOrbLockFile::aSecondObjectOfThisProcessIsKeptAwayToo()
{
    OrbLockFile first(path());
    OrbLockFile second(path());
    QVERIFY(first.lock());
    QVERIFY(!second.lock());
    QCOMPARE(second.whoHasLock(), ::getpid());
    QVERIFY2(!OrbLockFile(path()).lock(), "refused attempts do not loosen the lock");
}

void TestOrbLockFile::aLockDiesWithItsProcess()
{
    QCOMPARE(inChild([this] {
                 auto *kept = new OrbLockFile(path());
                 return kept->lock() ? 7 : 0; // leaves without giving it back
             }),
             7);
    QVERIFY(text().size() > 1);
    OrbLockFile lock(path());
    QCOMPARE(lock.whoHasLock(), 0);
    QVERIFY(lock.lock());
}

void TestOrbLockFile::theFileOfADeadHolderIsTakenOver()
{
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("123456789 something long that must not remain\n");
    file.close();
    OrbLockFile lock(path());
    QVERIFY(lock.lock());
    QCOMPARE(text(), QByteArray::number(::getpid()) + '\n');
}

void TestOrbLockFile::garbageInTheFileIsNobody_data()
{
    QTest::addColumn<QByteArray>("garbage");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("words") << QByteArray("hello");
    QTest::newRow("negative") << QByteArray("-5");
    QTest::newRow("too large") << QByteArray("99999999999999999999");
    QTest::newRow("binary") << QByteArray(1000, '\xff');
}

void TestOrbLockFile::garbageInTheFileIsNobody()
{
    QFETCH(QByteArray, garbage);
    OrbLockFile lock(path());
    QVERIFY(lock.lock());
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(garbage);
    file.close();
    QCOMPARE(OrbLockFile(path()).whoHasLock(), 0);
    QVERIFY(!OrbLockFile(path()).lock());
}

void TestOrbLockFile::whoAskingDoesNotDisturb()
{
    const OrbLockFile asker(path());
    QCOMPARE(asker.whoHasLock(), 0);
    QVERIFY2(!QFile::exists(path()), "asking creates nothing");
    OrbLockFile lock(path());
    QVERIFY(lock.lock());
    for (int i = 0; i < 10; ++i)
        QCOMPARE(asker.whoHasLock(), ::getpid());
    QCOMPARE(inChild([this] { return OrbLockFile(path()).lock() ? 1 : 0; }), 0);
}

void TestOrbLockFile::aFolderThatCannotBeWrittenIsARefusal()
{
    OrbLockFile lock(_dir->filePath(QStringLiteral("missing/rvd.lock")));
    QVERIFY(!lock.lock());
    QCOMPARE(lock.whoHasLock(), 0);
    OrbLockFile kernels(QStringLiteral("/proc/rvd.lock")); // refuses the superuser too
    QVERIFY(!kernels.lock());
    QCOMPARE(kernels.whoHasLock(), 0);
    QVERIFY(!OrbLockFile(QString()).lock());
}

void TestOrbLockFile::linksAndFoldersAreRefused()
{
    const QString victim = _dir->filePath(QStringLiteral("victim"));
    QFile file(victim);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("precious");
    file.close();
    QVERIFY(QFile::link(victim, path()));
    QVERIFY(!OrbLockFile(path()).lock());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("precious"));
    QVERIFY(!OrbLockFile(_dir->path()).lock());
    const QString pipe = _dir->filePath(QStringLiteral("pipe"));
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QVERIFY2(!OrbLockFile(pipe).lock(), "and does not wait for a writer");
    QCOMPARE(OrbLockFile(pipe).whoHasLock(), 0);
}

void TestOrbLockFile::aFileRemovedUnderTheHolderLetsANewOneLock()
{
    OrbLockFile old(path());
    QVERIFY(old.lock());
    QVERIFY(QFile::remove(path()));
    OrbLockFile fresh(path());
    QVERIFY(fresh.lock());
    QVERIFY(!OrbLockFile(path()).lock());
}

QTEST_APPLESS_MAIN(TestOrbLockFile)
#include "tst_orblockfile.moc"
