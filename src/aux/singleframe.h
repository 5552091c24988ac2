#pragma once

#include "liborb/orbframe.h"

#include <QObject>

class OrbError;
class OrbStream;

/// Loads one frame of a clip file and keeps it.
class SingleFrame : public QObject
{
    Q_OBJECT
public:
    SingleFrame();

    /// The frame loaded last; empty until ready() and after clear().
    OrbFrame frame() const;

signals:
    void ready();
    void failed();

public slots:
    /// Forgets the frame, and the load under way if there is one.
    void clear();
    /// Returns at once; ready() or failed() follows, for the latest load only.
    void load(int fnum, const QString &file);
    void openIsDone(int mode, const OrbError &err);
    void readIsDone(int fnum, const OrbFrame &frame, const OrbError &err, void *pdata);

private:
    int _frameNumber = -1; ///< -1 when none is asked for
    quint64 _loads = 0;    ///< begun or given up: tells a load from those before
    OrbFrame _frame;
    OrbStream *_stream;
    bool _isReading = false;
    int _abandonedReads = 0; ///< reads of loads given up, whose answers may still come
};
