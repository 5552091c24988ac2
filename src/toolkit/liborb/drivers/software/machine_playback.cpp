// Playback, beat by beat: the queue and the speed say which frame comes; its picture has been
// decoding for a few frames already. A frame that is not there in time leaves the picture before it
// standing. That is a dropped frame only at normal forward speed, once frames flow and while the
// stream has not ended: at other speeds and at the ends a standing picture is what is wanted.

#include "liborb/drivers/software/machine.h"

#include "liborb/orbplaylist.h"

#include <algorithm>
#include <cerrno>

namespace ferin {

namespace {

constexpr int prerollFrames = 3;
constexpr int prerollBeats = 4;
constexpr std::int64_t msNs = 1'000'000;

bool metaFlag(const OrbMetadataHash &meta, const OrbId &id)
{
    return meta.valueFor(id).toBool();
}

} // namespace

void Machine::playbackBeat(const Beat &now)
{
    drainInput();
    OutputFrame out;
    out.content = bus::Content::Held;
    out.dueNs = now.dueNs;

    PlaybackEntry entry;
    quint64 generation = 0;
    const PlaybackQueue::Step step = pickFrame(entry, generation);
    bool isShort = step == PlaybackQueue::Step::Empty;
    if (step == PlaybackQueue::Step::Show) {
        const std::int64_t patienceMs = std::max<std::int64_t>(_clock.periodNs() / 2 / msNs, 1);
        if (!entry.job || entry.job->wait(static_cast<int>(patienceMs)))
            showFrame(entry, generation, out);
        else
            isShort = true;
    }

    OrbTimecode label;
    bool isDrop = false;
    {
        const std::lock_guard lock(_mutex);
        const bool isNormal = _playMode == OrbIdPlayModePlay && _play.speed() == 1.0;
        _unfed += isShort && _flowing ? 1 : 0;
        isDrop = isShort && isNormal && _flowing && !metaFlag(_shown.meta, OrbIdEndOfStream);
        label = _shown.meta.valueFor(OrbIdTimecode).value<OrbTimecode>();
        if (_shown.hasFrame) {
            out.frameNumber = _shown.meta.valueFor(OrbIdFrameNumber).toInt();
            out.clip = clipOf(_shown.meta);
        }
        out.timecode = label;
        out.super = superLines(_run->setup.superOut(), label, out.clip, modeText(), _reelName);
    }
    _output.show(out);
    if (isDrop)
        postDrops(1, "it was not ready to be shown in time");
    postVbi(label);
}

PlaybackQueue::Step Machine::pickFrame(PlaybackEntry &entry, quint64 &generation)
{
    const std::lock_guard lock(_mutex);
    generation = _generation;
    _play.decodeAhead();
    const bool isNormal = _playMode == OrbIdPlayModePlay && _play.speed() == 1.0;
    if (isPrerolling(isNormal))
        return PlaybackQueue::Step::Hold;
    const PlaybackQueue::Step step = _play.pick(entry);
    if (step != PlaybackQueue::Step::Show)
        _play.done(step);
    return step;
}

/// Normal playback begins with a few frames in hand, so that a cache that is still filling costs no
/// frame.
bool Machine::isPrerolling(bool isNormal)
{
    if (_flowing || !isNormal || _play.size() == 0 || _play.size() >= prerollFrames)
        return false;
    if (metaFlag(_play.head().meta(), OrbIdEndOfStream))
        return false;
    return ++_prerolled <= prerollBeats;
}

/// Numbers begin anew with every stream; the label and the clip tell one frame 0 from another.
bool Machine::isSameFrame(const OrbMetadataHash &one, const OrbMetadataHash &other) const
{
    const auto isEqual = [&](OrbIdValue id) { return one.valueFor(id) == other.valueFor(id); };
    const auto labelOf = [](const OrbMetadataHash &meta) {
        return meta.valueFor(OrbIdTimecode).value<OrbTimecode>();
    };
    return isEqual(OrbIdFrameNumber) && labelOf(one) == labelOf(other) && clipOf(one) == clipOf(other);
}

/// Brings a picked frame on output, unless it has become void in the meantime.
void Machine::showFrame(const PlaybackEntry &entry, quint64 generation, OutputFrame &out)
{
    const OrbMetadataHash meta = entry.frame.meta();
    const int number = meta.valueFor(OrbIdFrameNumber).toInt();
    const RawPictureRef picture = entry.job ? entry.job->picture() : nullptr;
    const bool isBroken = entry.job && !picture;
    bool isRepeat = false;
    bool isKey = false;
    {
        const std::lock_guard lock(_mutex);
        if (generation != _generation)
            return;
        _play.done(PlaybackQueue::Step::Show);
        isRepeat = _shown.hasFrame && isSameFrame(_shown.meta, meta);
        isKey = metaFlag(meta, OrbIdKeyFrame) && _keyFrame != number;
        _keyFrame = number;
        _shown = {meta, true};
        _flowing = true;
    }
    if (isKey)
        _mail.post([this, meta] { _host->driverPlayedKeyFrame(meta); });
    if (isBroken) {
        _mail.post([this, frame = entry.frame] { _host->driverWriteFailed(EIO, frame); });
        return;
    }
    out.picture = picture;
    if (isRepeat)
        return;
    out.content = bus::Content::Playback;
    if (!metaFlag(meta, OrbIdTrickPlay)) {
        out.sound = soundOf(entry.frame);
        out.soundChannels = _run->channels;
    }
}

QByteArray Machine::soundOf(const OrbFrame &frame) const
{
    if (frame.auds().isEmpty() || !frame.auds().first().isValid())
        return QByteArray();
    const OrbAudio &audio = frame.auds().first();
    const OrbBuffer buffer = audio.buffers().first();
    const bool isPcm = audio.desc().dataType() == OrbIdAudioDataType && audio.desc().chans() > 0;
    if (!isPcm || !buffer.isReady())
        return QByteArray();
    const QByteArray sound(reinterpret_cast<const char *>(buffer.data()), buffer.size());
    return mapChannels(sound, audio.desc().chans(), _run->channels);
}

/// The clip of a play-list frame, else the one that the engine has named.
QString Machine::clipOf(const OrbMetadataHash &meta) const
{
    const auto index = meta.valueFor(OrbIdPlayListIndex).value<OrbPlayListIndex>();
    return index.isValid() ? index.entry().name() : _clipName;
}

QString Machine::modeText() const
{
    switch (_playMode) {
    case OrbIdPlayModePlay:
        return QStringLiteral("PLAY");
    case OrbIdPlayModeFastForward:
        return QStringLiteral("FF");
    case OrbIdPlayModeFastReverse:
        return QStringLiteral("REW");
    case OrbIdPlayModeStill:
        return QStringLiteral("STILL");
    case OrbIdPlayModeRecord:
        return QStringLiteral("REC");
    default:
        return QStringLiteral("E-E");
    }
}

} // namespace ferin
