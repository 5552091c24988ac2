#pragma once

#include "liborb/orbtimecode.h"

#include <QMetaType>

/// What comes with the vertical interval of every frame.
class OrbVbiInfo
{
public:
    OrbVbiInfo() = default;
    OrbVbiInfo(const OrbTimecode &tcg, const OrbTimecode &input) : _tcg(tcg), _input(input) {}

    /// The timecode generator's label; in playback that of the frame on output.
    OrbTimecode tcgTimecode() const { return _tcg; }
    /// The timecode that arrives with the input; not valid when none does.
    OrbTimecode inputTimecode() const { return _input; }
    bool operator==(const OrbVbiInfo &) const = default;

private:
    OrbTimecode _tcg;
    OrbTimecode _input;
};

Q_DECLARE_METATYPE(OrbVbiInfo)
