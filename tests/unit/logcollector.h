#pragma once

#include "liborb/orblog.h"

#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>

/// Collects what the default log receives, from any thread, for as long as it lives. Threshold 4 meanwhile.
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
                const QMutexLocker lock(&_mutex);
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

    QList<Record> records() const
    {
        const QMutexLocker lock(&_mutex);
        return _records;
    }
    void clear()
    {
        const QMutexLocker lock(&_mutex);
        _records.clear();
    }
    /// Every record as "level file text", without its line end.
    QStringList lines() const
    {
        QStringList list;
        for (const Record &r : records())
            list << QStringLiteral("%1 %2 %3").arg(r.level).arg(r.file, r.text.trimmed());
        return list;
    }
    bool contains(int level, const QString &file, const QString &text) const
    {
        return lines().contains(QStringLiteral("%1 %2 %3").arg(level).arg(file, text));
    }

private:
    mutable QMutex _mutex;
    QList<Record> _records; // guarded
    int _sink = 0;
};
