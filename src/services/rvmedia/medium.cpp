#include "medium.h"

#include "liborb/orblog.h"
#include "playlistfile.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

namespace
{

constexpr const char *logFile = "medium.cpp";
constexpr int pauseMs = 100;
constexpr int settleMs = 500;
constexpr int comingMs = 1500;
constexpr int endPatienceMs = 2000;
constexpr std::size_t mostAbandoned = 8;
constexpr int mostPendingEdits = 100;

} // namespace

Medium::Medium(std::string path, bool isSlot, KnownClips &known, std::string inspector)
    : _path(std::move(path)), _isSlot(isSlot), _known(known), _inspector(std::move(inspector)),
      _inotify(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (_inotify >= 0) {
        _notifier = std::make_unique<QSocketNotifier>(_inotify, QSocketNotifier::Read);
        connect(_notifier.get(), &QSocketNotifier::activated, this, &Medium::readNotices);
    }
    _pause.setSingleShot(true);
    _pause.setTimerType(Qt::PreciseTimer);
    connect(&_pause, &QTimer::timeout, this, &Medium::run);
    // A file's space is free a while after its name is gone.
    _settle.setSingleShot(true);
    connect(&_settle, &QTimer::timeout, this, &Medium::scan);
    _coming.setSingleShot(true);
    connect(&_coming, &QTimer::timeout, this, &Medium::slow);
    startWorker();
}

Medium::~Medium()
{
    end(std::move(_worker));
    for (auto &worker : _abandoned)
        end(std::move(worker));
    _notifier.reset();
    if (_inotify >= 0)
        ::close(_inotify);
}

void Medium::startWorker()
{
    _worker = std::make_unique<Worker>(_inotify, _known, _inspector);
    _worker->object.moveToThread(&_worker->thread);
    _worker->thread.setObjectName(QStringLiteral("medium"));
    connect(&_worker->thread, &QThread::finished, this, [this, worker = _worker.get()] {
        std::erase_if(_abandoned, [worker](const auto &old) { return old.get() == worker; });
    });
    _worker->thread.start();
}

/// A thread that a medium holds is left to its fate, with all that it uses.
void Medium::end(std::unique_ptr<Worker> worker)
{
    worker->thread.quit();
    if (!worker->thread.wait(endPatienceMs))
        (void)worker.release();
}

void Medium::readNotices()
{
    alignas(inotify_event) std::array<char, 16384> notices;
    while (::read(_inotify, notices.data(), notices.size()) > 0) {
    }
    if (_isSlot && !_isMounted)
        return;
    _settle.start(settleMs);
    scan();
}

void Medium::mountsChanged(bool isMounted)
{
    const bool hasCome = isMounted && !std::exchange(_isMounted, isMounted);
    _isMounted = isMounted;
    if (!isMounted)
        _isEjected = false;
    if (!isMounted || hasCome)
        _isSuspect = false;
    if (_isSlot && !isMounted) {
        _settle.stop();
        _coming.stop();
        _listing = {};
        const bool wasListed = std::exchange(_isListed, false);
        // What hangs in a medium that is gone must not keep the next one waiting.
        const bool isBusy = _isScanning || _isEjecting || _pendingMeasures > 0 || _worker->pendingEdits > 0;
        if (isBusy && _abandoned.size() < mostAbandoned) {
            _abandoned.push_back(std::move(_worker));
            startWorker();
            _isScanning = false;
            _pendingMeasures = 0;
            if (std::exchange(_isEjecting, false))
                std::exchange(_ejectDone, {})(std::string());
        }
        if (wasListed)
            emit listed();
        return;
    }
    if (hasCome) {
        _coming.start(comingMs);
        emit loading();
    }
    scan();
}

/// One listing at a time; notices that come meanwhile make one more, after a pause.
void Medium::scan()
{
    _scanAgain = true;
    if (!_isEjected && !_isScanning && !_pause.isActive())
        run();
}

void Medium::run()
{
    if (_isScanning || _isEjected || !std::exchange(_scanAgain, false))
        return;
    _isScanning = true;
    Worker *worker = _worker.get();
    QMetaObject::invokeMethod(&worker->object, [this, worker] {
        auto listing = worker->scanner.scan(_path);
        worker->clips = listing.clips;
        QMetaObject::invokeMethod(
            this, [this, worker, listing = std::move(listing)] { take(worker, listing); });
    });
}

void Medium::editPlayList(const std::string &edit, const Outcome &done)
{
    if (!isPresent() || _worker->pendingEdits >= mostPendingEdits) {
        orbLogOutput(2, logFile, __LINE__, "Can't edit the play list of %s\n", _path.c_str());
        if (done)
            done(isPresent() ? "too many edits wait" : "no medium is in " + _path);
        return;
    }
    Worker *worker = _worker.get();
    ++worker->pendingEdits;
    QMetaObject::invokeMethod(&worker->object, [this, worker, edit, done] {
        std::string problem;
        const bool isEdited = editPlayListFile(_path, edit, problem);
        if (!isEdited)
            orbLogOutput(2, logFile, __LINE__, "Can't edit the play list of %s: %s\n", _path.c_str(),
                         problem.c_str());
        // Who is told the outcome sees it; others are told by the listing that follows.
        std::optional<std::list<Clip>> playList;
        if (isEdited && done)
            playList = readPlayList(_path, worker->clips);
        QMetaObject::invokeMethod(this, [this, worker, done, problem, playList] {
            --worker->pendingEdits;
            const bool isCurrent = !retire(worker);
            if (playList && isCurrent && isPresent()) {
                _listing.playList = *playList;
                emit listed();
            }
            if (done)
                done(problem);
        });
    });
}

/// True when the worker was left to a medium that had it, which it has no longer. Its thread ends when it gets to
/// it, and takes what it uses along; nobody waits for that.
bool Medium::retire(Worker *worker)
{
    if (worker == _worker.get())
        return false;
    const auto old = std::ranges::find(_abandoned, worker, &std::unique_ptr<Worker>::get);
    if (old != _abandoned.end())
        (*old)->thread.quit();
    return true;
}

void Medium::take(Worker *worker, MediumScanner::Listing listing)
{
    if (retire(worker))
        return;
    _isScanning = false;
    if (listing.watchError != 0 && listing.watchError != _listing.watchError)
        orbLogOutput(2, logFile, __LINE__, "Can't watch %s: %s\n", _path.c_str(),
                     std::strerror(listing.watchError));
    _pause.start(pauseMs);
    if (_isEjected || (_isSlot && !_isMounted))
        return;
    _listing = std::move(listing);
    _isListed = true;
    _coming.stop();
    emit listed();
}
