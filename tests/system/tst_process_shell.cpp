#include "liborb/orblockfile.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <sys/stat.h>
#include <unistd.h>

class TestProcessShell : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void aHeldLockIsToldAndEndsTheStart();
    void theFirstExitSignalEndsTheLoopCleanly_data();
    void theFirstExitSignalEndsTheLoopCleanly();
    void theSecondExitSignalEndsTheProcessWithOne();
    void anExitSignalBeforeTheLoopIsNotLost();
    void aFatalSignalTracesAndAborts_data();
    void aFatalSignalTracesAndAborts();
    void otherSignalsAreLoggedAndIgnored_data();
    void otherSignalsAreLoggedAndIgnored();
    void withoutDebugThereAreDeliberatelyNoHandlers();
    void withoutTheKernelKeyNothingIsLoggedToAFile();
    void debugLogsEverythingOnTheDisplayToo();
    void withoutDebugDetailsAreNotLogged();
    void detachedItEndsOnATerminationSignal();
    void aSecondDetachedOneLeavesTheFirstAlone();

private:
    QString path(const char *name) const { return _dir->filePath(QString::fromLatin1(name)); }
    QByteArray contents(const char *name) const;
    void start(const QStringList &flags, const QByteArray &act = {}, bool fifo = false);
    bool waitFor(const QByteArray &text);
    void signalHelper(int sig) { ::kill(static_cast<pid_t>(_helper->processId()), sig); }
    bool finished() { return _helper->waitForFinished(30000); }

    std::unique_ptr<QTemporaryDir> _dir;
    std::unique_ptr<QProcess> _helper;
    QByteArray _output; ///< standard output and error together, as far as read
};

