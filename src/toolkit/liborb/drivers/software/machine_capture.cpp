// Capture, beat by beat: take what the source has, turn each frame into one that the engine can
// read, and show the newest on the output.
//
// Nothing is coded here. A captured frame holds its raw picture in a promised buffer; the raw
// picture goes back to its pool when the buffer is dropped unread, which in E-E is a frame later. While a
// recording waits for its next stream the promises are called in early: coded frames wait for seconds.
// Two bounds hold however slow the readers are: frames not yet released, and raw pictures not yet
// coded. A frame beyond either is dropped, told, and costs its number, so that the gap shows in the
// labels.

#include "liborb/drivers/software/machine.h"

#include "libpicture/tone.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace ferin {

namespace {

constexpr int mostSkippedTold = 1000;
constexpr int mostWaitingRaw = 4; ///< of a recording: more wait only while its stream is closed and opened

} // namespace

void Machine::captureBeat(const Beat &now)
{
    std::vector<Grab> grabs = grab(now);
    for (Grab &item : grabs)
        colour(item);
    OrbTimecode label;
    QByteArray sound;
    for (const Grab &item : grabs) {
        sound = soundBlock();
        label = capture(item, sound);
    }
    if (grabs.empty()) {
        const std::lock_guard lock(_mutex);
        label = _tcg.label(_captured - 1, _inputTimecode);
    }
    OutputFrame out = liveOutput(grabs, sound, label);
    out.dueNs = now.dueNs;
    _output.show(out);
    postVbi(label);
}

std::vector<Machine::Grab> Machine::grab(const Beat &now)
{
    const bool isInternal = _run->setup.videoInputSource() == OrbIdSourceInternal;
    if (isInternal && _generator) {
        drainInput();
        return {grabGenerator(*_generator, now)};
    }
    if (!_port.delivers(_run->image)) {
        drainInput();
        _starved = 0;
        return {Grab()}; // no signal, or not in the format that is set up
    }
    if (SignalGenerator *generator = _port.generator())
        return {grabGenerator(*generator, now)};
    return grabInput(now);
}

/// The memory of what is drawn here.
void Machine::makePool(const Run &run)
{
    _pool = std::make_unique<RawPicturePool>(_poolRaster.width(), _poolRaster.height(), _raws.limit() + 2);
    _pool->keepReady(picturesReady(run.num, run.den));
}

Machine::Grab Machine::grabGenerator(SignalGenerator &generator, const Beat &now)
{
    generator.skip(now.skipped);
    countSkipped(now.skipped, "the clock was late");
    if (!_pool)
        makePool(*_run);
    Grab item;
    item.hasSignal = true;
    item.isShared = generator.isStill();
    item.picture = generator.picture(*_pool);
    item.isLost = !item.picture;
    if (!item.picture)
        item.drawn = &generator;
    return item;
}

std::vector<Machine::Grab> Machine::grabInput(const Beat &now)
{
    // The sound of frames that nobody took would stay ahead of all that follow.
    if (!std::exchange(_followsInput, true))
        _inputSound.clear();
    std::int64_t shiftNs = 0;
    const int due = _port.framesDue(_clock.periodNs(), shiftNs);
    if (shiftNs != 0)
        _clock.shift(shiftNs);
    countSkipped(_port.newlyLost(), "it was not taken from the input in time");

    std::vector<Grab> grabs;
    InputFrame frame;
    for (int i = 0; i < due && _port.take(frame); ++i) {
        noteInput(frame);
        Grab item;
        item.picture = std::move(frame.picture);
        item.hasSignal = item.picture && item.picture->view.width == _run->image.width()
                         && item.picture->view.height == _run->image.height();
        item.inputTimecode = frame.timecode;
        item.hasRecordFlag = frame.hasRecordFlag;
        item.recordFlag = frame.recordFlag;
        grabs.push_back(std::move(item));
        frame = InputFrame();
    }
    _starved = grabs.empty() ? _starved + 1 + now.skipped : 0;
    // A source that is valid and yet silent for a quarter of a second has failed without saying so.
    const std::int64_t patience = std::max<std::int64_t>(_run->num / _run->den / 4, 2);
    if (_starved > patience)
        grabs.push_back(Grab());
    return grabs;
}

/// The input's look-up table belongs here, once: what is recorded and what is shown comes after it.
void Machine::colour(Grab &item)
{
    if (!_inputColour.table() || !item.hasSignal || !item.picture)
        return;
    RawPictureRef coloured = item.isShared ? _inputColour.throughOnce(item.picture)
                                           : _inputColour.through(item.picture);
    if (!coloured) {
        item.isLost = true; // the output still shows it
        return;
    }
    item.picture = std::move(coloured);
    item.isColoured = true;
}

/// Frames that are lost before they could be captured.
void Machine::countSkipped(int frames, const char *why)
{
    if (frames <= 0)
        return;
    {
        const std::lock_guard lock(_mutex);
        _captured += frames;
    }
    postDrops(std::min(frames, mostSkippedTold), why);
}

