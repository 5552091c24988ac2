#pragma once

#include <memory>

namespace prores {

/// What runs the parts of a frame side by side. The caller of the encoder gives its own, or a ThreadPool.
class Workers
{
public:
    virtual ~Workers() = default;
    /// How many jobs run at the same time.
    virtual int count() const = 0;
    /// Calls \a job with \a context and each of 0 .. jobs - 1, once each in any order and on any thread;
    /// returns when all have returned.
    virtual void run(int jobs, void (*job)(void *context, int index), void *context) = 0;
};

/// Threads that wait for frames; the caller of run() works too, so \a count of 2 starts one thread.
class ThreadPool final : public Workers
{
public:
    explicit ThreadPool(int count);
    ~ThreadPool() override;
    ThreadPool(const ThreadPool &) = delete;
    ThreadPool &operator=(const ThreadPool &) = delete;

    int count() const override;
    /// One run at a time: further callers wait for their turn.
    void run(int jobs, void (*job)(void *, int), void *context) override;

private:
    struct Private;
    std::unique_ptr<Private> _d;
};

} // namespace prores
