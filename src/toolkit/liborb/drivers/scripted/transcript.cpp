#include "liborb/drivers/scripted/transcript.h"

#include <algorithm>
#include <utility>

QStringList Transcript::take()
{
    return std::exchange(_lines, QStringList());
}

int Transcript::count(const QString &start) const
{
    return int(std::ranges::count_if(
        _lines, [&](const QString &line) { return line.startsWith(start); }));
}
