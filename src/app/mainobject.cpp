#include "app/mainobject.h"

#include "alarms/alarmhandler.h"
#include "app/formatmap.h"
#include "app/mainobject_log.h"
#include "app/sparemedium.h"
#include "app/transportstate.h"
#include "aux/keyboardtransport.h"
#include "config/configinterface.h"
#include "config/configupdater.h"
#include "libconfig/paramdescriptor.h"
#include "liborb/orbconnect.h"
#include "libvanta/clipfinder.h"
#include "media/mediamanager.h"
#include "transport/vtrobject.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <iterator>

// The life of the controller. It is born with everything it needs, in a fixed order: the store
// first, the engine in the middle, the console and the alarms last; then it replays the settings,
// obeys the command line and starts the engine. While it lives it passes on what the engine says.
// At the end it waits for the engine to leave the device and the media in order.

namespace
{

/// Replayed at the start, in this order. 0x0f01000a stands twice and is delivered twice,
/// deliberately.
constexpr quint32 initialParams[] = {
    0x7b03050a, 0x7b01010a, 0x7b010a0a, 0x0c020000, 0x0f02000a, 0x0e01000a, 0x0201000a, 0x0202000a,
    0x02030000, 0x0601000a, 0x0802000a, 0x2901000a, 0x2902000a, 0x2903000a, 0x0d01000a, 0x0d03000a,
    0x0d04000a, 0x0f01000a, 0x0104000a, 0x0105000a, 0x0101000a, 0x0103000a, 0x0106000a, 0x0108000a,
    0x0109000a, 0x0900000a, 0x0901000a, 0x0902000a, 0x04010000, 0x0800020a, 0x0f04000a, 0x1100000a,
    0x0803000a, 0x0d02000a, 0x2000000a, 0x0f01000a,
};
static_assert(std::size(initialParams) == 36);

constexpr int longestSleepMs = 1000;

} // namespace

MainObject::MainObject(bool console, QObject *parent) : QObject(parent)
{
    _config = new ConfigInterface(this);
    ORB_TESTED(connect(_config,
                       SIGNAL(paramChanged(quint32, const QVariant &, const OrbTimeStamp &)), this,
                       SLOT(configParamChanged(quint32, const QVariant &, const OrbTimeStamp &))));
    _configUpdater = new ConfigUpdater(_config, this);
    _clipFinder = new ClipFinder(_config->configObject());
    _mediaManager = new MediaManager(this);
    wireMediaManager();
    _vtr = new VtrObject(this);
    ORB_TESTED(
        connect(QCoreApplication::instance(), SIGNAL(aboutToQuit()), this, SLOT(shutdown())));
    wireEngine();
    if (console) {
        _kbtrans = new KeyboardTransport(this);
        wireConsole();
    }
    _config->set(eParamTransportState, 1);
    _config->set(eParamTransportRunning, 1);
    _alarmHandler = new AlarmHandler(this);
    _alarmHandler->setConfigInterface(_config);
    wireAlarms();
    new SpareMedium(this, _config, _vtr, _mediaManager, _clipFinder);
    loadInitialState();
    parseCommandLine();
    _vtr->start();
}

MainObject::~MainObject()
{
    delete _clipFinder;
    _clipFinder = nullptr;
}

// clang-format off
void MainObject::wireMediaManager()
{
    ORB_TESTED(connect(_mediaManager, SIGNAL(shouldRolloverNow()), this, SLOT(startRollover())));
    ORB_TESTED(connect(_mediaManager, SIGNAL(rolloverCompleted(bool, const QString &, const QString &)), this, SLOT(finishRollover(bool, const QString &, const QString &))));
    ORB_TESTED(connect(_mediaManager, SIGNAL(storageInUse(bool)), _configUpdater, SLOT(setStorageInUse(bool))));
    ORB_TESTED(connect(_mediaManager, SIGNAL(stopRecordNow()), this, SLOT(stopRecordNow())));
}

