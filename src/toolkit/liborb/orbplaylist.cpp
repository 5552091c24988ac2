#include "liborb/orbplaylist.h"

#include <algorithm>
#include <limits>

namespace {

/// Frames of the valid ones among the first \a count entries.
qint64 framesOf(const OrbPlayList &list, qsizetype count)
{
    qint64 frames = 0;
    for (qsizetype i = 0; i < count; ++i)
        frames += list.at(i).isValid() ? list.at(i).length() : 0;
    return frames;
}

int frameNumber(qint64 frames)
{
    return static_cast<int>(std::min<qint64>(frames, std::numeric_limits<int>::max()));
}

} // namespace

int OrbPlayList::firstFrameOfEntry(int index) const
{
    if (index < 0 || index >= size() || !at(index).isValid())
        return -1;
    return frameNumber(framesOf(*this, index));
}

int OrbPlayList::frameCount() const
{
    return frameNumber(framesOf(*this, size()));
}

int OrbPlayList::entryOfFrame(int frame) const
{
    if (frame < 0)
        return -1;
    qint64 begin = 0;
    for (qsizetype i = 0; i < size(); ++i) {
        if (!at(i).isValid())
            continue;
        begin += at(i).length();
        if (frame < begin)
            return static_cast<int>(i);
    }
    return -1;
}

OrbPlayListIndex::OrbPlayListIndex(const OrbPlayList &list, int entryIndex, int frame)
    : _playList(list), _entry(list.value(entryIndex)), _entryIndex(entryIndex), _frame(frame)
{
}

bool OrbPlayListIndex::isValid() const
{
    return _entryIndex >= 0 && _frame >= 0 && _entry.isValid() && !_playList.isEmpty();
}
