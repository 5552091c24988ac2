#pragma once

#include "liborb/orblog.h"

#include <QList>
#include <QString>
#include <QStringList>

/// Collects what the default log receives for as long as it lives. Threshold 4 meanwhile.
class LogCollector
{
public:
    struct Record {
        int level;
        QString file;
        QString text;
    };

    LogCollector()
    {
        OrbLog::defaultLog()->setLevel(4);
        _sink = OrbLog::defaultLog()->addSink(
            [this](int level, const QString &file, int, const QString &text) {
                _records.append({level, file, text});
            });
    }
    ~LogCollector()
    {
        OrbLog::defaultLog()->removeSink(_sink);
        OrbLog::defaultLog()->setLevel(3);
    }
    LogCollector(const LogCollector &) = delete;
    LogCollector &operator=(const LogCollector &) = delete;

    const QList<Record> &records() const { return _records; }
    void clear() { _records.clear(); }
    /// Every record as "level file text", without its line end.
    QStringList lines() const
    {
        QStringList list;
        for (const Record &r : _records)
            list << QStringLiteral("%1 %2 %3").arg(r.level).arg(r.file, r.text.trimmed());
        return list;
    }
    bool contains(int level, const QString &file, const QString &text) const
    {
        return lines().contains(QStringLiteral("%1 %2 %3").arg(level).arg(file, text));
    }

private:
    QList<Record> _records;
    int _sink = 0;
};
