#include "operator.h"

#include "enginerig.h"
#include "liborb/orbimagelut.h"

#include <iterator>

namespace {

constexpr int hourOf25 = 25 * 3600;

OrbImageDesc anyFormat(Dice &dice)
{
    switch (dice.pick(8)) {
    case 0: return EngineRig::imageDesc(1920, 1080, 50, 1);
    case 1: return EngineRig::imageDesc(1280, 720, 50, 1);
    case 2: return EngineRig::imageDesc(1920, 1080, 25, 1, true);
    case 3: return EngineRig::imageDesc(1920, 1080, 24000, 1001);
    case 4: return EngineRig::imageDesc(720, 576, 25, 1, true);
    default: return EngineRig::hd25();
    }
}

/// A good identifier of \a count from \a first, now and then one that is none or unheard of.
OrbId anyId(Dice &dice, int first, int count)
{
    switch (dice.pick(12)) {
    case 0: return OrbId();
    case 1: return OrbId(987654);
    default: return OrbId(first + dice.pick(count));
    }
}

OrbTimecode anyTimecode(Dice &dice)
{
    if (dice.chance(6))
        return OrbTimecode();
    return OrbTimecode(qint64(dice.pick(24 * hourOf25)), 25, dice.chance(4));
}

OrbImageDesc anyGenFormat(Dice &dice)
{
    return dice.chance(5) ? OrbImageDesc() : anyFormat(dice);
}

/// Mostly off, or nothing would come from the input.
OrbId anyGenMode(Dice &dice)
{
    return dice.chance(2) ? OrbId() : anyId(dice, 800, 3);
}

struct Setter {
    const char *name;
    void (*set)(VtrObject &v, Dice &dice);
};

// clang-format off
constexpr Setter setters[] = {
    // name                    set
    {"reel name",              [](VtrObject &v, Dice &d) { v.setReelName(QString::number(d.pick(3))); }},
    {"clip name",              [](VtrObject &v, Dice &d) { v.setCurrentClipName(QString::number(d.pick(3))); }},
    {"audio channels",         [](VtrObject &v, Dice &d) { v.setAudioChans(d.pick(10) - 1); }},
    {"encode format",          [](VtrObject &v, Dice &d) { v.setEncodeFormat(anyId(d, 202, 5)); }},
    {"video input source",     [](VtrObject &v, Dice &d) { v.setVideoInputSource(anyId(d, 601, 4)); }},
    {"audio input source",     [](VtrObject &v, Dice &d) { v.setAudioInputSource(anyId(d, 50, 4)); }},
    {"audio input level",      [](VtrObject &v, Dice &d) { v.setAudioInputLevel(anyId(d, 1400, 4)); }},
    {"sync source",            [](VtrObject &v, Dice &d) { v.setSyncSource(anyId(d, 501, 3)); }},
    {"video generator format", [](VtrObject &v, Dice &d) { v.setVideoSignalGenFormat(anyGenFormat(d)); }},
    {"video generator mode",   [](VtrObject &v, Dice &d) { v.setVideoSignalGenMode(anyGenMode(d)); }},
    {"audio generator mode",   [](VtrObject &v, Dice &d) { v.setAudioSignalGenMode(anyId(d, 900, 2)); }},
    {"camera input",           [](VtrObject &v, Dice &d) { v.setCameraInput(d.chance(2) ? OrbId() : OrbId(1000)); }},
    {"video in convert",       [](VtrObject &v, Dice &d) { v.setVideoInConvert(anyId(d, 1100, 3)); }},
    {"video out convert",      [](VtrObject &v, Dice &d) { v.setVideoOutConvert(anyId(d, 1100, 3)); }},
    {"force PSF output",       [](VtrObject &v, Dice &d) { v.setForcePSFOutput(d.chance(2)); }},
    {"force PSF encode",       [](VtrObject &v, Dice &d) { v.setForcePSFEncode(d.chance(2)); }},
    {"video output type",      [](VtrObject &v, Dice &d) { v.setVideoOutputType(anyId(d, 1200, 3)); }},
    {"video output route",     [](VtrObject &v, Dice &d) { v.setVideoOutputRoute(anyId(d, 1250, 3)); }},
    {"superimpose",            [](VtrObject &v, Dice &d) { v.setSuperOut(anyId(d, 1300, 3)); }},
    {"record interval",        [](VtrObject &v, Dice &d) { v.setRecordInterval(d.pick(8) - 1); }},
    {"record interval time",   [](VtrObject &v, Dice &d) { v.setRecordIntervalTime(d.pick(5) - 1); }},
    {"interval record",        [](VtrObject &v, Dice &d) { v.setIntervalRecordEnable(d.chance(4)); }},
    {"variable frame rate",    [](VtrObject &v, Dice &d) { v.setVFREnable(d.chance(2)); }},
    {"timecode",               [](VtrObject &v, Dice &d) { v.setTimecodeValue(anyTimecode(d)); }},
    {"timecode drop frame",    [](VtrObject &v, Dice &d) { v.setTimecodeDropFrame(d.chance(2)); }},
    {"timecode source",        [](VtrObject &v, Dice &d) { v.setTCGSource(anyId(d, 1500, 2)); }},
    {"stop on frame drop",     [](VtrObject &v, Dice &d) { v.setStopOnFrameDrop(d.chance(2)); }},
    {"stop on loss of video",  [](VtrObject &v, Dice &d) { v.setStopOnLossOfVideo(d.chance(2)); }},
    {"record on timecode",     [](VtrObject &v, Dice &d) { v.setRecordOnRunningTimecode(d.chance(3)); }},
    {"looping",                [](VtrObject &v, Dice &d) { v.setLooping(d.chance(2)); }},
    {"lookup tables",          [](VtrObject &v, Dice &d) { v.setLuts(OrbImageLut(OrbId(1), d.pick(3)), {}); }},
};
// clang-format on

} // namespace

