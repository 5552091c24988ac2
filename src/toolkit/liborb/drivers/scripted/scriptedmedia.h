#pragma once

#include "liborb/drivers/scripted/transcript.h"
#include "liborb/ifaces/mediadriver.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>

#include <deque>
#include <functional>

class ScriptedMediaDriver;

/// A clip that was never filmed: its frames carry their numbers.
struct ScriptedClip {
    int length = 0;
    OrbImageDesc image;
    OrbAudioDesc audio;       ///< none when its channel count is 0
    bool hasTimecode = false; ///< frames are labelled from 01:00:00:00
};

/// A medium that does what a test says, when it says so. The test holds the script; every open
/// stream has a driver of its own that asks it. All time is that of the event loop.
///
/// Left alone it behaves well: opens, reads, writes and closes complete in a few milliseconds, in
/// order. A descriptor that is no clip of the script fails to open with ENOENT.
class ScriptedMedia : public QObject
{
    Q_OBJECT
public:
    /// How an open or a close ends.
    struct Outcome {
        bool isRefused = false; ///< the stream finds no driver
        OrbError error = {};
        int afterMs = 5;        ///< held until the test ends it when negative
    };
    static constexpr int held = -1;

    /// Notes what it is told in \a transcript, which may be null.
    explicit ScriptedMedia(Transcript *transcript, QObject *parent = nullptr);
    ~ScriptedMedia() override;

    /// The drivers for every stream opened from now on, and none of them any more.
    void install();
    static void uninstall();

    // What is to happen; outcomes are used up one a call, then the default one counts
    QHash<QString, ScriptedClip> clips; ///< by path
    std::deque<Outcome> opens;
    std::deque<Outcome> closes;
    int readMs = 1;
    int writeMs = 1; ///< held until finishWrites() when negative
    QSet<int> badFrames; ///< reads of these fail
    OrbError writeError; ///< of all writes
    QList<OrbMetadata> extraMetadata; ///< of the frames read from now on
    /// Paths that begin so are handled but not noted: what the engine loads besides.
    QString quietPrefix;

    // Called as it happens, when set; quiet paths are left out of the first
    std::function<void(const QString &path, bool writes)> onOpen;
    std::function<void(const OrbFrame &)> onWritten; ///< the frame is not kept then

    // To make happen now
    void finishOpen(const OrbError &error = OrbError());
    void finishClose();
    void finishWrites();
    /// An answer that nobody asked for, from the driver opened last: a failed read (0), a good one (1), a
    /// close (2), a failed open.
    void answerStray(int kind);
    /// The medium of the driver opened last fails; the answer is the clip that it is told to go on in.
    QVariant failMedium(const OrbError &error);
    void goOver(const QVariant &desc, const OrbError &error);
    void loseFrames(int count, const OrbError &error);
    void setMediumSlow(bool isSlow);

    // What was
    const QHash<QString, QList<OrbFrame>> &recordings() const { return _recordings; }
    QList<int> recordedNumbers(const QString &path) const; ///< metadata 1 of the frames written
    const QList<OrbStreamInfo> &infos() const { return _infos; } ///< of the opens for writing
    const QList<int> &reads() const { return _reads; }
    int flushCount() const { return _flushCount; }
    int refusals() const { return _refusals; }
    quint64 calls() const { return _calls; }      ///< opens and closes so far
    int streamCount() const { return int(_drivers.size()); } ///< drivers alive

    // Called by the drivers
    void noteOpen(const QString &path, OrbAccess access);
    void noteClose(const QString &path);
    Outcome nextOpen();
    Outcome nextClose();
    void noteRead(int frame) { _reads << frame; }
    void noteWritten(const QString &path, const OrbFrame &frame);
    void noteInfo(const OrbStreamInfo &info) { _infos << info; }
    void noteFlush() { ++_flushCount; }
    /// The path of a clip, or of the only clip that a play list stands for in this script.
    static QString pathOf(const QVariant &desc);
    OrbFrame frameOf(const ScriptedClip &clip, int number) const;

private:
    friend class ScriptedMediaDriver;

    bool isQuiet(const QString &path) const;

    Transcript *_transcript;
    QHash<QString, QList<OrbFrame>> _recordings;
    QList<OrbStreamInfo> _infos;
    QList<int> _reads;
    int _flushCount = 0;
    int _refusals = 0;
    quint64 _calls = 0;
    QList<ScriptedMediaDriver *> _drivers; ///< alive, newest last
};
