#include "liborb/orbalarm.h"

namespace {

struct Fields {
    OrbId id;
    OrbAlarm::AlarmLevel level = OrbAlarm::Clear;
    QString text;
    QString file;
    qint32 line = 0;

    bool operator==(const Fields &) const = default;
};

} // namespace

class OrbAlarmData : public QSharedData
{
public:
    Fields f;
};

OrbAlarm::OrbAlarm() : _d(new OrbAlarmData) {}
OrbAlarm::OrbAlarm(const OrbAlarm &) = default;
OrbAlarm::OrbAlarm(OrbAlarm &&) noexcept = default;
OrbAlarm &OrbAlarm::operator=(const OrbAlarm &) = default;
OrbAlarm &OrbAlarm::operator=(OrbAlarm &&) noexcept = default;
OrbAlarm::~OrbAlarm() = default;

OrbAlarm::OrbAlarm(const OrbId &id, AlarmLevel level, const QString &text, const QString &file,
                   int line)
    : OrbAlarm()
{
    _d->f = Fields{id, level, text, file, line};
}

OrbAlarm::OrbAlarm(const OrbId &id, int level, const QString &text, const QString &file, int line)
    : OrbAlarm(id, static_cast<AlarmLevel>(level), text, file, line)
{
}

OrbId OrbAlarm::id() const { return _d->f.id; }
OrbAlarm::AlarmLevel OrbAlarm::level() const { return _d->f.level; }
QString OrbAlarm::text() const { return _d->f.text; }
QString OrbAlarm::file() const { return _d->f.file; }
int OrbAlarm::line() const { return _d->f.line; }

void OrbAlarm::setLevel(AlarmLevel level) { _d->f.level = level; }

bool OrbAlarm::operator==(const OrbAlarm &other) const
{
    return _d == other._d || _d->f == other._d->f;
}