/// The finaliser of a counter with a good mix.
quint64 Dice::next()
{
    _state += 0x9e3779b97f4a7c15ULL;
    quint64 mixed = _state;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9ULL;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebULL;
    return mixed ^ (mixed >> 31);
}

struct Operator::Act {
    const char *kind;
    void (Operator::*act)();
    int weight;
};

Operator::Operator(StressRig &rig, Invariants &rules, quint32 seed)
    : _rig(rig), _rules(rules), _seed(seed), _dice(seed)
{
    listen();
}

void Operator::act(int number)
{
    // clang-format off
    static constexpr Act acts[] = {
        // kind       act                      weight
        {"command",   &Operator::command,      32},
        {"setting",   &Operator::setting,      14},
        {"input",     &Operator::input,         7},
        {"device",    &Operator::deviceFault,   8},
        {"medium",    &Operator::mediumFault,   8},
        {"news",      &Operator::deviceNews,    6},
        {"stray",     &Operator::stray,         2},
        {"material",  &Operator::material,      6},
        {"reopen",    &Operator::reopen,        5},
        {"camera",    &Operator::camera,        3},
        {"timecode",  &Operator::timecode,      2},
        {"inside",    &Operator::fromInside,    6},
        {"rare",      &Operator::rareThing,     1},
    };
    // clang-format on
    constexpr int all = [] {
        int sum = 0;
        for (const Act &row : acts)
            sum += row.weight;
        return sum;
    }();
    _dice = Dice(_seed << 32 | quint64(number));
    int left = _dice.pick(all);
    const Act *row = acts;
    while (left >= row->weight)
        left -= (row++)->weight;
    _kind = row->kind;
    (this->*row->act)();
    _rules.look();
    wait();
    _rules.look();
}

QString Operator::lastAct() const
{
    return QStringLiteral("%1: %2").arg(QLatin1String(_kind), QLatin1String(_what));
}