/// What comes with the input beside its picture; it is of use in playback too.
void Machine::noteInput(const InputFrame &frame)
{
    _inputTimecode = frame.timecode;
    _inputSound.put(frame.sound, frame.channels);
    if (!frame.hasRecordFlag || frame.recordFlag == _recordFlag)
        return;
    _recordFlag = frame.recordFlag;
    OrbMetadataHash data;
    data.insert(OrbIdCameraRecordFlag, _recordFlag);
    _mail.post([this, data] { _host->driverInputAncDataChanged(data); });
}

void Machine::drainInput()
{
    _followsInput = false;
    InputFrame frame;
    bool came = false;
    for (int i = _port.framesToDrain(); i > 0 && _port.take(frame); --i) {
        noteInput(frame);
        frame = InputFrame();
        came = true;
    }
    _port.newlyLost(); // nobody wanted them
    if (!came && !_port.delivers(_run->image))
        _inputTimecode = OrbTimecode();
}

QByteArray Machine::soundBlock()
{
    const int samples = picture::samplesOfFrame(_soundFrame++, _run->num, _run->den);
    if (_run->setup.audioInputSource() == OrbIdSourceInternal)
        return _tone.block(_run->setup.audioSignalGenMode(), samples, _run->channels);
    if (_port.isGenerator())
        return _tone.block(OrbIdAudioGenTone, samples, _run->channels);
    return _inputSound.take(samples);
}

/// Queues one frame or drops it; answers its label as it stands.
OrbTimecode Machine::capture(const Grab &item, const QByteArray &sound)
{
    const bool needsRaw = item.hasSignal && !item.isShared;
    const bool lacksRaw = item.isLost || (needsRaw && _raws.isUsedUp());
    bool isDropped = lacksRaw;
    CaptureEntry entry;
    OrbBuffer hooked;
    if (!isDropped)
        entry.frame = buildFrame(item, sound, _captured, hooked);
    entry.inputTimecode = item.inputTimecode;
    entry.cameraRecords = item.hasRecordFlag && item.recordFlag
                          && _run->setup.cameraInput().isValid();

    OrbTimecode label;
    {
        const std::lock_guard lock(_mutex);
        entry.number = _captured++;
        label = _tcg.label(entry.number, item.inputTimecode);
        isDropped = isDropped || _capture.isFull();
        if (!isDropped) {
            const int number = static_cast<int>(entry.number & 0x7fffffff);
            entry.frame.meta().insert(OrbIdFrameNumber, number);
            _capture.push(entry, hooked);
            if (_playMode == OrbIdPlayModeRecord && _capture.size() > mostWaitingRaw)
                _capture.requestWaiting();
        }
    }
    if (isDropped)
        postDrops(1, lacksRaw ? "too many pictures wait for the coder" : "too many frames wait to be read");
    return label;
}

OrbFrame Machine::buildFrame(const Grab &item, const QByteArray &sound, std::int64_t number, OrbBuffer &hooked)
{
    OrbFrame frame;
    OrbBuffer plane;
    if (item.hasSignal) {
        const RawPictureRef raw = item.isShared ? item.picture : counted(item.picture, _raws);
        plane = _encoder.promise(raw, _run->image, number);
    }
    frame.vids().append(OrbImage(_run->image, plane));
    hooked = plane;
    if (!sound.isEmpty()) {
        OrbBuffer samples(static_cast<quint32>(sound.size()), 0);
        if (samples.isValid())
            std::memcpy(samples.data(), sound.constData(), static_cast<std::size_t>(sound.size()));
        frame.auds().append(OrbAudio(_run->setup.audioDesc(), samples));
        if (!hooked.isValid())
            hooked = samples;
    }
    if (item.hasRecordFlag && _run->setup.cameraInput().isValid())
        frame.meta().insert(OrbIdCameraRecordFlag, item.recordFlag);
    return frame;
}

OutputFrame Machine::liveOutput(const std::vector<Grab> &grabs, const QByteArray &sound,
                                const OrbTimecode &label) const
{
    OutputFrame out;
    out.timecode = label;
    if (grabs.empty()) {
        out.content = bus::Content::Held;
    } else if (!grabs.back().hasSignal) {
        out.content = _run->setup.blackingEnabled() ? bus::Content::Black : bus::Content::None;
    } else {
        out.content = bus::Content::Live;
        out.picture = grabs.back().picture;
        out.drawn = grabs.back().drawn;
        if (!grabs.back().isColoured)
            out.inputColour = _inputColour.table();
        out.sound = sound;
        out.soundChannels = _run->channels;
    }
    const std::lock_guard lock(_mutex);
    out.super = superLines(_run->setup.superOut(), label, _clipName, modeText(), _reelName);
    return out;
}

} // namespace ferin
