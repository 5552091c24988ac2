#pragma once

#include "liborb/orbtimecode.h"

#include <functional>

/// The toolkit as a whole.
class Orb
{
public:
    /// Initialises the library once at start-up: registers every value type that travels in signals with
    /// the meta-type system and quiets the codec library. \a flags is 0. Further calls do nothing.
    static void init(int flags);

    /// Milliseconds since local midnight; tests replace the source, an empty function restores the clock.
    static qint64 timeOfDayMs();
    static void setTimeOfDaySource(const std::function<qint64()> &source);
};
