// Setups, properties and the beat.
//
// One thread, the frame clock, does what happens frame by frame; the event loop only moves frames
// in and out of the two queues. A setup travels to the clock's thread as a piece of work, so it
// never meets a half-done beat, and the event loop never waits for one. What both sides touch
// stands under one mutex, which is held for bookkeeping only: pictures are drawn, copied, coded and
// waited for without it.

#include "liborb/drivers/software/machine.h"

#include "liborb/orblog.h"

#include <algorithm>
#include <cerrno>

namespace ferin {

namespace {

constexpr const char *logFile = "machine.cpp";
constexpr int rateLimit = 1'000'000;
constexpr int defaultBuffers = 40;
constexpr int fewestRaws = 4;
constexpr int mostAhead = 4;
constexpr int fewestAhead = 2;
constexpr int mostSetupBeats = 100; ///< that a setup waits for queued frames

bool isUsable(const OrbVideoDeviceSetup &setup)
{
    const OrbImageDesc image = setup.imageDesc();
    const OrbVideoRate rate = image.frameRate();
    const bool hasMode = setup.mode() == OrbVideoDeviceSetup::Playback
                         || setup.mode() == OrbVideoDeviceSetup::Capture;
    const bool hasRaster = image.width() >= 16 && image.width() <= bus::maxWidth
                           && image.width() % 2 == 0 && image.height() >= 16
                           && image.height() <= bus::maxHeight;
    const bool hasRate = rate.num() > 0 && rate.den() > 0 && rate.num() <= rateLimit
                         && rate.den() <= rateLimit && rate.num() <= 1000LL * rate.den()
                         && rate.num() >= rate.den();
    return hasMode && hasRaster && hasRate;
}

int busChannels(int channels)
{
    return channels <= 0 ? 0 : channels <= 2 ? 2 : bus::maxChannels;
}

int rawsFor(const DeviceConfig &config, const QSize &raster)
{
    const std::size_t bytes = picture::bytesFor(raster.width(), raster.height());
    const std::size_t budget = static_cast<std::size_t>(config.rawMegabytes) * 1024 * 1024;
    return std::clamp(static_cast<int>(budget / bytes), fewestRaws, 500);
}

} // namespace

Machine::Machine(const DeviceConfig &config, Mailbox &mail, OrbVideoDriverHost *host)
    : _config(config)
    , _mail(mail)
    , _host(host)
    , _encoder(config.coderWorkers, config.proRes)
    , _decoder(config.coderWorkers, config.proResDecoder)
    , _output(config.programBus)
    , _port(_config, [this](const OrbVideoState &state) { inputStateChanged(state); })
    , _clock([this](const Beat &now) { beat(now); })
{
    const std::lock_guard lock(_mutex);
    _play.setDecode([this](const OrbImage &image) { return _decoder.decode(image); });
    _stateText = QStringLiteral("idle");
}

OrbError Machine::setup(const OrbVideoDeviceSetup &setup)
{
    if (_inSetup)
        return EBUSY;
    if (!isUsable(setup))
        return EINVAL;
    _inSetup = true;
    if (setup.isInCapture() && !EncoderPool::canCode(setup.imageDesc())) {
        orbLogOutput(1, logFile, __LINE__, "No coder for %s\n",
                     qPrintable(setup.imageDesc().toString()));
        _mail.post([this] {
            _inSetup = false;
            _host->driverSetupIsDone(EINVAL);
        });
        return OrbError();
    }
    {
        const std::lock_guard lock(_mutex);
        _mode = OrbVideoDeviceSetup::None;
    }
    _clock.call([this, setup] { takeSetup(setup); });
    return OrbError();
}

/// From one playback setup to the next, what is queued in the format before is shown first: at a
/// slow speed that takes longer than whoever sends the setup can know. A flush cuts it short.
void Machine::takeSetup(const OrbVideoDeviceSetup &setup)
{
    if (!_run || _run->setup.isInCapture() || setup.isInCapture()) {
        applySetup(setup);
        return;
    }
    _nextSetup = setup;
    _setupBeats = 0;
    applyWhenPlayedOut();
}

void Machine::applyWhenPlayedOut()
{
    if (!_nextSetup)
        return;
    bool isPlayedOut = false;
    {
        const std::lock_guard lock(_mutex);
        isPlayedOut = _play.isPlayedOut();
    }
    if (!isPlayedOut && ++_setupBeats <= mostSetupBeats)
        return;
    _clock.call([this, setup = *_nextSetup] { applySetup(setup); });
    _nextSetup.reset();
}

void Machine::applySetup(const OrbVideoDeviceSetup &setup)
{
    Run run;
    run.setup = setup;
    run.image = setup.imageDesc();
    run.num = run.image.frameRate().num();
    run.den = run.image.frameRate().den();
    run.channels = std::clamp(setup.audioDesc().chans(), 0, bus::maxChannels);

    prepareSources(run);
    bus::Format format;
    format.width = run.image.width();
    format.height = run.image.height();
    format.rateNum = run.num;
    format.rateDen = run.den;
    format.scanMode = run.image.scanMode();
    format.audioChannels = busChannels(run.channels);
    _output.setFormat(format);
    _output.setColour(colourTableOf(setup.outputLut(), run.image.height()));
    enterMode(run);
    _run = run;
    _started = false;
    _starved = 0;
    _clock.run(run.num, run.den);
    _mail.post([this] {
        _inSetup = false;
        _host->driverSetupIsDone(OrbError());
    });
}

/// The connector, the generator and the raw pictures that a capture setup needs. What fits already
/// stays.
void Machine::prepareSources(const Run &run)
{
    const OrbId source = run.setup.videoInputSource();
    if (source.isValid() && source != OrbIdSourceInternal)
        _port.select(source);
    if (_inputSound.channels() != run.channels)
        _inputSound = SoundFifo(run.channels);
    if (!run.setup.isInCapture())
        return;

    const QSize raster = run.image.size();
    const bool isInternal = source == OrbIdSourceInternal;
    const bool draws = isInternal || (_port.isGenerator() && _port.delivers(run.image));
    const int raws = rawsFor(_config, raster);
    if (_poolRaster != raster) {
        _raws = Allowance(raws);
        _pool.reset();
        _poolRaster = raster;
    }
    _inputColour.set(run.setup.inputLut(), raster, raws + 2);
    if (draws && !_pool)
        makePool(run);
    if (draws && !isInternal)
        _port.generator(); // made here: a beat has no time for it
    if (!isInternal) {
        _generator.reset();
        return;
    }
    const OrbId mode = run.setup.videoSignalGenMode();
    if (!_generator || _generator->mode() != mode || _generator->raster() != raster)
        _generator = std::make_unique<SignalGenerator>(mode, raster);
}

void Machine::enterMode(const Run &run)
{
    const bool isCapture = run.setup.isInCapture();
    const int buffers = run.setup.maxBuffers() > 0 ? run.setup.maxBuffers() : defaultBuffers;
    const bool wasPlayback = _run && !_run->setup.isInCapture();
    const bool keepsQueue = !isCapture && wasPlayback && _run->image.size() == run.image.size();
    if (isCapture)
        _encoder.expect(run.image);

    const std::lock_guard lock(_mutex);
    _capture = CaptureQueue(buffers, _encoder.keepsRate(run.image.dataType()));
    _capture.setRecording(_playMode == OrbIdPlayModeRecord);
    _tcg.setSource(run.setup.timecodeInputSource());
    _tcg.setRate(run.image.frameRate().timecodeRate());
    ++_generation;
    if (!keepsQueue)
        _play.clear();
    if (isCapture || !wasPlayback) {
        _shown = Shown();
        _firstQueued = OrbMetadataHash();
    }
    _flowing = false;
    _prerolled = 0;
    _keyFrame.reset();
    _playRaster = run.image.size();
    _play.setAhead(std::clamp(rawsFor(_config, _playRaster) / 4, fewestAhead, mostAhead));
    _mode = run.setup.mode();
    _stateText = (isCapture ? QStringLiteral("capture ") : QStringLiteral("playback "))
                 + run.image.toString();
}

void Machine::beat(const Beat &now)
{
    if (!_run)
        return;
    if (_run->setup.isInCapture())
        captureBeat(now);
    else
        playbackBeat(now);
    applyWhenPlayedOut();
    if (_started)
        return;
    _started = true;
    _mail.post([this] { _host->driverHardwareStarted(); });
}

void Machine::inputStateChanged(const OrbVideoState &state)
{
    _mail.post([this, state] {
        if (state == _reportedInput)
            return;
        _reportedInput = state;
        _host->driverInputChanged(0, state);
    });
}

void Machine::postVbi(const OrbTimecode &label)
{
    const OrbVbiInfo info(label, _inputTimecode);
    _mail.postIfRoom([this, info] {
        if (!_inSetup)
            _host->driverVbi(info);
    });
}

/// \a why is a literal.
void Machine::postDrops(int count, const char *why)
{
    for (int i = 0; i < count; ++i)
        _mail.postIfRoom([this, why] { tellDrop(why); });
}

/// A machine that is too slow loses frames as fast as they come: it says why once a second.
void Machine::tellDrop(const char *why)
{
    const auto now = std::chrono::steady_clock::now();
    if (!_dropTold || now - *_dropTold > std::chrono::seconds(1)) {
        _dropTold = now;
        orbLogOutput(1, logFile, __LINE__, "Frame lost: %s\n", why);
    }
    _host->driverFrameDropped();
}

void Machine::setProperty(const OrbId &id, const QVariant &value)
{
    const std::lock_guard lock(_mutex);
    const std::int64_t next = _capture.nextNumber().value_or(_captured);
    const bool wasRecording = _playMode == OrbIdPlayModeRecord;
    switch (id.value()) {
    case OrbIdPropClipName:
        _clipName = value.toString();
        return;
    case OrbIdPropReelName:
        _reelName = value.toString();
        return;
    case OrbIdPropPlayMode:
        _playMode = value.canConvert<OrbId>() && value.typeId() == qMetaTypeId<OrbId>()
                        ? value.value<OrbId>().value()
                        : value.toInt();
        _tcg.setRecording(_playMode == OrbIdPlayModeRecord, next);
        if (_playMode == OrbIdPlayModeRecord && !wasRecording)
            _encoder.beginStream();
        _capture.setRecording(_playMode == OrbIdPlayModeRecord);
        return;
    case OrbIdPropTimecodePreset:
        _tcg.preset(value.value<OrbTimecode>(), next);
        return;
    case OrbIdPropSpeed:
        _play.setSpeed(value.toDouble());
        return;
    default:
        orbLogOutput(3, logFile, __LINE__, "No property %d\n", id.value());
    }
}

void Machine::flush()
{
    OrbMetadataHash stopped;
    {
        const std::lock_guard lock(_mutex);
        stopped = _shown.hasFrame ? _shown.meta : _firstQueued;
        _play.clear();
        ++_generation;
        _flowing = false;
        _prerolled = 0;
        _keyFrame.reset();
    }
    _mail.post([this, stopped] { _host->driverFlushed(stopped); });
}

int Machine::framesReadable() const
{
    const std::lock_guard lock(_mutex);
    return _mode == OrbVideoDeviceSetup::Capture ? _capture.size() : 0;
}

int Machine::framesWritable() const
{
    const std::lock_guard lock(_mutex);
    return _mode == OrbVideoDeviceSetup::Playback ? _play.room() : 0;
}

OrbError Machine::readFrame(OrbFrame &frame)
{
    const std::lock_guard lock(_mutex);
    if (_mode != OrbVideoDeviceSetup::Capture)
        return EINVAL;
    const std::optional<CaptureEntry> entry = _capture.pop();
    if (!entry)
        return EAGAIN;
    frame = entry->frame;
    const OrbTimecode label = _tcg.read(entry->number, entry->inputTimecode, entry->cameraRecords);
    frame.meta().insert(OrbIdTimecode, QVariant::fromValue(label));
    return OrbError();
}

OrbError Machine::writeFrame(const OrbFrame &frame)
{
    const std::lock_guard lock(_mutex);
    if (_mode != OrbVideoDeviceSetup::Playback)
        return EINVAL;
    if (!frame.vids().isEmpty() && frame.vids().first().desc().size() != _playRaster)
        return EINVAL;
    if (_play.room() <= 0)
        return EAGAIN;
    if (_firstQueued.isEmpty())
        _firstQueued = frame.meta();
    _play.push(frame);
    return OrbError();
}

OrbMetadataHash Machine::currentFrameMetadata() const
{
    const std::lock_guard lock(_mutex);
    return _shown.meta;
}

OrbCaptureFigures Machine::captureFigures() const
{
    const ClockStats clock = _clock.stats();
    const EncoderStats coder = _encoder.stats();
    OrbCaptureFigures figures;
    figures.medianCodingMs = coder.medianMs;
    figures.worstCodingMs = coder.worstMs;
    figures.lateFrames = clock.late + clock.skipped;
    const std::lock_guard lock(_mutex);
    figures.waitingFrames = _capture.unreleased();
    return figures;
}

QString Machine::stateAsString() const
{
    const ClockStats clock = _clock.stats();
    const EncoderStats coder = _encoder.stats();
    const std::lock_guard lock(_mutex);
    return QStringLiteral("%1, %2 unreleased, %3 late, %4 skipped, %5 coded, "
                          "%6 without a frame")
        .arg(_stateText)
        .arg(_capture.unreleased())
        .arg(clock.late)
        .arg(clock.skipped)
        .arg(coder.coded)
        .arg(_unfed);
}

} // namespace ferin
