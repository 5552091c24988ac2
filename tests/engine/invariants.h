#pragma once

#include "stressrig.h"

#include <QSet>
#include <QString>

#include <functional>

/// Watches an engine and says which of the rules was broken first. The rules:
///
///  - one setup is in flight at most;
///  - storageInUse() alternates, begins with true, and is true while the stream is anything but
///    closed;
///  - every open that starts ends by one streamIsOpen() with its error or by one streamIsClosed(),
///    and a good one has one streamIsOpen() before that; a record open that cannot start has one
///    streamIsOpen() too;
///  - each modeChanged() and stateChanged() goes on from where the one before ended;
///  - a change that is asked for is carried out once nothing is busy;
///  - the open stream has the direction of the mode;
///  - the frames of a clip are in order, none is there twice, and none is missing but those that
///    the device lost, that interval recording leaves out, or that a full cache reports;
///  - what is on output lies inside its clip and has the format that the device is set up for;
///  - queues, streams, timers and objects stay few;
///  - a refused command has no effect but the log;
///  - no log record tells of what the engine says cannot be.
class Invariants
{
public:
    explicit Invariants(StressRig &rig);
    ~Invariants();
    Invariants(const Invariants &) = delete;
    Invariants &operator=(const Invariants &) = delete;

    /// Empty while every rule holds.
    QString broken() const { return _broken; }
    void breaks(const QString &rule);
    /// What can only be looked at between two turns of the event loop.
    void look();
    /// The same when everything has been left to settle.
    void lookAtRest();
    /// Runs a command. When the engine must refuse it, nothing may come of it.
    void command(const char *name, const std::function<void()> &call);
    /// Interval recording may have been on from here on.
    void noteInterval();

    const VtrState &published() const { return _published; }
    quint64 framesWritten() const { return _written; }
    quint64 framesShown() const { return _shown; }

private:
    enum class Stream { Closed, Opening, Open };

    void followSignals();
    void followStream();
    void followDrivers();
    void storageIsInUse(bool on);
    void streamIsOpen(const OrbError &error);
    void frameIsWritten(const OrbFrame &frame);
    void frameIsShown(const OrbFrame &frame);
    void logIs(const QString &text);
    void lookAtQueues();
    void lookAtStream();
    void lookAtPendingChange();
    quint64 effects() const;

    StressRig &_rig;
    QString _broken;
    int _sink;
    quint64 _signals = 0;
    VtrState _published;
    VtrState::Mode _mode = VtrState::Startup;
    quint64 _modeChanges = 0;
    quint64 _modeChangesSeen = 0;
    qint64 _idleSince = 0; ///< a change is pending and nothing is busy
    bool _isInUse = false;
    Stream _stream = Stream::Closed;
    int _recordQuestions = 0; ///< not answered by an open so far
    qsizetype _children;
    QSet<int> _lost;
    int _lastWritten = -1;
    bool _mayMiss = false;
    quint64 _written = 0;
    quint64 _shown = 0;
};
