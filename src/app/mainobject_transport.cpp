#include "app/mainobject.h"

#include "alarms/alarmhandler.h"
#include "app/mainobject_log.h"
#include "app/shuttle.h"
#include "transport/vtrobject.h"

#include <QCoreApplication>

// The transport command. Every key tells the alarm handler first, so that alarms that wait for it
// are raised even when the engine refuses. A command does nothing when its number is none of those
// below.

namespace
{

enum Command {
    Play = 1,
    Record = 3,
    Stop = 4,
    FastForward = 5,
    Rewind = 6,
    StepForward = 7,
    StepBack = 8,
    NextClip = 9,
    PreviousClip = 10,
    ShutDown = 15
};

} // namespace

void MainObject::transportCommand(int command, const VtrState &state)
{
    switch (command) {
    case Play:
        _alarmHandler->onPlayPressed();
        _vtr->play(1.0);
        break;
    case Record:
        _alarmHandler->onRecordPressed();
        recordCommand(state);
        break;
    case Stop:
        _alarmHandler->onStopPressed();
        stopCommand(state);
        break;
    case FastForward:
        _alarmHandler->onPlayPressed();
        if (const auto next = nextShuttleSpeed(state.speed(), 1))
            _vtr->play(*next);
        break;
    case Rewind:
        _alarmHandler->onPlayPressed();
        if (const auto next = nextShuttleSpeed(state.speed(), -1))
            _vtr->play(*next);
        break;
    case StepForward:
        _alarmHandler->onPlayPressed();
        _vtr->step(1);
        break;
    case StepBack:
        _alarmHandler->onPlayPressed();
        _vtr->step(-1);
        break;
    case NextClip:
        gotoClipByRelativeIndex(1);
        break;
    case PreviousClip:
        gotoClipByRelativeIndex(-1);
        break;
    case ShutDown:
        logText(3, QStringLiteral("Got shutdown from config, asking for program exit."));
        QCoreApplication::quit();
        break;
    default:
        break;
    }
}

void MainObject::recordCommand(const VtrState &state)
{
    if (state.cameraInput().isValid()) {
        orbLogOutput(2, logFile, __LINE__, "Ignoring record command due to camera data input\n");
        return;
    }
    _vtr->record();
}

/// A first stop from play pauses on the frame, a second one leaves to Standby Off, deliberately.
/// Under camera data input the camera owns the end of a recording.
void MainObject::stopCommand(const VtrState &state)
{
    if (!state.isInModeRecord()) {
        if (state.speedFlags().isStill())
            _vtr->standbyOff();
        else
            _vtr->still();
        return;
    }
    if (state.cameraInput().isValid()) {
        orbLogOutput(2, logFile, __LINE__,
                     "Ignoring stop command while in record due to camera data input\n");
        return;
    }
    _initialFrame = addLastRecordedClip(currentClip());
    _vtr->standbyOff();
}
