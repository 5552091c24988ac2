#include "enginerig.h"

#include "aux/keyboardtransport.h"
#include "liborb/orb.h"
#include "liborb/orblog.h"

#include <QMetaMethod>
#include <QTemporaryFile>

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

/// The console, on a terminal of its own.
class TestKeyboardTransport : public QObject
{
    Q_OBJECT

private slots:
    void signalsAndSlotsStandInOrder();
    void keys_data();
    void keys();
    void theTerminalIsRawWhileItLives();
    void theHelpIsLogged();
    void theStatusLineIsPrintedWhenItChangesAndEveryTwoSeconds();
    void endOfInputStopsThePolling();
};

namespace {

/// Standard input and output replaced for as long as it lives.
class Terminal
{
public:
    explicit Terminal(bool isAtEnd = false)
        : _savedIn(dup(STDIN_FILENO)), _savedOut(dup(STDOUT_FILENO))
    {
        fflush(stdout);
        if (isAtEnd) {
            _slave = open("/dev/null", O_RDONLY);
        } else {
            _master = posix_openpt(O_RDWR | O_NOCTTY);
            grantpt(_master);
            unlockpt(_master);
            _slave = open(ptsname(_master), O_RDWR | O_NOCTTY);
        }
        dup2(_slave, STDIN_FILENO);
        (void)_out.open();
        dup2(_out.handle(), STDOUT_FILENO);
    }
    ~Terminal()
    {
        fflush(stdout);
        dup2(_savedIn, STDIN_FILENO);
        dup2(_savedOut, STDOUT_FILENO);
        for (const int fd : {_savedIn, _savedOut, _master, _slave})
            if (fd >= 0)
                close(fd);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    void press(const QByteArray &keys) { QVERIFY(write(_master, keys, keys.size()) > 0); }
    QByteArray printed()
    {
        fflush(stdout);
        QFile file(_out.fileName());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    termios settings() const
    {
        termios t = {};
        tcgetattr(_slave, &t);
        return t;
    }

private:
    int _savedIn;
    int _savedOut;
    int _master = -1;
    int _slave = -1;
    QTemporaryFile _out;
};

struct Console {
    Console()
    {
        const auto note = [this](const QString &text) { seen << text; };
        KeyboardTransport *k = &keys;
        const auto see = [&](void (KeyboardTransport::*signal)(), const char *name) {
            QObject::connect(k, signal, k, [note, name] { note(name); });
        };
        see(&KeyboardTransport::quit, "quit");
        see(&KeyboardTransport::still, "still");
        see(&KeyboardTransport::stop, "stop");
        see(&KeyboardTransport::fastfwd, "fastfwd");
        see(&KeyboardTransport::rewind, "rewind");
        see(&KeyboardTransport::record, "record");
        see(&KeyboardTransport::toggleMeta, "toggleMeta");
        see(&KeyboardTransport::cameraRecord, "cameraRecord");
        see(&KeyboardTransport::standbyOff, "standbyOff");
        QObject::connect(k, &KeyboardTransport::play, k,
                         [note](double s) { note(QString("play %1").arg(s)); });
        QObject::connect(k, &KeyboardTransport::step, k,
                         [note](int n) { note(QString("step %1").arg(n)); });
        QObject::connect(k, &KeyboardTransport::refreshed, k, [this] { ++refreshes; });
    }

    KeyboardTransport keys;
    QStringList seen;
    int refreshes = 0;
};

VtrState playing(double speed)
{
    VtrState state;
    state.setMode(VtrState::Play);
    state.setSpeed(speed);
    return state;
}

} // namespace

void TestKeyboardTransport::signalsAndSlotsStandInOrder()
{
    QStringList found;
    const QMetaObject &meta = KeyboardTransport::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        found << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(found,
             (QStringList{"refreshed()", "quit()", "play(double)", "still()", "stop()", "fastfwd()",
                          "rewind()", "step(int)", "record()", "toggleMeta()", "cameraRecord()",
                          "standbyOff()", "setVtrState(VtrState)", "setStatus(QString)",
                          "setCurrentTimecode(OrbTimecode)"}));
}

void TestKeyboardTransport::keys_data()
{
    QTest::addColumn<QByteArray>("keys");
    QTest::addColumn<double>("speed");
    QTest::addColumn<QStringList>("seen");
    const auto row = [](const char *keys, double speed, const QStringList &seen) {
        QTest::newRow(keys) << QByteArray(keys) << speed << seen;
    };
    row(" ", 0.0, {"play 1"});
    row(" ", 1.0, {"still"});
    row("rR", 1.0, {"rewind", "rewind"});
    row("fF", 1.0, {"fastfwd", "fastfwd"});
    row("sS", 1.0, {"stop", "stop"});
    row("qQ", 1.0, {"quit", "quit"});
    row("nN", 1.0, {"step 1", "step 1"});
    row("pP", 1.0, {"step -1", "step -1"});
    row("oO", 1.0, {"standbyOff", "standbyOff"});
    row("cC", 1.0, {"record", "record"});
    row("mM", 1.0, {"toggleMeta", "toggleMeta"});
    row("vV", 1.0, {"cameraRecord", "cameraRecord"});
    row("++", 1.0, {"play 1.1", "play 1.1"});
    row("-", 1.0, {"play 0.9"});
    row("1xz\x1b[A\xff\x03", 1.0, {});
}

void TestKeyboardTransport::keys()
{
    QFETCH(QByteArray, keys);
    QFETCH(double, speed);
    QFETCH(QStringList, seen);
    QStringList found;
    {
        Terminal terminal;
        Console console;
        console.keys.setVtrState(playing(speed));
        terminal.press(keys);
        SimDispatcher::runFor(250);
        found = console.seen;
    }
    QCOMPARE(found, seen);
}

void TestKeyboardTransport::theTerminalIsRawWhileItLives()
{
    termios before = {};
    termios during = {};
    termios after = {};
    {
        Terminal terminal;
        before = terminal.settings();
        {
            const Console console;
            during = terminal.settings();
        }
        after = terminal.settings();
    }
    QCOMPARE(during.c_lflag & (ECHO | ECHONL | ICANON | ISIG | IEXTEN), tcflag_t(0));
    QCOMPARE(during.c_iflag
                 & (IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON),
             tcflag_t(0));
    QCOMPARE(during.c_cflag & (CSIZE | PARENB), tcflag_t(CS8));
    QCOMPARE(during.c_oflag, before.c_oflag);
    QCOMPARE(after.c_lflag, before.c_lflag);
    QCOMPARE(after.c_iflag, before.c_iflag);
    QCOMPARE(after.c_cflag, before.c_cflag);
}

void TestKeyboardTransport::theHelpIsLogged()
{
    QStringList logged;
    const int sink = OrbLog::defaultLog()->addSink(
        [&](int level, const QString &file, int, const QString &text) {
            logged << QString("%1 %2 %3").arg(level).arg(file, text.trimmed());
        });
    {
        Terminal terminal;
        const Console console;
    }
    OrbLog::defaultLog()->removeSink(sink);
    QCOMPARE(logged.size(), 11);
    QCOMPARE(logged.first(), QString("3 keyboardtransport.cpp Space  Toggle Play/Still"));
    QCOMPARE(logged.last(), QString("3 keyboardtransport.cpp +/-    Varispeed"));
    QVERIFY(logged.filter("Quit").isEmpty()); // deliberately not listed
}

void TestKeyboardTransport::theStatusLineIsPrintedWhenItChangesAndEveryTwoSeconds()
{
    QByteArray printed;
    {
        Terminal terminal;
        {
            Console console;
            console.keys.setVtrState(playing(1.0));
            console.keys.setStatus("busy");
            console.keys.setCurrentTimecode(OrbTimecode(1, 2, 3, 4, 25, 0));
            SimDispatcher::runFor(1950); // nineteen redraws, one printed
            console.keys.setStatus("idle");
            SimDispatcher::runFor(100);
            SimDispatcher::runFor(2000); // twenty more, one printed
        }
        printed = terminal.printed();
    }
    const QByteArray blanks(20, ' ');
    const QByteArray busy = "[01:02:03:04] 1.000 Play  busy" + blanks + "\r";
    const QByteArray idle = "[01:02:03:04] 1.000 Play  idle" + blanks + "\r";
    QCOMPARE(printed, busy + idle + idle + "\n\n");
}

void TestKeyboardTransport::endOfInputStopsThePolling()
{
    QStringList seen;
    int refreshes = 0;
    {
        Terminal terminal(true);
        Console console;
        SimDispatcher::runFor(1050);
        seen = console.seen;
        refreshes = console.refreshes;
    }
    QCOMPARE(seen, QStringList{});
    QCOMPARE(refreshes, 10);
}

SIM_TEST_MAIN(TestKeyboardTransport)
#include "tst_keyboardtransport.moc"
