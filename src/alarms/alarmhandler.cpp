#include "alarms/alarmhandler.h"

#include "config/configinterface.h"
#include "liborb/orblog.h"
#include "libvanta/alarmproducer.h"
#include "transport/vtrstate.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace {

constexpr const char *logFile = "alarmhandler.cpp";

struct AlarmRow {
    int id;
    quint32 param;
};

// clang-format off
constexpr AlarmRow alarmRows[] = {
    // alarm parameter
    {1901, 0x7e070900},
    {1902, 0x7e070a00},
    {1903, 0x7e070b00},
    {1904, 0x7e070c00},
    {1905, 0x7e070e00},
    {1906, 0x7e071200},
    {1907, 0x7e071300},
    {1908, 0x7e071400},
    {1909, 0x7e071500},
    {1910, 0x7e071800},
    {1911, 0x7e071900},
    {1912, 0x7e071a00},
    {1913, 0x7e071b00},
    {1914, 0x7e071c00},
    {1915, 0x7e071d00},
    {1916, 0x7e072000},
    {1917, 0x7e072100},
    {1918, 0x7e072200},
    {1919, 0x7e072300},
    {1920, 0x7e072800},
};
// clang-format on

static_assert(std::size(alarmRows) == 20);
static_assert(std::ranges::is_sorted(alarmRows, std::ranges::less_equal{}, &AlarmRow::id));
static_assert(std::ranges::is_sorted(alarmRows, std::ranges::less_equal{}, &AlarmRow::param));

constexpr const char *delayAttributes[] = {
    "raise_on_play_pressed", "raise_on_record_pressed", "raise_on_stop_pressed", "raise_on_playback",
    "raise_on_record",       "raise_on_standby",        "raise_on_standby_off",
};

void log(int line, int level, const QString &text)
{
    OrbLogStream(logFile, line, level, OrbLog::defaultLog()) << text;
}

} // namespace

AlarmHandler::AlarmHandler(QObject *parent) : QObject(parent)
{
    for (const AlarmRow &row : alarmRows) {
        _alarms[static_cast<eParam_t>(row.param)] =
            OrbAlarm(OrbId(row.id), OrbAlarm::Clear, QString(), QString(), 0);
    }
}

void AlarmHandler::setConfigInterface(ConfigInterface *cfg)
{
    _config = cfg ? cfg->configObject() : nullptr;
}

QString AlarmHandler::alarmToString(const OrbAlarm &alarm) const
{
    return QStringLiteral("%1:%2 (%3) %4 %5:%6")
        .arg(alarm.isWarning() ? QStringLiteral("Warn") : QStringLiteral("Err"), alarm.id().name(),
             alarm.isActive() ? QStringLiteral("Raised") : QStringLiteral("Clear"), alarm.text(),
             alarm.file(), QString::number(alarm.line()));
}

bool AlarmHandler::findAlarm(const OrbId &id, eParam_t &param, OrbAlarm &alarm) const
{
    const auto entry =
        std::ranges::find_if(_alarms, [&](const auto &e) { return e.second.id() == id; });
    if (entry == _alarms.end())
        return false;
    param = entry->first;
    alarm = entry->second;
    return true;
}

bool AlarmHandler::hasAttribute(eParam_t param, const std::string &attribute) const
{
    const AttributeSet *attributes = _config ? _config->attributes(param) : nullptr;
    return attributes && attributes->has(attribute);
}

bool AlarmHandler::isDelayed(eParam_t param) const
{
    return std::ranges::any_of(delayAttributes, [&](const char *name) {
        return hasAttribute(param, name);
    });
}

void AlarmHandler::publish(eParam_t param, const OrbAlarm &alarm)
{
    AlarmProducer::raise(_config, param,
                         alarm.isWarning() ? lumo::alarms::Alarm_WARNING : lumo::alarms::Alarm_ERROR,
                         alarm.text().toStdString());
}

void AlarmHandler::handleAlarm(const OrbAlarm &alarm)
{
    eParam_t param{};
    OrbAlarm stored;
    if (!findAlarm(alarm.id(), param, stored)) {
        log(__LINE__, 1, QStringLiteral("Unable to find alarm for id %1").arg(alarmToString(alarm)));
        return;
    }
    if (!stored.id().isValid() || stored.id() != alarm.id() || !_config) {
        if (alarm.isActive())
            log(__LINE__, 2, QStringLiteral("Unhandled alarm: %1").arg(alarmToString(alarm)));
        return;
    }
    if (alarm == stored)
        return;
    _alarms[param] = alarm;

    if (!alarm.isActive()) {
        log(__LINE__, 2, QStringLiteral("Clearing ALARM: %1").arg(alarmToString(alarm)));
        AlarmProducer::clear(_config, param);
        return;
    }
    if (isDelayed(param)) {
        log(__LINE__, 3, QStringLiteral("Delayed ALARM: %1").arg(alarmToString(alarm)));
        return;
    }
    // A warning is logged as an error and an error as a warning, deliberately.
    log(__LINE__, alarm.isWarning() ? 1 : 2,
        QStringLiteral("Raising ALARM: %1").arg(alarmToString(alarm)));
    publish(param, alarm);
}

/// The clear comes first, so that a parameter that carries both attributes of an event is cleared and not
/// raised.
void AlarmHandler::onEvent(QString clear_attribute, QString raise_attribute)
{
    if (!_config)
        return;
    for (auto &[param, alarm] : _alarms) {
        if (hasAttribute(param, clear_attribute.toStdString())) {
            log(__LINE__, 2,
                QStringLiteral("Clearing ALARM (%1): %2").arg(clear_attribute, alarmToString(alarm)));
            alarm.setLevel(OrbAlarm::Clear);
            AlarmProducer::clear(_config, param);
        }
        if (alarm.isActive() && hasAttribute(param, raise_attribute.toStdString())) {
            log(__LINE__, 2,
                QStringLiteral("Raising ALARM (%1): %2").arg(raise_attribute, alarmToString(alarm)));
            publish(param, alarm);
        }
    }
}

void AlarmHandler::onPlayPressed()
{
    onEvent(QStringLiteral("clear_on_play_pressed"), QStringLiteral("raise_on_play_pressed"));
}

void AlarmHandler::onStopPressed()
{
    onEvent(QStringLiteral("clear_on_stop_pressed"), QStringLiteral("raise_on_stop_pressed"));
}

void AlarmHandler::onRecordPressed()
{
    onEvent(QStringLiteral("clear_on_record_pressed"), QStringLiteral("raise_on_record_pressed"));
}

void AlarmHandler::onPlayback()
{
    onEvent(QStringLiteral("clear_on_playback"), QStringLiteral("raise_on_playback"));
}

void AlarmHandler::onRecord()
{
    onEvent(QStringLiteral("clear_on_record"), QStringLiteral("raise_on_record"));
}

void AlarmHandler::onStandby()
{
    onEvent(QStringLiteral("clear_on_standby"), QStringLiteral("raise_on_standby"));
}

void AlarmHandler::onStandbyOff()
{
    onEvent(QStringLiteral("clear_on_standby_off"), QStringLiteral("raise_on_standby_off"));
}

void AlarmHandler::stateChanged(const VtrState &oldState, const VtrState &newState)
{
    if (oldState.mode() == newState.mode())
        return;
    switch (newState.mode()) {
    case VtrState::Standby:
        onStandby();
        break;
    case VtrState::Play:
        onPlayback();
        break;
    case VtrState::Record:
        onRecord();
        break;
    default:
        break;
    }
}
