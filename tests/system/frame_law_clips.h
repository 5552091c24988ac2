#pragma once

#include "frame_law.h"
#include "liborb/orbimagedesc.h"

namespace law {

/// A format that clips are made in.
struct ClipFormat {
    const char *name;
    int width;
    int height;
    int rateNum;
    int rateDen;
    OrbImageDesc::ScanMode scan;
    int fps; ///< labels a second
    bool isHeavy = false; ///< at the quality of a recording, not the lowest, and from a cold medium
};

/// Makes \a clip (labels without drop frame) in \a format: moving pictures with their number in the bar,
/// coded by the device's own coder. What went wrong, or an empty text.
QString makeClip(const TestClip &clip, const ClipFormat &format);

/// Puts the clip out of the page cache: it is read from the medium from now on.
void forgetPages(const TestClip &clip);

} // namespace law
