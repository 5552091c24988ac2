#pragma once

#include "liborb/orberror.h"
#include "liborb/orbframe.h"
#include "liborb/orbstreaminfo.h"

/// Something frames are read from by number, on an I/O thread: every call may wait for the medium.
/// Used by one thread at a time.
class FrameSource
{
public:
    virtual ~FrameSource() = default;

    virtual OrbError open(OrbStreamInfo &info) = 0;
    /// EINVAL for a frame that the source does not have.
    virtual OrbError read(int number, OrbFrame &frame) = 0;
    /// Nothing is to be read just now: a moment to make ready what may be wanted next.
    virtual void prepare() {}
    /// Looks for frames that came since the open. True, and \a info as it is now, when there is news.
    virtual bool lookAgain(OrbStreamInfo &) { return false; }
};
