#include "liborb/drivers/clip/playlistsource.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

constexpr size_t maxOpenClips = 3;
constexpr int openAheadFrames = 250; ///< from the join

} // namespace

OrbError PlayListSource::open(OrbStreamInfo &info)
{
    const int first = validEntryFrom(0, 1);
    if (first < 0)
        return OrbError(EINVAL);
    const Clip &clip = clipOf(first);
    if (clip.error.isError())
        return clip.error;
    _length = _list.frameCount();
    info = clip.info;
    info.setLength(_length);
    info.setGrowing(false);
    return OrbError();
}

/// The first valid entry at or after \a entry (before it with step -1); -1 when there is none.
int PlayListSource::validEntryFrom(int entry, int step) const
{
    while (entry >= 0 && entry < _list.size()) {
        if (_list.at(entry).isValid())
            return entry;
        entry += step;
    }
    return -1;
}

/// Opens the clip of \a entry if need be, in the place of the one not used for longest.
PlayListSource::Clip &PlayListSource::clipOf(int entry)
{
    const auto held = std::ranges::find(_clips, entry, &Clip::entry);
    if (held != _clips.end()) {
        std::rotate(_clips.begin(), held, held + 1);
        return _clips.front();
    }
    if (_clips.size() == maxOpenClips)
        _clips.pop_back();
    Clip clip;
    clip.entry = entry;
    const QVariant desc = _list.at(entry).desc();
    if (desc.metaType() == QMetaType::fromType<QString>()) {
        clip.source = std::make_unique<ClipSource>(desc.toString());
        clip.error = clip.source->open(clip.info);
    } else {
        clip.error = OrbError(EINVAL);
    }
    if (clip.error.isError())
        clip.source.reset();
    _clips.insert(_clips.begin(), std::move(clip));
    return _clips.front();
}

OrbError PlayListSource::read(int number, OrbFrame &frame)
{
    const int entry = _list.entryOfFrame(number);
    if (entry < 0)
        return OrbError(EINVAL);
    if (number != _lastNumber)
        _isForward = number > _lastNumber;
    _lastNumber = number;
    Clip &clip = clipOf(entry);
    if (clip.error.isError())
        return clip.error;
    const int inEntry = number - _list.firstFrameOfEntry(entry);
    const OrbError error = clip.source->read(inEntry, frame);
    if (error.isError())
        return error;
    OrbMetadataHash &meta = frame.meta();
    meta.insert(OrbId(OrbIdFrameNumber), number);
    meta.insert(OrbId(OrbIdStartOfStream), number == 0);
    meta.insert(OrbId(OrbIdEndOfStream), number == _length - 1);
    meta.insert(OrbId(OrbIdPlayListIndex),
                QVariant::fromValue(OrbPlayListIndex(_list, entry, inEntry)));
    return OrbError();
}

void PlayListSource::prepare()
{
    const int entry = _list.entryOfFrame(_lastNumber);
    if (entry < 0)
        return;
    const int inEntry = _lastNumber - _list.firstFrameOfEntry(entry);
    const int toJoin = _isForward ? _list.at(entry).length() - inEntry : inEntry;
    const int step = _isForward ? 1 : -1;
    const int next = toJoin <= openAheadFrames ? validEntryFrom(entry + step, step) : -1;
    if (next < 0 || std::ranges::find(_clips, next, &Clip::entry) != _clips.end())
        return;
    clipOf(next);
    clipOf(entry);
}
