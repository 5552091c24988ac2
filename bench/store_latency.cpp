// How long a set takes to reach another client's listener: median and 99th percentile over
// loopback.

#include "libconfig/storeclient.h"
#include "services/rvstore/storeserver.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

class Stopwatch : public ConfigEventListener
{
public:
    using ConfigEventListener::ParamChanged;

    void ParamChanged(ConfigEvent) override
    {
        const std::lock_guard lock(_mutex);
        _heard = Clock::now();
        _isHeard = true;
        _wake.notify_all();
    }

    bool wait(Clock::time_point &heard)
    {
        std::unique_lock lock(_mutex);
        const bool isHeard =
            _wake.wait_for(lock, std::chrono::seconds(2), [this] { return _isHeard; });
        heard = _heard;
        _isHeard = false;
        return isHeard;
    }

private:
    std::mutex _mutex;
    std::condition_variable _wake;
    Clock::time_point _heard;
    bool _isHeard = false;
};

} // namespace

int main()
{
    StoreServer server(nullptr);
    std::string problem;
    if (!server.open(0, problem)) {
        std::fprintf(stderr, "store_latency: %s\n", problem.c_str());
        return 1;
    }
    std::thread thread([&server] { server.run(); });
    Stopwatch stopwatch;
    std::vector<double> microseconds;
    {
        const auto sender = StoreClient::openPrivate({loopbackHost, server.port()});
        const auto receiver = StoreClient::openPrivate({loopbackHost, server.port()});
        sender->waitUntilReady(std::chrono::seconds(2));
        receiver->waitUntilReady(std::chrono::seconds(2));
        receiver->addListener(&stopwatch);
        for (std::uint32_t i = 0; i < 3000; i++) {
            const auto begun = Clock::now();
            Clock::time_point heard;
            sender->set(eParamGotoClipIndex, i);
            if (!stopwatch.wait(heard)) {
                std::fprintf(stderr, "store_latency: event %u did not come\n", i);
                continue;
            }
            microseconds.push_back(
                std::chrono::duration<double, std::micro>(heard - begun).count());
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    }
    server.stop();
    thread.join();
    std::ranges::sort(microseconds);
    if (microseconds.empty()) {
        return 1;
    }
    std::printf("set to event, %zu sets: median %.0f us, 99 %% %.0f us, worst %.0f us\n",
                microseconds.size(), microseconds[microseconds.size() / 2],
                microseconds[microseconds.size() * 99 / 100], microseconds.back());
}
