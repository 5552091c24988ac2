#include "services/rvcam/timecode.h"

#include <array>

namespace cam {

namespace {

int droppedPerMinute(const Timecode &timecode)
{
    return timecode.drop ? timecode.fps / 15 : 0;
}

std::int64_t framesPerDay(const Timecode &timecode)
{
    const std::int64_t minutes = 24 * 60;
    return minutes * 60 * timecode.fps - droppedPerMinute(timecode) * (minutes - minutes / 10);
}

std::int64_t frameCount(const Timecode &timecode)
{
    const std::int64_t minutes = timecode.hour * 60 + timecode.minute;
    const std::int64_t labels = (minutes * 60 + timecode.second) * timecode.fps + timecode.frame;
    return labels - droppedPerMinute(timecode) * (minutes - minutes / 10);
}

} // namespace

Timecode Timecode::after(std::int64_t count) const
{
    const std::int64_t day = framesPerDay(*this);
    std::int64_t number = (frameCount(*this) + count % day + day) % day;

    const std::int64_t dropped = droppedPerMinute(*this);
    const std::int64_t perMinute = std::int64_t {60} * fps - dropped;
    const std::int64_t perTenMinutes = std::int64_t {600} * fps - dropped * 9;
    const std::int64_t tens = number / perTenMinutes;
    const std::int64_t within = number % perTenMinutes;
    number += tens * dropped * 9;
    if (dropped > 0 && within >= std::int64_t {60} * fps)
        number += dropped * (1 + (within - std::int64_t {60} * fps) / perMinute);

    Timecode label = *this;
    label.frame = static_cast<int>(number % fps);
    label.second = static_cast<int>(number / fps % 60);
    label.minute = static_cast<int>(number / fps / 60 % 60);
    label.hour = static_cast<int>(number / fps / 3600 % 24);
    return label;
}

std::optional<Timecode> timecodeOf(std::string_view text, int fps)
{
    // HH:MM:SS:FF, every field two digits
    if (text.size() != 11 || text[2] != ':' || text[5] != ':' || (text[8] != ':' && text[8] != ';'))
        return std::nullopt;
    std::array<int, 4> field {};
    for (std::size_t i = 0; i < field.size(); ++i) {
        const char tens = text[i * 3];
        const char ones = text[i * 3 + 1];
        if (tens < '0' || tens > '9' || ones < '0' || ones > '9')
            return std::nullopt;
        field[i] = (tens - '0') * 10 + (ones - '0');
    }

    const Timecode label = {field[0], field[1], field[2], field[3], fps, text[8] == ';'};
    if (label.hour > 23 || label.minute > 59 || label.second > 59 || label.frame >= fps)
        return std::nullopt;
    if (label.drop && fps != 30 && fps != 60)
        return std::nullopt;
    if (label.minute % 10 != 0 && label.second == 0 && label.frame < droppedPerMinute(label))
        return std::nullopt; // a label that drop frame leaves out
    return label;
}

} // namespace cam
