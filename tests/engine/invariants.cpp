#include "invariants.h"

#include "liborb/orblog.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"

#include <cerrno>

namespace {

constexpr int longestWaitMs = 2500; ///< five ticks of the engine
constexpr int mostCachedToRead = 45;
constexpr int mostCachedToWrite = 1024;
constexpr int mostPending = mostCachedToWrite + 8;
constexpr int mostStreams = 6;

int numberOf(const OrbFrame &frame)
{
    return frame.meta().valueFor(OrbId(OrbIdFrameNumber)).toInt();
}

} // namespace

Invariants::Invariants(StressRig &rig) : _rig(rig), _children(rig.vtr->children().size())
{
    OrbLog::defaultLog()->setLevel(3);
    const bool isTold = qEnvironmentVariableIsSet("RV_STRESS_TRACE");
    _sink = OrbLog::defaultLog()->addSink([this, isTold](int level, const QString &, int,
                                                         const QString &text) {
        if (isTold)
            qInfo("%8.3f log %d %s", double(StressRig::nowMs()) / 1e3, level, qPrintable(text));
        if (level == 1)
            logIs(text);
    });
    followSignals();
    followStream();
    followDrivers();
}

Invariants::~Invariants()
{
    OrbLog::defaultLog()->removeSink(_sink);
}

void Invariants::breaks(const QString &rule)
{
    if (_broken.isEmpty())
        _broken = rule;
}

void Invariants::followSignals()
{
    VtrObject *v = _rig.vtr.get();
    QObject::connect(v, &VtrObject::stateChanged, v,
                     [this](const VtrState &from, const VtrState &to) {
                         ++_signals;
                         if (from != _published)
                             breaks(QStringLiteral("stateChanged() from %1, but %2 was published last")
                                        .arg(from.toString(), _published.toString()));
                         if (from == to)
                             breaks(QStringLiteral("stateChanged() without a change"));
                         _published = to;
                     });
    QObject::connect(v, &VtrObject::modeChanged, v,
                     [this](VtrState::Mode from, VtrState::Mode to) {
                         ++_signals;
                         ++_modeChanges;
                         if (from != _mode || from == to)
                             breaks(QStringLiteral("modeChanged() from %1 to %2, but it was %3")
                                        .arg(VtrState::modeName(from), VtrState::modeName(to),
                                             VtrState::modeName(_mode)));
                         _mode = to;
                     });
    QObject::connect(v, &VtrObject::storageInUse, v, [this](bool on) { storageIsInUse(on); });
    QObject::connect(v, &VtrObject::requestRecordStreamDesc, v, [this] {
        ++_signals;
        ++_recordQuestions;
    });
    QObject::connect(v, &VtrObject::requestPlaybackStreamDesc, v, [this] { ++_signals; });
    QObject::connect(v, &VtrObject::videoDeviceSetupChanged, v, [this] { ++_signals; });
    QObject::connect(v, &VtrObject::recordFailedToStart, v, [this] { ++_signals; });
}

void Invariants::storageIsInUse(bool on)
{
    ++_signals;
    if (qEnvironmentVariableIsSet("RV_STRESS_TRACE"))
        qInfo("    storageInUse(%s)", on ? "true" : "false");
    if (on == _isInUse)
        breaks(QStringLiteral("storageInUse(%1) twice in a row").arg(on ? "true" : "false"));
    _isInUse = on;
}

// The stream --------------------------------------------------------------------------------------

void Invariants::followStream()
{
    VtrObject *v = _rig.vtr.get();
    QObject::connect(v, &VtrObject::streamIsOpen, v,
                     [this](const OrbError &error, const OrbStreamInfo &) { streamIsOpen(error); });
    QObject::connect(v, &VtrObject::streamIsClosed, v, [this] {
        ++_signals;
        if (_stream == Stream::Closed)
            breaks(QStringLiteral("streamIsClosed() of a stream that was not open"));
        _stream = Stream::Closed;
    });
}

/// A record open that cannot start is told as error 22; one that started may end with it too.
void Invariants::streamIsOpen(const OrbError &error)
{
    ++_signals;
    const bool couldNotStart = _stream == Stream::Closed && _recordQuestions > 0;
    _recordQuestions = 0;
    if (couldNotStart && error == OrbError(EINVAL))
        return;
    if (_stream != Stream::Opening)
        breaks(QStringLiteral("streamIsOpen(%1) without an open").arg(error.value()));
    _stream = error.isError() ? Stream::Closed : Stream::Open;
}

// The drivers -------------------------------------------------------------------------------------

void Invariants::followDrivers()
{
    _rig.media.onOpen = [this](const QString &path, bool writes) {
        if (_stream != Stream::Closed)
            breaks(QStringLiteral("open of %1 before the end of the last one was told").arg(path));
        if (!_isInUse)
            breaks(QStringLiteral("open of %1 without storageInUse(true)").arg(path));
        _stream = Stream::Opening;
        if (!writes)
            return;
        _recordQuestions = 0;
        _lastWritten = -1;
        _mayMiss = false;
        noteInterval();
    };
    _rig.media.onWritten = [this](const OrbFrame &frame) { frameIsWritten(frame); };
    _rig.video.onShown = [this](const OrbFrame &frame) { frameIsShown(frame); };
    _rig.video.onLost = [this](const OrbFrame &frame) {
        _lost.insert(numberOf(frame));
    };
    QObject::connect(_rig.cache, &OrbStreamCache::error, _rig.vtr.get(),
                     [this](int, const OrbError &error) {
                         _mayMiss = _mayMiss || error == OrbError(ENOBUFS);
                         if (error == OrbError(EBADF))
                             breaks(QStringLiteral("a frame written to a stream that is not open"));
                     });
}

