#pragma once

#include "aux/singleframe.h"
#include "liborb/orbalarm.h"
#include "liborb/orberror.h"
#include "liborb/orbframe.h"
#include "liborb/orbstreaminfo.h"
#include "liborb/orbtimestamp.h"
#include "liborb/orbvbiinfo.h"
#include "liborb/orbvideodevicesetup.h"
#include "liborb/orbvideostate.h"
#include "transport/recordinterval.h"
#include "transport/vtrstate.h"

#include <QObject>
#include <QVariant>

class OrbAlarmController;
class OrbStream;
class OrbStreamCache;
class OrbVideoDevice;
class QFile;
class QTimer;
class TimecodeTrigger;

/// The transport engine: a tape machine for files. It owns the video device, the stream and the
/// cache between them, and carries out the modes of VtrState. A command only asks for a mode; the
/// change is made in passes, the old mode cleaned up and the new one begun each while the toolkit
/// is idle. A command that cannot be carried out is logged and dropped, never queued. Event-loop
/// thread only; no call waits.
class VtrObject : public QObject
{
    Q_OBJECT
public:
    explicit VtrObject(QObject *parent = nullptr);
    ~VtrObject() override;

    /// Enters Standby Off; call once, when the settings have been made.
    void start();
    /// Asks for Shutdown; shutdownIsComplete() follows. Dropped, like any request, while another
    /// change is pending: the caller asks again.
    void shutdown();

    // Answers at once
    VtrState state() const { return _state; } ///< what is being worked towards
    QString stateToString() const;            ///< queues and busy conditions in one line
    OrbVbiInfo lastVBI() const { return _lastVbi; }
    OrbTimecode currentInputTimecode() const { return _lastVbi.inputTimecode(); }
    OrbMetadataHash currentFrameMetadata() const; ///< of the frame on output; empty but in Play
    int currentFrameNumber() const;               ///< of the frame on output; 0 when there is none
    bool isShutdownComplete() const { return _isShutdownComplete; }
    bool hasPendingModeChange() const { return !_isCleanupDone || !_isBeginDone; }
    /// Whether \a mode may be asked for now; a refusal is logged.
    bool allowModeChange(VtrState::Mode mode) const;
    bool canProcess() const; ///< no long operation of the toolkit holds a pass back
    bool inputVideoIsValid() const; ///< the generator feeds the recorder, or the input does
    /// Invalid when recording is allowed; asks requestRecordInhibit().
    OrbId recordInhibitedReason();

    // The three kinds of setup, from the settings as they are now
    OrbVideoDeviceSetup createVideoDeviceDefaultSetupObject() const;
    OrbVideoDeviceSetup createVideoDevicePlaybackSetupObject(const OrbFrame &frame) const;
    OrbVideoDeviceSetup createVideoDeviceRecordSetupObject() const;

signals:
    void vbi(const OrbVbiInfo &ts);
    void stateChanged(const VtrState &oldState, const VtrState &newState);
    void modeChanged(VtrState::Mode oldMode, VtrState::Mode newMode);
    void inputFormatChanged(int inputNumber, const OrbVideoState &state);
    void streamIsOpen(const OrbError &err, const OrbStreamInfo &info);
    void streamIsClosed();
    // Questions, answered through the reference before the emit returns: connect directly
    void requestPlaybackStreamDesc(QVariant &desc, int &fnum);
    void requestRecordStreamDesc(QVariant &desc);
    void storageInUse(bool isInUse);
    void firmwareLoading(const QString &id, bool done);
    void shutdownIsComplete();
    void timecodeInputValidChanged(bool valid);
    void frameDropped();
    void raiseVFRAlarm(bool alarmActive);
    void requestRecordInhibit(OrbId &inhibitReason); ///< a question, as above
    void recordFailedToStart(OrbId &reason);
    void alarmTriggered(const OrbAlarm &alarm);
    void videoDeviceSetupChanged(const OrbVideoDeviceSetup &setup);

public slots:
    void enableStreamBenchmark();

