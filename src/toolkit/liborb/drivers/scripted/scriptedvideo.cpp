#include "liborb/drivers/scripted/scriptedvideo.h"

#include "liborb/orbconnect.h"
#include "liborb/orbdrivers.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

/// What a device holds: passes everything on to the script.
class ScriptedVideoDriver : public OrbVideoDriver
{
public:
    explicit ScriptedVideoDriver(ScriptedVideo *script) : _script(script) {}
    ~ScriptedVideoDriver() override { _script->driverClose(); }

    bool open(const QString &name, OrbVideoDriverHost *host) override
    {
        return _script->driverOpen(name, host);
    }
    void close() override { _script->driverClose(); }
    void setProperty(const OrbId &id, const QVariant &value) override
    {
        _script->driverSetProperty(id, value);
    }
    int framesReadable() const override { return _script->framesReadable(); }
    int framesWritable() const override { return _script->framesWritable(); }
    OrbError readFrame(OrbFrame &frame) override { return _script->driverRead(frame); }
    OrbError writeFrame(const OrbFrame &frame) override { return _script->driverWrite(frame); }
    OrbMetadataHash currentFrameMetadata() const override { return _script->metadataOnOutput(); }
    OrbCaptureFigures captureFigures() const override { return _script->figures; }
    OrbVideoRefState refInputState(int index) const override
    {
        return index == 0 ? _script->reference : OrbVideoRefState();
    }
    QString stateAsString() const override { return QStringLiteral("scripted"); }
    OrbError setup(const OrbVideoDeviceSetup &setup) override
    {
        return _script->driverSetup(setup);
    }
    void flush() override { _script->driverFlush(); }

private:
    ScriptedVideo *_script;
};

ScriptedVideo::Outcome nextOutcome(std::deque<ScriptedVideo::Outcome> &outcomes)
{
    if (outcomes.empty())
        return {};
    const ScriptedVideo::Outcome next = outcomes.front();
    outcomes.pop_front();
    return next;
}

QString valueText(const QVariant &value)
{
    if (value.canConvert<OrbTimecode>())
        return value.value<OrbTimecode>().toString();
    return value.toString();
}

} // namespace

ScriptedVideo::ScriptedVideo(Transcript *transcript, QObject *parent)
    : QObject(parent), _transcript(transcript)
{
    for (QTimer *timer : {&_setupTimer, &_flushTimer, &_tickTimer}) {
        timer->setTimerType(Qt::PreciseTimer);
        timer->setSingleShot(true);
    }
    connect(&_setupTimer, &QTimer::timeout, this, [this] { finishSetup(_setupError); });
    connect(&_flushTimer, &QTimer::timeout, this, &ScriptedVideo::finishFlush);
    connect(&_tickTimer, &QTimer::timeout, this, [this] {
        scheduleTick();
        tick();
    });
}

ScriptedVideo::~ScriptedVideo() = default;

void ScriptedVideo::install()
{
    OrbDrivers::setVideoFactory(
        [this](const QString &) { return std::make_unique<ScriptedVideoDriver>(this); });
}

void ScriptedVideo::uninstall()
{
    OrbDrivers::setVideoFactory({});
}

QString ScriptedVideo::setupText(const OrbVideoDeviceSetup &setup)
{
    const QString mode = setup.isInCapture() ? QStringLiteral("capture")
        : setup.mode() == OrbVideoDeviceSetup::Playback ? QStringLiteral("playback")
                                                       : QStringLiteral("none");
    return mode + QLatin1Char(' ') + setup.imageDesc().toString();
}

// Driver calls ------------------------------------------------------------------------------------

bool ScriptedVideo::driverOpen(const QString &name, OrbVideoDriverHost *host)
{
    note([&] { return QStringLiteral("device: open %1").arg(name); });
    if (opens)
        _host = host;
    return opens;
}

void ScriptedVideo::driverClose()
{
    if (!_host)
        return;
    note([] { return QStringLiteral("device: close"); });
    _host = nullptr;
    for (QTimer *timer : {&_setupTimer, &_flushTimer, &_tickTimer})
        timer->stop();
}

void ScriptedVideo::driverSetProperty(const OrbId &id, const QVariant &value)
{
    ++_calls;
    Property &property = _properties[id.value()];
    ++property.count;
    if (property.value != value)
        note([&] {
            return QStringLiteral("device: property %1 = %2")
                .arg(int(id.value()))
                .arg(valueText(value));
        });
    property.value = value;
    if (id == OrbId(OrbIdPropTimecodePreset))
        _generator = value.value<OrbTimecode>();
}

