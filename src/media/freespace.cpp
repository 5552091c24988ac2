#include "media/freespace.h"

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <sys/vfs.h>

namespace {

bool askSystem(const char *path, FileSystemUse &use)
{
    struct statfs64 fs = {};
    if (statfs64(path, &fs) == -1)
        return false;
    use.totalBlocks = fs.f_blocks;
    use.freeBlocks = fs.f_bfree;
    static_assert(sizeof(fs.f_fsid) == 8);
    std::memcpy(use.id.data(), &fs.f_fsid, use.id.size());
    return true;
}

/// The question that is put from now on, and how long its answer is waited for: far more than a healthy
/// medium needs, little enough for the event loop.
struct Asking {
    FileSystemQuestion question = askSystem;
    std::chrono::milliseconds patience = fileSystemPatience;
};

Asking &asking()
{
    static auto *now = new Asking; // outlives the workers that hang
    return *now;
}

/// One thread that asks about one path, again and again, and may hang in it.
class PathWorker
{
public:
    explicit PathWorker(std::string path) : _path(std::move(path)) {}

    /// Runs on the worker's own thread until it is retired.
    void run()
    {
        std::unique_lock lock(_mutex);
        for (;;) {
            _wanted.wait(lock, [this] { return _asked != _answered || _retired; });
            if (_retired)
                return;
            const auto number = _asked;
            const FileSystemQuestion question = _question;
            lock.unlock();
            FileSystemUse use;
            const bool ok = question(_path.c_str(), use);
            lock.lock();
            _use = use;
            _ok = ok;
            _answered = number;
            _done.notify_all();
        }
    }

    bool query(FileSystemUse &use)
    {
        std::unique_lock lock(_mutex);
        if (_asked != _answered)
            return false; // still hangs in an earlier question
        ++_asked;
        _question = asking().question;
        _wanted.notify_one();
        if (!_done.wait_for(lock, asking().patience, [this] { return _asked == _answered; }))
            return false;
        use = _use;
        return _ok;
    }

    /// Ends the thread when it is idle; false while it hangs in a question.
    bool retire()
    {
        const std::lock_guard lock(_mutex);
        if (_asked != _answered)
            return false;
        _retired = true;
        _wanted.notify_one();
        return true;
    }

private:
    const std::string _path;
    std::mutex _mutex;
    std::condition_variable _wanted;
    std::condition_variable _done;
    std::uint64_t _asked = 0;
    std::uint64_t _answered = 0;
    FileSystemQuestion _question;
    FileSystemUse _use;
    bool _ok = false;
    bool _retired = false;
};

constexpr std::size_t maxWorkers = 16;

/// The worker of a path. Threads are never joined: one that hangs in the kernel cannot be. When the bound is
/// reached an idle worker makes room; null when all of them hang.
std::shared_ptr<PathWorker> workerFor(const std::string &path)
{
    static auto *workers = new std::map<std::string, std::shared_ptr<PathWorker>>;
    const auto known = workers->find(path);
    if (known != workers->end())
        return known->second;
    if (workers->size() >= maxWorkers) {
        const auto idle =
            std::ranges::find_if(*workers, [](const auto &entry) { return entry.second->retire(); });
        if (idle == workers->end())
            return nullptr;
        workers->erase(idle);
    }
    auto worker = std::make_shared<PathWorker>(path);
    std::thread([worker] { worker->run(); }).detach();
    workers->emplace(path, worker);
    return worker;
}

} // namespace

void applyUse(const FileSystemUse &root, const FileSystemUse &medium, MediaManager::PathInfo &info)
{
    info.mounted = medium.id != root.id;
    info.freePercent = std::round(static_cast<double>(medium.freeBlocks) /
                                  static_cast<double>(medium.totalBlocks) * 100.0);
    info.atRolloverLevel = info.freePercent <= 10.0;
    info.atTargetMinimum = info.freePercent <= 15.0;
    info.atStopLevel = info.freePercent <= 8.0;
}

bool queryFileSystem(const QString &path, FileSystemUse &use)
{
    if (path.isEmpty())
        return false;
    const auto worker = workerFor(QFile::encodeName(path).toStdString());
    return worker && worker->query(use);
}

void setFileSystemQuestion(const FileSystemQuestion &question, std::chrono::milliseconds patience)
{
    asking() = {question ? question : FileSystemQuestion(askSystem), patience};
}
