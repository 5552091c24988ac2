// The engine: birth, wiring, start and shutdown.
//
// Everything runs on the event loop. What moves the engine on are the vertical intervals of the
// device, the cache that has frames, a tick as the fall-back, and the commands themselves: each
// ends in process(), one pass (vtrobject_modes.cpp). Long operations of the toolkit start at once
// and end by a signal; until then canProcess() holds the passes back, and nobody waits.

#include "transport/vtrobject.h"

#include "aux/timecodetrigger.h"
#include "liborb/orbalarmcontroller.h"
#include "liborb/orbconnect.h"
#include "liborb/orblog.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"

#include <QTimer>

namespace {

constexpr int processPeriodMs = 500;
constexpr int alarmCheckPeriodMs = 1000;
constexpr int cacheFrames = 45;
constexpr int timecodeTriggerDelay = 4; ///< frames

} // namespace

VtrObject::VtrObject(QObject *parent) : QObject(parent)
{
    _alarmctl = new OrbAlarmController(this);
    ORB_TESTED(connect(_alarmctl, SIGNAL(alarmTriggered(const OrbAlarm &)), this,
                       SIGNAL(alarmTriggered(const OrbAlarm &))));

    _alarmCheckTimer = newTimer();
    ORB_TESTED(connect(_alarmCheckTimer, SIGNAL(timeout()), this, SLOT(checkForAlarms())));
    _alarmCheckTimer->start(alarmCheckPeriodMs);

    _timecodeTrigger = new TimecodeTrigger(this);
    _timecodeTrigger->setDelay(timecodeTriggerDelay);
    ORB_TESTED(connect(_timecodeTrigger, SIGNAL(timecodeHasStarted()), this,
                       SLOT(timecodeTriggerHasStarted())));
    ORB_TESTED(connect(_timecodeTrigger, SIGNAL(timecodeHasStopped()), this,
                       SLOT(timecodeTriggerHasStopped())));

    _debugTimer = newTimer();
    ORB_TESTED(connect(_debugTimer, SIGNAL(timeout()), this, SLOT(logDebugStats())));

    _videoDeviceResetTimer = newTimer();
    _videoDeviceResetTimer->setSingleShot(true);
    ORB_TESTED(connect(_videoDeviceResetTimer, SIGNAL(timeout()), this, SLOT(videoDeviceReset())));

    _state.setEncodeFormat(OrbId(OrbIdImageProRes422));
    _state.setSyncSource(OrbId(OrbIdSyncSystemClock));
    _state.setVideoInputSource(OrbId(OrbIdVideoPort601));
    _state.setAudioInputSource(OrbId(OrbIdAudioInputEmbedded));

    _flushTimer = newTimer();
    _timer = newTimer();
    _timer->start(processPeriodMs);

    _stm = new OrbStream(this);
    _cache = new OrbStreamCache(this);
    _cache->setCacheSize(cacheFrames);
    _cache->setStream(_stm);
    _vdev = new OrbVideoDevice(this);
    videoDeviceOpen();
    connectAll();
}

VtrObject::~VtrObject()
{
    if (_state.mode() != VtrState::Shutdown)
        orbLogOutput(1, logFile, __LINE__,
                     "shutdown() should have been called before destruction!\n");
}

QTimer *VtrObject::newTimer()
{
    auto *timer = new QTimer(this);
    timer->setTimerType(Qt::PreciseTimer);
    return timer;
}

void VtrObject::connectAll()
{
    ORB_TESTED(connect(_timer, SIGNAL(timeout()), this, SLOT(process())));

    ORB_TESTED(connect(_stm, SIGNAL(openIsDone(int, const OrbError &)), this,
                       SLOT(streamOpenIsDone(int, const OrbError &))));
    ORB_TESTED(connect(_stm, SIGNAL(closeIsDone()), this, SLOT(streamCloseIsDone())));

    ORB_TESTED(connect(_cache, SIGNAL(ready()), this, SLOT(process())));
    ORB_TESTED(connect(_cache, SIGNAL(error(int, const OrbError &)), this,
                       SLOT(cacheError(int, const OrbError &))));

    ORB_TESTED(connect(_vdev, SIGNAL(vbi(const OrbVbiInfo &)), this,
                       SLOT(handleVBI(const OrbVbiInfo &))));
    ORB_TESTED(connect(_vdev, SIGNAL(setupIsDone(const OrbError &)), this,
                       SLOT(videoDeviceSetupIsDone(const OrbError &))));
    ORB_TESTED(connect(_vdev, SIGNAL(playedKeyFrame(const OrbMetadataHash &)), this,
                       SLOT(videoDevicePlayedKeyFrame(const OrbMetadataHash &))));
    ORB_TESTED(connect(_vdev, SIGNAL(frameDropped()), this, SLOT(videoDeviceFrameDropped())));
    ORB_TESTED(connect(_vdev, SIGNAL(readFromHardwareFailed(const OrbError &)), this,
                       SLOT(videoDeviceReadFromHardwareFailed(const OrbError &))));
    ORB_TESTED(connect(_vdev, SIGNAL(writeToHardwareFailed(const OrbError &, const OrbFrame &)),
                       this, SLOT(videoDeviceWriteToHardwareFailed(const OrbError &, const OrbFrame &))));
    ORB_TESTED(connect(_vdev, SIGNAL(hardwareStarted()), this, SLOT(videoDeviceHardwareStarted())));
    ORB_TESTED(connect(_vdev, SIGNAL(flushed(const OrbMetadataHash &)), this,
                       SLOT(videoDeviceFlushed(const OrbMetadataHash &))));
    ORB_TESTED(connect(_vdev, SIGNAL(inputChanged(int, const OrbVideoState &)), this,
                       SLOT(videoDeviceInputChanged(int, const OrbVideoState &))));
    ORB_TESTED(connect(_vdev, SIGNAL(firmwareLoading(const QString &, bool)), this,
                       SIGNAL(firmwareLoading(const QString &, bool))));
    ORB_TESTED(connect(_vdev, SIGNAL(raiseVFRAlarm(bool)), this, SIGNAL(raiseVFRAlarm(bool))));
    ORB_TESTED(connect(_vdev, SIGNAL(inputAncDataChanged(const OrbMetadataHash &)), this,
                       SLOT(videoDeviceInputAncDataChanged(const OrbMetadataHash &))));
    ORB_TESTED(connect(_vdev, SIGNAL(alarmTriggered(const OrbAlarm &)), this,
                       SIGNAL(alarmTriggered(const OrbAlarm &))));

    ORB_TESTED(connect(_flushTimer, SIGNAL(timeout()), this, SLOT(streamFlush())));
}

void VtrObject::start()
{
    orbLogOutput(3, logFile, __LINE__, "VtrObject is starting...\n");
    _lastSetup = createVideoDeviceDefaultSetupObject();
    standbyOff();
}

void VtrObject::shutdown()
{
    orbLogOutput(3, logFile, __LINE__, "VtrObject shutdown requested...\n");
    setNewMode(VtrState::Shutdown);
    process();
}

void VtrObject::logText(int level, const QString &text, int line) const
{
    OrbLogStream(logFile, line, level, OrbLog::defaultLog()) << text;
}
