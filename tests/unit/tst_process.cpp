#include "liborb/orblog.h"
#include "main/backtrace.h"
#include "main/exitrequest.h"
#include "main/process.h"
#include "main/signals.h"
#include "transport/vtrstate.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

class TestProcess : public QObject
{
    Q_OBJECT

private slots:
    void switchesAreWholeArguments_data();
    void switchesAreWholeArguments();
    void kernelCommandLine_data();
    void kernelCommandLine();
    void anUnreadableKernelCommandLineIsAnAbsentKey();
    void theValueIsNotNeeded();
    void aValueWithoutItsKeyIsLeftAlone();
    void theLogFileComesFromTheKernelCommandLine_data();
    void theLogFileComesFromTheKernelCommandLine();
    void theFixedPathsAreTheKernelsAndTheLockFolders();
    void theTransportStateTravelsByName();
    void signalsAreInstalledInTheirOrder();
    void signalsAreInstalledWithoutTheInfoFlagDeliberately();
    void anIgnoredSignalReturnsWhateverItsPointersAre();
    void backTraceLines_data();
    void backTraceLines();
    void backTraceLinesFitTheirRoom();
    void frameworkMessagesHaveTheirLevels_data();
    void frameworkMessagesHaveTheirLevels();
    void aFatalMessageAborts();
    void anExitAskedBeforeTheLoopRunsEndsIt();
};

/// Runs \a work in a process of its own; the answer is its wait status.
static int statusOfChild(const std::function<int()> &work)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(work());
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
}

void TestProcess::switchesAreWholeArguments_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<bool>("debug");
    QTest::addColumn<bool>("noDaemon");
    QTest::newRow("none") << QByteArrayList{"rvd"} << false << false;
    QTest::newRow("nothing at all") << QByteArrayList{} << false << false;
    QTest::newRow("debug") << QByteArrayList{"rvd", "-D"} << true << false;
    QTest::newRow("no daemon") << QByteArrayList{"rvd", "-l", "-d"} << false << true;
    QTest::newRow("both") << QByteArrayList{"rvd", "-d", "-D"} << true << true;
    QTest::newRow("combined letters deliberately do not count")
        << QByteArrayList{"rvd", "-dl", "-Ds"} << false << false;
    QTest::newRow("an option's argument counts")
        << QByteArrayList{"rvd", "-c", "-d"} << false << true;
    QTest::newRow("the program's name counts") << QByteArrayList{"-D"} << true << false;
}

void TestProcess::switchesAreWholeArguments()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(bool, debug);
    QFETCH(bool, noDaemon);
    std::vector<char *> argv;
    for (QByteArray &argument : arguments)
        argv.push_back(argument.data());
    const auto switches = process::Switches::of(static_cast<int>(argv.size()), argv.data());
    QCOMPARE(switches.debug, debug);
    QCOMPARE(switches.noDaemon, noDaemon);
    QCOMPARE(switches.daemon(), !debug && !noDaemon);
}

static QString written(const QTemporaryDir &dir, const QByteArray &text)
{
    QFile file(dir.filePath(QStringLiteral("cmdline")));
    if (file.open(QIODevice::WriteOnly))
        file.write(text);
    return file.fileName();
}

void TestProcess::kernelCommandLine_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("value");
    QTest::newRow("empty") << QByteArray() << false << "";
    QTest::newRow("absent") << QByteArray("root=/dev/sda1 quiet\n") << false << "";
    QTest::newRow("alone") << QByteArray("quiet rvd_log\n") << true << "";
    QTest::newRow("with =") << QByteArray("rvd_log= quiet\n") << true << "";
    QTest::newRow("with a value") << QByteArray("a rvd_log=/tmp/x.log b\n") << true << "/tmp/x.log";
    QTest::newRow("first = counts") << QByteArray("rvd_log=a=b=c") << true << "a=b=c";
    QTest::newRow("first word counts") << QByteArray("rvd_log=1 rvd_log=2") << true << "1";
    QTest::newRow("longer key") << QByteArray("rvd_logs=1 xrvd_log=2") << false << "";
    QTest::newRow("shorter key") << QByteArray("rvd_lo=1 rvd=2") << false << "";
    QTest::newRow("after a longer key") << QByteArray("rvd_logs=1 rvd_log=2") << true << "2";
    QTest::newRow("case counts") << QByteArray("RVD_LOG=1 Rvd_log") << false << "";
    QTest::newRow("as a value") << QByteArray("name=rvd_log") << false << "";
    QTest::newRow("any white space") << QByteArray("\t a\n\nrvd_log=1\t") << true << "1";
    QTest::newRow("only white space") << QByteArray(" \n\t ") << false << "";
    QTest::newRow("only =") << QByteArray("= == =rvd_log") << false << "";
}

void TestProcess::kernelCommandLine()
{
    QFETCH(QByteArray, line);
    QFETCH(bool, found);
    const QTemporaryDir dir;
    QString value;
    QCOMPARE(readKernelCmdLine(QStringLiteral("rvd_log"), &value, written(dir, line)), found);
    QTEST(value, "value");
}

