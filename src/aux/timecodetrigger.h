#pragma once

#include "liborb/orbtimecode.h"

#include <QObject>

/// Tells, frame by frame, whether a timecode runs (advances) or has stopped (repeats or is absent),
/// and signals a change once it has held for a number of frames.
class TimecodeTrigger : public QObject
{
    Q_OBJECT
public:
    explicit TimecodeTrigger(QObject *parent = nullptr);

signals:
    void timecodeHasStarted();
    void timecodeHasStopped();

public slots:
    /// The timecode of the next frame. One repeat of the frame before is let pass unjudged, so a
    /// frozen timecode is judged on every second frame only.
    void setTimecode(const OrbTimecode &);
    /// A change is signalled on observation number \a frames + 2 of the new state.
    void setDelay(int frames);

private:
    enum State : int { Unknown = 0, Stopped = 1, Running = 2 };

    void processTimecode(const OrbTimecode &tc);

    OrbTimecode _lastTimecode;
    int _delay = 0;
    int _count = 0; ///< confirmations of the candidate in a row
    State _state = Unknown; ///< last signalled
    State _candidate = Unknown; ///< last observed that differed from the state
    bool _repeatSeen = false;
};
