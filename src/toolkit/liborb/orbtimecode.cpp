#include "liborb/orbtimecode.h"

#include "liborb/orb.h"

#include <cstdio>

namespace {

constexpr int minutesADay = 24 * 60;
constexpr int tensOfMinutesADay = minutesADay / 10;
constexpr int fastestRate = 127; ///< the last frame label of a second is one byte

struct Fields {
    qint8 hour = 0;
    qint8 min = 0;
    qint8 sec = 0;
    qint8 frame = 0;
    qint16 fps = 0;
    quint16 flags = 0;
    qint32 reserved = 0; ///< nothing sets it; it takes part in every comparison

    bool operator==(const Fields &) const = default;
};

/// How labels count at a rate: those left out of each minute but every tenth.
struct Counting {
    qint64 fps;
    qint64 dropped;

    qint64 framesOfPlainMinute() const { return fps * 60 - dropped; }
    qint64 framesOfTenMinutes() const { return fps * 600 - 9 * dropped; }
    qint64 framesOfDay() const { return framesOfTenMinutes() * tensOfMinutesADay; }
};

/// Two labels a minute at 30, four at 60: 0.1 % of the frames of ten minutes.
Counting countingOf(int fps, bool dropFrame)
{
    return {fps, dropFrame && (fps == 30 || fps == 60) ? fps / 15 : 0};
}

/// The number of the label, which drop-frame counting skips some of, for frame \a count of the day.
qint64 labelOfFrame(const Counting &counting, qint64 count)
{
    const qint64 tens = count / counting.framesOfTenMinutes();
    const qint64 rest = count % counting.framesOfTenMinutes();
    const qint64 fullMinute = counting.fps * 60; // each tenth minute keeps all its labels
    qint64 shortMinutes = tens * 9;
    if (rest >= fullMinute)
        shortMinutes += 1 + (rest - fullMinute) / counting.framesOfPlainMinute();
    return count + shortMinutes * counting.dropped;
}

qint64 wrapped(qint64 count, qint64 day)
{
    const qint64 rest = count % day;
    return rest < 0 ? rest + day : rest;
}

void setLabel(Fields &f, qint64 label)
{
    f.frame = static_cast<qint8>(label % f.fps);
    const qint64 seconds = label / f.fps;
    f.sec = static_cast<qint8>(seconds % 60);
    f.min = static_cast<qint8>(seconds / 60 % 60);
    f.hour = static_cast<qint8>(seconds / 3600);
}

bool countable(int fps)
{
    return fps >= 1 && fps <= fastestRate;
}

} // namespace

class OrbTimecodeData : public QSharedData
{
public:
    Fields f;
};

OrbTimecode::OrbTimecode() : _d(new OrbTimecodeData) {}
OrbTimecode::OrbTimecode(const OrbTimecode &) = default;
OrbTimecode::OrbTimecode(OrbTimecode &&) noexcept = default;
OrbTimecode &OrbTimecode::operator=(const OrbTimecode &) = default;
OrbTimecode &OrbTimecode::operator=(OrbTimecode &&) noexcept = default;
OrbTimecode::~OrbTimecode() = default;

OrbTimecode::OrbTimecode(int hour, int min, int sec, int frame, int fps, int flags) : OrbTimecode()
{
    _d->f.hour = static_cast<qint8>(hour);
    _d->f.min = static_cast<qint8>(min);
    _d->f.sec = static_cast<qint8>(sec);
    _d->f.frame = static_cast<qint8>(frame);
    _d->f.fps = static_cast<qint16>(fps);
    _d->f.flags = static_cast<quint16>(flags | Valid);
}

OrbTimecode::OrbTimecode(qint64 frameCount, int fps, bool dropFrame) : OrbTimecode()
{
    if (!countable(fps))
        return;
    const Counting counting = countingOf(fps, dropFrame);
    _d->f.fps = static_cast<qint16>(fps);
    _d->f.flags = static_cast<quint16>(dropFrame ? Valid | DropFrame : Valid);
    setLabel(_d->f, labelOfFrame(counting, wrapped(frameCount, counting.framesOfDay())));
}

