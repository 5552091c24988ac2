#pragma once

#include "liborb/orbid.h"

#include <QMetaType>
#include <QSharedDataPointer>
#include <QString>

class OrbAlarmData;

/// One alarm report. Implicitly shared.
class OrbAlarm
{
public:
    enum AlarmLevel { Clear = 0, Warning = 1, Error = 2 };

    OrbAlarm();
    OrbAlarm(const OrbId &id, AlarmLevel level, const QString &text, const QString &file, int line);
    OrbAlarm(const OrbId &id, int level, const QString &text, const QString &file, int line);
    OrbAlarm(const OrbAlarm &);
    OrbAlarm(OrbAlarm &&) noexcept;
    OrbAlarm &operator=(const OrbAlarm &);
    OrbAlarm &operator=(OrbAlarm &&) noexcept;
    ~OrbAlarm();

    bool isActive() const { return level() != Clear; }
    bool isWarning() const { return level() == Warning; }
    OrbId id() const;
    AlarmLevel level() const;
    QString text() const;
    QString file() const; ///< source file name of the reporter
    int line() const;
    void setLevel(AlarmLevel level);

    /// Identifier, level, text and source are equal.
    bool operator==(const OrbAlarm &other) const;
    bool operator!=(const OrbAlarm &other) const { return !(*this == other); }

private:
    QSharedDataPointer<OrbAlarmData> _d;
};

Q_DECLARE_METATYPE(OrbAlarm)
