#include "aux/keyboardtransport.h"

#include "liborb/orblog.h"

#include <QTimerEvent>

#include <cctype>
#include <cerrno>
#include <cstdio>

#include <sys/select.h>
#include <unistd.h>

namespace {

constexpr char logFile[] = "keyboardtransport.cpp";
constexpr int pollPeriodMs = 100;
constexpr int redrawsBetweenForced = 20;
constexpr int mostKeysAPoll = 4096; ///< all that a terminal holds
constexpr double speedStep = 0.1;

/// The quit key is deliberately not listed.
constexpr const char *helpLines[] = {
    "Space  Toggle Play/Still\n",
    "R      Rewind\n",
    "F      Fast Forward\n",
    "S      Stop\n",
    "N      Step to next frame\n",
    "P      Step to previous frame\n",
    "O      Standby Off (E-E mode)\n",
    "C      Record\n",
    "V      Toggle Camera Record\n",
    "M      Toggle Debug Metadata\n",
    "+/-    Varispeed\n",
};

/// Keys come at once and raise no signals; what is printed is still shaped into lines.
termios rawInput(termios settings)
{
    settings.c_iflag &= ~tcflag_t(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON);
    settings.c_lflag &= ~tcflag_t(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
    settings.c_cflag &= ~tcflag_t(CSIZE | PARENB);
    settings.c_cflag |= CS8;
    return settings;
}

} // namespace

KeyboardTransport::KeyboardTransport(QObject *parent) : QObject(parent)
{
    startTimer(pollPeriodMs, Qt::PreciseTimer);
    _isTerminal = tcgetattr(STDIN_FILENO, &_savedTerminal) == 0;
    if (_isTerminal) {
        const termios raw = rawInput(_savedTerminal);
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    for (const char *line : helpLines)
        orbLogOutput(3, logFile, __LINE__, "%s", line);
}

KeyboardTransport::~KeyboardTransport()
{
    if (_isTerminal)
        tcsetattr(STDIN_FILENO, TCSANOW, &_savedTerminal);
    puts("\n");
}

void KeyboardTransport::setVtrState(const VtrState &state)
{
    _state = state;
}

void KeyboardTransport::setStatus(const QString &val)
{
    _status = val;
}

void KeyboardTransport::setCurrentTimecode(const OrbTimecode &tc)
{
    _timecode = tc;
}

void KeyboardTransport::timerEvent(QTimerEvent *)
{
    // Bounded: input that never ends, as from a pipe, must not keep the event loop.
    for (int keys = 0; keys < mostKeysAPoll && kbhit(); ++keys) {
        const int key = getch();
        if (key == -1)
            break;
        handleKey(key);
    }
    redraw();
    emit refreshed();
}

bool KeyboardTransport::kbhit()
{
    if (_isAtEnd)
        return false;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(STDIN_FILENO, &readable);
    timeval none = {};
    return select(STDIN_FILENO + 1, &readable, nullptr, nullptr, &none) > 0;
}

/// -1 when there is no byte. At the end of input, or on input that cannot be read, polling for keys
/// stops: it would report a key for ever.
int KeyboardTransport::getch()
{
    unsigned char byte = 0;
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count == 1)
        return byte;
    _isAtEnd = count == 0 || (errno != EINTR && errno != EAGAIN);
    return -1;
}

void KeyboardTransport::handleKey(int key)
{
    switch (std::tolower(key)) {
    case ' ':
        if (_state.speedFlags().isStill())
            emit play(1.0);
        else
            emit still();
        break;
    case 'r': emit rewind(); break;
    case 'f': emit fastfwd(); break;
    case 's': emit stop(); break;
    case 'q': emit quit(); break;
    case '+': emit play(_state.speed() + speedStep); break;
    case '-': emit play(_state.speed() - speedStep); break;
    case 'n': emit step(1); break;
    case 'p': emit step(-1); break;
    case 'o': emit standbyOff(); break;
    case 'c': emit record(); break;
    case 'm': emit toggleMeta(); break;
    case 'v': emit cameraRecord(); break;
    default: break;
    }
}

void KeyboardTransport::redraw()
{
    const bool isForced = _redrawCount % redrawsBetweenForced == 0;
    _redrawCount = (_redrawCount + 1) % redrawsBetweenForced;
    const QString line =
        QStringLiteral("[%1] %2 %3").arg(_timecode.toString(), _state.toString(), _status);
    if (!isForced && line == _lastLine)
        return;
    _lastLine = line;
    printf("%s                    \r", line.toLocal8Bit().constData());
    fflush(stdout);
}