OrbTimecode OrbTimecode::fromTimeOfDay(int fps, bool dropFrame)
{
    if (!countable(fps))
        return OrbTimecode();
    const qint64 now = Orb::timeOfDayMs();
    OrbTimecode label(0, 0, 0, static_cast<int>(now % 1000 * fps / 1000), fps,
                      dropFrame ? DropFrame : 0);
    label.setSec(static_cast<int>(now / 1000 % 60));
    label.setMin(static_cast<int>(now / 60000 % 60));
    label.setHour(static_cast<int>(now / 3600000));
    // The clock's seconds are the label's; one that drop-frame counting leaves out is not shown.
    const int dropped = static_cast<int>(countingOf(fps, dropFrame).dropped);
    if (label.sec() == 0 && label.min() % 10 != 0 && label.frame() < dropped)
        label.setFrame(dropped);
    return label;
}

bool OrbTimecode::flag(quint16 bit) const { return (_d->f.flags & bit) != 0; }

void OrbTimecode::setFlag(quint16 bit, bool on)
{
    const quint16 flags = this->flags();
    _d->f.flags = static_cast<quint16>(on ? flags | bit : flags & ~bit);
}

bool OrbTimecode::isDropFrame() const
{
    return flag(DropFrame) && _d->f.fps % 30 == 0;
}

int OrbTimecode::hour() const { return _d->f.hour; }
int OrbTimecode::min() const { return _d->f.min; }
int OrbTimecode::sec() const { return _d->f.sec; }
int OrbTimecode::frame() const { return _d->f.frame; }
int OrbTimecode::fps() const { return _d->f.fps; }
quint16 OrbTimecode::flags() const { return _d->f.flags; }
void OrbTimecode::setHour(int hour) { _d->f.hour = static_cast<qint8>(hour); }
void OrbTimecode::setMin(int min) { _d->f.min = static_cast<qint8>(min); }
void OrbTimecode::setSec(int sec) { _d->f.sec = static_cast<qint8>(sec); }
void OrbTimecode::setFrame(int frame) { _d->f.frame = static_cast<qint8>(frame); }
void OrbTimecode::setFPS(int fps) { _d->f.fps = static_cast<qint16>(fps); }

qint64 OrbTimecode::frameCount() const
{
    if (fps() < 1)
        return 0;
    const Counting counting = countingOf(fps(), dropFrameFlag());
    const qint64 minutes = hour() * 60 + min();
    const qint64 labels = (minutes * 60 + sec()) * counting.fps + frame();
    return labels - counting.dropped * (minutes - minutes / 10);
}

OrbTimecode OrbTimecode::advanced(qint64 frames) const
{
    OrbTimecode moved = *this;
    if (!countable(fps()))
        return moved;
    const Counting counting = countingOf(fps(), dropFrameFlag());
    const qint64 day = counting.framesOfDay();
    const qint64 count = wrapped(frameCount() + frames % day, day);
    setLabel(moved._d->f, labelOfFrame(counting, count));
    return moved;
}

QString OrbTimecode::toString() const
{
    if (!isValid())
        return QStringLiteral("--:--:--:--");
    // The separator follows the flag alone, deliberately: it is ";" at 25 frames a second too.
    char text[32];
    std::snprintf(text, sizeof text, "%02hhd%c%02hhd%c%02hhd%c%02hhd", _d->f.hour, ':', _d->f.min,
                  ':', _d->f.sec, dropFrameFlag() ? ';' : ':', _d->f.frame);
    return QString::fromLatin1(text);
}

bool OrbTimecode::timecodeMatches(const OrbTimecode &other) const
{
    return hour() == other.hour() && min() == other.min() && sec() == other.sec()
           && frame() == other.frame();
}

bool OrbTimecode::operator==(const OrbTimecode &other) const
{
    return _d == other._d || _d->f == other._d->f;
}
