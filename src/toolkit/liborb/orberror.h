#pragma once

#include <QMetaType>
#include <QtGlobal>

/// A result code: 0 is success, anything else an error, by custom an errno value.
class OrbError
{
public:
    constexpr OrbError() = default;
    constexpr OrbError(qint32 value) : _value(value) {}

    constexpr bool isError() const { return _value != 0; }
    constexpr qint32 value() const { return _value; }
    constexpr bool operator==(const OrbError &other) const { return _value == other._value; }
    constexpr bool operator!=(const OrbError &other) const { return _value != other._value; }

private:
    qint32 _value = 0;
};

Q_DECLARE_METATYPE(OrbError)