/// Mostly a frame or two, now and then the time of a reset, seldom that of a recording.
void Operator::wait()
{
    int ms = _dice.pick(60);
    if (_dice.chance(5))
        ms = _dice.pick(900);
    if (_dice.chance(150))
        ms = _dice.pick(20000);
    if (_dice.chance(4)) // commands that come in one turn of the event loop
        return;
    if (_isTimecodeRunning) {
        for (int i = 0; i < 6; ++i) {
            _inputTimecode = _inputTimecode.advanced(1);
            _rig.video.inputTimecode = _inputTimecode;
            StressRig::run(40);
        }
    }
    StressRig::run(ms);
}

// The one who commands ----------------------------------------------------------------------------

void Operator::command()
{
    VtrObject &v = *_rig.vtr;
    static constexpr double speeds[] = {0.0, 0.5, 1.0, 2.0, -0.5, -1.0, -8.0, 100.0, -0.0, 1e300};
    const double speed = speeds[_dice.pick(int(std::size(speeds)))];
    const auto run = [this](const char *name, auto call) {
        say(name);
        _rules.command(name, call);
    };
    switch (_dice.pick(16)) {
    case 0:
    case 1: run("play", [&] { v.play(); }); break;
    case 2: run("play at a speed", [&] { v.play(speed); }); break;
    case 3:
    case 4:
    case 5: run("record", [&] { v.record(); }); break;
    case 6:
    case 7: run("standby off", [&] { v.standbyOff(); }); break;
    case 8: run("still", [&] { v.still(); }); break;
    case 9: run("rewind", [&] { v.rewind(); }); break;
    case 10: run("fast forward", [&] { v.fastfwd(); }); break;
    case 11: run("stop", [&] { v.stop(); }); break;
    case 12:
    case 13: // moves the cache and flushes even where still() is refused
        say("cue");
        v.cue(_dice.chance(8) ? -1 - _dice.pick(40) : _dice.pick(140));
        break;
    default:
        say("step");
        v.step(_dice.pick(21) - 10);
        break;
    }
}

void Operator::setting()
{
    const Setter &setter = setters[_dice.pick(int(std::size(setters)))];
    say(setter.name);
    _rules.noteInterval();
    setter.set(*_rig.vtr, _dice);
    _rules.noteInterval();
}

void Operator::reopen()
{
    const bool playback = _dice.chance(2);
    say(playback ? "playback" : "record");
    _rig.recordDesc = QStringLiteral("/media/rec%1.mov").arg(++_recordings);
    if (playback)
        _rig.vtr->reopenPlaybackStream();
    else
        _rig.vtr->reopenRecordStream();
}

/// A command that is given while the engine tells of something.
void Operator::fromInside()
{
    say("a signal");
    _armedFor = _dice.pick(14);
    _armedTimes = 1 + _dice.pick(3);
}

void Operator::rareThing()
{
    switch (_dice.pick(3)) {
    case 0:
        say("shutdown");
        _rig.vtr->shutdown();
        break;
    case 1:
        say("statistics");
        _rig.vtr->logStats();
        break;
    default:
        say("debug metadata");
        _rig.vtr->debugFrameMetadata(
            _dice.chance(2) ? OrbMetadata() : OrbMetadata(OrbId(4000), _dice.pick(5)));
        break;
    }
}

void Operator::listen()
{
    VtrObject *v = _rig.vtr.get();
    const auto on = [this](int signal) { return [this, signal] { heard(signal); }; };
    QObject::connect(v, &VtrObject::stateChanged, v, on(0));
    QObject::connect(v, &VtrObject::modeChanged, v, on(1));
    QObject::connect(v, &VtrObject::streamIsOpen, v, on(2));
    QObject::connect(v, &VtrObject::streamIsClosed, v, on(3));
    QObject::connect(v, &VtrObject::storageInUse, v, on(4));
    QObject::connect(v, &VtrObject::requestPlaybackStreamDesc, v, on(5));
    QObject::connect(v, &VtrObject::requestRecordStreamDesc, v, on(6));
    QObject::connect(v, &VtrObject::requestRecordInhibit, v, on(7));
    QObject::connect(v, &VtrObject::recordFailedToStart, v, on(8));
    QObject::connect(v, &VtrObject::videoDeviceSetupChanged, v, on(9));
    QObject::connect(v, &VtrObject::inputFormatChanged, v, on(10));
    QObject::connect(v, &VtrObject::alarmTriggered, v, on(11));
    QObject::connect(v, &VtrObject::vbi, v, on(12));
    QObject::connect(v, &VtrObject::frameDropped, v, on(13));
}