/// The request signals carry references that the slots fill in: all of these are direct.
void MainObject::wireEngine()
{
    ORB_TESTED(connect(_vtr, SIGNAL(vbi(const OrbVbiInfo &)), this, SLOT(vbi(const OrbVbiInfo &))));
    ORB_TESTED(connect(_vtr, SIGNAL(streamIsOpen(const OrbError &, const OrbStreamInfo &)), this, SLOT(vtrStreamIsOpen(const OrbError &, const OrbStreamInfo &))));
    ORB_TESTED(connect(_vtr, SIGNAL(streamIsClosed()), this, SLOT(vtrStreamIsClosed())));
    ORB_TESTED(connect(_vtr, SIGNAL(stateChanged(const VtrState &, const VtrState &)), this, SLOT(vtrStateChanged(const VtrState &, const VtrState &))));
    ORB_TESTED(connect(_vtr, SIGNAL(modeChanged(VtrState::Mode, VtrState::Mode)), this, SLOT(vtrModeChanged(const VtrState::Mode, VtrState::Mode))));
    ORB_TESTED(connect(_vtr, SIGNAL(inputFormatChanged(int, const OrbVideoState &)), this, SLOT(vtrInputFormatChanged(int, const OrbVideoState &))));
    ORB_TESTED(connect(_vtr, SIGNAL(requestRecordStreamDesc(QVariant &)), this, SLOT(generateRecordStreamDesc(QVariant &))));
    ORB_TESTED(connect(_vtr, SIGNAL(requestPlaybackStreamDesc(QVariant &, int&)), this, SLOT(generatePlaybackStreamDesc(QVariant &, int&))));
    ORB_TESTED(connect(_vtr, SIGNAL(requestRecordInhibit(OrbId &)), this, SLOT(shouldInhibitRecord(OrbId &))));
    ORB_TESTED(connect(_vtr, SIGNAL(firmwareLoading(const QString &, bool)), this, SLOT(firmwareLoading(const QString &, bool))));
    ORB_TESTED(connect(_vtr, SIGNAL(videoDeviceSetupChanged(const OrbVideoDeviceSetup &)), this, SLOT(vtrVideoDeviceSetupChanged(const OrbVideoDeviceSetup &))));
    ORB_TESTED(connect(_vtr, SIGNAL(raiseVFRAlarm(bool)), this, SLOT(vtrRaiseVFRAlarm(bool))));
    ORB_TESTED(connect(_vtr, SIGNAL(recordFailedToStart(OrbId &)), this, SLOT(recordFailedToStart(OrbId &))));
    ORB_TESTED(connect(_vtr, SIGNAL(storageInUse(bool)), _mediaManager, SLOT(setStorageInUse(bool))));
}

void MainObject::wireConsole()
{
    ORB_TESTED(connect(_kbtrans, SIGNAL(quit()), QCoreApplication::instance(), SLOT(quit())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(play(double)), _vtr, SLOT(play(double))));
    ORB_TESTED(connect(_kbtrans, SIGNAL(stop()), _vtr, SLOT(stop())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(still()), _vtr, SLOT(still())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(rewind()), _vtr, SLOT(rewind())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(fastfwd()), _vtr, SLOT(fastfwd())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(step(int)), _vtr, SLOT(step(int))));
    ORB_TESTED(connect(_kbtrans, SIGNAL(record()), _vtr, SLOT(record())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(standbyOff()), _vtr, SLOT(standbyOff())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(toggleMeta()), this, SLOT(toggleMeta())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(cameraRecord()), this, SLOT(cameraRecord())));
    ORB_TESTED(connect(_kbtrans, SIGNAL(refreshed()), this, SLOT(transportRefreshed())));
}

void MainObject::wireAlarms()
{
    ORB_TESTED(connect(this, SIGNAL(alarmTriggered(const OrbAlarm &)), _alarmHandler, SLOT(handleAlarm(const OrbAlarm &))));
    ORB_TESTED(connect(_vtr, SIGNAL(alarmTriggered(const OrbAlarm &)), _alarmHandler, SLOT(handleAlarm(const OrbAlarm &))));
    ORB_TESTED(connect(_vtr, SIGNAL(stateChanged(const VtrState &, const VtrState &)), _alarmHandler, SLOT(stateChanged(const VtrState &, const VtrState &))));
}
// clang-format on

void MainObject::loadInitialState()
{
    _config->loadParams(initialParams, static_cast<int>(std::size(initialParams)));
    reloadClips();
}

void MainObject::reportAlarm(int id, int level, const QString &text, int line)
{
    emit alarmTriggered(OrbAlarm(OrbId(id), level, text, QString::fromLatin1(logFile), line));
}

void MainObject::updateTransporterState(const VtrState &state)
{
    switch (state.mode()) {
    case VtrState::Startup:
    case VtrState::StandbyOff:
        _config->set(eParamTransportState, 1);
        return;
    case VtrState::Shutdown:
        return; // only shutdown() says that it is over
    case VtrState::Standby:
        _config->set(eParamTransportState, 15);
        return;
    case VtrState::Record:
        _config->set(eParamTransportState, 2);
        return;
    case VtrState::Play:
        if (const auto number = transportStateOfSpeed(state.speed()))
            _config->set(eParamTransportState, *number);
        else
            orbLogOutput(2, logFile, __LINE__, "Unhandled speed: %lf\n", state.speed());
        return;
    }
    orbLogOutput(2, logFile, __LINE__, "Unhandled mode: %d\n", static_cast<int>(state.mode()));
}