int ScriptedVideo::framesReadable() const
{
    return int(_capturedFrames.size()) + int(readErrors.size());
}

int ScriptedVideo::framesWritable() const
{
    const bool plays = !_isInSetup && _applied.mode() == OrbVideoDeviceSetup::Playback;
    return plays ? std::max(queueSize - framesQueued(), 0) : 0;
}

OrbError ScriptedVideo::driverRead(OrbFrame &frame)
{
    if (!readErrors.empty()) {
        const OrbError error = readErrors.front();
        readErrors.pop_front();
        return error;
    }
    if (_capturedFrames.empty())
        return EAGAIN;
    frame = std::move(_capturedFrames.front());
    _capturedFrames.pop_front();
    return {};
}

OrbError ScriptedVideo::driverWrite(const OrbFrame &frame)
{
    if (framesWritable() == 0)
        return EAGAIN;
    if (notesFrames)
        note([&] {
            return QStringLiteral("device: write %1")
                .arg(frame.meta().valueFor(OrbId(OrbIdFrameNumber)).toInt());
        });
    _queue.push_back(frame);
    return {};
}

OrbError ScriptedVideo::driverSetup(const OrbVideoDeviceSetup &setup)
{
    const Outcome outcome = nextOutcome(setups);
    ++_calls;
    note([&] { return QStringLiteral("device: setup %1").arg(setupText(setup)); });
    _setupsWhileBusy += _isInSetup ? 1 : 0;
    _sent << setup;
    if (outcome.refused.isError())
        return outcome.refused;
    _isInSetup = true;
    _pending = setup;
    _setupError = outcome.error;
    _tickTimer.stop();
    if (outcome.afterMs >= 0)
        _setupTimer.start(outcome.afterMs);
    return {};
}

void ScriptedVideo::driverFlush()
{
    const Outcome outcome = nextOutcome(flushes);
    ++_calls;
    note([] { return QStringLiteral("device: flush"); });
    _isFlushing = true;
    _queue.clear();
    _speedRest = 0.0;
    if (outcome.afterMs >= 0)
        _flushTimer.start(outcome.afterMs);
}

// To make happen ----------------------------------------------------------------------------------

void ScriptedVideo::finishSetup(const OrbError &error)
{
    if (!_isInSetup || !_host)
        return;
    _setupTimer.stop();
    _isInSetup = false;
    if (!error.isError()) {
        _applied = _pending;
        if (onLost)
            for (const OrbFrame &frame : _capturedFrames)
                onLost(frame);
        _capturedFrames.clear();
        _queue.clear();
        _onOutput = OrbFrame();
        _speedRest = 0.0;
    }
    startTicking();
    _host->driverSetupIsDone(error);
}

void ScriptedVideo::finishFlush()
{
    if (!_isFlushing || !_host)
        return;
    _flushTimer.stop();
    _isFlushing = false;
    _host->driverFlushed(_onOutput.meta());
}

void ScriptedVideo::startTicking()
{
    _ticks = 0;
    _elapsedMs = 0;
    scheduleTick();
}

/// Tick n is due n frames after the setup, so that odd rates do not drift.
void ScriptedVideo::scheduleTick()
{
    const OrbVideoRate rate = _applied.imageDesc().frameRate();
    if (!ticksByItself || !rate.isValid() || rate.num() <= 0)
        return;
    const qint64 dueMs = ++_ticks * 1000 * rate.den() / rate.num();
    _tickTimer.start(int(dueMs - std::exchange(_elapsedMs, dueMs)));
}

void ScriptedVideo::tick()
{
    if (!_host || _isInSetup)
        return;
    if (_applied.isInCapture())
        capture();
    else if (!_isFlushing)
        show();
    if (!_host)
        return;
    const auto shown = _onOutput.meta().valueFor(OrbId(OrbIdTimecode)).value<OrbTimecode>();
    _host->driverVbi(OrbVbiInfo(_applied.isInCapture() ? _generator : shown, inputTimecode));
}

void ScriptedVideo::capture()
{
    if (_generator.isValid())
        _generator = _generator.advanced(1);
    const OrbFrame frame = capturedFrame();
    ++_captured;
    _onOutput = frame;
    if (int(_capturedFrames.size()) >= captureLimit) {
        if (onLost)
            onLost(frame);
        _host->driverFrameDropped();
        return;
    }
    _capturedFrames.push_back(frame);
}