void Invariants::noteInterval()
{
    _mayMiss = _mayMiss || _rig.vtr->state().intervalRecordEnable();
}

void Invariants::frameIsWritten(const OrbFrame &frame)
{
    ++_written;
    noteInterval();
    const int number = numberOf(frame);
    if (number <= _lastWritten)
        breaks(QStringLiteral("recorded frame %1 behind frame %2").arg(number).arg(_lastWritten));
    for (int missing = _lastWritten + 1; _lastWritten >= 0 && !_mayMiss && missing < number;
         ++missing) {
        if (!_lost.contains(missing)) {
            breaks(QStringLiteral("frame %1 is missing before recorded frame %2")
                       .arg(missing)
                       .arg(number));
            break;
        }
    }
    _lost.removeIf([number](int lost) { return lost <= number; });
    _lastWritten = number;
}

void Invariants::frameIsShown(const OrbFrame &frame)
{
    ++_shown;
    const int number = numberOf(frame);
    const OrbImageDesc format = frame.vids().first().desc();
    if (number < 0 || number >= _rig.longestClip(format))
        breaks(QStringLiteral("frame %1 on output lies outside its clip").arg(number));
    if (format != _rig.video.appliedSetup().imageDesc())
        breaks(QStringLiteral("frame %1 on output has another format than the device").arg(number));
}

void Invariants::logIs(const QString &text)
{
    static constexpr const char *never[] = {
        "VIDEO DEVICE: Initial Setup Error 16", // one is in flight
        "Pending write when trying to open",
        "Stream is still opening",
        "There is still ",
    };
    for (const char *start : never)
        if (text.startsWith(QLatin1String(start)))
            breaks(QStringLiteral("log record \"%1\"").arg(text));
}

// Between turns -----------------------------------------------------------------------------------

void Invariants::look()
{
    lookAtQueues();
    lookAtStream();
    lookAtPendingChange();
    if (_rig.video.setupsWhileBusy() > 0)
        breaks(QStringLiteral("a setup was sent while another one was in flight"));
    if (_rig.vtr->state().mode() != _mode)
        breaks(QStringLiteral("the mode changed without modeChanged()"));
}

void Invariants::lookAtQueues()
{
    const int most = _rig.stream->isReadable() ? mostCachedToRead : mostCachedToWrite;
    const bool areFew = _rig.video.framesQueued() <= _rig.video.queueSize
        && _rig.cache->framesInCache() <= most && _rig.stream->pending() <= mostPending
        && _rig.media.streamCount() <= mostStreams && _rig.vtr->children().size() == _children;
    if (!areFew)
        breaks(QStringLiteral("queues: %1 frames for output, %2 in the cache, %3 pending, "
                              "%4 streams, %5 objects")
                   .arg(_rig.video.framesQueued())
                   .arg(_rig.cache->framesInCache())
                   .arg(_rig.stream->pending())
                   .arg(_rig.media.streamCount())
                   .arg(_rig.vtr->children().size()));
}

void Invariants::lookAtStream()
{
    if (_isInUse == _rig.stream->isClosed())
        breaks(QStringLiteral("storageInUse(%1) stands, but the stream is %2")
                   .arg(_isInUse ? "true" : "false", _isInUse ? "closed" : "not closed"));
    const VtrObject &v = *_rig.vtr;
    if (v.hasPendingModeChange() || !v.canProcess() || !_rig.stream->isOpen())
        return;
    const VtrState state = v.state();
    const bool fits = (state.isInModePlay() && _rig.stream->isReadable())
        || (state.isInModeRecord() && _rig.stream->isWritable());
    if (!fits)
        breaks(QStringLiteral("in %1 with a stream open for %2")
                   .arg(state.modeName(), _rig.stream->isReadable() ? "reading" : "writing"));
}

void Invariants::lookAtPendingChange()
{
    const VtrObject &v = *_rig.vtr;
    const qint64 now = StressRig::nowMs();
    if (!v.hasPendingModeChange() || !v.canProcess() || _modeChanges != _modeChangesSeen)
        _idleSince = now;
    _modeChangesSeen = _modeChanges;
    if (now - _idleSince > longestWaitMs)
        breaks(QStringLiteral("a change to %1 stays pending").arg(v.state().modeName()));
}

void Invariants::lookAtRest()
{
    look();
    const VtrObject &v = *_rig.vtr;
    if (v.hasPendingModeChange() || !v.canProcess())
        breaks(QStringLiteral("at rest, but %1 (%2)")
                   .arg(v.hasPendingModeChange() ? "a change is pending" : "busy",
                        v.stateToString()));
    if (_published != v.state())
        breaks(QStringLiteral("at rest, but %1 was published last, not %2")
                   .arg(_published.toString(), v.state().toString()));
}

// Commands ----------------------------------------------------------------------------------------

quint64 Invariants::effects() const
{
    return _signals + _rig.video.calls() + _rig.media.calls();
}

void Invariants::command(const char *name, const std::function<void()> &call)
{
    VtrObject &v = *_rig.vtr;
    if (!v.hasPendingModeChange()) {
        call();
        return;
    }
    const VtrState before = v.state();
    const quint64 effectsBefore = effects();
    call();
    if (v.state() != before || effects() != effectsBefore || !v.hasPendingModeChange())
        breaks(QStringLiteral("%1 was refused and did something").arg(QLatin1String(name)));
}