void MainObject::vtrStateChanged(const VtrState &oldState, const VtrState &newState)
{
    const bool bothPlay = oldState.isInModePlay() && newState.isInModePlay();
    if (oldState.mode() != newState.mode() || (bothPlay && oldState.speed() != newState.speed()))
        updateTransporterState(newState);
}

void MainObject::vtrModeChanged(const VtrState::Mode, const VtrState::Mode)
{
    updateTransporterState(_vtr->state());
}

void MainObject::vbi(const OrbVbiInfo &info)
{
    const OrbMetadataHash meta = _vtr->currentFrameMetadata();
    const VtrState state = _vtr->state();
    if (state.isInModePlay() || state.isInModeRecord())
        _lastTimecode = info.tcgTimecode();
    _configUpdater->setCurrentTimecode(_lastTimecode);
    _configUpdater->setInputTimecode(_vtr->currentInputTimecode());

    const auto index = meta.valueFor(OrbId(OrbIdPlayListIndex)).value<OrbPlayListIndex>();
    if (!index.isValid())
        return;
    setCurrentClip(index.entry().name());
    _configUpdater->setCurrentPlayListIndex(index.entryIndex());
}

void MainObject::vtrInputFormatChanged(int inputNumber, const OrbVideoState &state)
{
    if (inputNumber != 0)
        return;
    if (state.recInhibit().isValid()) {
        _config->set(eParamRecordFormat, 2);
    } else {
        if (state.isValid() && _vtr->state().isInModeRecord())
            reportAlarm(OrbIdAlarmLossOfVideo, OrbAlarm::Error,
                        QStringLiteral("Input format changed during record, recording stopped"));
        _config->set(eParamRecordFormat,
                     state.isValid() ? imageDescToRecordFormat(state.captureImageDesc()) : 0);
    }
    _config->set(eParamInputFormat,
                 state.isValid() ? imageDescToInputFormat(state.inputImageDesc()) : 0);
}

void MainObject::vtrRaiseVFRAlarm(bool state)
{
    reportAlarm(OrbIdAlarmVariableFrameRate, state ? OrbAlarm::Error : OrbAlarm::Clear, QString());
}

void MainObject::stopRecordNow()
{
    if (!_vtr || !_vtr->state().isInModeRecord())
        return;
    orbLogOutput(3, logFile, __LINE__, "Stopping record.\n");
    _vtr->standbyOff();
}

/// Exists so that the signal has a receiver.
void MainObject::recordFailedToStart(OrbId &) {}

void MainObject::transportRefreshed()
{
    if (!_vtr || !_kbtrans)
        return;
    _kbtrans->setVtrState(_vtr->state());
    _kbtrans->setStatus(_vtr->stateToString());
    _kbtrans->setCurrentTimecode(_vtr->lastVBI().tcgTimecode());
}

void MainObject::toggleMeta()
{
    if (!_vtr || !_kbtrans)
        return;
    _insertMeta = !_insertMeta;
    logText(3, QStringLiteral("_insertMeta = %1\n").arg(static_cast<int>(_insertMeta)));
}

/// The flag turns over whether it is stamped or not, deliberately.
void MainObject::cameraRecord()
{
    if (!_vtr || !_kbtrans)
        return;
    static bool isRecording = false;
    isRecording = !isRecording;
    if (_insertMeta)
        _vtr->debugFrameMetadata(OrbMetadata(OrbId(OrbIdCameraRecordFlag), isRecording));
}

/// Waits for the engine however long it takes. A request that came while a mode change was pending
/// was dropped, so it is made again once that change is over; so it is when another command came
/// between.
void MainObject::shutdown()
{
    if (!_vtr)
        return;
    orbLogOutput(3, logFile, __LINE__, "Shutting down...\n");
    _vtr->shutdown();
    // The loop sleeps until there is something to do, but never longer than this.
    QTimer longestSleep;
    longestSleep.setTimerType(Qt::PreciseTimer);
    longestSleep.start(longestSleepMs);
    while (!_vtr->isShutdownComplete()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
        if (_vtr->state().mode() != VtrState::Shutdown && !_vtr->hasPendingModeChange())
            _vtr->shutdown();
    }
    delete _alarmHandler;
    _alarmHandler = nullptr;
    delete _vtr;
    _vtr = nullptr;
    _config->set(eParamTransportRunning, 0);
    _config->set(eParamTransportState, 20);
}
