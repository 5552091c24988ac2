#pragma once

#include <QMetaType>
#include <QSharedDataPointer>
#include <QString>

class OrbTimecodeData;

/// A SMPTE-style timecode: a label hour:minute:second:frame at a whole frame rate. Implicitly shared.
class OrbTimecode
{
public:
    enum Flag : quint16 { Valid = 1, DropFrame = 2 };

    /// All zero and not valid.
    OrbTimecode();
    /// Always valid; \a flags may add DropFrame.
    OrbTimecode(int hour, int min, int sec, int frame, int fps, int flags);
    /// The label of frame \a frameCount counted from midnight, modulo 24 hours, at \a fps frames a second;
    /// with \a dropFrame two (four) labels a minute are left out at 30 (60) except every tenth minute; at
    /// other rates only the flag is set. Not valid when \a fps is below 1 or above 127.
    OrbTimecode(qint64 frameCount, int fps, bool dropFrame);
    /// The label of the local time of day now (Orb::setTimeOfDaySource() drives it in tests).
    static OrbTimecode fromTimeOfDay(int fps, bool dropFrame);
    OrbTimecode(const OrbTimecode &);
    OrbTimecode(OrbTimecode &&) noexcept;
    OrbTimecode &operator=(const OrbTimecode &);
    OrbTimecode &operator=(OrbTimecode &&) noexcept;
    ~OrbTimecode();

    bool flag(quint16 bit) const;
    void setFlag(quint16 bit, bool on);
    bool isValid() const { return flag(Valid); }
    void setValid(bool on) { setFlag(Valid, on); }
    /// The drop-frame flag is set and the rate is a multiple of 30.
    bool isDropFrame() const;
    bool dropFrameFlag() const { return flag(DropFrame); }
    void setDropFrame(bool on) { setFlag(DropFrame, on); }

    int hour() const;
    int min() const;
    int sec() const;
    int frame() const;
    int fps() const;
    quint16 flags() const;
    void setHour(int hour);
    void setMin(int min);
    void setSec(int sec);
    void setFrame(int frame);
    void setFPS(int fps);

    /// Frames since midnight that the label stands for; 0 when the rate is not set.
    qint64 frameCount() const;
    /// This label moved on by \a frames at its own rate and drop-frame mode; wraps at 24 hours.
    OrbTimecode advanced(qint64 frames) const;

    /// "01:02:03:04"; ";" before the frames when the drop-frame flag is set, whatever the rate;
    /// "--:--:--:--" when not valid.
    QString toString() const;
    /// Hour, minute, second and frame are equal; rate and flags are ignored.
    bool timecodeMatches(const OrbTimecode &other) const;
    /// Every field is equal.
    bool operator==(const OrbTimecode &other) const;
    bool operator!=(const OrbTimecode &other) const { return !(*this == other); }

private:
    QSharedDataPointer<OrbTimecodeData> _d;
};

Q_DECLARE_METATYPE(OrbTimecode)
