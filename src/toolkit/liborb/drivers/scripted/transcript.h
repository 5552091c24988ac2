#pragma once

#include <QString>
#include <QStringList>

/// What happened, one line each, in order: log records, driver calls, signals. Compared as text.
class Transcript
{
public:
    void note(const QString &line) { _lines << line; }
    const QStringList &lines() const { return _lines; }
    void clear() { _lines.clear(); }
    /// The lines so far, and starts over.
    QStringList take();
    /// How many lines begin with \a start.
    int count(const QString &start) const;
    bool contains(const QString &line) const { return _lines.contains(line); }

private:
    QStringList _lines;
};
