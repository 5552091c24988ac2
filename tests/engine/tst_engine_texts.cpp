#include "enginerig.h"

#include "aux/keyboardtransport.h"
#include "liborb/orb.h"
#include "liborb/orbconnect.h"
#include "liborb/orblog.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <iterator>

namespace {

using Scenario = void (*)(EngineRig &rig);

constexpr char engineFile[] = "vtrobject.cpp";
constexpr char consoleFile[] = "keyboardtransport.cpp";
constexpr int anyId = 1300; // named SuperTimecode

/// A record as a log sink gets it.
struct Record {
    int level;
    QString file;
    int line;
    QString text;
};

// Scenarios that several rows share ---------------------------------------------------------------

void starts(EngineRig &rig)
{
    rig.vtr->start();
    rig.run(100);
}

void plays(EngineRig &rig)
{
    rig.startUp();
    rig.vtr->play();
    rig.run(1000);
}

void records(EngineRig &rig)
{
    rig.startUp();
    rig.vtr->record();
    rig.run(1000);
}

void shutsDown(EngineRig &rig)
{
    rig.startUp();
    rig.vtr->shutdown();
    rig.run(1000);
}

void recordsAndStops(EngineRig &rig)
{
    records(rig);
    rig.vtr->standbyOff();
    rig.run(1000);
}

void intervals(EngineRig &rig, int frames, int period)
{
    rig.startUp();
    rig.vtr->setRecordInterval(frames);
    rig.vtr->setRecordIntervalTime(period);
    rig.vtr->setIntervalRecordEnable(true);
    rig.vtr->record();
}

void losesVideo(EngineRig &rig, bool stops)
{
    rig.startUp();
    rig.vtr->setStopOnLossOfVideo(stops);
    rig.vtr->record();
    rig.run(200);
    rig.video.hasSignal = false;
    rig.run(100);
}

void dropsInPlay(EngineRig &rig, bool stops)
{
    rig.startUp();
    rig.vtr->setStopOnFrameDrop(stops);
    rig.vtr->play();
    rig.run(400);
    rig.video.dropFrame();
}

void camera(EngineRig &rig)
{
    rig.startUp();
    rig.vtr->setCameraInput(OrbId(anyId));
    rig.run(1000);
    rig.video.cameraFlag = true;
    rig.run(400);
    rig.video.cameraFlag = false;
    rig.run(80);
}

void refusesSetup(EngineRig &rig)
{
    rig.startUp();
    rig.video.setups.push_back({.refused = OrbError(5)});
    rig.vtr->setSuperOut(OrbId(anyId));
    rig.run(600);
}

/// The frame held for the open no longer fits the setup.
void heldFrameTurnsInvalid(EngineRig &rig)
{
    rig.startUp();
    rig.media.opens.push_back({.afterMs = ScriptedMedia::held});
    rig.vtr->record();
    rig.run(100);
    OrbVideoDeviceSetup other = rig.video.appliedSetup();
    other.setImageCount(2);
    rig.vtr->setupVideoDevice(other);
    rig.run(100);
    rig.media.finishOpen();
    rig.run(100);
}

void validates(EngineRig &rig, const OrbImage &image)
{
    rig.startUp();
    OrbFrame frame;
    frame.vids().append(image);
    rig.vtr->validateFrameForRecord(frame);
}

void badPlane(EngineRig &rig)
{
    OrbImage image(EngineRig::hd25(), OrbBuffer(8, 8));
    image.planes().append(OrbBuffer());
    validates(rig, image);
}

void setSettings(EngineRig &rig)
{
    rig.startUp();
    VtrObject &v = *rig.vtr;
    const OrbId id(anyId);
    v.setEncodeFormat(id);
    v.setVideoInputSource(id);
    v.setAudioInputSource(id);
    v.setAudioInputLevel(id);
    v.setSyncSource(id);
    v.setVideoSignalGenFormat(EngineRig::hd25());
    v.setVideoSignalGenMode(id);
    v.setAudioSignalGenMode(id);
    v.setCameraInput(id);
    v.setVideoInConvert(id);
    v.setVideoOutConvert(id);
    v.setVideoOutputType(id);
    v.setVideoOutputRoute(id);
    v.setSuperOut(id);
    v.setTCGSource(id);
    v.setForcePSFOutput(true);
    v.setForcePSFEncode(true);
    v.setVFREnable(true);
    v.setIntervalRecordEnable(true);
    v.setStopOnFrameDrop(true);
    v.setStopOnLossOfVideo(false);
    v.setRecordOnRunningTimecode(true);
    v.setAudioChans(4);
    v.setRecordInterval(5);
    v.setRecordIntervalTime(2);
    v.setTimecodeValue(OrbTimecode(1, 2, 3, 4, 25, 0));
    v.setTimecodeDropFrame(true);
    v.setReelName("A12");
}

void refuseInvalidIds(EngineRig &rig)
{
    rig.vtr->setEncodeFormat(OrbId());
    rig.vtr->setVideoInputSource(OrbId());
    rig.vtr->setAudioInputSource(OrbId());
    rig.vtr->setAudioInputLevel(OrbId());
    rig.vtr->setSyncSource(OrbId());
}

void openConsole(EngineRig &)
{
    const KeyboardTransport console;
}

struct TextRow {
    int level;
    const char *file;
    const char *literal; ///< as it stands in the source, with its line end when it has one
    const char *text;    ///< as a sink gets it
    Scenario scenario;
};

using R = EngineRig;

// clang-format off
const TextRow rows[] = {
// level, file, literal, text, scenario

// Birth, start, shutdown
{3, engineFile, "VtrObject is starting...\\n", "VtrObject is starting...", starts},
{3, engineFile, "VtrObject shutdown requested...\\n", "VtrObject shutdown requested...", shutsDown},
{3, engineFile, "Shutting down VtrObject...\\n", "Shutting down VtrObject...", shutsDown},
{3, engineFile, "VtrObject shutdown complete...\\n", "VtrObject shutdown complete...", shutsDown},
{1, engineFile, "shutdown() should have been called before destruction!\\n", "shutdown() should have been called before destruction!", [](R &r) { r.vtr.reset(); }},
{1, engineFile, "Something is wrong.  Shouldn't ever come out of shutdown mode\\n", "Something is wrong.  Shouldn't ever come out of shutdown mode", [](R &r) { shutsDown(r); r.vtr->standbyOff(); }},

// Modes
{3, engineFile, "Mode changed from %1 to %2", "Mode changed from Standby Off to Play", plays},
{2, engineFile, "Mode change is pending\\n", "Mode change is pending", [](R &r) { r.vtr->setNewMode(VtrState::Play); r.vtr->shutdown(); }},
{2, engineFile, "Can't enter mode %1.  Pending mode change from %2 to %3", "Can't enter mode Play.  Pending mode change from Startup to Standby Off", [](R &r) { r.vtr->setNewMode(VtrState::StandbyOff); r.vtr->play(); }},
{3, engineFile, "** STANDBY OFF\\n", "** STANDBY OFF", starts},
{3, engineFile, "Begin Mode Standby Off\\n", "Begin Mode Standby Off", starts},
{1, engineFile, "Standby mode has not been implemented.\\n", "Standby mode has not been implemented.", [](R &r) { r.startUp(); r.vtr->stop(); }},
{3, engineFile, "PMode %s CMode %s Setup %s Flush %s\\n", "PMode Startup CMode Startup Setup N Flush N", [](R &r) { r.invoke("logDebugStats"); }},

// Playback
{2, engineFile, "Play speed is not a number\\n", "Play speed is not a number", [](R &r) { r.startUp(); r.vtr->play(qQNaN()); }},
{3, engineFile, "** PLAY %.3lf\\n", "** PLAY -20.000", [](R &r) { r.startUp(); r.vtr->rewind(); }},
{3, engineFile, "** STOP\\n", "** STOP", [](R &r) { r.startUp(); r.vtr->stop(); }},
{3, engineFile, "Step %d from %d\\n", "Step -3 from 7", [](R &r) { r.startUp(); r.vtr->cue(7); r.run(300); r.vtr->step(-3); }},
{1, engineFile, "Failed to open stream for read\\n", "Failed to open stream for read", [](R &r) { r.startUp(); r.playbackDesc = QVariant(); r.vtr->play(); }},
{3, engineFile, "Cache Level %1, Frame %2 (%3) Requires Video Reset", "Cache Level 1, Frame 42 (1920x1080p 25/1 ImageProRes422) Requires Video Reset", [](R &r) { r.startUp(); r.video.ticksByItself = false; r.run(100); r.media.clips[R::clipPath].length = 43; r.vtr->cue(42); r.run(100); }},
{3, engineFile, "End of stream reached\\n", "End of stream reached", [](R &r) { r.startPlay(); r.run(6000); }},
{3, engineFile, "Start of stream reached\\n", "Start of stream reached", [](R &r) { r.startPlay(); r.run(400); r.vtr->play(-1.0); r.run(2000); }},
{2, engineFile, "Flushed at %d, but pending cue at %d\\n", "Flushed at 0, but pending cue at 60", [](R &r) { r.startPlay(0.0); r.run(300); r.vtr->cue(60); r.run(100); }},

// Record
{2, engineFile, "Record Inhibited: %1", "Record Inhibited: InhibitNoInput", [](R &r) { r.vtr->start(); r.run(1000); r.vtr->record(); }},
{3, engineFile, "Begin Mode Record\\n", "Begin Mode Record", records},
{2, engineFile, "Record interval total is zero!\\n", "Record interval total is zero!", [](R &r) { intervals(r, 0, 0); }},
{2, engineFile, "Interval total is less than 1\\n", "Interval total is less than 1", [](R &r) { intervals(r, 100, 0); }},
{3, engineFile, "Interval Record.  Interval %d, Time %d, Every %.3f\\n", "Interval Record.  Interval 7, Time 1, Every 214.286", [](R &r) { intervals(r, 7, 1); }},
{1, engineFile, "VIDEO DEVICE: Read Error %1", "VIDEO DEVICE: Read Error 5", [](R &r) { records(r); r.video.readErrors.push_back(OrbError(5)); r.run(100); }},
{3, engineFile, "Camera has started record.\\n", "Camera has started record.", camera},
{3, engineFile, "Camera has stopped record.\\n", "Camera has stopped record.", camera},
{2, engineFile, "Pending frame isn't valid!\\n", "Pending frame isn't valid!", heldFrameTurnsInvalid},
{2, engineFile, "Image count (%d) doesn't match the setup (%d)\\n", "Image count (1) doesn't match the setup (2)", heldFrameTurnsInvalid},
{2, engineFile, "Image %d is invalid\\n", "Image 0 is invalid", [](R &r) { validates(r, OrbImage()); }},
{2, engineFile, "Image %d buffer is invalid\\n", "Image 0 buffer is invalid", badPlane},
{2, engineFile, "Empty frame, stop on LoV is set.  Stopping record\\n", "Empty frame, stop on LoV is set.  Stopping record", [](R &r) { losesVideo(r, true); }},
{2, engineFile, "Loss of Video image buffer is not valid.\\n", "Loss of Video image buffer is not valid.", [](R &r) { losesVideo(r, false); }},
{1, engineFile, "Frame has invalid timecode\\n", "Frame has invalid timecode", [](R &r) { r.video.hasTimecode = false; records(r); }},
{1, engineFile, "Open Stream Failed\\n", "Open Stream Failed", [](R &r) { r.recordDesc = QVariant(); records(r); }},
{1, engineFile, "Stream is still opening\\n", "Stream is still opening", [](R &r) { r.startUp(); r.media.opens.push_back({.afterMs = ScriptedMedia::held}); r.vtr->record(); r.run(100); r.vtr->cleanupModeRecord(); }},
{3, engineFile, "Record finished with a pending frame.  Writing to cache\\n", "Record finished with a pending frame.  Writing to cache", [](R &r) { r.startUp(); r.media.opens.push_back({.afterMs = 300}); r.vtr->record(); r.run(100); r.vtr->standbyOff(); r.run(800); }},
{1, engineFile, "Cache didn't get any frames!\\n", "Cache didn't get any frames!", [](R &r) { intervals(r, 1, 2); r.run(1000); r.vtr->standbyOff(); }},
{3, engineFile, "%d frames still in cache, scheduling them for write\\n", "2 frames still in cache, scheduling them for write", [](R &r) { r.media.writeMs = ScriptedMedia::held; r.startUp(); r.video.ticksByItself = false; r.run(100); r.vtr->record(); for (int i = 0; i < 10; ++i) { r.video.tick(); r.run(20); } r.vtr->standbyOff(); }},

// Stream
{1, engineFile, "STREAM: Failed to get a playback stream descriptor\\n", "STREAM: Failed to get a playback stream descriptor", [](R &r) { r.playbackDesc = QVariant(); plays(r); }},
{1, engineFile, "STREAM: Open for read failed", "STREAM: Open for read failed", [](R &r) { r.media.opens.push_back({.isRefused = true}); plays(r); }},
{3, engineFile, "STREAM: Open for Read Started\\n", "STREAM: Open for Read Started", plays},
{1, engineFile, "STREAM: Failed to get a record stream descriptor\\n", "STREAM: Failed to get a record stream descriptor", [](R &r) { r.recordDesc = QVariant(); records(r); }},
{1, engineFile, "STREAM: Open for write failed", "STREAM: Open for write failed", [](R &r) { r.media.opens.push_back({.isRefused = true}); records(r); }},
{3, engineFile, "STREAM: Open for Write Started\\n", "STREAM: Open for Write Started", records},
{1, engineFile, "STREAM: Can't reopen record stream: Stream is not open\\n", "STREAM: Can't reopen record stream: Stream is not open", [](R &r) { r.vtr->reopenRecordStream(); }},
{1, engineFile, "STREAM: Can't reopen record stream: Stream isn't writable\\n", "STREAM: Can't reopen record stream: Stream isn't writable", [](R &r) { plays(r); r.vtr->reopenRecordStream(); }},
{3, engineFile, "STREAM: Reopen Record Stream\\n", "STREAM: Reopen Record Stream", [](R &r) { records(r); r.vtr->reopenRecordStream(); }},
{1, engineFile, "STREAM: Can't reopen playback stream: Stream is not open\\n", "STREAM: Can't reopen playback stream: Stream is not open", [](R &r) { r.vtr->reopenPlaybackStream(); }},
{1, engineFile, "STREAM: Can't reopen playback stream: Stream is not readable\\n", "STREAM: Can't reopen playback stream: Stream is not readable", [](R &r) { records(r); r.vtr->reopenPlaybackStream(); }},
{3, engineFile, "STREAM: Reopen Playback Stream\\n", "STREAM: Reopen Playback Stream", [](R &r) { plays(r); r.vtr->reopenPlaybackStream(); }},
{1, engineFile, "STREAM: Open Error %1", "STREAM: Open Error 2", [](R &r) { r.playbackDesc = "/media/none.mov"; plays(r); }},
{3, engineFile, "STREAM: Open is Done\\n", "STREAM: Open is Done", plays},
{3, engineFile, "Starting at prior playback position of %d\\n", "Starting at prior playback position of 7", [](R &r) { r.startUp(); r.vtr->cue(7); r.run(300); r.vtr->standbyOff(); r.run(300); r.vtr->still(); r.run(300); }},
{3, engineFile, "STREAM: Close is Done\\n", "STREAM: Close is Done", recordsAndStops},
{2, engineFile, "STREAM: Cache Error @ %1: %2", "STREAM: Cache Error @ 4: 5", [](R &r) { r.media.badFrames.insert(4); plays(r); }},

// The device
{1, engineFile, "Attempting to open the video device after it has already been opened\\n", "Attempting to open the video device after it has already been opened", [](R &r) { r.vtr->videoDeviceOpen(); }},
{1, engineFile, "Failed to open video device '%1'", "Failed to open video device 'ferin'", [](R &r) { r.vtr->videoDeviceClose(); r.video.opens = false; r.vtr->videoDeviceOpen(); }},
{3, engineFile, "STM: %1, CACHE: %2, RDEV: %3, WDEV: %4", "STM: 0, CACHE: 0, RDEV: 0, WDEV: 0", [](R &r) { r.vtr->logStats(); }},
{3, engineFile, "VIDEO DEVICE: Setup for record\\n", "VIDEO DEVICE: Setup for record", starts},
{1, engineFile, "Video device failed to setup.\\n", "Video device failed to setup.", refusesSetup},
{3, engineFile, "VIDEO DEVICE: Setup for playback\\n", "VIDEO DEVICE: Setup for playback", plays},
{3, engineFile, "VIDEO DEVICE: Setup for shutdown\\n", "VIDEO DEVICE: Setup for shutdown", shutsDown},
{2, engineFile, "VIDEO DEVICE: Device is already in setup\\n", "VIDEO DEVICE: Device is already in setup", [](R &r) { r.vtr->start(); r.vtr->setupVideoDeviceForRecord(); }},
{3, engineFile, "VIDEO DEVICE: Setup is current, no need to change it\\n", "VIDEO DEVICE: Setup is current, no need to change it", records},
{3, engineFile, "VIDEO DEVICE: Setup Started\\n", "VIDEO DEVICE: Setup Started", starts},
{1, engineFile, "VIDEO DEVICE: Initial Setup Error %1", "VIDEO DEVICE: Initial Setup Error 5", refusesSetup},
{1, engineFile, "VIDEO DEVICE: Setup Error %1", "VIDEO DEVICE: Setup Error 5", [](R &r) { r.video.setups.push_back({.error = OrbError(5)}); starts(r); }},
{3, engineFile, "VIDEO DEVICE: Setup is Done\\n", "VIDEO DEVICE: Setup is Done", starts},
{3, engineFile, "VIDEO DEVICE: Device is busy.  Defer reset in mode %1 - %2", "VIDEO DEVICE: Device is busy.  Defer reset in mode Startup - VR 0 VW 0 SC 0 [scripted] vdev flush", [](R &r) { r.video.flushes.push_back({.afterMs = ScriptedVideo::held}); r.vtr->videoDeviceFlush(); r.invoke("videoDeviceReset"); }},
{3, engineFile, "VIDEO DEVICE: Reset in mode %1", "VIDEO DEVICE: Reset in mode Play", plays},
{1, engineFile, "Playback stopped due to dropped frame", "Playback stopped due to dropped frame", [](R &r) { dropsInPlay(r, true); }},
{1, engineFile, "Playback continued after dropped frame", "Playback continued after dropped frame", [](R &r) { dropsInPlay(r, false); }},
{1, engineFile, "Recording stopped due to dropped frame", "Recording stopped due to dropped frame", [](R &r) { records(r); r.video.dropFrame(); }},
{1, engineFile, "Read from hardware failed with %d\\n", "Read from hardware failed with 5", [](R &r) { r.startUp(); r.video.reportReadFailed(OrbError(5)); }},
{1, engineFile, "Write to hardware failed with %d\\n", "Write to hardware failed with 5", [](R &r) { r.video.reportWriteFailed(OrbError(5)); }},
{3, engineFile, "VIDEO DEVICE: Flush Complete\\n", "VIDEO DEVICE: Flush Complete", [](R &r) { r.vtr->videoDeviceFlush(); r.run(100); }},
{3, engineFile, "Input %1 Changed to %2 while in %3", "Input 0 Changed to invalid while in Standby Off", [](R &r) { r.startUp(); r.changeInput(false); }},
{1, engineFile, "Failed to find loss of video file for %1", "Failed to find loss of video file for 640x480p 25/1 ImageProRes422", [](R &r) { r.startUp(); r.video.changeInput(0, R::inputState(R::imageDesc(640, 480, 25, 1))); r.run(1000); }},
{3, engineFile, "Loss of video clip: %1", "Loss of video clip: /usr/local/share/media/prores_422/loss_of_video_1080p_422.mov", starts},

// Settings
{3, engineFile, "Encode Format", "Set Encode Format: SuperTimecode", setSettings},
{3, engineFile, "Video Input Source", "Set Video Input Source: SuperTimecode", setSettings},
{3, engineFile, "Audio Input Source", "Set Audio Input Source: SuperTimecode", setSettings},
{3, engineFile, "Audio Input Level", "Set Audio Input Level: SuperTimecode", setSettings},
{3, engineFile, "Sync Source", "Set Sync Source: SuperTimecode", setSettings},
{3, engineFile, "Set VSG Format: %1", "Set VSG Format: 1920x1080p 25/1 ImageProRes422", setSettings},
{3, engineFile, "VSG Mode", "Set VSG Mode: SuperTimecode", setSettings},
{3, engineFile, "ASG Mode", "Set ASG Mode: SuperTimecode", setSettings},
{3, engineFile, "Camera Input", "Set Camera Input: SuperTimecode", setSettings},
{3, engineFile, "Video In Convert", "Set Video In Convert: SuperTimecode", setSettings},
{3, engineFile, "Video Out Convert", "Set Video Out Convert: SuperTimecode", setSettings},
{3, engineFile, "Video Output Type", "Set Video Output Type: SuperTimecode", setSettings},
{3, engineFile, "Video Output Route", "Set Video Output Route: SuperTimecode", setSettings},
{3, engineFile, "Super Out", "Set Super Out: SuperTimecode", setSettings},
{3, engineFile, "Set TCG Source: %1", "Set TCG Source: SuperTimecode", setSettings},
{3, engineFile, "Force PSF Output", "Set Force PSF Output: Enabled", setSettings},
{3, engineFile, "Force PSF Encode", "Set Force PSF Encode: Enabled", setSettings},
{3, engineFile, "VFR", "Set VFR: Enabled", setSettings},
{3, engineFile, "Interval Record", "Set Interval Record: Enabled", setSettings},
{3, engineFile, "Stop On Frame Drop", "Set Stop On Frame Drop: Enabled", setSettings},
{3, engineFile, "Stop On Loss Of Video", "Set Stop On Loss Of Video: Disabled", setSettings},
{3, engineFile, "Record on Running Timecode: %s\\n", "Record on Running Timecode: Enabled", setSettings},
{2, engineFile, "Failed to set audio channels to %d.  Unsupported number of channels\\n", "Failed to set audio channels to 4.  Unsupported number of channels", setSettings},
{3, engineFile, "Set Audio Channels: %d\\n", "Set Audio Channels: 4", setSettings},
{3, engineFile, "Set Record Interval: %1", "Set Record Interval: 5", setSettings},
{3, engineFile, "Set Record Interval Time: %1", "Set Record Interval Time: 2", setSettings},
{3, engineFile, "Set TC value: %1", "Set TC value: 01:02:03:04", setSettings},
{3, engineFile, "Set TC Drop Frame: %s\\n", "Set TC Drop Frame: Enabled", setSettings},
{3, engineFile, "Reel Name: %1", "Reel Name: A12", setSettings},
{1, engineFile, "Encode format", "Encode format is invalid", refuseInvalidIds},
{1, engineFile, "Video input source", "Video input source is invalid", refuseInvalidIds},
{1, engineFile, "Audio input source", "Audio input source is invalid", refuseInvalidIds},
{1, engineFile, "Audio input level", "Audio input level is invalid", refuseInvalidIds},
{1, engineFile, "Sync source", "Sync source is invalid", refuseInvalidIds},

// The console's help, in order
{3, consoleFile, "Space  Toggle Play/Still\\n", "Space  Toggle Play/Still", openConsole},
{3, consoleFile, "R      Rewind\\n", "R      Rewind", openConsole},
{3, consoleFile, "F      Fast Forward\\n", "F      Fast Forward", openConsole},
{3, consoleFile, "S      Stop\\n", "S      Stop", openConsole},
{3, consoleFile, "N      Step to next frame\\n", "N      Step to next frame", openConsole},
{3, consoleFile, "P      Step to previous frame\\n", "P      Step to previous frame", openConsole},
{3, consoleFile, "O      Standby Off (E-E mode)\\n", "O      Standby Off (E-E mode)", openConsole},
{3, consoleFile, "C      Record\\n", "C      Record", openConsole},
{3, consoleFile, "V      Toggle Camera Record\\n", "V      Toggle Camera Record", openConsole},
{3, consoleFile, "M      Toggle Debug Metadata\\n", "M      Toggle Debug Metadata", openConsole},
{3, consoleFile, "+/-    Varispeed\\n", "+/-    Varispeed", openConsole},
};
// clang-format on

/// Literals without a row of their own, and why.
struct OtherRow {
    const char *literal;
    const char *why;
};

constexpr OtherRow others[] = {
    {"Set %1: %2", "filled by the settings' names"},
    {"Set %s: %s\\n", "filled by the settings' names"},
    {"%s is invalid\\n", "filled by the settings' names"},
    {"%s\\n", "filled by the dropped frames' texts"},
    {"%s", "filled by the console's help"},
    {"Benchmark file opened: %1", "proven with the file"},
    {"Failed to open benchmark file: %1", "proven with the file"},
    {"Unhandled camera trigger in mode %1", "a guard: triggers come in two modes only"},
    {"Pending write when trying to open.  WTF?\\n", "a guard: a held frame is taken first"},
    {"Pending frame isn't valid\\n", "a guard: only good frames are held"},
    {"There is still %d frames in the cache\\n", "a guard: an open stream takes them all"},
};

struct AlarmRow {
    int id;
    int level;
    const char *text;
    Scenario scenario;
};

// clang-format off
const AlarmRow alarmRows[] = {
// id   level text                                               scenario
{1904, 2, "Playback stopped due to dropped frame",           [](R &r) { dropsInPlay(r, true); }},
{1904, 1, "Playback continued after dropped frame",          [](R &r) { dropsInPlay(r, false); }},
{1904, 2, "Recording stopped due to dropped frame",          [](R &r) { records(r); r.video.dropFrame(); }},
{1907, 2, "Recording stopped due to loss of video",          [](R &r) { losesVideo(r, true); }},
{1907, 1, "Loss of video during record, recording continued", [](R &r) { losesVideo(r, false); }},
{1905, 2, "Invalid Loss Of Video image buffer",              [](R &r) { losesVideo(r, false); }},
};
// clang-format on

QString readSource(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QStringList sourcePaths()
{
    QStringList paths;
    for (const char *folder : {"transport", "aux"}) {
        const QDir dir(QStringLiteral(RV_SOURCE_DIR "/") + QLatin1String(folder));
        const QStringList names = dir.entryList({"*.cpp"}, QDir::Files, QDir::Name);
        for (const QString &name : names)
            paths << dir.filePath(name);
    }
    return paths;
}

/// The first literal of every call of one of \a functions, its parts joined.
QStringList literalsIn(const QString &source, const char *functions)
{
    // Up to the literal, a call has names, numbers and enclosing calls only.
    const QString one = "\"((?:[^\"\\\\]|\\\\.)*)\"";
    const QString several = "((?:\"(?:[^\"\\\\]|\\\\.)*\"\\s*)+)";
    const QRegularExpression call("\\b(?:" + QLatin1String(functions) + ")\\([^\";{}]*?" + several);
    const QRegularExpression part(one);
    QStringList literals;
    for (auto found = call.globalMatch(source); found.hasNext();) {
        QString joined;
        const QString parts = found.next().captured(1);
        for (auto piece = part.globalMatch(parts); piece.hasNext();)
            joined += piece.next().captured(1);
        literals << joined;
    }
    return literals;
}

} // namespace

/// Every log text and every alarm of the engine and of what stands beside it, to the letter.
class TestEngineTexts : public QObject
{
    Q_OBJECT

private slots:
    void aTextIsLoggedToTheLetter_data();
    void aTextIsLoggedToTheLetter();
    void theConsoleLogsNothingButItsHelp();
    void aFailedStatementIsLoggedWithItsText();
    void anAlarmIsRaisedToTheLetter_data();
    void anAlarmIsRaisedToTheLetter();
    void referenceAlarmsHaveNoText();
    void noTextInTheSourceIsMissingHere();
    void noRowIsLeftOver();
    void loaderAndTimecodeTriggerLogNothing();

private:
    static QList<Record> recordsOf(Scenario scenario);
};

QList<Record> TestEngineTexts::recordsOf(Scenario scenario)
{
    QList<Record> records;
    EngineRig rig;
    const int sink = OrbLog::defaultLog()->addSink(
        [&](int level, const QString &file, int line, const QString &text) {
            records << Record{level, file, line, text};
        });
    scenario(rig);
    OrbLog::defaultLog()->removeSink(sink);
    return records;
}

void TestEngineTexts::aTextIsLoggedToTheLetter_data()
{
    QTest::addColumn<int>("row");
    for (int row = 0; row < int(std::size(rows)); ++row)
        QTest::addRow("%s", rows[row].text) << row;
}

void TestEngineTexts::aTextIsLoggedToTheLetter()
{
    QFETCH(const int, row);
    const TextRow &wanted = rows[row];
    const QList<Record> records = recordsOf(wanted.scenario);
    const QString text = QString::fromUtf8(wanted.text);
    const auto record = std::ranges::find(records, text, &Record::text);
    QVERIFY(record != records.end());
    QCOMPARE(record->level, wanted.level);
    QCOMPARE(record->file, QString::fromLatin1(wanted.file));
    QVERIFY(record->line > 0);
}

void TestEngineTexts::theConsoleLogsNothingButItsHelp()
{
    QStringList logged;
    for (const Record &record : recordsOf(openConsole))
        logged << record.text;
    QStringList wanted;
    for (const TextRow &row : rows)
        if (row.file == consoleFile)
            wanted << QString::fromLatin1(row.text);
    QCOMPARE(logged, wanted);
}

void TestEngineTexts::aFailedStatementIsLoggedWithItsText()
{
    const QList<Record> records = recordsOf([](EngineRig &rig) {
        static constexpr char logFile[] = "vtrobject.cpp";
        QObject *const vtr = rig.vtr.get();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("QObject::connect: No such signal.*"));
        ORB_TESTED(QObject::connect(vtr, SIGNAL(noSuch()), vtr, SLOT(process())));
    });
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().level, 2);
    QCOMPARE(records.first().file, QString("vtrobject.cpp"));
    QCOMPARE(records.first().text,
             QString("FAILED: QObject::connect(vtr, SIGNAL(noSuch()), vtr, SLOT(process()))"));
}

