#pragma once

#include "liborb/orbid.h"
#include "liborb/orbtimecode.h"

#include <cstdint>

namespace ferin {

/// Labels captured frames. A label depends only on the frame's number and the last preset: frame n
/// has the preset label moved on by n less the frame that was preset, so a frame that is lost costs
/// its label too. A pure value.
class TimecodeGenerator
{
public:
    /// 1500 counts while recording and otherwise holds its label; 1501 always counts; 1510 and 1520
    /// label with what comes with the input. Anything else counts like 1500.
    void setSource(const OrbId &source);
    /// The whole rate that labels count at.
    void setRate(int fps);
    void setRecording(bool on, std::int64_t next);
    /// Frame \a next, the oldest that nobody has read yet, gets \a label. A label equal to the one
    /// read last in record means carry on: \a next gets the label after it. A frame that was read
    /// while the label was held, and that carried the camera's record flag, counts as the first one
    /// recorded.
    void preset(const OrbTimecode &label, std::int64_t next);

    /// The label of frame \a frame as it stands now; \a input is what came with it.
    OrbTimecode label(std::int64_t frame, const OrbTimecode &input) const;
    /// The same for a frame that is being read now: a held label stays with the next one.
    OrbTimecode read(std::int64_t frame, const OrbTimecode &input, bool cameraRecords);

private:
    bool isExternal() const;
    bool isCounting() const;

    OrbId _source = OrbIdTimecodePreset;
    OrbTimecode _preset = OrbTimecode(0, 0, 0, 0, 25, 0);
    std::int64_t _first = 0;    // the frame that _preset is the label of, while counting
    bool _recording = false;
    OrbTimecode _lastRecorded;  // not valid before the first
    OrbTimecode _trigger;       // held label of a frame that may start a recording
};

} // namespace ferin
