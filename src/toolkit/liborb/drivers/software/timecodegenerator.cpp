#include "liborb/drivers/software/timecodegenerator.h"

namespace ferin {

bool TimecodeGenerator::isExternal() const
{
    return _source == OrbIdTimecodeLtc || _source == OrbIdTimecodeVitc;
}

bool TimecodeGenerator::isCounting() const
{
    return _recording || _source == OrbIdTimecodeTimeOfDay;
}

void TimecodeGenerator::setSource(const OrbId &source)
{
    _source = source;
}

void TimecodeGenerator::setRate(int fps)
{
    if (fps > 0)
        _preset.setFPS(fps);
}

void TimecodeGenerator::setRecording(bool on, std::int64_t next)
{
    if (on == _recording)
        return;
    // The label that the next frame would have had is the one to hold, or to go on from.
    if (isCounting())
        _preset = _preset.advanced(next - _first);
    else if (_trigger.isValid() && _trigger.timecodeMatches(_preset))
        _preset = _preset.advanced(1);
    _first = next;
    _recording = on;
}

void TimecodeGenerator::preset(const OrbTimecode &label, std::int64_t next)
{
    if (!label.isValid())
        return;
    OrbTimecode start = label;
    if (start.fps() <= 0)
        start.setFPS(_preset.fps());
    if (_source != OrbIdTimecodeTimeOfDay) {
        if (_lastRecorded.isValid() && start.timecodeMatches(_lastRecorded))
            start = start.advanced(1);
        if (_recording && _trigger.isValid() && start.timecodeMatches(_trigger))
            start = start.advanced(1);
    }
    _preset = start;
    _first = next;
}

OrbTimecode TimecodeGenerator::label(std::int64_t frame, const OrbTimecode &input) const
{
    if (isExternal())
        return input;
    return isCounting() ? _preset.advanced(frame - _first) : _preset;
}

OrbTimecode TimecodeGenerator::read(std::int64_t frame, const OrbTimecode &input,
                                    bool cameraRecords)
{
    const OrbTimecode given = label(frame, input);
    if (_recording) {
        _lastRecorded = given;
        _trigger = OrbTimecode();
    } else {
        _trigger = cameraRecords ? given : OrbTimecode();
    }
    return given;
}

} // namespace ferin
