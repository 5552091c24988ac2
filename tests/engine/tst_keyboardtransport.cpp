#include "enginerig.h"

#include "aux/keyboardtransport.h"
#include "liborb/orb.h"
#include "liborb/orblog.h"

#include <QMetaMethod>
#include <QTemporaryFile>

#include <cstdlib>
#include <utility>

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
    void everyOtherByteIsIgnored();
    void varispeedFollowsTheLastStateReceived();
    void spaceFollowsTheSpeedFlags();
    void inputThatNeverEndsLeavesTheLoopItsTurn();
    void withoutStandardInputItRuns();
    void theTerminalIsRawWhileItLives();
    void theHelpIsLogged();
    void theStatusLineIsPrintedWhenItChangesAndEveryTwoSeconds();
    void endOfInputStopsThePolling();
    void nothingIsReadBehindTheEnd();
    void aTerminalHungUpStopsThePolling();
    void anyTimerIsAPoll();
    void keysCountBeforeTheLineAndTheLineBeforeTheSignal();
    void textsAreNotTakenForFormats();
};

namespace {

/// Standard input and output replaced for as long as it lives.
class Terminal
{
public:
    /// A terminal, or the file \a path as standard input.
    explicit Terminal(const char *path = nullptr)
        : _savedIn(dup(STDIN_FILENO)), _savedOut(dup(STDOUT_FILENO))
    {
        fflush(stdout);
        if (path != nullptr) {
            _slave = open(path, O_RDONLY);
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

    void hangUp() { close(std::exchange(_master, -1)); }
    void press(const QByteArray &keys) { QVERIFY(write(_master, keys, keys.size()) > 0); }
    QByteArray printed()
    {
        fflush(stdout);
        QFile file(_out.fileName());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    /// Sets everything that a raw terminal has not.
    void tangle()
    {
        termios t = settings();
        t.c_iflag |= IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON;
        t.c_lflag |= ECHO | ECHONL | ICANON | ISIG | IEXTEN;
        t.c_cflag = (t.c_cflag & ~tcflag_t(CSIZE)) | CS7;
        tcsetattr(_slave, TCSANOW, &t);
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

void TestKeyboardTransport::everyOtherByteIsIgnored()
{
    const QByteArray commands = " rRfFsSqQ+-nNpPoOcCmMvV";
    QByteArray others;
    for (int byte = 0; byte < 256; ++byte)
        if (!commands.contains(char(byte)))
            others += char(byte);
    QCOMPARE(others.size(), 256 - commands.size());
    QStringList found;
    {
        Terminal terminal;
        Console console;
        terminal.press(others + "n");
        SimDispatcher::runFor(250);
        found = console.seen;
    }
    QCOMPARE(found, QStringList{"step 1"}); // all of them were read, nothing but the last did
}

void TestKeyboardTransport::varispeedFollowsTheLastStateReceived()
{
    QStringList found;
    {
        Terminal terminal;
        Console console;
        terminal.press("+-"); // the default state stands still
        SimDispatcher::runFor(100);
        console.keys.setVtrState(playing(-0.5));
        terminal.press("++-");
        SimDispatcher::runFor(100);
        console.keys.setVtrState(playing(0.1));
        terminal.press("-");
        SimDispatcher::runFor(100);
        found = console.seen;
    }
    QCOMPARE(found, (QStringList{"play 0.1", "play -0.1", "play -0.4", "play -0.4", "play -0.6",
                                 "play 0"}));
}

void TestKeyboardTransport::spaceFollowsTheSpeedFlags()
{
    QStringList found;
    {
        Terminal terminal;
        Console console;
        for (const double speed : {0.0, -0.0, -1.0, 0.25, 8.0}) {
            console.keys.setVtrState(playing(speed));
            terminal.press(" ");
            SimDispatcher::runFor(100);
        }
        found = console.seen;
    }
    QCOMPARE(found, (QStringList{"play 1", "play 1", "still", "still", "still"}));
}

void TestKeyboardTransport::inputThatNeverEndsLeavesTheLoopItsTurn()
{
    int refreshes = 0;
    QStringList seen;
    {
        Terminal terminal("/dev/zero");
        Console console;
        SimDispatcher::runFor(550);
        refreshes = console.refreshes;
        seen = console.seen;
    }
    QCOMPARE(refreshes, 5);
    QCOMPARE(seen, QStringList{});
}

void TestKeyboardTransport::withoutStandardInputItRuns()
{
    QByteArray printed;
    int refreshes = 0;
    {
        Terminal terminal("/dev/null");
        close(STDIN_FILENO);
        {
            Console console;
            SimDispatcher::runFor(550);
            refreshes = console.refreshes;
        }
        printed = terminal.printed();
    }
    QCOMPARE(refreshes, 5);
    QCOMPARE(printed, "[--:--:--:--] 0.000 Startup  " + QByteArray(20, ' ') + "\r\n\n");
}

void TestKeyboardTransport::theTerminalIsRawWhileItLives()
{
    termios before = {};
    termios during = {};
    termios after = {};
    {
        Terminal terminal;
        terminal.tangle();
        before = terminal.settings();
        {
            const Console console;
            during = terminal.settings();
        }
        after = terminal.settings();
    }
    // Every flag that is cleared was set before, so that none of these says nothing.
    constexpr tcflag_t input = IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON;
    constexpr tcflag_t local = ECHO | ECHONL | ICANON | ISIG | IEXTEN;
    QCOMPARE(before.c_iflag & input, input);
    QCOMPARE(before.c_lflag & local, local);
    QCOMPARE(during.c_iflag, before.c_iflag & ~input);
    QCOMPARE(during.c_lflag, before.c_lflag & ~local);
    QCOMPARE(during.c_cflag, (before.c_cflag & ~tcflag_t(CSIZE | PARENB)) | CS8);
    QCOMPARE(during.c_oflag, before.c_oflag);
    QCOMPARE(after.c_lflag, before.c_lflag);
    QCOMPARE(after.c_iflag, before.c_iflag);
    QCOMPARE(after.c_cflag, before.c_cflag);
    QCOMPARE(after.c_oflag, before.c_oflag);
}

void TestKeyboardTransport::theHelpIsLogged()
{
    QStringList logged;
    const int sink = OrbLog::defaultLog()->addSink(
        [&](int level, const QString &file, int, const QString &text) {
            logged << QString("%1 %2 %3").arg(level).arg(file, text);
        });
    {
        Terminal terminal;
        const Console console;
    }
    OrbLog::defaultLog()->removeSink(sink);
    const QStringList lines{"Space  Toggle Play/Still", "R      Rewind", "F      Fast Forward",
                            "S      Stop", "N      Step to next frame",
                            "P      Step to previous frame", "O      Standby Off (E-E mode)",
                            "C      Record", "V      Toggle Camera Record",
                            "M      Toggle Debug Metadata", "+/-    Varispeed"};
    QCOMPARE(logged.size(), lines.size());
    for (qsizetype i = 0; i < lines.size(); ++i)
        QCOMPARE(logged[i], "3 keyboardtransport.cpp " + lines[i]);
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
        Terminal terminal("/dev/null");
        Console console;
        SimDispatcher::runFor(1050);
        seen = console.seen;
        refreshes = console.refreshes;
    }
    QCOMPARE(seen, QStringList{});
    QCOMPARE(refreshes, 10);
}

void TestKeyboardTransport::nothingIsReadBehindTheEnd()
{
    QTemporaryFile input;
    QVERIFY(input.open());
    input.write("rs");
    input.flush();
    QStringList seen;
    {
        Terminal terminal(qPrintable(input.fileName()));
        Console console;
        SimDispatcher::runFor(110);
        input.write("f"); // the end has been seen
        input.flush();
        SimDispatcher::runFor(200);
        seen = console.seen;
    }
    QCOMPARE(seen, (QStringList{"rewind", "stop"}));
}

void TestKeyboardTransport::aTerminalHungUpStopsThePolling()
{
    QStringList seen;
    int refreshes = 0;
    {
        Terminal terminal;
        Console console;
        terminal.press("r");
        SimDispatcher::runFor(250);
        terminal.hangUp();
        SimDispatcher::runFor(800);
        seen = console.seen;
        refreshes = console.refreshes;
    }
    QCOMPARE(seen, QStringList{"rewind"});
    QCOMPARE(refreshes, 10);
}

void TestKeyboardTransport::anyTimerIsAPoll()
{
    QStringList seen;
    int refreshes = 0;
    {
        Terminal terminal;
        Console console;
        terminal.press("f");
        QTimerEvent event(12345);
        QCoreApplication::sendEvent(&console.keys, &event);
        seen = console.seen;
        refreshes = console.refreshes;
    }
    QCOMPARE(seen, QStringList{"fastfwd"});
    QCOMPARE(refreshes, 1);
}

void TestKeyboardTransport::keysCountBeforeTheLineAndTheLineBeforeTheSignal()
{
    QByteArray printedAtSignal;
    {
        Terminal terminal;
        Console console;
        KeyboardTransport *keys = &console.keys;
        connect(keys, &KeyboardTransport::rewind, keys,
                [keys] { keys->setVtrState(playing(-8.0)); });
        connect(keys, &KeyboardTransport::refreshed, keys,
                [&] { printedAtSignal = terminal.printed(); });
        terminal.press("r");
        SimDispatcher::runFor(110);
    }
    QCOMPARE(printedAtSignal, "[--:--:--:--] -8.000 Play  " + QByteArray(20, ' ') + "\r");
}

void TestKeyboardTransport::textsAreNotTakenForFormats()
{
    QByteArray printed;
    {
        Terminal terminal;
        {
            Console console;
            console.keys.setStatus("%1 %2 %s %n 100%");
            SimDispatcher::runFor(110);
        }
        printed = terminal.printed();
    }
    QVERIFY2(printed.startsWith("[--:--:--:--] 0.000 Startup  %1 %2 %s %n 100%  "),
             printed.constData());
}

SIM_TEST_MAIN(TestKeyboardTransport)
#include "tst_keyboardtransport.moc"
