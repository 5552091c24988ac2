#include "enginerig.h"

#include "liborb/orb.h"

#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <iterator>

namespace {

using Mode = VtrState::Mode;

constexpr int settleMs = 2500;

/// Where a command may find the engine with nothing pending.
enum class Place { Startup, Shutdown, StandbyOff, Standby, Play, Still, Record };

/// What holds a change that has been asked for.
enum class Hold {
    Setup, ///< the device in setup: neither half has run
    Flush, ///< the device flushing: likewise
    Open,  ///< the stream opening: likewise
    Close  ///< the stream closing: the clean-up has run, the begin has not
};

enum Command {
    StandbyOff, Play, PlayTwice, Still, Stop, Rewind, FastFwd, Cue, Step, Record, Shutdown,
    Looping, ReopenRecord, ReopenPlayback, CommandCount
};

constexpr const char *commandNames[] = {
    "standbyOff", "play", "play(2)", "still", "stop", "rewind", "fastfwd", "cue(7)", "step(3)",
    "record", "shutdown", "setLooping", "reopenRecordStream", "reopenPlaybackStream"};
static_assert(std::size(commandNames) == CommandCount);

bool give(VtrObject &vtr, Command command)
{
    switch (command) {
    case StandbyOff: vtr.standbyOff(); break;
    case Play: vtr.play(); break;
    case PlayTwice: vtr.play(2.0); break;
    case Still: vtr.still(); break;
    case Stop: vtr.stop(); break;
    case Rewind: vtr.rewind(); break;
    case FastFwd: vtr.fastfwd(); break;
    case Cue: vtr.cue(7); break;
    case Step: vtr.step(3); break;
    case Record: vtr.record(); break;
    case Shutdown: vtr.shutdown(); break;
    case Looping: vtr.setLooping(true); break;
    case ReopenRecord: return vtr.reopenRecordStream();
    case ReopenPlayback: return vtr.reopenPlaybackStream();
    case CommandCount: break;
    }
    return true;
}

/// What a command does, besides what the passes then do.
enum Outcome {
    No,         ///< nothing at all, and no line
    ToOff,      ///< asks for Standby Off
    ToStandby,  ///< asks for Standby
    ToPlay,     ///< asks for Play
    ToRecord,   ///< asks for Record
    ToShutdown, ///< asks for Shutdown
    Faster,     ///< changes the speed within Play, and flushes
    ToCue,      ///< asks for Play in still, seeks and flushes
    CueHere,    ///< changes the speed within Play, seeks and flushes
    SeekHere,   ///< seeks and flushes
    Moves,      ///< steps from the frame shown
    SaysStop,   ///< logs the line and no more
    SaysDown,   ///< likewise
    Flag,       ///< only the flag
    Reopens,    ///< closes the stream
    NotOpen,    ///< refused with the line for it
    WrongWay    ///< likewise
};

struct PlaceRow {
    Place place;
    const char *name;
    Mode mode;
    double speed;
    std::array<Outcome, CommandCount> outcomes;
};

// clang-format off
constexpr PlaceRow places[] = {
// place              name           mode                 speed   standbyOff play    play(2) still   stop       rewind  fastfwd cue       step    record    shutdown    looping reopen:  record    playback
{Place::Startup,    "Startup",     VtrState::Startup,    0.0, {ToOff,     ToPlay, ToPlay, ToPlay, ToStandby, ToPlay, ToPlay, ToCue,    ToPlay, ToRecord, ToShutdown, Flag, NotOpen,  NotOpen}},
{Place::Shutdown,   "Shutdown",    VtrState::Shutdown,   0.0, {ToOff,     ToPlay, ToPlay, ToPlay, ToStandby, ToPlay, ToPlay, ToCue,    ToPlay, ToRecord, SaysDown,   Flag, NotOpen,  NotOpen}},
{Place::StandbyOff, "Standby Off", VtrState::StandbyOff, 0.0, {No,        ToPlay, ToPlay, ToPlay, ToStandby, ToPlay, ToPlay, ToCue,    ToPlay, ToRecord, ToShutdown, Flag, NotOpen,  NotOpen}},
{Place::Standby,    "Standby",     VtrState::Standby,    0.0, {ToOff,     ToPlay, ToPlay, ToPlay, SaysStop,  ToPlay, ToPlay, ToCue,    ToPlay, ToRecord, ToShutdown, Flag, NotOpen,  NotOpen}},
{Place::Play,       "Play",        VtrState::Play,       1.0, {ToOff,     No,     Faster, Faster, ToStandby, Faster, Faster, CueHere,  Moves,  ToRecord, ToShutdown, Flag, WrongWay, Reopens}},
{Place::Still,      "Still",       VtrState::Play,       0.0, {ToOff,     Faster, Faster, No,     ToStandby, Faster, Faster, SeekHere, Moves,  ToRecord, ToShutdown, Flag, WrongWay, Reopens}},
{Place::Record,     "Record",      VtrState::Record,     1.0, {ToOff,     ToPlay, ToPlay, ToPlay, ToStandby, ToPlay, ToPlay, ToCue,    ToPlay, No,       ToShutdown, Flag, Reopens,  WrongWay}},
};

struct SpeedRow {
    Command command;
    double speed;
    const char *line;
};

constexpr SpeedRow speeds[] = {
    {Play,       1.0, "log 3 ** PLAY 1.000"},
    {PlayTwice,  2.0, "log 3 ** PLAY 2.000"},
    {Still,      0.0, "log 3 ** PLAY 0.000"},
    {Rewind,   -20.0, "log 3 ** PLAY -20.000"},
    {FastFwd,   20.0, "log 3 ** PLAY 20.000"},
    {Cue,        0.0, "log 3 ** PLAY 0.000"},
    {Step,       0.0, "log 3 ** PLAY 0.000"},
};

/// The mode that a command asks leave for; one that has none here never asks.
struct AskedRow {
    Command command;
    Mode mode;
};

constexpr AskedRow asked[] = {
    {StandbyOff, VtrState::StandbyOff},
    {Play,       VtrState::Play},
    {PlayTwice,  VtrState::Play},
    {Still,      VtrState::Play},
    {Rewind,     VtrState::Play},
    {FastFwd,    VtrState::Play},
    {Cue,        VtrState::Play},
    {Step,       VtrState::Play},
    {Stop,       VtrState::Standby},
    {Record,     VtrState::Record},
};

struct HoldRow {
    Hold hold;
    const char *name;
};

constexpr HoldRow holds[] = {
    {Hold::Setup, "setup"},
    {Hold::Flush, "flush"},
    {Hold::Open,  "open"},
    {Hold::Close, "close"},
};
// clang-format on

const PlaceRow &rowOf(Place place)
{
    return *std::ranges::find(places, place, &PlaceRow::place);
}

const SpeedRow *speedOf(Command command)
{
    const auto row = std::ranges::find(speeds, command, &SpeedRow::command);
    return row == std::end(speeds) ? nullptr : &*row;
}

Command commandFor(Mode mode)
{
    switch (mode) {
    case VtrState::Play: return Play;
    case VtrState::Record: return Record;
    case VtrState::Standby: return Stop;
    case VtrState::Shutdown: return Shutdown;
    default: return StandbyOff;
    }
}

/// The engine in \a place with a good input, nothing pending and nothing under way.
void settleIn(EngineRig &rig, Place place)
{
    if (place == Place::Startup) {
        rig.changeInput(true);
        rig.run(600);
    } else {
        rig.startUp();
    }
    switch (place) {
    case Place::Startup:
    case Place::StandbyOff: break;
    case Place::Shutdown: rig.vtr->shutdown(); break;
    case Place::Standby: rig.vtr->stop(); break;
    case Place::Play: rig.vtr->play(); break;
    case Place::Still:
        rig.vtr->play();
        rig.run(1000);
        rig.vtr->still();
        break;
    case Place::Record: rig.vtr->record(); break;
    }
    rig.run(1000);
    rig.transcript.clear();
}

/// No pass can begin: the device is in a setup that the test ends.
void holdSetup(EngineRig &rig)
{
    OrbVideoDeviceSetup other = rig.video.appliedSetup();
    other.setSuperOut(OrbId(other.superOut() == OrbId(1300) ? 1301 : 1300));
    rig.video.setups.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->setupVideoDevice(other);
    rig.transcript.clear();
}

void holdFlush(EngineRig &rig)
{
    rig.video.flushes.push_back({.afterMs = ScriptedVideo::held});
    rig.vtr->videoDeviceFlush();
    rig.transcript.clear();
}

void release(EngineRig &rig, Hold hold)
{
    switch (hold) {
    case Hold::Setup: rig.video.finishSetup(); break;
    case Hold::Flush: rig.video.finishFlush(); break;
    case Hold::Open: rig.media.finishOpen(); break;
    case Hold::Close: rig.media.finishClose(); break;
    }
}

/// A change from \a place to \a target that \a hold keeps pending.
void holdChange(EngineRig &rig, Place place, Mode target, Hold hold)
{
    if (hold == Hold::Open) {
        settleIn(rig, Place::StandbyOff);
        rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
        give(*rig.vtr, commandFor(rowOf(place).mode));
        rig.run(100);
    } else {
        settleIn(rig, place);
    }
    if (hold == Hold::Setup)
        holdSetup(rig);
    if (hold == Hold::Flush)
        holdFlush(rig);
    if (hold == Hold::Close)
        rig.media.closes.push_back({.afterMs = ScriptedMedia::held});
    give(*rig.vtr, commandFor(target));
    rig.transcript.clear();
}

QString modeChangedLine(Mode from, Mode to)
{
    return QStringLiteral("signal modeChanged %1 -> %2")
        .arg(VtrState::modeName(from), VtrState::modeName(to));
}

QString speedLine(double speed)
{
    return QStringLiteral("device: property 26 = %1").arg(speed);
}

/// The lines of a transcript that are not of properties which only had to be repeated.
QStringList withoutPlayMode(QStringList lines)
{
    lines.removeAll(QStringLiteral("device: property 22 = 1600"));
    return lines;
}

int frameOnOutput(const EngineRig &rig)
{
    return rig.video.frameOnOutput().meta().valueFor(OrbId(OrbIdFrameNumber)).toInt();
}

/// What is left of a command's own work when no pass can follow it.
struct Expected {
    QStringList lines; ///< without the play mode's
    VtrState state;
    int playModes = 0; ///< how often the device is told normal play
    bool answer = true;
};

void expectPlay(Expected &expected, const PlaceRow &row, Command command)
{
    const SpeedRow *speed = speedOf(command);
    expected.lines << speed->line;
    expected.playModes = 1;
    if (row.mode != VtrState::Play)
        expected.lines << modeChangedLine(row.mode, VtrState::Play);
    if (row.speed != speed->speed)
        expected.lines << speedLine(speed->speed);
    expected.state.setMode(VtrState::Play);
    expected.state.setSpeed(speed->speed);
}

void expectMode(Expected &expected, const PlaceRow &row, Mode mode, const char *line)
{
    if (line)
        expected.lines << line;
    expected.lines << modeChangedLine(row.mode, mode);
    expected.state.setMode(mode);
}

Expected expectedOf(const EngineRig &rig, const PlaceRow &row, Command command)
{
    Expected expected;
    expected.state = rig.vtr->state();
    QStringList &lines = expected.lines;
    switch (row.outcomes.at(command)) {
    case No: break;
    case ToOff: expectMode(expected, row, VtrState::StandbyOff, "log 3 ** STANDBY OFF"); break;
    case ToStandby: expectMode(expected, row, VtrState::Standby, "log 3 ** STOP"); break;
    case ToRecord: expectMode(expected, row, VtrState::Record, nullptr); break;
    case ToShutdown:
        expectMode(expected, row, VtrState::Shutdown, "log 3 VtrObject shutdown requested...");
        break;
    case ToPlay: expectPlay(expected, row, command); break;
    case Faster:
    case ToCue:
    case CueHere:
        expectPlay(expected, row, command);
        lines << "device: flush";
        break;
    case SeekHere: lines << "device: flush"; break;
    case Moves:
        if (row.speed != 0.0)
            lines << speedLine(0.0);
        lines << QStringLiteral("log 3 Step 3 from %1").arg(frameOnOutput(rig)) << "device: flush";
        expected.state.setSpeed(0.0);
        break;
    case SaysStop: lines << "log 3 ** STOP"; break;
    case SaysDown: lines << "log 3 VtrObject shutdown requested..."; break;
    case Flag: expected.state.setLooping(true); break;
    case Reopens:
        if (command == ReopenRecord)
            lines << "log 3 STREAM: Reopen Record Stream" << "media: close /media/rec.mov";
        else
            lines << "log 3 STREAM: Reopen Playback Stream" << "media: close /media/a.mov"
                  << "device: flush";
        break;
    case NotOpen:
        lines << "log 1 STREAM: Can't reopen "
                + QString(command == ReopenRecord ? "record stream: Stream is not open"
                                                  : "playback stream: Stream is not open");
        expected.answer = false;
        break;
    case WrongWay:
        lines << "log 1 STREAM: Can't reopen "
                + QString(command == ReopenRecord ? "record stream: Stream isn't writable"
                                                  : "playback stream: Stream is not readable");
        expected.answer = false;
        break;
    }
    return expected;
}

} // namespace

