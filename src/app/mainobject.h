#pragma once

#include "app/formatmap.h" // the tables are the controller's too
#include "libvanta/clip.h"
#include "liborb/orbalarm.h"
#include "liborb/orberror.h"
#include "liborb/orbid.h"
#include "liborb/orbimagelut.h"
#include "liborb/orbplaylist.h"
#include "liborb/orbstreaminfo.h"
#include "liborb/orbtimecode.h"
#include "liborb/orbtimestamp.h"
#include "liborb/orbvbiinfo.h"
#include "liborb/orbvideodevicesetup.h"
#include "liborb/orbvideostate.h"
#include "transport/vtrstate.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVariant>

#include <list>

class AlarmHandler;
class ClipFinder;
class ConfigInterface;
class ConfigUpdater;
class KeyboardTransport;
class MediaManager;
class VtrObject;

/// The application controller: builds and wires every long-lived object of the daemon, turns
/// parameter changes into engine calls, manages clips and play lists, answers the engine's
/// questions for stream descriptors, coordinates rollover, loads look-up tables, and shuts down in
/// order.
///
/// One class told in topic files: mainobject.cpp (birth, wiring, published state, shutdown),
/// _params (dispatch), _transport (transport command), _clips, _streams (descriptors, rollover),
/// _luts, _options.
class MainObject : public QObject
{
    Q_OBJECT
public:
    /// \a console creates the keyboard console.
    explicit MainObject(bool console, QObject *parent = nullptr);
    ~MainObject() override;

    /// Replays the start-up parameters through configParamChanged() and builds the clip lists.
    void loadInitialState();
    /// Obeys the options of QCoreApplication::arguments(); "-h" prints the usage and does not stop
    /// the start, deliberately.
    void parseCommandLine();
    /// Publishes the transport state number that follows from mode and speed.
    void updateTransporterState(const VtrState &state);

    /// Name of the current clip; empty when there is none.
    QString currentClip();
    void setCurrentClip(const QString &name);
    void updateAllClips();
    void updatePlayList();
    /// With no current clip, the last of the list in use becomes current: the newest, deliberately.
    void setInitialClip();
    OrbPlayList playListInUse() const;
    int findCurrentClipIndex();
    void gotoClipByName(const QString &name);
    void gotoClipByIndex(int index);
    void gotoClipByRelativeIndex(int delta);
    /// Despite its name the position of the clip \a name in \a list, from 0; -1 when it is not
    /// there.
    int findClipFirstFrame(const std::list<Clip> &list, const QString &name) const;
    /// Adds a clip just recorded; the answer is its first frame in the joined list, 0 on failure.
    int addClip(std::list<Clip> &list, OrbPlayList &playList, const QString &name);
    int addLastRecordedClip(const QString &name);

    /// The pending start frame, used once; 0 when none is pending.
    int findInitialFrame();
    void generateNormalRecordStreamDesc(QVariant &desc);
    void generateRolloverRecordStreamDesc(QVariant &desc);
    /// Raises alarm 1911 when the store selects eight channels of an input that has not got them.
    void validateAudioChannels();
    /// Reads the look-up table the store names and hands it to the engine.
    void loadLuts();

signals:
    void alarmTriggered(const OrbAlarm &alarm);

public slots:
    void shutdown();
    void vbi(const OrbVbiInfo &);
    void transportRefreshed();
    void toggleMeta();
    void cameraRecord();
    void configParamChanged(quint32 id, const QVariant &value, const OrbTimeStamp &ts);
    void vtrStateChanged(const VtrState &oldState, const VtrState &newState);
    void vtrModeChanged(const VtrState::Mode oldMode, const VtrState::Mode newMode);
    void vtrInputFormatChanged(int inputNumber, const OrbVideoState &state);
    void vtrStreamIsOpen(const OrbError &err, const OrbStreamInfo &info);
    void vtrStreamIsClosed();
    void vtrRaiseVFRAlarm(bool state);
    void generateRecordStreamDesc(QVariant &streamDesc);
    void generatePlaybackStreamDesc(QVariant &streamDesc, int &fnum);
    void firmwareLoading(const QString &id, bool done);
    void shouldInhibitRecord(OrbId &reason);
    void vtrVideoDeviceSetupChanged(const OrbVideoDeviceSetup &val);
    void startRollover();
    void checkForRolloverComplete();
    void finishRollover(bool success, const QString &activePath, const QString &rolloverPath);
    void stopRecordNow();
    void recordFailedToStart(OrbId &);

private:
    struct Change;
    struct ParamRow;
    static const ParamRow paramRows[];

    void wireMediaManager();
    void wireEngine();
    void wireConsole();
    void wireAlarms();
    /// Emits alarmTriggered() with this class's file name and the caller's line.
    void reportAlarm(int id, int level, const QString &text, int line = __builtin_LINE());
    void printUsage();
    void setInitialClipFile(const QString &path);
    void logStatsEverySecond();

    bool readLut(const QString &path, OrbImageLut &lut);

    void transportCommand(int command, const VtrState &state);
    void stopCommand(const VtrState &state);
    void recordCommand(const VtrState &state);
    void mediaUpdated(int, const VtrState &state);
    void mediaLoading();
    void reloadClips();
    void playMediaChanged(int value, const VtrState &state);
    void activePathChanged(const QString &path);
    void recoverFromRollover();

    KeyboardTransport *_kbtrans = nullptr;
    ConfigInterface *_config = nullptr;
    ConfigUpdater *_configUpdater = nullptr;
    AlarmHandler *_alarmHandler = nullptr;
    VtrObject *_vtr = nullptr;
    ClipFinder *_clipFinder = nullptr;
    MediaManager *_mediaManager = nullptr;
    bool _logExtraParams = false;
    bool _insertMeta = false;
    qint32 _playMedia = 0;
    qint32 _initialFrame = -1;
    std::list<Clip> _allClips;
    std::list<Clip> _playListClips;
    OrbPlayList _allClipsPlayList;
    OrbPlayList _playList;
    OrbTimecode _lastTimecode;
    bool _rolloverClosed = false;
    bool _rolloverOpen = false;
};

/// One entry a clip, in order: its name, its full path, its length.
OrbPlayList createPlayList(const QString &path, const std::list<Clip> &clips);
/// The path that a serialized DataFile names, if a file exists there; otherwise empty.
QString getLUTPath(QByteArray data);
