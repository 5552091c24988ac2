#pragma once

#include <QString>

/// What kind of speed a transport speed is: direction, still, normal, slow or fast.
class VtrSpeedFlags
{
public:
    /// Holds \a bits unchanged.
    constexpr VtrSpeedFlags(unsigned int bits) : _bits(bits) {}

    /// The flags of \a speed, by exact comparison with 0.0, 1.0 and -1.0. Negative zero is still;
    /// of a speed that is not a number only "Valid" is set.
    static VtrSpeedFlags fromSpeed(double speed);

    bool isForward() const { return has(Fwd); }
    bool isReverse() const { return has(Rev); }
    bool isStill() const { return has(Still); }
    bool isNormalForward() const { return has(Fwd | Normal); }
    bool isFastForward() const { return has(Fwd | Fast); }
    bool isFastReverse() const { return has(Rev | Fast); }

    /// The names of the set bits in ascending order, joined by blanks: "Valid Fwd Normal".
    QString toString() const;

    bool operator==(const VtrSpeedFlags &) const = default;

private:
    enum Bit : unsigned int {
        Valid = 0x01,
        Fwd = 0x02,
        Rev = 0x04,
        Bit3 = 0x08, ///< reserved: never set, has a name
        Still = 0x10,
        Normal = 0x20,
        Slow = 0x40,
        Fast = 0x80
    };

    constexpr bool has(unsigned int bits) const { return (_bits & bits) == bits; }

    unsigned int _bits;
};
