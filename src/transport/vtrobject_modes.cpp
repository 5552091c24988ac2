// The modes, and how one becomes another.
//
// A request only puts the new mode into _state and marks clean-up and begin as not done. The passes
// do the rest: the clean-up of the mode published last, then the begin of the newest request, each
// as soon as the toolkit is idle, then the frames of the mode, then the news. A pass is never
// entered from inside one: a frame that ends a recording, or a receiver of a signal, only asks for
// the mode, and the next pass follows at once behind the one that runs.

#include "transport/vtrobject.h"

#include "aux/timecodetrigger.h"
#include "liborb/orblog.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"

#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <iterator>
#include <utility>

struct VtrObject::ModeSteps {
    VtrState::Mode mode;
    void (VtrObject::*begin)();
    void (VtrObject::*process)();
    void (VtrObject::*cleanup)();
};

/// Null for Startup, which does nothing.
const VtrObject::ModeSteps *VtrObject::stepsOf(VtrState::Mode mode)
{
    using V = VtrObject;
    // clang-format off
    static constexpr ModeSteps rows[] = {
        // mode                begin                     process                   clean-up
        {VtrState::Shutdown,   &V::beginModeShutdown,   &V::processModeShutdown, &V::cleanupModeShutdown},
        {VtrState::StandbyOff, &V::beginModeStandbyOff, &V::processModeRecord,   &V::cleanupModeStandbyOff},
        {VtrState::Standby,    &V::beginModeStandby,    &V::processModeStandby,  &V::cleanupModeStandby},
        {VtrState::Play,       &V::beginModePlay,       &V::processModePlay,     &V::cleanupModePlay},
        {VtrState::Record,     &V::beginModeRecord,     &V::processModeRecord,   &V::cleanupModeRecord},
    };
    // clang-format on
    const auto row = std::ranges::find(rows, mode, &ModeSteps::mode);
    return row == std::end(rows) ? nullptr : &*row;
}

bool VtrObject::canProcess() const
{
    if (_vdev->isInSetup() || _vdev->isFlushing() || _stm->isOpening() || _stm->isClosing())
        return false;
    return !(_videoDeviceResetTimer->isActive() && _state.isInModePlay());
}

/// A receiver that answers every news with a command has to wait for the next tick at some time.
void VtrObject::process()
{
    constexpr int mostPasses = 8;
    _isPassWanted = true;
    if (_isInPass)
        return;
    _isInPass = true;
    for (int i = 0; i < mostPasses && std::exchange(_isPassWanted, false); ++i)
        pass();
    _isInPass = false;
}

void VtrObject::pass()
{
    if (!canProcess())
        return;
    if (hasPendingModeChange() && !handleModeSwitch())
        return;
    if (canProcess() && !_isStreamNewsDue) {
        _processedMode = _state.mode();
        if (const ModeSteps *steps = stepsOf(_processedMode))
            (this->*steps->process)();
    }
    publish();
}

/// A mode asked for inside this pass and not cleaned up for yet is news of the next one: until then
/// the published mode is the one to clean up.
void VtrObject::publish()
{
    if (!_isCleanupDone)
        return;
    const VtrState newState = _state;
    const VtrState oldState = std::exchange(_previousState, newState);
    if (newState != oldState)
        emit stateChanged(oldState, newState);
}

/// The mode published last is cleaned up. One that was overtaken within its first pass was never
/// published; the stream it opened is its own all the same.
bool VtrObject::handleModeSwitch()
{
    if (!_isCleanupDone) {
        const VtrState::Mode left = _stm->isClosed() ? _previousState.mode() : _processedMode;
        if (const ModeSteps *steps = stepsOf(left))
            (this->*steps->cleanup)();
        _isCleanupDone = true;
    }
    if (!canProcess())
        return false;
    if (!_isBeginDone) {
        if (const ModeSteps *steps = stepsOf(_state.mode()))
            (this->*steps->begin)();
        _isBeginDone = true;
    }
    if (!canProcess())
        return false;
    logText(3, QStringLiteral("Mode changed from %1 to %2")
                   .arg(_previousState.modeName(), _state.modeName()));
    return true;
}