void Operator::heard(int signal)
{
    if (signal != _armedFor || _armedTimes == 0)
        return;
    --_armedTimes;
    switch (_dice.pick(6)) {
    case 0: setting(); break;
    case 1: reopen(); break;
    default: command(); break;
    }
}

// The input ---------------------------------------------------------------------------------------

void Operator::input()
{
    switch (_dice.pick(6)) {
    case 0: {
        say("lost");
        _rig.video.hasSignal = false;
        _rig.changeInput(OrbVideoState());
        break;
    }
    case 1:
        say("no picture");
        _rig.video.hasSignal = !_dice.chance(2);
        break;
    case 2:
        say("number 1");
        _rig.video.changeInput(1, EngineRig::inputState(anyFormat(_dice)));
        break;
    case 3: {
        say("inhibited");
        OrbVideoState state = EngineRig::inputState(anyFormat(_dice));
        state.setRecInhibit(_dice.chance(2) ? OrbId(2001) : OrbId());
        _rig.changeInput(state);
        break;
    }
    default:
        say("format");
        _rig.video.hasSignal = true;
        _rig.changeInput(EngineRig::inputState(anyFormat(_dice)));
        break;
    }
}

void Operator::camera()
{
    say("flag");
    _rig.vtr->setCameraInput(_dice.chance(4) ? OrbId() : OrbId(1000));
    if (_dice.chance(3))
        _rig.video.cameraFlag.reset();
    else
        _rig.video.cameraFlag = _dice.chance(2);
}

void Operator::timecode()
{
    say("runs or stops");
    _isTimecodeRunning = _dice.chance(2);
    _inputTimecode = anyTimecode(_dice);
    _rig.video.inputTimecode = _inputTimecode;
    _rig.vtr->setRecordOnRunningTimecode(!_dice.chance(3));
}

// Device and medium -------------------------------------------------------------------------------

/// Mostly short; seldom minutes.
int Operator::delay()
{
    return _dice.chance(30) ? 60000 + _dice.pick(240000) : _dice.pick(700);
}

void Operator::deviceFault()
{
    ScriptedVideo &video = _rig.video;
    switch (_dice.pick(9)) {
    case 0:
        say("setup fails");
        for (int i = _dice.pick(4); i >= 0; --i)
            video.setups.push_back({.error = OrbError(5), .afterMs = _dice.pick(40)});
        break;
    case 1:
        say("setup is refused");
        video.setups.push_back({.refused = OrbError(22)});
        break;
    case 2:
        say("setup is slow");
        video.setups.push_back({.afterMs = delay()});
        break;
    case 3:
        say("flush is slow");
        video.flushes.push_back({.afterMs = delay()});
        break;
    case 4:
        say("read error");
        video.readErrors.push_back(OrbError(5));
        break;
    case 5:
        say("frame dropped");
        video.dropFrame();
        break;
    case 6:
        say("number of pictures");
        video.imageCount = _dice.chance(2) ? 1 : _dice.pick(3);
        break;
    case 7:
        say("room for frames");
        video.captureLimit = _dice.chance(2) ? 40 : 1 + _dice.pick(4);
        break;
    default:
        say("no timecode");
        video.hasTimecode = _dice.chance(2);
        break;
    }
}

