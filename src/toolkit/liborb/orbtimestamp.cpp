#include "liborb/orbtimestamp.h"

OrbTimeStamp OrbTimeStamp::getCurrent()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return OrbTimeStamp(now);
}

double OrbTimeStamp::toDouble() const
{
    return static_cast<double>(_sec) + static_cast<double>(_usec) * 1e-06;
}