void TestEngineTexts::anAlarmIsRaisedToTheLetter_data()
{
    QTest::addColumn<int>("row");
    for (int row = 0; row < int(std::size(alarmRows)); ++row)
        QTest::addRow("%d %s", alarmRows[row].id, alarmRows[row].text) << row;
}

void TestEngineTexts::anAlarmIsRaisedToTheLetter()
{
    QFETCH(const int, row);
    const AlarmRow &wanted = alarmRows[row];
    EngineRig rig;
    wanted.scenario(rig);
    const QString text = QString::fromLatin1(wanted.text);
    const auto alarm = std::ranges::find_if(
        rig.alarms, [&](const OrbAlarm &raised) { return raised.text() == text; });
    QVERIFY(alarm != rig.alarms.end());
    QCOMPARE(alarm->id(), OrbId(wanted.id));
    QCOMPARE(int(alarm->level()), wanted.level);
    QCOMPARE(alarm->file(), QString("vtrobject.cpp"));
    QVERIFY(alarm->line() > 0);
}

void TestEngineTexts::referenceAlarmsHaveNoText()
{
    EngineRig rig;
    rig.run(1100);
    QVERIFY(!rig.referenceAlarms.isEmpty());
    for (const OrbAlarm &alarm : rig.referenceAlarms) {
        QCOMPARE(alarm.text(), QString());
        QCOMPARE(alarm.file(), QString("vtrobject.cpp"));
        QVERIFY(alarm.line() > 0);
    }
}