/// Without a signal the description is there and the buffer is not.
OrbFrame ScriptedVideo::capturedFrame()
{
    OrbFrame frame;
    const OrbBuffer picture = hasSignal ? OrbBuffer(64, 8) : OrbBuffer();
    for (int i = 0; i < imageCount; ++i)
        frame.vids().append(OrbImage(_applied.imageDesc(), picture));
    if (hasAudio)
        frame.auds().append(OrbAudio(_applied.audioDesc(), OrbBuffer(64, 8)));
    frame.meta().insert(OrbId(OrbIdFrameNumber), _captured);
    const int fps = _applied.imageDesc().frameRate().timecodeRate();
    const OrbTimecode label =
        _generator.isValid() ? _generator : OrbTimecode(qint64(_captured), fps, false);
    if (hasTimecode)
        frame.meta().insert(OrbId(OrbIdTimecode), QVariant::fromValue(label));
    if (cameraFlag)
        frame.meta().insert(OrbId(OrbIdCameraRecordFlag), *cameraFlag);
    for (const OrbMetadata &item : extraMetadata)
        frame.meta().insert(item);
    return frame;
}

/// Forward at other speeds than 1.0 some queued frames are passed over or stay; else each is shown
/// once.
void ScriptedVideo::show()
{
    const double speed = property(OrbIdPropSpeed).toDouble();
    _speedRest += speed > 0.0 ? speed : 1.0;
    while (_speedRest >= 1.0 && !_queue.empty()) {
        _onOutput = std::move(_queue.front());
        _queue.pop_front();
        _speedRest -= 1.0;
        if (_onOutput.meta().valueFor(OrbId(OrbIdKeyFrame)).toBool())
            break;
    }
    if (_queue.empty())
        _speedRest = 0.0;
    const OrbMetadataHash meta = std::as_const(_onOutput).meta();
    if (meta.isEmpty())
        return;
    _shown << meta.valueFor(OrbId(OrbIdFrameNumber)).toInt();
    if (notesFrames)
        note([this] { return QStringLiteral("output: %1").arg(_shown.last()); });
    if (onShown)
        onShown(_onOutput);
    if (meta.valueFor(OrbId(OrbIdKeyFrame)).toBool())
        _host->driverPlayedKeyFrame(meta);
}

// What the device says by itself; nothing when it is not open -----------------------------------

void ScriptedVideo::dropFrame()
{
    if (_host)
        _host->driverFrameDropped();
}

void ScriptedVideo::changeInput(int input, const OrbVideoState &state)
{
    if (_host)
        _host->driverInputChanged(input, state);
}

void ScriptedVideo::reportVbi(const OrbVbiInfo &info)
{
    if (_host)
        _host->driverVbi(info);
}

void ScriptedVideo::reportPlayedKeyFrame(const OrbMetadataHash &meta)
{
    if (_host)
        _host->driverPlayedKeyFrame(meta);
}

void ScriptedVideo::reportReadFailed(const OrbError &error)
{
    if (_host)
        _host->driverReadFailed(error);
}

void ScriptedVideo::reportWriteFailed(const OrbError &error)
{
    if (_host)
        _host->driverWriteFailed(error, OrbFrame());
}

void ScriptedVideo::reportAncData(const OrbMetadataHash &meta)
{
    if (_host)
        _host->driverInputAncDataChanged(meta);
}

void ScriptedVideo::reportAlarm(const OrbAlarm &alarm)
{
    if (_host)
        _host->driverAlarm(alarm);
}

void ScriptedVideo::reportVfr(bool active)
{
    if (_host)
        _host->driverRaiseVfrAlarm(active);
}

void ScriptedVideo::reportFirmware(const QString &id, bool done)
{
    if (_host)
        _host->driverFirmwareLoading(id, done);
}

void ScriptedVideo::reportStarted()
{
    if (_host)
        _host->driverHardwareStarted();
}

void ScriptedVideo::reportStraySetup(const OrbError &error)
{
    if (_host && !_isInSetup)
        _host->driverSetupIsDone(error);
}

void ScriptedVideo::reportStrayFlush()
{
    if (_host && !_isFlushing)
        _host->driverFlushed(_onOutput.meta());
}
