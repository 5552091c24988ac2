#include "transport/vtrspeedflags.h"

#include <QStringList>

#include <iterator>

namespace {

/// By bit number.
constexpr const char *bitNames[] = {"Valid", "Fwd",    "Rev",  "Bit3",
                                    "Still", "Normal", "Slow", "Fast"};
static_assert(std::size(bitNames) == 8);

} // namespace

VtrSpeedFlags VtrSpeedFlags::fromSpeed(double speed)
{
    unsigned int bits = Valid;
    bits |= speed > 0.0 ? Fwd : 0U;
    bits |= speed < 0.0 ? Rev : 0U;
    bits |= speed == 0.0 ? Still : 0U;
    bits |= speed == 1.0 || speed == -1.0 ? Normal : 0U;
    bits |= speed != 0.0 && -1.0 < speed && speed < 1.0 ? Slow : 0U;
    bits |= speed > 1.0 || speed < -1.0 ? Fast : 0U;
    return {bits};
}

QString VtrSpeedFlags::toString() const
{
    QStringList names;
    for (size_t bit = 0; bit < std::size(bitNames); ++bit)
        if (has(1U << bit))
            names << QLatin1String(bitNames[bit]);
    return names.join(QLatin1Char(' '));
}
