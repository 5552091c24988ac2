#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <sys/stat.h>
#include <unistd.h>

class TestDaemonizer : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void theProcessDetaches();
    void theStartingProcessPrintsTheStatus();
    void theTerminalMayStayOpen();
    void endSignalsCallBackUntilDone();
    void withoutACallbackSignalsHaveTheirDefaultEffect();
    void aProcessThatDiesOnItsWayIsReported();

private:
    void start(const QString &act);
    QByteArray line() { return _fifo->readLine().trimmed(); }
    void skipToReady()
    {
        QByteArray text = line();
        while (text != "ready" && !text.isEmpty())
            text = line();
        QCOMPARE(text, QByteArray("ready"));
    }

    std::unique_ptr<QTemporaryDir> _dir;
    std::unique_ptr<QProcess> _starter;
    std::unique_ptr<QFile> _fifo;
    pid_t _daemon = 0;
};

void TestDaemonizer::init()
{
    _daemon = 0;
    _dir = std::make_unique<QTemporaryDir>();
    QCOMPARE(::mkfifo(QFile::encodeName(_dir->filePath("fifo")).constData(), 0600), 0);
}

void TestDaemonizer::cleanup()
{
    if (_daemon > 1)
        ::kill(_daemon, SIGKILL);
    if (_fifo)
        _fifo->readAll(); // to the end: the daemon is gone
    _fifo.reset();
    if (_starter)
        _starter->waitForFinished();
    _starter.reset();
}

/// Starts the helper and takes the first line, the daemon's process id; 0 when there is none.
void TestDaemonizer::start(const QString &act)
{
    _starter = std::make_unique<QProcess>();
    _starter->start(QStringLiteral(RV_HELPER), {_dir->filePath("fifo"), act});
    _fifo = std::make_unique<QFile>(_dir->filePath("fifo"));
    QVERIFY(_fifo->open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    _daemon = line().mid(4).toInt();
}

void TestDaemonizer::theProcessDetaches()
{
    start(QStringLiteral("plain"));
    QVERIFY(_starter->waitForFinished(30000));
    QCOMPARE(_starter->exitStatus(), QProcess::NormalExit);
    QCOMPARE(_starter->exitCode(), 0);
    QCOMPARE(_starter->readAllStandardOutput(), QByteArray("printed once\n"));
    QCOMPARE(_starter->readAllStandardError(), QByteArray());
    QVERIFY(_daemon > 1);
    QVERIFY(_daemon != _starter->processId());
    QVERIFY(::getsid(_daemon) != ::getsid(0));
    QCOMPARE(line(), QByteArray("leader 0"));
    QCOMPARE(line(), QByteArray("parent's session 0"));
    QCOMPARE(line(), QByteArray("in /"));
    QCOMPARE(line(), QByteArray("umask 18")); // 022
    QCOMPARE(line(), QByteArray("0 /dev/null"));
    QCOMPARE(line(), QByteArray("1 /dev/null"));
    QCOMPARE(line(), QByteArray("2 /dev/null"));
}

void TestDaemonizer::theStartingProcessPrintsTheStatus()
{
    start(QStringLiteral("status"));
    QVERIFY(_starter->waitForFinished(30000));
    QCOMPARE(_starter->exitCode(), 0);
    QCOMPARE(_starter->readAllStandardOutput(), QByteArray("printed once\nstanding\n"));
}

void TestDaemonizer::theTerminalMayStayOpen()
{
    start(QStringLiteral("open"));
    for (const char *expected : {"leader", "parent's", "in", "umask"})
        QVERIFY(line().startsWith(expected));
    for (int fd = 0; fd <= 2; ++fd) {
        const QByteArray target = line();
        QVERIFY2(target.startsWith(QByteArray::number(fd) + " pipe:"), target.constData());
    }
}

void TestDaemonizer::endSignalsCallBackUntilDone()
{
    start(QStringLiteral("plain"));
    skipToReady();
    for (const int sig : {SIGTERM, SIGINT, SIGHUP}) {
        QCOMPARE(::kill(_daemon, sig), 0);
        QCOMPARE(line(), "signal " + QByteArray::number(sig));
    }
    QCOMPARE(line(), QByteArray("done"));
    QCOMPARE(::kill(_daemon, SIGTERM), 0);
    QCOMPARE(line(), QByteArray()); // ended, and nobody was called
}

void TestDaemonizer::withoutACallbackSignalsHaveTheirDefaultEffect()
{
    start(QStringLiteral("deaf"));
    skipToReady();
    QCOMPARE(::kill(_daemon, SIGHUP), 0);
    QCOMPARE(line(), QByteArray());
}

void TestDaemonizer::aProcessThatDiesOnItsWayIsReported()
{
    start(QStringLiteral("die"));
    QCOMPARE(_daemon, 0);
    QVERIFY(_starter->waitForFinished(30000));
    QCOMPARE(_starter->exitStatus(), QProcess::NormalExit);
    QCOMPARE(_starter->exitCode(), 1);
    QCOMPARE(_starter->readAllStandardError(),
             QByteArray("Helper: could not detach: the new process gave no answer\n"));
}

QTEST_GUILESS_MAIN(TestDaemonizer)
#include "tst_daemonizer.moc"