    // Settings. One that the device must apply resets it 500 ms later, in Standby Off only
    void setReelName(const QString &reelName);
    void setCurrentClipName(const QString &value);
    void setAudioChans(int count);
    void setEncodeFormat(const OrbId &format);
    void setVideoInputSource(const OrbId &source);
    void setAudioInputSource(const OrbId &source);
    void setAudioInputLevel(const OrbId &level);
    void setSyncSource(const OrbId &source);
    void setVideoSignalGenFormat(const OrbImageDesc &format);
    void setVideoSignalGenMode(const OrbId &mode);
    void setAudioSignalGenMode(const OrbId &mode);
    void setCameraInput(const OrbId &input);
    void setVideoInConvert(const OrbId &convert);
    void setVideoOutConvert(const OrbId &convert);
    void setForcePSFOutput(bool on);
    void setForcePSFEncode(bool on);
    void setVideoOutputType(const OrbId &type);
    void setVideoOutputRoute(const OrbId &route);
    void setSuperOut(const OrbId &super);
    void setRecordInterval(int frames);
    void setRecordIntervalTime(int period);
    void setIntervalRecordEnable(bool on);
    void setVFREnable(bool on);
    void setTimecodeValue(const OrbTimecode &tc);
    void setTimecodeDropFrame(bool on);
    void setTCGSource(const OrbId &source);
    void setStopOnFrameDrop(bool on);
    void setStopOnLossOfVideo(bool on);
    void setRecordOnRunningTimecode(bool on);
    void logStats();

    // Commands
    void setLooping(bool on);
    void play(double speed);
    void play();
    void still();
    void stop();
    void rewind();
    void fastfwd();
    void cue(int frameNumber);
    void step(int ct);
    void standbyOff();
    void record();

    void setLuts(const OrbImageLut &inputLut, const OrbImageLut &outputLut);
    /// Closes the record stream; the next frame opens the next one. False, with a log line, when
    /// there is no open stream of that direction. So does reopenPlaybackStream(), which keeps the
    /// position.
    bool reopenRecordStream();
    bool reopenPlaybackStream();
    /// Adds \a meta to every frame captured from now on; an invalid item to none.
    void debugFrameMetadata(const OrbMetadata &meta);

private slots:
    void handleVBI(const OrbVbiInfo &info);
    void process();
    void streamOpenIsDone(int frame, const OrbError &error);
    void streamCloseIsDone();
    void streamFlush();
    void cacheError(int frame, const OrbError &error);
    void videoDeviceSetupIsDone(const OrbError &error);
    void videoDevicePlayedKeyFrame(const OrbMetadataHash &meta);
    void videoDeviceFrameDropped();
    void videoDeviceReadFromHardwareFailed(const OrbError &error);
    void videoDeviceWriteToHardwareFailed(const OrbError &error, const OrbFrame &frame);
    void videoDeviceHardwareStarted();
    void videoDeviceFlushed(const OrbMetadataHash &meta);
    void videoDeviceInputChanged(int inputNumber, const OrbVideoState &state);
    void videoDeviceInputAncDataChanged(const OrbMetadataHash &data);
    void videoDeviceReset();
    void timecodeTriggerHasStarted();
    void timecodeTriggerHasStopped();
    void streamBenchmark(int id, const OrbTimeStamp &ts);
    void checkForAlarms();
    void logDebugStats();

public:
    // The engine's own steps, in public so that tests can take them one at a time; nobody else
    // calls them.
    void setNewMode(VtrState::Mode mode);
    bool handleModeSwitch();
    void setSpeed(double speed);

    void beginModeStandbyOff();
    void beginModeStandby();
    void beginModePlay() {}
    void beginModeRecord();
    void beginModeShutdown();
    void processModeStandby() {}
    void processModePlay();
    void processModeRecord();
    void processModeShutdown();
    void cleanupModeStandbyOff() {}
    void cleanupModeStandby() {}
    void cleanupModePlay();
    void cleanupModeRecord();
    void cleanupModeShutdown();

    bool streamOpenForRead();
    bool streamOpenForWrite(const OrbFrame &firstFrame);
    void setPlayFrameTimecode(OrbFrame &frame) const;
    bool checkForCameraTrigger(const OrbFrame &frame) const;
    bool validateFrameForRecord(const OrbFrame &frame) const;
    void jamTCG();
    int currentTimecodeFrameRate() const;
    OrbTimecode currentTimeOfDayTimecode() const;

