#include "liborb/orblog.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int defaultThreshold = 3;
constexpr qsizetype longestText = 4096; ///< characters of one record

/// A record written while a sink handles another one (by the sink itself, or by code that
/// interrupts it) is dropped: anything else would wait for itself.
thread_local bool insideSink = false;

bool isControl(QChar c)
{
    return c.category() == QChar::Other_Control || c == QChar::LineSeparator
           || c == QChar::ParagraphSeparator;
}

/// One line that cannot be taken for two and sends nothing to a terminal but itself.
QString cleaned(QString text)
{
    while (text.endsWith(QLatin1Char('\n')))
        text.chop(1);
    const bool cut = text.size() > longestText;
    text.truncate(longestText);
    QString line;
    line.reserve(text.size() + 8);
    for (const QChar c : std::as_const(text)) {
        if (c == QLatin1Char('\n'))
            line += QLatin1String("\\n");
        else if (c == QLatin1Char('\t'))
            line += QLatin1String("\\t");
        else if (isControl(c))
            line += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            line += c;
    }
    if (cut)
        line += QLatin1String("...");
    return line;
}

/// "2024-05-01T12:00:00.123+02:00 3 vtrobject.cpp:120: text"
QByteArray record(int level, const QString &file, int line, const QString &text)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QString time = now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODateWithMs);
    return QStringLiteral("%1 %2 ").arg(time).arg(level).toUtf8() + file.toUtf8() + ':'
           + QByteArray::number(line) + ": " + text.toUtf8() + '\n';
}

void writeAll(int fd, const char *bytes, qsizetype size)
{
    qsizetype done = 0;
    while (done < size) {
        const ssize_t count = ::write(fd, bytes + done, static_cast<size_t>(size - done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return; // a log that cannot be written is no reason to stop
        done += count;
    }
}

} // namespace

struct OrbLog::Private {
    struct NumberedSink {
        int number;
        std::shared_ptr<const Sink> sink;
    };

    ~Private()
    {
        for (const int fd : {fileFd.load(), secondFd.load()}) {
            if (fd >= 0)
                ::close(fd);
        }
    }

    std::recursive_mutex mutex;
    std::atomic<int> threshold = defaultThreshold;
    std::atomic<int> fileFd = -1; ///< atomic for signal handlers, which take no lock
    std::atomic<int> secondFd = -1;
    std::atomic<bool> display = false;
    int nextNumber = 1;
    std::vector<NumberedSink> sinks;
};

OrbLog *OrbLog::defaultLog()
{
    // Never destroyed: objects that outlive main() may still write to it.
    static OrbLog *const log = new OrbLog;
    return log;
}

OrbLog::OrbLog() : _d(std::make_unique<Private>()) {}
OrbLog::~OrbLog() = default;

void OrbLog::output(int level, const QString &file, int line, const QString &text)
{
    if (level > _d->threshold || insideSink)
        return;
    const std::lock_guard lock(_d->mutex);
    insideSink = true;
    const QString clean = cleaned(text);
    if (_d->fileFd >= 0 || _d->secondFd >= 0 || _d->display) {
        const QByteArray bytes = record(level, cleaned(file), line, clean);
        for (const int fd : {_d->fileFd.load(), _d->secondFd.load()}) {
            if (fd >= 0)
                writeAll(fd, bytes.constData(), bytes.size());
        }
        if (_d->display)
            writeAll(STDERR_FILENO, bytes.constData(), bytes.size());
    }
    const std::vector<Private::NumberedSink> sinks = _d->sinks; // a sink may remove itself
    for (const Private::NumberedSink &entry : sinks)
        (*entry.sink)(level, file, line, clean);
    insideSink = false;
}

void OrbLog::outputFromSignal(int level, const char *file, int line, const char *text)
{
    if (level > _d->threshold)
        return;
    // The calendar by arithmetic: the library's own functions take a lock.
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::chrono::sys_seconds seconds{std::chrono::seconds(now.tv_sec)};
    const auto day = std::chrono::floor<std::chrono::days>(seconds);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(seconds - day);
    char bytes[longestText];
    const int length = std::snprintf(
        bytes, sizeof bytes, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ %d %s:%d: %s",
        static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
        static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
        static_cast<int>(now.tv_nsec / 1000000), level, file, line, text);
    qsizetype size = std::clamp<qsizetype>(length, 0, longestText - 2);
    if (size > 0 && bytes[size - 1] == '\n')
        --size;
    const auto isControlByte = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
    std::replace_if(bytes, bytes + size, isControlByte, '?');
    bytes[size++] = '\n';
    for (const int fd : {_d->fileFd.load(), _d->secondFd.load()}) {
        if (fd >= 0)
            writeAll(fd, bytes, size);
    }
    if (_d->display)
        writeAll(STDERR_FILENO, bytes, size);
}

void OrbLog::setLevel(int level) { _d->threshold = level; }
int OrbLog::level() const { return _d->threshold; }

/// Appends to \a path from now on instead of to what \a target stands for. False when it cannot be opened.
bool OrbLog::openInto(std::atomic<int> &target, const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644);
    if (fd < 0)
        return false;
    const std::lock_guard lock(_d->mutex);
    const int former = target.exchange(fd);
    if (former >= 0)
        ::close(former);
    return true;
}

bool OrbLog::openFile(const QString &path) { return openInto(_d->fileFd, path); }
bool OrbLog::openSecondFile(const QString &path) { return openInto(_d->secondFd, path); }

void OrbLog::openDisplay()
{
    const std::lock_guard lock(_d->mutex);
    _d->display = true;
}

int OrbLog::addSink(const Sink &sink)
{
    if (!sink)
        return 0;
    const std::lock_guard lock(_d->mutex);
    const int number = _d->nextNumber++;
    _d->sinks.push_back({number, std::make_shared<const Sink>(sink)});
    return number;
}

void OrbLog::removeSink(int number)
{
    const std::lock_guard lock(_d->mutex);
    std::erase_if(_d->sinks, [number](const auto &entry) { return entry.number == number; });
}

OrbLogStream::OrbLogStream(const char *sourceFile, int line, int level, OrbLog *log)
    : _file(sourceFile), _line(line), _level(level), _log(log)
{
    setString(&_text, QIODevice::WriteOnly);
}

OrbLogStream::~OrbLogStream()
{
    if (!_ended || !_text.isEmpty())
        endline();
    setString(nullptr); // the text goes before the stream does
}

void OrbLogStream::endline()
{
    *this << '\n';
    flush();
    if (_log != nullptr)
        _log->output(_level, QString::fromUtf8(_file), _line, _text);
    _text.clear();
    _ended = true;
}

void orbLogOutput(int level, const QString &sourceFile, int line, const char *format, ...)
{
    if (level > OrbLog::defaultLog()->level())
        return;
    char text[8 * 1024]; // longer than any record that is kept
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    OrbLog::defaultLog()->output(level, sourceFile, line,
                                 QString::fromUtf8(length < 0 ? format : text));
}

void orbLogOpenFile(const QString &path) { OrbLog::defaultLog()->openFile(path); }
void orbLogOpenDisplay() { OrbLog::defaultLog()->openDisplay(); }
void orbLogSetLevel(int level) { OrbLog::defaultLog()->setLevel(level); }
