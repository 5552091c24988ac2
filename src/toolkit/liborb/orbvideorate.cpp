#include "liborb/orbvideorate.h"

namespace {

struct StandardRate {
    OrbVideoRate::StdRate number;
    qint32 num;
    qint32 den;
};

constexpr StandardRate standardRates[] = {
    {OrbVideoRate::Rate23_976, 24000, 1001},
    {OrbVideoRate::Rate24,     24,    1   },
    {OrbVideoRate::Rate25,     25,    1   },
    {OrbVideoRate::Rate29_97,  30000, 1001},
    {OrbVideoRate::Rate30,     30,    1   },
    {OrbVideoRate::Rate47_952, 48000, 1001},
    {OrbVideoRate::Rate48,     48,    1   },
    {OrbVideoRate::Rate50,     50,    1   },
    {OrbVideoRate::Rate59_94,  60000, 1001},
    {OrbVideoRate::Rate60,     60,    1   },
};

OrbRational standardRate(OrbVideoRate::StdRate number)
{
    for (const StandardRate &row : standardRates) {
        if (row.number == number)
            return OrbRational(row.num, row.den);
    }
    return OrbRational();
}

} // namespace

OrbVideoRate::OrbVideoRate(StdRate rate) : OrbRational(standardRate(rate)) {}

int OrbVideoRate::timecodeRate() const
{
    if (!isValid())
        return 0;
    // Truncated, deliberately: 29.97 counts at 30, 25.5 at 25, and 26 at nothing.
    switch (static_cast<qint64>(toDouble())) {
    case 23:
    case 24:
        return 24;
    case 25:
        return 25;
    case 29:
    case 30:
        return 30;
    case 47:
    case 48:
        return 48;
    case 50:
        return 50;
    case 59:
    case 60:
        return 60;
    default:
        return 0;
    }
}