void TestProcessShell::init()
{
    _dir = std::make_unique<QTemporaryDir>();
    _output.clear();
    QFile cmdline(path("cmdline"));
    QVERIFY(cmdline.open(QIODevice::WriteOnly));
    cmdline.write("quiet rvd_log=" + QFile::encodeName(path("log")) + "\n");
    // The console is restored by a command found like any other.
    QFile reset(path("reset"));
    QVERIFY(reset.open(QIODevice::WriteOnly));
    reset.write("#!/bin/sh\necho once >> " + QFile::encodeName(path("resets")) + "\n");
    reset.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void TestProcessShell::cleanup()
{
    if (_helper && _helper->state() != QProcess::NotRunning) {
        _helper->kill();
        _helper->waitForFinished();
    }
    _helper.reset();
}

QByteArray TestProcessShell::contents(const char *name) const
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void TestProcessShell::start(const QStringList &flags, const QByteArray &act, bool fifo)
{
    _helper = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("RV_LOCK", path("lock"));
    environment.insert("RV_CMDLINE", path("cmdline"));
    environment.insert("RV_ACT", QString::fromLatin1(act));
    if (fifo)
        environment.insert("RV_FIFO", path("fifo"));
    environment.insert("PATH", _dir->path() + ':' + environment.value("PATH"));
    _helper->setProcessEnvironment(environment);
    _helper->setProcessChannelMode(QProcess::MergedChannels);
    _helper->start(QStringLiteral(RV_HELPER), flags);
}

bool TestProcessShell::waitFor(const QByteArray &text)
{
    while (!_output.contains(text)) {
        if (!_helper->waitForReadyRead(30000) && _helper->bytesAvailable() == 0)
            return false;
        _output += _helper->readAll();
    }
    return true;
}

void TestProcessShell::aHeldLockIsToldAndEndsTheStart()
{
    OrbLockFile lock(path("lock"));
    QVERIFY(lock.lock());
    start({"-d"});
    QVERIFY(finished());
    QCOMPARE(_helper->exitStatus(), QProcess::NormalExit);
    QCOMPARE(_helper->exitCode(), 1);
    QCOMPARE(_helper->readAll(), "Failed to lock lockfile (" + QFile::encodeName(path("lock"))
                                     + ").  It looks like process "
                                     + QByteArray::number(::getpid()) + " currently owns it\n");
    QVERIFY2(!QFile::exists(path("log")), "nothing else is started");
}

void TestProcessShell::theFirstExitSignalEndsTheLoopCleanly_data()
{
    QTest::addColumn<int>("sig");
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("TERM") << SIGTERM << QByteArray("Terminated");
    QTest::newRow("INT") << SIGINT << QByteArray("Interrupt");
    QTest::newRow("QUIT") << SIGQUIT << QByteArray("Quit");
}

void TestProcessShell::theFirstExitSignalEndsTheLoopCleanly()
{
    QFETCH(int, sig);
    QFETCH(QByteArray, name);
    start({"-D"});
    QVERIFY(waitFor("pid "));
    QVERIFY(_output.contains("built console\nlumo|rvd\n"));
    signalHelper(sig);
    QVERIFY(finished());
    QCOMPARE(_helper->exitStatus(), QProcess::NormalExit);
    QCOMPARE(_helper->exitCode(), 0);
    QVERIFY(_helper->readAll().contains("quitting\ndestroyed\n"));
    const QByteArray log = contents("log");
    QVERIFY2(log.contains(" 3 main.cpp:"), log.constData());
    QVERIFY2(log.contains(": Exit requested. " + name + ' '), log.constData());
    QCOMPARE(contents("resets"), QByteArray("once\n"));
}

void TestProcessShell::theSecondExitSignalEndsTheProcessWithOne()
{
    start({"-D"}, "stall");
    QVERIFY(waitFor("pid "));
    signalHelper(SIGTERM);
    QVERIFY(waitFor("quitting\n"));
    signalHelper(SIGINT);
    QVERIFY(finished());
    QCOMPARE(_helper->exitStatus(), QProcess::NormalExit);
    QCOMPARE(_helper->exitCode(), 1);
    const QByteArray rest = _output + _helper->readAll();
    QVERIFY(rest.contains("\nForcing exit. Interrupt "));
    QVERIFY(!rest.contains("destroyed"));
    QVERIFY(contents("log").contains(": Forcing exit. Interrupt "));
    QCOMPARE(contents("resets"), QByteArray("once\n"));
}

void TestProcessShell::anExitSignalBeforeTheLoopIsNotLost()
{
    start({"-D"}, "early");
    QVERIFY(finished());
    QCOMPARE(_helper->exitStatus(), QProcess::NormalExit);
    QCOMPARE(_helper->exitCode(), 0);
    QVERIFY(_helper->readAll().contains("quitting\ndestroyed\n"));
}

void TestProcessShell::aFatalSignalTracesAndAborts_data()
{
    QTest::addColumn<int>("sig");
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("SEGV") << SIGSEGV << QByteArray("Segmentation fault");
    QTest::newRow("BUS") << SIGBUS << QByteArray("Bus error");
    QTest::newRow("FPE") << SIGFPE << QByteArray("Floating point exception");
    QTest::newRow("ILL") << SIGILL << QByteArray("Illegal instruction");
    QTest::newRow("SYS") << SIGSYS << QByteArray("Bad system call");
    QTest::newRow("ABRT") << SIGABRT << QByteArray("Aborted");
}

void TestProcessShell::aFatalSignalTracesAndAborts()
{
    QFETCH(int, sig);
    QFETCH(QByteArray, name);
    start({"-D"});
    QVERIFY(waitFor("pid "));
    signalHelper(sig);
    QVERIFY(finished());
    QCOMPARE(_helper->exitStatus(), QProcess::CrashExit);
    QCOMPARE(_helper->exitCode(), SIGABRT);
    const QByteArray text = _output + _helper->readAll();
    const qsizetype said = text.indexOf("\nAborting. " + name + ' ');
    const qsizetype trace = text.indexOf("\nBACKTRACE\n 1: ");
    QVERIFY2(said > 0 && trace > said, text.constData());
    QVERIFY2(text.indexOf(": signalAction(int, siginfo_t*, void*)+0x") > trace, text.constData());
    QVERIFY(contents("log").contains(": Aborting. " + name + ' '));
}

void TestProcessShell::otherSignalsAreLoggedAndIgnored_data()
{
    QTest::addColumn<int>("sig");
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("USR1") << SIGUSR1 << QByteArray("User defined signal 1");
    QTest::newRow("HUP") << SIGHUP << QByteArray("Hangup");
    QTest::newRow("PIPE") << SIGPIPE << QByteArray("Broken pipe");
    QTest::newRow("ALRM") << SIGALRM << QByteArray("Alarm clock");
}

void TestProcessShell::otherSignalsAreLoggedAndIgnored()
{
    QFETCH(int, sig);
    QFETCH(QByteArray, name);
    start({"-D"});
    QVERIFY(waitFor("pid "));
    signalHelper(sig);
    QVERIFY(waitFor(": Ignoring Signal. " + name + ' '));
    const QByteArray log = contents("log");
    QVERIFY(log.lastIndexOf(" 2 main.cpp:") > 0);
    signalHelper(SIGTERM);
    QVERIFY(finished());
    QCOMPARE(_helper->exitCode(), 0);
}

void TestProcessShell::withoutDebugThereAreDeliberatelyNoHandlers()
{
    start({"-d"});
    QVERIFY(waitFor("pid "));
    QVERIFY(_output.contains("built plain\n"));
    signalHelper(SIGTERM);
    QVERIFY(finished());
    QCOMPARE(_helper->exitStatus(), QProcess::CrashExit);
    QCOMPARE(_helper->exitCode(), SIGTERM);
}

void TestProcessShell::withoutTheKernelKeyNothingIsLoggedToAFile()
{
    QVERIFY(QFile::remove(path("cmdline")));
    start({"-D"}, "early");
    QVERIFY(finished());
    QVERIFY(!QFile::exists(path("log")));
    QVERIFY2(_helper->readAll().contains(": Exit requested. "), "debug adds the display");
}

void TestProcessShell::debugLogsEverythingOnTheDisplayToo()
{
    start({"-D"}, "early");
    QVERIFY(finished());
    const QByteArray shown = _helper->readAll();
    for (const QByteArray &text : {shown, contents("log")}) {
        QVERIFY(text.contains(" 3 helper.cpp:1: controller at three\n"));
        QVERIFY(text.contains(" 4 helper.cpp:2: controller at four\n"));
        QVERIFY(text.contains(": a framework warning\n"));
    }
}

void TestProcessShell::withoutDebugDetailsAreNotLogged()
{
    start({"-d"});
    QVERIFY(waitFor("pid "));
    signalHelper(SIGKILL);
    QVERIFY(finished());
    QVERIFY(contents("log").contains("controller at three"));
    QVERIFY(contents("log").contains(" 2 main.cpp:"));
    QVERIFY(!contents("log").contains("controller at four"));
    QVERIFY(!_output.contains("controller at three"));
}

void TestProcessShell::detachedItEndsOnATerminationSignal()
{
    QCOMPARE(::mkfifo(QFile::encodeName(path("fifo")).constData(), 0600), 0);
    start({}, {}, true);
    QFile fifo(path("fifo"));
    QVERIFY(fifo.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(finished());
    QCOMPARE(_helper->exitCode(), 0);
    QCOMPARE(fifo.readLine(), QByteArray("built plain\n"));
    QCOMPARE(fifo.readLine(), QByteArray("lumo|rvd\n"));
    QVERIFY(fifo.readLine().startsWith("priority "));
    const QByteArray line = fifo.readLine();
    const pid_t daemon = line.mid(4).trimmed().toInt();
    QVERIFY2(daemon > 1, line.constData());
    QCOMPARE(OrbLockFile(path("lock")).whoHasLock(), daemon);
    ::kill(daemon, SIGTERM);
    QCOMPARE(fifo.readLine(), QByteArray("quitting\n"));
    QCOMPARE(fifo.readLine(), QByteArray("destroyed\n"));
    QCOMPARE(fifo.readLine(), QByteArray()); // the process is gone
}

void TestProcessShell::aSecondDetachedOneLeavesTheFirstAlone()
{
    OrbLockFile lock(path("lock"));
    QVERIFY(lock.lock());
    QCOMPARE(::mkfifo(QFile::encodeName(path("fifo")).constData(), 0600), 0);
    start({}, {}, true);
    QFile fifo(path("fifo"));
    QVERIFY(fifo.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(finished());
    QCOMPARE(_helper->exitCode(), 0); // it has detached already when it finds the lock taken
    QCOMPARE(_helper->readAll(), QByteArray());
    QCOMPARE(fifo.readLine(), QByteArray()); // gone without a controller
    QCOMPARE(lock.whoHasLock(), ::getpid());
}

QTEST_GUILESS_MAIN(TestProcessShell)
#include "tst_process_shell.moc"
