#include "liborb/orbrational.h"

#include <limits>
#include <utility>

double OrbRational::toDouble() const
{
    return static_cast<double>(_num) / static_cast<double>(_den);
}

qint32 OrbRational::gcf(qint32 a, qint32 b)
{
    // 64 bits wide: the remainder of the smallest 32-bit number by -1 traps on some processors.
    qint64 dividend = a;
    qint64 divisor = b;
    if (dividend < divisor)
        std::swap(dividend, divisor);
    while (divisor != 0) {
        const qint64 remainder = dividend % divisor;
        dividend = divisor;
        divisor = remainder;
    }
    return static_cast<qint32>(dividend);
}

OrbRational OrbRational::reduce() const
{
    const qint32 factor = gcf();
    if (factor == 0)
        return OrbRational();
    if (factor == 1)
        return *this;
    const qint64 num = static_cast<qint64>(_num) / factor;
    const qint64 den = static_cast<qint64>(_den) / factor;
    constexpr qint64 largest = std::numeric_limits<qint32>::max();
    if (num > largest || den > largest)
        return *this; // only for the smallest number divided by -1, which has no counterpart
    return OrbRational(static_cast<qint32>(num), static_cast<qint32>(den));
}

bool OrbRational::operator==(const OrbRational &other) const
{
    if (!isValid() || !other.isValid())
        return isValid() == other.isValid();
    const OrbRational mine = reduce();
    const OrbRational theirs = other.reduce();
    return mine._num == theirs._num && mine._den == theirs._den;
}