void TestProcess::anUnreadableKernelCommandLineIsAnAbsentKey()
{
    const QTemporaryDir dir;
    QString value = QStringLiteral("before");
    QVERIFY(!readKernelCmdLine("rvd_log", &value, dir.filePath("missing")));
    QVERIFY(!readKernelCmdLine("rvd_log", &value, dir.path()));
    QCOMPARE(value, QStringLiteral("before"));
}

void TestProcess::theValueIsNotNeeded()
{
    const QTemporaryDir dir;
    const QString path = written(dir, "rvd_log=1");
    QVERIFY(readKernelCmdLine("rvd_log", nullptr, path));
    QVERIFY(!readKernelCmdLine("other", nullptr, path));
}

void TestProcess::aValueWithoutItsKeyIsLeftAlone()
{
    const QTemporaryDir dir;
    QString value = QStringLiteral("before");
    QVERIFY(!readKernelCmdLine("rvd_log", &value, written(dir, "a b")));
    QCOMPARE(value, QStringLiteral("before"));
    QVERIFY(readKernelCmdLine("a", &value, written(dir, "a b")));
    QCOMPARE(value, QString());
}

void TestProcess::theLogFileComesFromTheKernelCommandLine_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("file");
    QTest::newRow("no key, no file") << QByteArray("quiet") << "";
    QTest::newRow("key alone") << QByteArray("rvd_log") << "/rvd.log";
    QTest::newRow("key and =") << QByteArray("rvd_log=") << "/rvd.log";
    QTest::newRow("path") << QByteArray("rvd_log=/var/log/r.log") << "/var/log/r.log";
}

void TestProcess::theLogFileComesFromTheKernelCommandLine()
{
    QFETCH(QByteArray, line);
    const QTemporaryDir dir;
    QTEST(process::requestedLogFile(written(dir, line)), "file");
}

void TestProcess::theFixedPathsAreTheKernelsAndTheLockFolders()
{
    QCOMPARE(process::Paths().kernelCmdLine, QStringLiteral("/proc/cmdline"));
    QCOMPARE(process::Paths().lockFile, QStringLiteral("/var/lock/rvd.lock"));
}

void TestProcess::theTransportStateTravelsByName()
{
    registerMetaTypes();
    QCOMPARE(QMetaType::fromName("VtrState"), QMetaType::fromType<VtrState>());
}

void TestProcess::signalsAreInstalledInTheirOrder()
{
    const std::vector<int> expected = {
        SIGINT,  SIGQUIT, SIGTERM, SIGFPE, SIGABRT, SIGILL,   SIGSEGV,   SIGUSR1, SIGBUS,
        SIGSYS,  SIGHUP,  SIGTSTP, SIGTTOU, SIGTTIN, SIGPIPE, SIGALRM,   SIGUSR2, SIGTTIN,
        SIGTTOU, SIGIO,   SIGPROF, SIGURG, SIGVTALRM, SIGXCPU, SIGXFSZ};
    const auto order = handledSignals();
    QCOMPARE(std::vector<int>(order.begin(), order.end()), expected);
}

void TestProcess::signalsAreInstalledWithoutTheInfoFlagDeliberately()
{
    const int status = statusOfChild([] {
        setupSignals();
        for (const int sig : handledSignals()) {
            struct sigaction action = {};
            if (::sigaction(sig, nullptr, &action) != 0 || action.sa_sigaction != signalAction
                || (action.sa_flags & (SA_SIGINFO | SA_RESTART | SA_NODEFER | SA_RESETHAND)) != 0)
                return sig;
            for (int other = 1; other < 32; ++other) {
                if (sigismember(&action.sa_mask, other) == 1)
                    return 100 + other;
            }
        }
        struct sigaction action = {};
        ::sigaction(SIGCHLD, nullptr, &action);
        return action.sa_handler == SIG_DFL ? 0 : 99;
    });
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
}

void TestProcess::anIgnoredSignalReturnsWhateverItsPointersAre()
{
    const QTemporaryDir dir;
    const QString log = dir.filePath(QStringLiteral("log"));
    const int status = statusOfChild([&log] {
        orbLogOpenFile(log);
        setupSignals();
        errno = EDOM;
        signalAction(SIGUSR1, nullptr, nullptr);
        signalAction(SIGUSR2, reinterpret_cast<siginfo_t *>(8), reinterpret_cast<void *>(0x1234));
        siginfo_t info = {};
        info.si_signo = 0xab;
        info.si_code = 0xcd;
        signalAction(SIGHUP, &info, nullptr);
        return errno == EDOM ? 0 : 1;
    });
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
    QFile file(log);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = file.readAll().split('\n');
    QCOMPARE(lines.size(), 4);
    QVERIFY(lines[0].contains(" 2 main.cpp:"));
    QVERIFY(lines[0].endsWith(": Ignoring Signal. User defined signal 1 (nil) S0 E0 C0 P0 U0 S0 "
                              "U0 S0 V0 I0 P(nil) O0 T0 A(nil) B0 F0"));
    QVERIFY(lines[1].contains("Ignoring Signal. User defined signal 2 0x1234 S0 E0 C0 "));
    QVERIFY(lines[2].contains("Ignoring Signal. Hangup (nil) SAB E0 CCD P0 "));
}

