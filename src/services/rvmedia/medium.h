#pragma once

#include "libvanta/mediaslot.h"
#include "mediumscanner.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

/// One medium, or the slot for one: listed when it is mounted and whenever the system tells of a file that
/// came, went or was completed, by a thread of its own that it may hold as long as it likes. Notices that come
/// thick and fast are answered ten times a second.
class Medium : public QObject
{
    Q_OBJECT
public:
    /// Is told, on the event loop, why something could not be done; nothing when it was.
    using Outcome = std::function<void(const std::string &problem)>;

    /// A slot has a medium only while something is mounted exactly there; any other path is what lies there.
    Medium(std::string path, bool isSlot, KnownClips &known, std::string inspector);
    ~Medium() override;

    const std::string &path() const { return _path; }
    bool isSlot() const { return _isSlot; }
    /// A medium is there and has been listed.
    bool isPresent() const { return _isListed && _listing.isMounted && _listing.error == 0; }
    /// What was seen last; empty before and without a medium.
    const MediumScanner::Listing &listing() const { return _listing; }
    bool isListed() const { return _isListed; }
    /// A medium is there and is listed for the first time, which has not taken long yet.
    bool isComing() const { return _isMounted && !_isListed && _coming.isActive(); }
    bool isBeingListed() const { return _isScanning; }
    /// Clips can be written to it, as far as is known: it is not read-only, no recording on it
    /// has failed, and it answers.
    bool isWritable() const;
    bool isMounted() const { return _isMounted; }
    /// A recording on it failed: what is written to it may be lost unseen. Until it is mounted anew it counts as one
    /// that cannot be written.
    void suspect() { _isSuspect = true; }
    /// It was given up, and is not used again before it is mounted anew.
    bool isEjected() const { return _isEjected; }
    /// What is in the slot, and how much of it is free as far as was measured.
    MediaSlot slot() const;

    /// The mount table has changed, and something is mounted at the path or not.
    void mountsChanged(bool isMounted);
    void scan();
    /// Edits the medium's play list; before \a done is told, the listing is the edited one. See editPlayList().
    void editPlayList(const std::string &edit, const Outcome &done = {});
    /// Measures the space on the medium and calls \a done, unless the medium hangs. One that cannot be measured is
    /// listed anew.
    void measure(const std::function<void()> &done);
    /// Gives the medium up, so that it can be taken out: once nobody records on it and \a mayGo, asked when all is on
    /// the medium, has no reason against it, it counts as not there any more, and is unmounted if that may be.
    /// \a done is told the outcome; a medium that cannot be unmounted stays given up until it is mounted anew.
    void eject(const std::function<std::string()> &mayGo, const Outcome &done);

signals:
    /// A medium has come and is being listed.
    void loading();
    /// The listing is a new one.
    void listed();
    /// A medium that has come takes long.
    void slow();

private:
    /// What the thread uses. It outlives a medium that hangs.
    struct Worker {
        Worker(int notices, KnownClips &known, const std::string &inspector)
            : scanner(notices, known, inspector)
        {
        }
        MediumScanner scanner;
        QObject object;
        QThread thread;
        std::list<Clip> clips; ///< as listed last; the thread's own
        int pendingEdits = 0;
    };

    void readNotices();
    void startWorker();
    void run();
    void take(Worker *worker, MediumScanner::Listing listing);
    void takeMeasure(const MediumScanner::Listing &measured);
    static void end(std::unique_ptr<Worker> worker);
    bool retire(Worker *worker);
    void giveUp();
    void unmount(Worker *worker);
    void ejectEnded(Worker *worker, const std::string &problem);

    std::string _path;
    bool _isSlot;
    KnownClips &_known;
    std::string _inspector;
    int _inotify = -1;
    std::unique_ptr<QSocketNotifier> _notifier;
    std::unique_ptr<Worker> _worker;
    std::vector<std::unique_ptr<Worker>> _abandoned; ///< held by media that are gone, or just ending
    QTimer _pause;
    QTimer _coming;
    QTimer _settle;
    MediumScanner::Listing _listing;
    bool _isMounted = false;
    bool _isListed = false;
    QElapsedTimer _measuring; ///< since a measurement is awaited
    int _pendingMeasures = 0;
    bool _isScanning = false;
    bool _scanAgain = false;
    bool _isEjected = false;
    bool _isEjecting = false;
    bool _isSuspect = false;
    Outcome _ejectDone;
};
