#include "libprores/workers.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace prores {

struct ThreadPool::Private {
    std::mutex turn; // held by the caller of run()
    std::mutex mutex;
    std::condition_variable begun;
    std::condition_variable done;
    std::vector<std::thread> threads;
    void (*job)(void *, int) = nullptr;
    void *context = nullptr;
    int next = 0;     // job to take
    int jobs = 0;
    int running = 0;
    bool isEnding = false;

    // Takes jobs until none is left; called and left with the mutex locked.
    void work(std::unique_lock<std::mutex> &lock)
    {
        while (next < jobs) {
            const int index = next++;
            const auto call = job;
            void *with = context;
            ++running;
            lock.unlock();
            call(with, index);
            lock.lock();
            --running;
        }
        if (running == 0)
            done.notify_all();
    }

    void waitAndWork()
    {
        std::unique_lock lock(mutex);
        while (true) {
            begun.wait(lock, [this] { return isEnding || next < jobs; });
            if (isEnding)
                return;
            work(lock);
        }
    }
};

ThreadPool::ThreadPool(int count) : _d(std::make_unique<Private>())
{
    for (int i = 1; i < count; ++i)
        _d->threads.emplace_back([this] { _d->waitAndWork(); });
}

ThreadPool::~ThreadPool()
{
    {
        const std::scoped_lock lock(_d->mutex);
        _d->isEnding = true;
    }
    _d->begun.notify_all();
    for (std::thread &thread : _d->threads)
        thread.join();
}

int ThreadPool::count() const
{
    return static_cast<int>(_d->threads.size()) + 1;
}

void ThreadPool::run(int jobs, void (*job)(void *, int), void *context)
{
    const std::scoped_lock turn(_d->turn);
    std::unique_lock lock(_d->mutex);
    _d->job = job;
    _d->context = context;
    _d->next = 0;
    _d->jobs = jobs;
    _d->begun.notify_all();
    _d->work(lock);
    _d->done.wait(lock, [this] { return _d->running == 0; });
}

} // namespace prores