void TestProcess::backTraceLines_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QByteArray>("symbol");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("demangled")
        << 3 << QByteArray("./rvd(_ZN9VtrObject4playEd+0x1f) [0x4005ab]")
        << QByteArray(" 3: ./rvd: VtrObject::play(double)+0x1f [0x4005ab]\n");
    QTest::newRow("no mangled name")
        << 12 << QByteArray("/lib/libc.so.6(abort+0x2) [0x1]")
        << QByteArray("12: /lib/libc.so.6: abort+0x2 [0x1]\n");
    QTest::newRow("no name") << 1 << QByteArray("./rvd(+0x123) [0x9]")
                             << QByteArray(" 1: ./rvd: +0x123 [0x9]\n");
    QTest::newRow("no offset") << 1 << QByteArray("./rvd(main) [0x9]")
                               << QByteArray(" 1: ./rvd(main) [0x9]\n");
    QTest::newRow("no bracket") << 1 << QByteArray("./rvd+0x1) [0x9]")
                                << QByteArray(" 1: ./rvd+0x1) [0x9]\n");
    QTest::newRow("not closed") << 1 << QByteArray("./rvd(main+0x1 [0x9]")
                                << QByteArray(" 1: ./rvd(main+0x1 [0x9]\n");
    QTest::newRow("wrong order") << 1 << QByteArray("a+b(c) d") << QByteArray(" 1: a+b(c) d\n");
    QTest::newRow("plus in the module") << 1 << QByteArray("/lib/libstdc++.so(_Zx+0x1) r")
                                        << QByteArray(" 1: /lib/libstdc++.so: _Zx+0x1 r\n");
    QTest::newRow("only up to the first bracket") << 1 << QByteArray("a) (f+0x1) r")
                                                  << QByteArray(" 1: a) (f+0x1) r\n");
    QTest::newRow("empty") << 1 << QByteArray() << QByteArray(" 1: \n");
}

void TestProcess::backTraceLines()
{
    QFETCH(int, number);
    QFETCH(QByteArray, symbol);
    QFETCH(QByteArray, line);
    char text[256];
    formatBackTraceLine(text, sizeof text, number, symbol.data());
    QCOMPARE(QByteArray(text), line);
}

void TestProcess::backTraceLinesFitTheirRoom()
{
    char text[16];
    QByteArray symbol(1000, 'x');
    symbol += "(f+0x1) r";
    formatBackTraceLine(text, sizeof text, 1, symbol.data());
    QCOMPARE(QByteArray(text), QByteArray(" 1: ") + QByteArray(11, 'x'));
}

void TestProcess::frameworkMessagesHaveTheirLevels_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("level");
    QTest::newRow("debug") << int(QtDebugMsg) << 3;
    QTest::newRow("warning") << int(QtWarningMsg) << 2;
    QTest::newRow("critical") << int(QtCriticalMsg) << 1;
    QTest::newRow("information") << int(QtInfoMsg) << 3;
    QTest::newRow("any other") << 99 << 3;
}

void TestProcess::frameworkMessagesHaveTheirLevels()
{
    QFETCH(int, type);
    int seenLevel = 0;
    QString seen;
    const int sink = OrbLog::defaultLog()->addSink(
        [&](int level, const QString &file, int, const QString &text) {
            seenLevel = level;
            seen = file + '|' + text;
        });
    localQtMessageHandler(static_cast<QtMsgType>(type), "100% gr\xc3\xbc\xc3\x9f");
    OrbLog::defaultLog()->removeSink(sink);
    QTEST(seenLevel, "level");
    QCOMPARE(seen, QStringLiteral("main.cpp|100% gr\u00fc\u00df"));
}

void TestProcess::aFatalMessageAborts()
{
    const QTemporaryDir dir;
    const QString log = dir.filePath(QStringLiteral("log"));
    const int status = statusOfChild([&log] {
        std::signal(SIGABRT, SIG_DFL); // the test program has a handler of its own
        orbLogOpenFile(log);
        localQtMessageHandler(QtFatalMsg, "the end");
        return 0;
    });
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), SIGABRT);
    QFile file(log);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray line = file.readAll();
    QVERIFY(line.contains(" 1 main.cpp:") && line.endsWith(": the end\n"));
}

void TestProcess::anExitAskedBeforeTheLoopRunsEndsIt()
{
    exitrequest::prepare();
    QObject owner;
    exitrequest::ask();
    exitrequest::watch(&owner);
    QCOMPARE(QCoreApplication::exec(), 0); // never ends otherwise
    exitrequest::ask();
    QCoreApplication::processEvents(); // obeyed too early: there is no loop to end
    exitrequest::repeatEarly();
    QCOMPARE(QCoreApplication::exec(), 0);
}

QTEST_GUILESS_MAIN(TestProcess)
#include "tst_process.moc"