    void videoDeviceOpen();
    void videoDeviceClose();
    void videoDeviceFlush();
    void scheduleVideoDeviceReset(int delayMs, bool force);
    void setupVideoDeviceForRecord();
    void setupVideoDeviceForPlayback();
    void setupVideoDeviceForShutdown();
    bool setupVideoDevice(const OrbVideoDeviceSetup &setup);
    void updateVTSGPseudoInput(bool enabled);
    void updateLossOfVideoFrame();
    void checkRefInputAlarm();

private:
    struct ModeSteps;

    /// Every record and alarm of the engine names this file, whatever topic file it comes from.
    static constexpr char logFile[] = "vtrobject.cpp";
    static const ModeSteps *stepsOf(VtrState::Mode mode);

    QTimer *newTimer();
    void connectAll();
    void logText(int level, const QString &text, int line = __builtin_LINE()) const;
    void raiseAlarm(const OrbId &id, int level, const QString &text, int line = __builtin_LINE());
    void setReferenceAlarm(const OrbId &id, bool on, int line = __builtin_LINE());
    void storeSpeed(double speed);
    void pass();
    void publish();

    /// What becomes of a pass after one of its frames.
    enum class Pass { GoesOn, Ends };
    bool openStreamForPlay();
    void fillPlaybackQueue(const OrbVideoDeviceSetup &current);
    void requirePlaybackSetup(const OrbVideoDeviceSetup &wanted, const OrbFrame &frame,
                              bool isInCapture);
    void takePlayedFrame(bool isFirst, bool isLast);
    Pass readRecordFrame(OrbFrame &frame);
    Pass followCameraTrigger(const OrbFrame &frame);
    Pass takeHeldFrame(OrbFrame &frame);
    Pass processRecordFrame(OrbFrame &frame);
    Pass coverLossOfVideo(OrbFrame &frame);
    void writeRecordFrame(const OrbFrame &frame);
    void openStreamForRecord(const OrbFrame &firstFrame);
    void dropHeldFrame();
    void finishRecordCache();
    void resumePlaybackPosition();
    void setIdSetting(OrbId (VtrState::*value)() const, void (VtrState::*store)(const OrbId &),
                      const OrbId &id, const char *name, int line = __builtin_LINE());
    bool isIdSettingValid(const OrbId &id, const char *name, int line = __builtin_LINE()) const;
    bool setFlagSetting(bool (VtrState::*value)() const, void (VtrState::*store)(bool), bool on,
                        const char *name, int line = __builtin_LINE());
    void settingChanged();

    VtrState _state; ///< being worked towards
    VtrState _previousState; ///< published last; its mode is the one being left during a change
    VtrState::Mode _processedMode = VtrState::Startup; ///< of the pass before
    QTimer *_timer;
    QTimer *_flushTimer;
    QTimer *_debugTimer;
    QTimer *_videoDeviceResetTimer;
    QTimer *_alarmCheckTimer;
    OrbVideoDevice *_vdev;
    OrbStreamCache *_cache;
    OrbStream *_stm;
    TimecodeTrigger *_timecodeTrigger;
    OrbAlarmController *_alarmctl;
    OrbTimecode _tcgValue;
    OrbId _tcgSource;
    OrbVideoState _actualInputState;   ///< last reported by the device for input 0
    OrbVideoState _reportedInputState; ///< last reported to the controller
    OrbVideoDeviceSetup _lastSetup;     ///< sent last
    OrbVideoDeviceSetup _playbackSetup; ///< wanted by playback for its next reset
    SingleFrame _lossOfVideoFrame;
    RecordInterval _interval;
    bool _isShutdownComplete = false;
    bool _heldRecordFrameValid = false;
    int _savedPlaybackPosition = 0;
    int _stepOffset = 0;
    int _pendingCue = -1;
    OrbFrame _heldRecordFrame; ///< held back until the record stream is open
    QVariant _savedPlaybackDesc;
    QString _reelName;
    OrbVbiInfo _lastVbi;
    bool _recordOnRunningTimecode = false;
    bool _isCleanupDone = true;
    bool _isBeginDone = true;
    bool _isInPass = false;
    bool _isPassWanted = false;     ///< asked for from inside one
    bool _isStreamNewsDue = false; ///< streamIsOpen() or streamIsClosed() is still to come
    bool _forceSetup = false; ///< the next setup is sent even if it is the current one
    OrbMetadata _debugMetadata; ///< added to every frame captured
    QFile *_benchmarkFile = nullptr;
};
