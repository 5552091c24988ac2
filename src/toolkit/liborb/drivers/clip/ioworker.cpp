#include "liborb/drivers/clip/ioworker.h"

#include "liborb/orbthread.h"

#include <QObject>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

// The way back
// -------------------------------------------------------------------------------------------

struct AnswerBox::State
{
    std::mutex mutex; ///< held only for the posting itself
    std::unique_ptr<QObject> receiver = std::make_unique<QObject>();

    bool isOpen()
    {
        const std::lock_guard lock(mutex);
        return receiver != nullptr;
    }
};

AnswerBox::AnswerBox() : _state(std::make_shared<State>())
{
}

void AnswerBox::post(Answer answer) const
{
    const std::lock_guard lock(_state->mutex);
    if (!_state->receiver)
        return;
    // On its way when the box is closed, it must not run any more.
    auto unlessClosed = [state = _state, answer = std::move(answer)] {
        if (state->isOpen())
            answer();
    };
    QMetaObject::invokeMethod(_state->receiver.get(), std::move(unlessClosed),
                              Qt::QueuedConnection);
}

void AnswerBox::close()
{
    std::unique_ptr<QObject> receiver;
    {
        const std::lock_guard lock(_state->mutex);
        receiver = std::move(_state->receiver);
    }
    // It may be one of its own answers that closes the box.
    if (receiver)
        receiver.release()->deleteLater();
}

// The thread
// ---------------------------------------------------------------------------------------------

namespace {

std::atomic<int> workersLeftBehind{0};

} // namespace

struct IoWorker::State
{
    std::mutex mutex;
    std::condition_variable work;
    std::condition_variable over;
    std::deque<Job> jobs;
    Job idleJob;
    std::vector<Job> dropped;
    std::thread thread;
    quint64 jobsDone = 0;
    bool isStopping = false;
    bool isOver = false;
    bool isLeftBehind = false;

    void run();
};

/// Jobs run and are destroyed outside the lock: both may wait for a medium.
void IoWorker::State::run()
{
    std::unique_lock lock(mutex);
    while (true) {
        work.wait(lock, [this] { return !jobs.empty() || !dropped.empty() || isStopping; });
        if (!dropped.empty()) {
            std::vector<Job> rubbish = std::exchange(dropped, {});
            lock.unlock();
            rubbish.clear();
            lock.lock();
            continue;
        }
        if (jobs.empty())
            break;
        Job job = std::move(jobs.front());
        jobs.pop_front();
        lock.unlock();
        job();
        job = nullptr;
        lock.lock();
        ++jobsDone;
        if (!jobs.empty() || isStopping || !idleJob)
            continue;
        Job idle = idleJob;
        lock.unlock();
        idle();
        idle = nullptr;
        lock.lock();
    }
    Job idle = std::exchange(idleJob, nullptr);
    lock.unlock();
    idle = nullptr;
    lock.lock();
    isOver = true;
    if (isLeftBehind)
        --workersLeftBehind;
    over.notify_all();
}

IoWorker::IoWorker() : _state(std::make_shared<State>())
{
}

IoWorker::~IoWorker()
{
    finish(std::chrono::milliseconds(0));
}

bool IoWorker::start()
{
    try {
        // The thread holds the state, which outlives a worker left behind.
        _state->thread = std::thread([state = _state] {
            orbNameThread("clip I/O");
            orbRankThread(OrbWork::Background);
            state->run();
        });
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

void IoWorker::post(Job job)
{
    const std::lock_guard lock(_state->mutex);
    if (_state->isStopping)
        return;
    _state->jobs.push_back(std::move(job));
    _state->work.notify_one();
}

void IoWorker::setIdleJob(Job job)
{
    const std::lock_guard lock(_state->mutex);
    _state->idleJob = std::move(job);
}

void IoWorker::discard()
{
    const std::lock_guard lock(_state->mutex);
    for (Job &job : _state->jobs)
        _state->dropped.push_back(std::move(job));
    _state->jobs.clear();
    if (_state->idleJob)
        _state->dropped.push_back(std::exchange(_state->idleJob, nullptr));
    _state->work.notify_one();
}

quint64 IoWorker::jobsDone() const
{
    const std::lock_guard lock(_state->mutex);
    return _state->jobsDone;
}

void IoWorker::stop()
{
    const std::lock_guard lock(_state->mutex);
    _state->isStopping = true;
    _state->work.notify_one();
}

bool IoWorker::isOver() const
{
    const std::lock_guard lock(_state->mutex);
    return _state->isOver;
}

bool IoWorker::finish(std::chrono::milliseconds patience)
{
    if (!_state->thread.joinable())
        return true;
    bool isOver = false;
    {
        std::unique_lock lock(_state->mutex);
        _state->isStopping = true;
        _state->work.notify_one();
        isOver = _state->over.wait_for(lock, patience, [this] { return _state->isOver; });
        if (!isOver) {
            _state->isLeftBehind = true;
            ++workersLeftBehind;
        }
    }
    if (isOver)
        _state->thread.join();
    else
        _state->thread.detach();
    return isOver;
}

int IoWorker::leftBehind()
{
    return workersLeftBehind;
}