Q_DECLARE_METATYPE(Place)
Q_DECLARE_METATYPE(Hold)

/// Every command in every mode, with and without a change pending.
class TestEngineCommands : public QObject
{
    Q_OBJECT

private slots:
    void aCommandDoesItsOwnWorkAndNoMore_data();
    void aCommandDoesItsOwnWorkAndNoMore();
    void aCommandIsCarriedOutByThePasses_data();
    void aCommandIsCarriedOutByThePasses();
    void aCommandDuringAPendingChangeIsRefused_data();
    void aCommandDuringAPendingChangeIsRefused();
    void nothingIsQueuedWhileAChangeIsPending_data();
    void nothingIsQueuedWhileAChangeIsPending();

private:
    static void compareEndOfChange(const EngineRig &rig, Mode from, Mode to, const QString &news);
    static void addPlaces();
    static void addPendingChanges();
};

void TestEngineCommands::addPlaces()
{
    QTest::addColumn<Place>("place");
    QTest::addColumn<int>("command");
    for (const PlaceRow &row : places)
        for (int command = 0; command < CommandCount; ++command)
            QTest::addRow("%s in %s", commandNames[command], row.name) << row.place << command;
}

void TestEngineCommands::aCommandDoesItsOwnWorkAndNoMore_data()
{
    addPlaces();
}

