// How long a transport command takes from the client that sets it to the state that all clients see: through
// the store to the daemon, through its engine, and back through the store.
//
// The transport must be in Play. The keys are fast forward and rewind in turns, each of which changes the
// published state at once and moves the picture nowhere in the end; no frame is waited for on the way.

#include "figures.h"

#include "libconfig/config.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int keyForward = 5;
constexpr unsigned int keyRewind = 6;
constexpr unsigned int forward2x = 4;
constexpr unsigned int reverse2x = 10;
constexpr unsigned int stateOfPlay = 3;
constexpr unsigned int keyPlay = 1;
constexpr int commands = 300;

/// Notes when the state last asked for is published.
class StateWatch : public ConfigEventListener
{
public:
    using ConfigEventListener::ParamChanged;

    void ParamChanged(ConfigEvent event) override
    {
        const auto *number = std::get_if<std::uint32_t>(&event.value);
        if (event.id != eParamTransportState || number == nullptr)
            return;
        const std::lock_guard lock(_mutex);
        if (*number != _wanted || _isSeen)
            return;
        _seen = Clock::now();
        _isSeen = true;
        _wake.notify_all();
    }

    void expect(unsigned int state)
    {
        const std::lock_guard lock(_mutex);
        _wanted = state;
        _isSeen = false;
    }

    bool wait(Clock::time_point &seen)
    {
        std::unique_lock lock(_mutex);
        if (!_wake.wait_for(lock, std::chrono::seconds(2), [this] { return _isSeen; }))
            return false;
        seen = _seen;
        return true;
    }

private:
    std::mutex _mutex;
    std::condition_variable _wake;
    Clock::time_point _seen;
    unsigned int _wanted = 0;
    bool _isSeen = false;
};

/// One command; false when its state did not come.
bool press(Config &config, StateWatch &watch, unsigned int key, unsigned int state, double &ms)
{
    watch.expect(state);
    const Clock::time_point begun = Clock::now();
    if (!config.setUInt32(eParamTransportCommand, key))
        return false;
    Clock::time_point seen;
    if (!watch.wait(seen))
        return false;
    ms = std::chrono::duration<double, std::milli>(seen - begun).count();
    return true;
}

std::unique_ptr<Config> connection(const std::string &uri)
{
    return std::unique_ptr<Config>(ConfigFactoryImpl::GetInstance()->create(uri));
}

} // namespace

int main()
{
    CreateDescriptors();
    StateWatch watch;
    const std::unique_ptr<Config> config = connection(GetConfigURI("udp"));
    const std::unique_ptr<Config> events = connection(GetEventsURI("udp"));
    if (!config || !events) {
        std::fprintf(stderr, "command_latency: no store\n");
        return 1;
    }
    events->registerListener(&watch);
    unsigned int state = 0;
    if (!config->getUInt32(eParamTransportState, state) || state != stateOfPlay) {
        std::fprintf(stderr, "command_latency: the transport is not in Play but in state %u\n", state);
        return 1;
    }

    // Any moment between two frames is as likely as any other.
    std::minstd_rand random(1);
    std::uniform_int_distribution<int> pauseMs(30, 70);
    std::vector<double> figures;
    int missed = 0;
    double ms = 0.0;
    for (int i = 0; i < commands && missed < 10; ++i) {
        const bool isForward = i % 2 == 0;
        if (press(*config, watch, isForward ? keyForward : keyRewind, isForward ? forward2x : reverse2x, ms))
            figures.push_back(ms);
        else
            ++missed;
        std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs(random)));
    }
    press(*config, watch, keyPlay, stateOfPlay, ms);
    if (missed > 0)
        std::fprintf(stderr, "command_latency: %d states did not come\n", missed);
    return printFigures("command to state", "commands", figures, "ms", 2) ? 0 : 1;
}
