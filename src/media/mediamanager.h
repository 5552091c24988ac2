#pragma once

#include <QObject>
#include <QString>

/// Watches the free space of the medium that is recorded to, says when to roll over to the next or to stop,
/// and keeps the books of a rollover. It decides nothing about the transport: it only emits signals.
/// All calls on the event-loop thread.
class MediaManager : public QObject
{
    Q_OBJECT
public:
    /// One measurement of a path's file system. Beside the path, fields mean something only once a
    /// measurement has succeeded.
    struct PathInfo {
        QString path;
        bool mounted = false;         ///< lies on another file system than "/"
        bool atRolloverLevel = false; ///< at most 10 % free
        bool atTargetMinimum = false; ///< at most 15 % free
        bool atStopLevel = false;     ///< at most 8 % free
        double freePercent = 0.0;     ///< rounded to a whole number; superuser's reserve included
    };

    explicit MediaManager(QObject *parent = nullptr);

    QString activePath() const { return _activePath; }
    QString rolloverPath() const { return _rolloverPath; }
    bool isRolloverInProgress() const { return _rolloverInProgress; }
    /// Fresh measurements; false when the path is empty or its file system does not answer.
    bool getActivePathInfo(PathInfo &info) const;
    bool getRolloverPathInfo(PathInfo &info) const;
    /// Why a rollover is not possible now: 0 possible, 1 not enabled, 2 in progress, 3 not measurable,
    /// 4 no path, 5 not a mounted medium, 6 at most 15 % free. The first form measures first, so it answers
    /// 3 for an empty path and also while rollover is disabled: deliberately.
    int getRolloverInhibit() const;
    int getRolloverInhibit(const PathInfo &info) const;
    /// Measures \a path. A medium that hangs is a failed query after a tenth of a second, and while it hangs at once.
    static bool getPathInfo(const QString &path, PathInfo &info);
    /// The recording goes on on the rollover path already, because the active medium failed: the books are those
    /// after a rollover, whether one might have begun or not.
    void markWentOver();
    /// The check of the active medium, when the event is of this object's own timer.
    void timerEvent(QTimerEvent *event) override;

signals:
    void shouldRolloverNow();
    void rolloverStarted(const QString &activePath, const QString &rolloverPath);
    void rolloverCompleted(bool success, const QString &activePath, const QString &rolloverPath);
    void stopRecordNow();
    void storageInUse(bool isInUse);

public slots:
    void setRolloverEnabled(bool val);
    bool markRolloverInProgress();
    void markRolloverComplete(bool success);
    void setActivePath(const QString &);
    void setRolloverPath(const QString &);
    void setStorageInUse(bool);

private:
    void checkActivePath();

    int _timerId = 0;
    bool _rolloverEnabled = false;
    bool _rolloverInProgress = false;
    bool _storageInUse = false;
    QString _activePath;
    QString _rolloverPath;
    PathInfo _activeInfo;
};
