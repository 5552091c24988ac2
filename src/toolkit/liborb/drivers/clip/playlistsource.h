#pragma once

#include "liborb/drivers/clip/clipsource.h"
#include "liborb/orbplaylist.h"

#include <memory>
#include <vector>

/// The clips of a play list as one joined stream. The clip that is read and the one that comes next
/// in the direction of reading are open, and no more than one other. A frame of a clip that cannot
/// be opened, or that is shorter than the list says, is an error; the rest plays.
class PlayListSource : public FrameSource
{
public:
    explicit PlayListSource(const OrbPlayList &list) : _list(list) {}

    /// EINVAL for a list without a valid entry; the error of its first clip when that cannot be
    /// opened.
    OrbError open(OrbStreamInfo &info) override;
    OrbError read(int number, OrbFrame &frame) override;
    void prepare() override;

private:
    /// A clip that is open, or that could not be opened.
    struct Clip
    {
        int entry = -1;
        OrbError error;
        OrbStreamInfo info;
        std::unique_ptr<ClipSource> source;
    };

    Clip &clipOf(int entry);
    int validEntryFrom(int entry, int step) const;

    OrbPlayList _list;
    int _length = 0;
    std::vector<Clip> _clips; ///< the one used last in front
    int _lastNumber = 0;
    bool _isForward = true;
};
