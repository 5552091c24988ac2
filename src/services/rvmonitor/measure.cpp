#include "services/rvmonitor/measure.h"

#include "libpicture/framebar.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace monitor {

double peakDbfs(const bus::Frame &frame)
{
    std::int64_t highest = 0;
    for (std::size_t i = 0; i + 2 < frame.audio.size(); i += 3) {
        const std::uint32_t bits = static_cast<std::uint32_t>(frame.audio[i])
                                   | static_cast<std::uint32_t>(frame.audio[i + 1]) << 8
                                   | static_cast<std::uint32_t>(frame.audio[i + 2]) << 16;
        const std::int64_t value = bits < 0x80'0000U ? std::int64_t {bits}
                                                     : std::int64_t {bits} - 0x100'0000;
        highest = std::max(highest, std::abs(value));
    }
    if (highest == 0)
        return -std::numeric_limits<double>::infinity();
    return std::min(20.0 * std::log10(static_cast<double>(highest) / 8388607.0), 0.0);
}

Measurement::Measurement()
    : peak(-std::numeric_limits<double>::infinity())
{
}

void Measurement::take(bus::Frame &frame)
{
    const std::uint64_t sequence = frame.info.sequence;
    if (_sequence != 0 && sequence > _sequence)
        gaps += static_cast<std::int64_t>(sequence - _sequence - 1);
    _sequence = sequence;
    ++frames;

    const auto number = picture::readFrameNumber(frame.view());
    const bool sameNumber = number && _number && *number == *_number;
    if (frame.info.content == bus::Content::Held || sameNumber)
        ++repeats;
    else if (number && _number && *number != *_number + 1)
        ++jumps;
    _number = number;
    peak = std::max(peak, peakDbfs(frame));
}

std::string Measurement::text() const
{
    char level[32] = "-";
    if (std::isfinite(peak))
        std::snprintf(level, sizeof level, "%.1f dBFS", peak);
    return "frames " + std::to_string(frames) + "\ngaps " + std::to_string(gaps) + "\nrepeats "
           + std::to_string(repeats) + "\njumps " + std::to_string(jumps) + "\npeak " + level;
}

std::string Measurement::json() const
{
    const QJsonObject object = {
        {"frames", static_cast<qint64>(frames)},
        {"gaps", static_cast<qint64>(gaps)},
        {"repeats", static_cast<qint64>(repeats)},
        {"jumps", static_cast<qint64>(jumps)},
        {"peakDbfs", std::isfinite(peak) ? QJsonValue(peak) : QJsonValue()},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

Measurement measure(Follower &follower, double seconds, int timeoutMs)
{
    Measurement result;
    bus::Frame frame;
    // The clock starts with the first frame: waiting for a bus is no part of the measurement.
    if (!follower.next(frame, timeoutMs))
        return result;
    const std::int64_t start = nowMs();
    const auto length = static_cast<std::int64_t>(std::min(seconds, 1e9) * 1000.0);
    do {
        result.take(frame);
        const std::int64_t left = start + length - nowMs();
        if (left <= 0)
            break;
        if (!follower.next(frame, static_cast<int>(std::min<std::int64_t>(left, timeoutMs))))
            break;
    } while (!isEnding());
    return result;
}

} // namespace monitor