void TestEngineCommands::aCommandDoesItsOwnWorkAndNoMore()
{
    QFETCH(const Place, place);
    QFETCH(const int, command);
    EngineRig rig;
    settleIn(rig, place);
    const PlaceRow &row = rowOf(place);
    QCOMPARE(rig.mode(), row.mode);
    QCOMPARE(rig.vtr->state().speed(), row.speed);
    holdSetup(rig);
    const Expected expected = expectedOf(rig, row, Command(command));
    const int playModes = rig.video.propertyCount(OrbIdPropPlayMode);
    const bool answer = give(*rig.vtr, Command(command));
    QCOMPARE(withoutPlayMode(rig.transcript.lines()), expected.lines);
    QCOMPARE(rig.video.propertyCount(OrbIdPropPlayMode) - playModes, expected.playModes);
    QVERIFY(!(rig.vtr->state() != expected.state));
    QCOMPARE(rig.vtr->hasPendingModeChange(), expected.state.mode() != row.mode);
    QCOMPARE(answer, expected.answer);
}

void TestEngineCommands::aCommandIsCarriedOutByThePasses_data()
{
    addPlaces();
}

void TestEngineCommands::aCommandIsCarriedOutByThePasses()
{
    QFETCH(const Place, place);
    QFETCH(const int, command);
    EngineRig rig;
    settleIn(rig, place);
    const PlaceRow &row = rowOf(place);
    const VtrState before = rig.vtr->state();
    Expected expected = expectedOf(rig, row, Command(command));
    if (command == Cue)
        expected.lines.removeLast(); // the flush comes after the pass of the still before it
    give(*rig.vtr, Command(command));
    const QStringList first = withoutPlayMode(rig.transcript.lines()).mid(0, expected.lines.size());
    QCOMPARE(first, expected.lines);
    rig.run(settleMs);
    const Mode target = expected.state.mode();
    QCOMPARE(rig.mode(), target);
    QVERIFY(!rig.vtr->hasPendingModeChange());
    QVERIFY(rig.vtr->canProcess());
    const bool isAsked = target != row.mode;
    QCOMPARE(rig.transcript.count("signal modeChanged"), isAsked ? 1 : 0);
    const QString news = QStringLiteral("signal stateChanged %1 %2 -> ")
                             .arg(row.speed, 0, 'f', 3)
                             .arg(VtrState::modeName(row.mode));
    QCOMPARE(rig.transcript.count(news), expected.state != before ? 1 : 0);
    if (isAsked)
        compareEndOfChange(rig, row.mode, target, news);
    QCOMPARE(rig.transcript.count("log 1 Something is wrong."),
             isAsked && row.mode == VtrState::Shutdown ? 1 : 0);
    QCOMPARE(rig.transcript.count("log 1 Standby mode has not been implemented."),
             isAsked && target == VtrState::Standby ? 1 : 0);
    QCOMPARE(rig.transcript.count("log 2 "), rig.transcript.count("log 2 Flushed at "));
    QVERIFY(command == Cue || rig.transcript.count("log 2 ") == 0);
}