void TestEngineTexts::noTextInTheSourceIsMissingHere()
{
    QSet<QString> known;
    for (const TextRow &row : rows)
        known << QString::fromLatin1(row.literal);
    for (const OtherRow &row : others)
        known << QString::fromLatin1(row.literal);
    QSet<QString> alarms;
    for (const AlarmRow &row : alarmRows)
        alarms << QString::fromLatin1(row.text);
    int found = 0;
    for (const QString &path : sourcePaths()) {
        const QString source = readSource(path);
        for (const QString &literal : literalsIn(
                 source, "orbLogOutput|logText|setIdSetting|setFlagSetting|isIdSettingValid")) {
            ++found;
            QVERIFY2(known.contains(literal), qPrintable(path + ": " + literal));
        }
        for (const QString &literal : literalsIn(source, "raiseAlarm"))
            QVERIFY2(alarms.contains(literal), qPrintable(path + ": " + literal));
    }
    QVERIFY2(found > 100, "the sources were not read");
}

void TestEngineTexts::noRowIsLeftOver()
{
    QString all;
    static const QRegularExpression joint("\"\\s*\\n\\s*\"");
    for (const QString &path : sourcePaths())
        all += readSource(path).remove(joint);
    for (const TextRow &row : rows)
        QVERIFY2(all.contains('"' + QString::fromLatin1(row.literal) + '"'), row.literal);
    for (const OtherRow &row : others)
        QVERIFY2(all.contains('"' + QString::fromLatin1(row.literal) + '"'), row.why);
    for (const AlarmRow &row : alarmRows)
        QVERIFY2(all.contains('"' + QString::fromLatin1(row.text) + '"'), row.text);
}

void TestEngineTexts::loaderAndTimecodeTriggerLogNothing()
{
    for (const char *name : {"singleframe.cpp", "timecodetrigger.cpp"}) {
        const QString source =
            readSource(QStringLiteral(RV_SOURCE_DIR "/aux/") + QLatin1String(name));
        QVERIFY(!source.isEmpty());
        QVERIFY(!source.contains("orbLogOutput"));
        QVERIFY(!source.contains("OrbLogStream"));
    }
}

SIM_TEST_MAIN(TestEngineTexts)
#include "tst_engine_texts.moc"