void VtrObject::setNewMode(VtrState::Mode mode)
{
    const VtrState::Mode oldMode = _state.mode();
    if (oldMode == mode)
        return;
    if (hasPendingModeChange()) {
        orbLogOutput(2, logFile, __LINE__, "Mode change is pending\n");
        return;
    }
    _state.setMode(mode);
    _isBeginDone = false;
    _isCleanupDone = false;
    emit modeChanged(oldMode, mode);
}

bool VtrObject::allowModeChange(VtrState::Mode mode) const
{
    if (!hasPendingModeChange())
        return true;
    logText(2, QStringLiteral("Can't enter mode %1.  Pending mode change from %2 to %3")
                   .arg(VtrState::modeName(mode), _previousState.modeName(), _state.modeName()));
    return false;
}

void VtrObject::handleVBI(const OrbVbiInfo &info)
{
    const bool wasValid = currentInputTimecode().isValid();
    _lastVbi = info;
    const OrbTimecode input = currentInputTimecode();
    if (input.isValid() != wasValid)
        emit timecodeInputValidChanged(input.isValid());
    _timecodeTrigger->setTimecode(input);
    process();
    emit vbi(info);
}

// Standby Off -------------------------------------------------------------------------------------

void VtrObject::standbyOff()
{
    if (!allowModeChange(VtrState::StandbyOff) || _state.isInModeStandbyOff())
        return;
    orbLogOutput(3, logFile, __LINE__, "** STANDBY OFF\n");
    setNewMode(VtrState::StandbyOff);
    process();
}

/// Input to output goes the way a recording goes.
void VtrObject::beginModeStandbyOff()
{
    orbLogOutput(3, logFile, __LINE__, "Begin Mode Standby Off\n");
    setupVideoDeviceForRecord();
    setSpeed(0.0);
    _vdev->setProperty(OrbId(OrbIdPropPlayMode), int(OrbIdPlayModeEE));
    jamTCG();
}

// Standby -----------------------------------------------------------------------------------------

/// Deliberately nothing: only the console's stop key asks for Standby.
void VtrObject::beginModeStandby()
{
    orbLogOutput(1, logFile, __LINE__, "Standby mode has not been implemented.\n");
}

// Shutdown ----------------------------------------------------------------------------------------

void VtrObject::beginModeShutdown()
{
    orbLogOutput(3, logFile, __LINE__, "Shutting down VtrObject...\n");
    setupVideoDeviceForShutdown();
    _stm->close();
}

void VtrObject::processModeShutdown()
{
    if (_vdev->isInSetup() || !_stm->isClosed() || _isShutdownComplete)
        return;
    orbLogOutput(3, logFile, __LINE__, "VtrObject shutdown complete...\n");
    _isShutdownComplete = true;
    emit shutdownIsComplete();
}

void VtrObject::cleanupModeShutdown()
{
    orbLogOutput(1, logFile, __LINE__,
                 "Something is wrong.  Shouldn't ever come out of shutdown mode\n");
}

// What it is busy with ----------------------------------------------------------------------------

QString VtrObject::stateToString() const
{
    const std::pair<bool, const char *> conditions[] = {
        {_vdev->isInSetup(), "vdev setup"},
        {_vdev->isFlushing(), "vdev flush"},
        {_stm->isOpening(), "stm open"},
        {_stm->isClosing(), "stm close"},
        {_videoDeviceResetTimer->isActive() && _state.isInModePlay(), "vdev reset"},
    };
    QStringList busy;
    for (const auto &[holds, name] : conditions)
        if (holds)
            busy << QLatin1String(name);
    return QStringLiteral("VR %1 VW %2 SC %3 [%4] %5")
        .arg(QString::number(_vdev->framesReadable()), QString::number(_vdev->framesWritable()),
             QString::number(_cache->framesInCache()), _vdev->stateAsString(),
             busy.join(QStringLiteral(", ")));
}

void VtrObject::logDebugStats()
{
    orbLogOutput(3, logFile, __LINE__, "PMode %s CMode %s Setup %s Flush %s\n",
                 qPrintable(_previousState.modeName()), qPrintable(_state.modeName()),
                 _vdev->isInSetup() ? "Y" : "N", _vdev->isFlushing() ? "Y" : "N");
}
