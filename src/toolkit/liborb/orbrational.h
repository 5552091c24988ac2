#pragma once

#include <QMetaType>
#include <QtGlobal>

/// A fraction; 0/0 by default, valid when the denominator is not 0.
class OrbRational
{
public:
    constexpr OrbRational() = default;
    constexpr OrbRational(qint32 num, qint32 den) : _num(num), _den(den) {}

    qint32 num() const { return _num; }
    qint32 den() const { return _den; }
    bool isValid() const { return _den != 0; }
    /// num / den in double precision (not a number or infinite when invalid).
    double toDouble() const;
    /// Euclid's algorithm, the larger of the two as the first dividend; 0 for (0, 0).
    static qint32 gcf(qint32 a, qint32 b);
    qint32 gcf() const { return gcf(_num, _den); }
    /// A copy divided through by gcf(); 0/0 when that is 0.
    OrbRational reduce() const;

    /// Two invalid rationals are equal; otherwise the reduced values are compared.
    bool operator==(const OrbRational &other) const;
    bool operator!=(const OrbRational &other) const { return !(*this == other); }

private:
    qint32 _num = 0;
    qint32 _den = 0;
};

Q_DECLARE_METATYPE(OrbRational)
