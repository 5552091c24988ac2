#pragma once

#include <QMetaType>

#include <sys/time.h>

/// A point in time: seconds and microseconds.
class OrbTimeStamp
{
public:
    constexpr OrbTimeStamp() = default;
    constexpr OrbTimeStamp(long sec, long usec) : _sec(sec), _usec(usec) {}
    explicit OrbTimeStamp(const timeval &tv) : _sec(tv.tv_sec), _usec(tv.tv_usec) {}

    /// Now, since the epoch.
    static OrbTimeStamp getCurrent();

    long sec() const { return _sec; }
    long usec() const { return _usec; }
    /// Seconds plus microseconds times 1e-06.
    double toDouble() const;
    bool operator==(const OrbTimeStamp &) const = default;

private:
    long _sec = 0;
    long _usec = 0;
};

Q_DECLARE_METATYPE(OrbTimeStamp)
