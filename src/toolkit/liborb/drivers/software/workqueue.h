#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace ferin {

/// Work for a pool of threads, handed out in the order it came. Thread-safe.
template <typename Item>
class WorkQueue
{
public:
    /// False once the queue is closed; \a item is then left as it is.
    bool push(Item &&item)
    {
        {
            const std::lock_guard lock(_mutex);
            if (_closed)
                return false;
            _items.push_back(std::move(item));
        }
        _wake.notify_one();
        return true;
    }

    /// Waits for the next item; false once the queue is closed.
    bool pop(Item &item)
    {
        std::unique_lock lock(_mutex);
        _wake.wait(lock, [this] { return _closed || !_items.empty(); });
        if (_closed)
            return false;
        item = std::move(_items.front());
        _items.pop_front();
        return true;
    }

    /// Takes no more and answers what nobody has begun.
    std::deque<Item> close()
    {
        std::deque<Item> left;
        {
            const std::lock_guard lock(_mutex);
            _closed = true;
            left.swap(_items);
        }
        _wake.notify_all();
        return left;
    }

    int size() const
    {
        const std::lock_guard lock(_mutex);
        return static_cast<int>(_items.size());
    }

private:
    mutable std::mutex _mutex;
    std::condition_variable _wake;
    std::deque<Item> _items;
    bool _closed = false;
};

/// \a asked workers; one a core when that is 0.
inline int workerCount(int asked)
{
    if (asked > 0)
        return asked;
    const unsigned cores = std::thread::hardware_concurrency();
    return cores > 0 ? static_cast<int>(cores) : 2;
}

} // namespace ferin
