#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

/// Tells other threads how long one thread has been waiting for a medium: a thread that hangs in
/// the system cannot say so itself.
class MediumCall
{
public:
    /// The thread waits for the medium as long as this lives.
    class Scope
    {
    public:
        explicit Scope(MediumCall &call) : _call(call) { _call._since = now(); }
        ~Scope() { _call._since = idle; }
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

    private:
        MediumCall &_call;
    };

    /// How long the call that is under way has taken; zero when there is none. Any thread.
    std::chrono::milliseconds duration() const
    {
        const std::int64_t since = _since;
        return std::chrono::milliseconds(since == idle ? 0 : now() - since);
    }

private:
    static constexpr std::int64_t idle = -1;

    static std::int64_t now()
    {
        using namespace std::chrono;
        return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
    }

    std::atomic<std::int64_t> _since{idle};
};
