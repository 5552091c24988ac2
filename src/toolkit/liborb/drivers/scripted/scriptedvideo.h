#pragma once

#include "liborb/drivers/scripted/transcript.h"
#include "liborb/ifaces/videodriver.h"

#include <QObject>
#include <QTimer>

#include <deque>
#include <functional>
#include <optional>

/// A video device that does what a test says, when it says so. The test holds the script; the
/// driver behind a device only passes on. All time is that of the event loop, so that it runs under
/// a virtual clock.
///
/// Left alone it behaves well: setups and flushes take a few milliseconds, then frames come and go
/// at the rate of the setup, one vertical interval each.
class ScriptedVideo : public QObject
{
    Q_OBJECT
public:
    /// How a setup, a flush or an open ends.
    struct Outcome {
        OrbError refused = {}; ///< answered at once; nothing starts
        OrbError error = {};   ///< reported at the end
        int afterMs = 5;       ///< held until the test ends it when negative
    };
    static constexpr int held = -1;

    /// Notes what it is told in \a transcript, which may be null.
    explicit ScriptedVideo(Transcript *transcript, QObject *parent = nullptr);
    ~ScriptedVideo() override;

    /// The driver for every device opened from now on, and none of them any more.
    void install();
    static void uninstall();

    // What is to happen; outcomes are used up one a call, then the default one counts
    bool opens = true;
    std::deque<Outcome> setups;
    std::deque<Outcome> flushes;
    bool ticksByItself = true; ///< else tick() is called by hand
    bool notesFrames = false;  ///< frames written and read are noted in the transcript
    int queueSize = 10;        ///< of playback
    int captureLimit = 40;     ///< frames captured and not read; more are dropped

    // The next captured frames
    bool hasSignal = true;
    int imageCount = 1;
    bool hasAudio = true;
    std::optional<bool> cameraFlag;
    bool hasTimecode = true;
    QList<OrbMetadata> extraMetadata;
    std::deque<OrbError> readErrors; ///< answered by the next reads
    OrbTimecode inputTimecode; ///< of the next vertical intervals
    OrbVideoRefState reference;
    OrbCaptureFigures figures; ///< of how captured frames are coded

    // Called as it happens, when set
    std::function<void(const OrbFrame &)> onShown; ///< a frame is on output, each tick in playback
    std::function<void(const OrbFrame &)> onLost;  ///< a captured frame can no longer be read

    // To make happen now
    void finishSetup(const OrbError &error = OrbError());
    void finishFlush();
    void tick();    ///< captures or shows a frame, with its vertical interval
    void capture(); ///< without it
    void show();    ///< likewise
    void dropFrame();
    void changeInput(int input, const OrbVideoState &state);
    void reportVbi(const OrbVbiInfo &info);
    void reportPlayedKeyFrame(const OrbMetadataHash &meta);
    void reportReadFailed(const OrbError &error);
    void reportWriteFailed(const OrbError &error);
    void reportAncData(const OrbMetadataHash &meta);
    void reportAlarm(const OrbAlarm &alarm);
    void reportVfr(bool active);
    void reportFirmware(const QString &id, bool done);
    void reportStarted();
    void reportStraySetup(const OrbError &error); ///< nobody asked for; nothing during a setup
    void reportStrayFlush();                      ///< likewise

    // What is
    bool isOpen() const { return _host != nullptr; }
    bool isInSetup() const { return _isInSetup; }
    bool isFlushing() const { return _isFlushing; }
    OrbVideoDeviceSetup appliedSetup() const { return _applied; }
    const QList<OrbVideoDeviceSetup> &setupsSent() const { return _sent; }
    QVariant property(int id) const { return _properties.value(id).value; }
    int propertyCount(int id) const { return _properties.value(id).count; }
    quint64 calls() const { return _calls; } ///< setups, flushes and properties so far
    int setupsWhileBusy() const { return _setupsWhileBusy; } ///< sent during another one
    const QList<int> &framesShown() const { return _shown; } ///< numbers, each tick in playback
    OrbFrame frameOnOutput() const { return _onOutput; }
    int framesQueued() const { return int(_queue.size()); }
    int framesCaptured() const { return _captured; }

    // Called by the driver
    bool driverOpen(const QString &name, OrbVideoDriverHost *host);
    void driverClose();
    void driverSetProperty(const OrbId &id, const QVariant &value);
    int framesReadable() const;
    int framesWritable() const;
    OrbError driverRead(OrbFrame &frame);
    OrbError driverWrite(const OrbFrame &frame);
    OrbMetadataHash metadataOnOutput() const { return _onOutput.meta(); }
    OrbError driverSetup(const OrbVideoDeviceSetup &setup);
    void driverFlush();

    /// One line for transcripts: "capture 1920x1080p 25/1 ImageProRes422".
    static QString setupText(const OrbVideoDeviceSetup &setup);

private:
    void startTicking();
    void scheduleTick();
    OrbFrame capturedFrame();
    template<typename Compose>
    void note(const Compose &line)
    {
        if (_transcript)
            _transcript->note(line());
    }

    struct Property {
        QVariant value;
        int count = 0;
    };

    Transcript *_transcript;
    OrbVideoDriverHost *_host = nullptr;
    QTimer _setupTimer;
    QTimer _flushTimer;
    QTimer _tickTimer;
    qint64 _ticks = 0;   ///< since the setup
    qint64 _elapsedMs = 0; ///< of those
    bool _isInSetup = false;
    bool _isFlushing = false;
    OrbError _setupError;
    OrbVideoDeviceSetup _pending;
    OrbVideoDeviceSetup _applied;
    QList<OrbVideoDeviceSetup> _sent;
    quint64 _calls = 0;
    int _setupsWhileBusy = 0;
    QHash<int, Property> _properties;
    std::deque<OrbFrame> _capturedFrames;
    std::deque<OrbFrame> _queue;
    OrbFrame _onOutput;
    QList<int> _shown;
    double _speedRest = 0.0;
    int _captured = 0;
    OrbTimecode _generator;
};