/// A change whose begin leaves the engine idle is logged as it ends; one whose begin sends a setup is
/// only published, when the device is through.
void TestEngineCommands::compareEndOfChange(const EngineRig &rig, Mode from, Mode to,
                                            const QString &news)
{
    const QStringList lines = rig.transcript.lines();
    const auto published = std::ranges::find_if(
        lines, [&](const QString &line) { return line.startsWith(news); });
    QVERIFY(published != lines.end());
    const bool setsUp = std::find(lines.begin(), published,
                                  QStringLiteral("log 3 VIDEO DEVICE: Setup Started"))
        != published;
    const QString names = QStringLiteral("Mode changed from %1 to %2")
                              .arg(VtrState::modeName(from), VtrState::modeName(to));
    QCOMPARE(rig.transcript.count("log 3 Mode changed from"), setsUp ? 0 : 1);
    QCOMPARE(rig.hasLog(3, names), !setsUp);
}

void TestEngineCommands::addPendingChanges()
{
    QTest::addColumn<Place>("place");
    QTest::addColumn<int>("target");
    QTest::addColumn<Hold>("hold");
    QTest::addColumn<int>("command");
    constexpr Mode targets[] = {VtrState::Shutdown, VtrState::StandbyOff, VtrState::Standby,
                                VtrState::Play, VtrState::Record};
    for (const PlaceRow &row : places) {
        const bool hasStream = row.mode == VtrState::Play || row.mode == VtrState::Record;
        for (const Mode target : targets)
            for (const HoldRow &hold : holds)
                for (int command = 0; command < CommandCount; ++command) {
                    const bool isOfStream = hold.hold == Hold::Open || hold.hold == Hold::Close;
                    if (target == row.mode || (isOfStream && !hasStream)
                        || row.place == Place::Still)
                        continue;
                    QTest::addRow("%s, %s to %s, %s held", commandNames[command], row.name,
                                  qPrintable(VtrState::modeName(target)), hold.name)
                        << row.place << int(target) << hold.hold << command;
                }
    }
}

