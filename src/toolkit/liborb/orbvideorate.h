#pragma once

#include "liborb/orbrational.h"

/// A frame rate in frames a second.
class OrbVideoRate : public OrbRational
{
public:
    /// The standard rates; the number travels in frame metadata.
    enum StdRate {
        RateNone = 0,
        Rate23_976 = 1,
        Rate24 = 2,
        Rate25 = 3,
        Rate29_97 = 4,
        Rate30 = 5,
        Rate47_952 = 6,
        Rate48 = 7,
        Rate50 = 8,
        Rate59_94 = 9,
        Rate60 = 10
    };

    constexpr OrbVideoRate() = default;
    constexpr OrbVideoRate(qint32 num, qint32 den) : OrbRational(num, den) {}
    /// num/den of a standard rate; invalid for RateNone and any number outside the list.
    OrbVideoRate(StdRate rate);

    /// The whole rate that timecode counts at: the rate truncated, then 23 and 24 to 24, 25, 29 and 30 to
    /// 30, 47 and 48 to 48, 50, 59 and 60 to 60; 0 for everything else and for an invalid rate.
    int timecodeRate() const;
};

Q_DECLARE_METATYPE(OrbVideoRate)