void Operator::mediumFault()
{
    ScriptedMedia &media = _rig.media;
    switch (_dice.pick(9)) {
    case 0:
        say("open fails");
        media.opens.push_back({.error = OrbError(28), .afterMs = delay()});
        break;
    case 1:
        say("open is refused");
        media.opens.push_back({.isRefused = true});
        break;
    case 2:
        say("open is slow");
        media.opens.push_back({.afterMs = delay()});
        break;
    case 3:
    case 4:
        say("close is slow");
        media.closes.push_back({.afterMs = delay()});
        break;
    case 5:
        say("bad frames");
        media.badFrames.clear();
        for (int i = _dice.pick(40) * _dice.pick(2); i > 0; --i)
            media.badFrames.insert(_dice.pick(150));
        break;
    case 6:
        say("reads are slow");
        media.readMs = _dice.chance(2) ? 1 : _dice.pick(200);
        break;
    case 7:
        say("writes are slow");
        media.writeMs = _dice.chance(2) ? 1 : _dice.pick(3000);
        break;
    default:
        say("writes fail");
        media.writeError = _dice.chance(2) ? OrbError() : OrbError(5);
        break;
    }
}

void Operator::deviceNews()
{
    ScriptedVideo &video = _rig.video;
    switch (_dice.pick(8)) {
    case 0:
        say("reference");
        video.reference = OrbVideoRefState(_dice.chance(2), _dice.chance(2));
        break;
    case 1:
        say("hardware failures");
        video.reportReadFailed(OrbError(5));
        video.reportWriteFailed(OrbError(5));
        break;
    case 2: {
        say("ancillary data");
        OrbMetadataHash data;
        data.insert(OrbId(OrbIdCameraRecordFlag), _dice.chance(2));
        video.reportAncData(data);
        break;
    }
    case 3:
        say("alarm");
        video.reportAlarm(OrbAlarm(OrbId(1900 + _dice.pick(10)), _dice.pick(3), QString(),
                                   QStringLiteral("device"), 1));
        break;
    case 4:
        say("variable frame rate alarm");
        video.reportVfr(_dice.chance(2));
        break;
    case 5:
        say("firmware");
        video.reportFirmware(QStringLiteral("board"), _dice.chance(2));
        break;
    case 6:
        say("hardware started");
        video.reportStarted();
        break;
    default:
        say("burst of vertical intervals");
        for (int i = _dice.pick(60); i > 0; --i)
            video.reportVbi(OrbVbiInfo(anyTimecode(_dice), anyTimecode(_dice)));
        break;
    }
}

void Operator::stray()
{
    switch (_dice.pick(4)) {
    case 0:
        say("setup done");
        _rig.video.reportStraySetup(_dice.chance(2) ? OrbError() : OrbError(5));
        break;
    case 1:
        say("flush done");
        _rig.video.reportStrayFlush();
        break;
    case 2: {
        say("key frame");
        OrbMetadataHash meta;
        meta.insert(OrbId(OrbIdStartOfStream), _dice.chance(2));
        meta.insert(OrbId(OrbIdEndOfStream), _dice.chance(2));
        _rig.video.reportPlayedKeyFrame(meta);
        break;
    }
    default:
        say("answer of the medium");
        _rig.media.answerStray(_dice.pick(4));
        break;
    }
}

void Operator::material()
{
    switch (_dice.pick(8)) {
    case 0:
        say("nothing to play");
        _rig.playbackDesc = QVariant();
        break;
    case 1:
        say("a clip that is not there");
        _rig.playbackDesc = QStringLiteral("/media/none.mov");
        break;
    case 2:
        say("a play list");
        _rig.playbackDesc = StressRig::playList();
        break;
    case 3:
        say("nowhere to record");
        _rig.recordDesc = _dice.chance(3) ? QVariant() : QVariant(QStringLiteral("/media/r.mov"));
        break;
    case 4:
        say("record inhibited");
        _rig.inhibitReason = _dice.chance(3) ? OrbId(2003) : OrbId();
        break;
    case 5:
        say("start frame");
        _rig.startFrame = _dice.chance(2) ? 0 : _dice.pick(220) - 20;
        break;
    default:
        say("a clip");
        _rig.playbackDesc = QString::fromLatin1(
            StressRig::clipPaths[_dice.pick(int(std::size(StressRig::clipPaths)))]);
        break;
    }
}