void TestEngineCommands::aCommandDuringAPendingChangeIsRefused_data()
{
    addPendingChanges();
}

void TestEngineCommands::aCommandDuringAPendingChangeIsRefused()
{
    QFETCH(const Place, place);
    QFETCH(const int, target);
    QFETCH(const Hold, hold);
    QFETCH(const int, command);
    EngineRig rig;
    holdChange(rig, place, Mode(target), hold);
    const PlaceRow &row = rowOf(place);
    QVERIFY(rig.vtr->hasPendingModeChange());
    QCOMPARE(rig.mode(), Mode(target));

    // The stream is open while nothing has been cleaned up and nothing is opening.
    const bool isOpen = (row.mode == VtrState::Play || row.mode == VtrState::Record)
        && (hold == Hold::Setup || hold == Hold::Flush);
    const QStringList flush =
        hold == Hold::Flush ? QStringList() : QStringList{"device: flush"};
    QStringList lines;
    VtrState state = rig.vtr->state();
    bool answer = true;

    const auto asks = std::ranges::find(asked, Command(command), &AskedRow::command);
    const bool steps = command == Step && target == VtrState::Play; // without asking
    if (asks != std::end(asked) && !steps)
        lines << QStringLiteral("log 2 Can't enter mode %1.  Pending mode change from %2 to %3")
                     .arg(VtrState::modeName(asks->mode), VtrState::modeName(row.mode),
                          VtrState::modeName(Mode(target)));
    switch (command) {
    case Cue: lines << flush; break; // all the same
    case Step:
        if (!steps)
            break;
        if (state.speed() != 0.0)
            lines << speedLine(0.0);
        lines << QStringLiteral("log 3 Step 3 from %1").arg(frameOnOutput(rig)) << flush;
        state.setSpeed(0.0);
        break;
    case Shutdown:
        lines << "log 3 VtrObject shutdown requested...";
        if (target != VtrState::Shutdown)
            lines << "log 2 Mode change is pending";
        break;
    case Looping: state.setLooping(true); break;
    case ReopenRecord:
    case ReopenPlayback:
        if (isOpen) {
            const Expected settled = expectedOf(rig, row, Command(command));
            lines = settled.lines;
            answer = settled.answer;
            if (flush.isEmpty())
                lines.removeAll("device: flush");
        } else {
            lines << expectedOf(rig, rowOf(Place::Startup), Command(command)).lines;
            answer = false;
        }
        break;
    default: break;
    }

    const int playModes = rig.video.propertyCount(OrbIdPropPlayMode);
    QCOMPARE(give(*rig.vtr, Command(command)), answer);
    QCOMPARE(rig.transcript.lines(), lines);
    QCOMPARE(rig.video.propertyCount(OrbIdPropPlayMode), playModes);
    QVERIFY(!(rig.vtr->state() != state));
    QVERIFY(rig.vtr->hasPendingModeChange());
}

