#pragma once

#include "liborb/orbidvalue.h"

#include <QMetaType>
#include <QString>

/// One identifier of the toolkit; 0 is the invalid one.
class OrbId
{
public:
    constexpr OrbId() = default;
    constexpr OrbId(OrbIdValue value) : _value(value) {}
    constexpr explicit OrbId(int value) : _value(static_cast<OrbIdValue>(value)) {}

    constexpr bool isValid() const { return _value != OrbIdNone; }
    constexpr OrbIdValue value() const { return _value; }
    /// The symbolic name for logs, "FrameNumber" for 1; "Id" and the number when it has none.
    QString name() const;

    constexpr bool operator==(const OrbId &other) const { return _value == other._value; }
    constexpr bool operator!=(const OrbId &other) const { return _value != other._value; }

private:
    OrbIdValue _value = OrbIdNone;
};

/// The value itself.
constexpr size_t qHash(const OrbId &id, size_t = 0)
{
    return static_cast<size_t>(id.value());
}

Q_DECLARE_METATYPE(OrbId)
