#include "libvanta/withintime.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

constexpr int mostThreads = 8;

std::atomic<int> &threads()
{
    static std::atomic<int> count {0};
    return count;
}

struct Meeting {
    std::mutex mutex;
    std::condition_variable changed;
    bool isDone = false;
};

} // namespace

bool lumo::utils::withinTime(std::chrono::milliseconds patience, const std::function<void()> &work)
{
    if (++threads() > mostThreads) {
        --threads();
        return false;
    }
    const auto meeting = std::make_shared<Meeting>();
    const auto run = [meeting, work] {
        work();
        --threads();
        const std::lock_guard lock(meeting->mutex);
        meeting->isDone = true;
        meeting->changed.notify_one();
    };
    try {
        std::thread(run).detach();
    } catch (const std::system_error &) { // no thread is to be had
        --threads();
        return false;
    }
    std::unique_lock lock(meeting->mutex);
    return meeting->changed.wait_for(lock, patience, [&] { return meeting->isDone; });
}