void TestEngineCommands::nothingIsQueuedWhileAChangeIsPending_data()
{
    addPendingChanges();
}

void TestEngineCommands::nothingIsQueuedWhileAChangeIsPending()
{
    QFETCH(const Place, place);
    QFETCH(const int, target);
    QFETCH(const Hold, hold);
    QFETCH(const int, command);
    EngineRig rig;
    holdChange(rig, place, Mode(target), hold);
    const PlaceRow &row = rowOf(place);
    give(*rig.vtr, Command(command));
    rig.run(1000); // ticks change nothing
    QVERIFY(rig.vtr->hasPendingModeChange());
    rig.transcript.clear();
    release(rig, hold);
    rig.run(settleMs);
    QCOMPARE(rig.mode(), Mode(target));
    QVERIFY(!rig.vtr->hasPendingModeChange());
    QVERIFY(rig.vtr->canProcess());
    QCOMPARE(rig.transcript.count("signal modeChanged"), 0);
    const QString news = QStringLiteral("signal stateChanged [-.\\d]+ %1 -> [-.\\d]+ %2")
                             .arg(VtrState::modeName(row.mode), VtrState::modeName(Mode(target)));
    QCOMPARE(rig.transcript.lines().filter(QRegularExpression(news)).size(), 1);
    QCOMPARE(rig.transcript.count("log 2 Can't enter mode"), 0);
}

SIM_TEST_MAIN(TestEngineCommands)
#include "tst_engine_commands.moc"
