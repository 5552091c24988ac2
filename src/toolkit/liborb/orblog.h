#pragma once

#include <QString>
#include <QTextStream>

#include <atomic>
#include <functional>
#include <memory>

/// Levels: 1 error, 2 warning, 3 information, 4 most verbose. A record is kept when its level is not
/// above the threshold (3 until orbLogSetLevel()).
///
/// The process log: takes records from any thread and hands each to every open sink, one at a time.
class OrbLog
{
public:
    /// A sink gets every record that passes the threshold, on the thread that wrote it: the text without its
    /// line end, control characters escaped, cut after 4096 characters. What it logs itself is dropped.
    using Sink = std::function<void(int level, const QString &file, int line, const QString &text)>;

    static OrbLog *defaultLog();

    OrbLog();
    ~OrbLog();
    OrbLog(const OrbLog &) = delete;
    OrbLog &operator=(const OrbLog &) = delete;

    /// Writes one record; \a text as composed, with or without its line end.
    void output(int level, const QString &file, int line, const QString &text);
    /// The same from a signal handler: neither waits nor allocates, and reaches the file and the display
    /// only. The time is universal time.
    void outputFromSignal(int level, const char *file, int line, const char *text);
    void setLevel(int level);
    int level() const;
    /// Appends to the file \a path, created when need be, in place of the file open before. False when it
    /// cannot be opened (the file open before stays). A line reads
    /// "2024-05-01T12:00:00.123+02:00 3 vtrobject.cpp:120: text".
    bool openFile(const QString &path);
    /// The same for a file beside that one, so that a service can be read whatever its own sinks are.
    bool openSecondFile(const QString &path);
    /// Also writes to standard error.
    void openDisplay();
    /// Adds a sink; the answer is the number that removeSink() takes.
    int addSink(const Sink &sink);
    void removeSink(int number);

private:
    struct Private;
    bool openInto(std::atomic<int> &target, const QString &path);

    std::unique_ptr<Private> _d;
};

/// A text stream that becomes one log record when it is destroyed. It adds the line end itself. One that was
/// ended before and has had nothing since leaves no second, empty record.
class OrbLogStream : public QTextStream
{
public:
    OrbLogStream(const char *sourceFile, int line, int level, OrbLog *log);
    ~OrbLogStream() override;
    OrbLogStream(const OrbLogStream &) = delete;
    OrbLogStream &operator=(const OrbLogStream &) = delete;

    /// Appends a line end, hands the text to the log and starts over.
    void endline();

private:
    QString _text;
    const char *_file;
    int _line;
    int _level;
    OrbLog *_log;
    bool _ended = false;
};

/// Writes one printf-style record to the default log. Formats end in "\n".
void orbLogOutput(int level, const QString &sourceFile, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
void orbLogOpenFile(const QString &path);
void orbLogOpenDisplay();
void orbLogSetLevel(int level);
