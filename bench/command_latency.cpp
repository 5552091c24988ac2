// How long a transport command takes from the client that sets it to the state that all clients
// see: through the store to the daemon, through its engine, and back through the store.
//
// Record in E-E is published by the pass of the engine that the command itself starts. In Play
// ("shuttle": fast forward and rewind in turns, which moves the picture nowhere in the end) the
// engine first flushes the device and publishes with its next pass, which a picture from the medium
// or the next frame tick starts.

#include "figures.h"

#include "libconfig/config.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <string_view>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

// Transport commands and states, as the catalogue numbers them.
constexpr unsigned int keyPlay = 1;
constexpr unsigned int keyRecord = 3;
constexpr unsigned int keyStop = 4;
constexpr unsigned int keyForward = 5;
constexpr unsigned int keyRewind = 6;
constexpr unsigned int inStandbyOff = 1;
constexpr unsigned int inRecord = 2;
constexpr unsigned int inPlay = 3;
constexpr unsigned int inForward2x = 4;
constexpr unsigned int inReverse2x = 10;

constexpr int shuttles = 300;
constexpr int recordings = 200;
constexpr unsigned int storageReleased = 2;
constexpr int closeTimeoutMs = 3000;
constexpr int mostMissed = 10;
constexpr auto longestRun = std::chrono::seconds(60);

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

/// Sleeps so that any moment between two frames is as likely as any other.
void pause(std::minstd_rand &random)
{
    std::uniform_int_distribution<int> ms(30, 70);
    std::this_thread::sleep_for(std::chrono::milliseconds(ms(random)));
}

/// Fast forward and rewind in turns; the answer is how many states did not come.
int measureShuttle(Config &config, StateWatch &watch, std::vector<double> &figures)
{
    std::minstd_rand random(1);
    int missed = 0;
    double ms = 0.0;
    for (int i = 0; i < shuttles && missed < mostMissed; ++i) {
        const bool isForward = i % 2 == 0;
        if (press(config, watch, isForward ? keyForward : keyRewind,
                  isForward ? inForward2x : inReverse2x, ms))
            figures.push_back(ms);
        else
            ++missed;
        pause(random);
    }
    press(config, watch, keyPlay, inPlay, ms);
    return missed;
}

/// Waits until the clip is closed: before that the engine refuses to record again.
void waitForMedium(Config &config)
{
    unsigned int storage = 0;
    for (int ms = 0; ms < closeTimeoutMs && storage != storageReleased; ms += 10) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        config.getUInt32(eParamStorageInUse, storage);
    }
}

/// Short recordings; the way into each is measured, the way out waits for the medium.
int measureRecord(Config &config, StateWatch &watch, std::vector<double> &figures)
{
    std::minstd_rand random(1);
    int missed = 0;
    double ms = 0.0;
    const Clock::time_point end = Clock::now() + longestRun;
    for (int i = 0; i < recordings && missed < mostMissed && Clock::now() < end; ++i) {
        if (press(config, watch, keyRecord, inRecord, ms))
            figures.push_back(ms);
        else
            ++missed;
        pause(random);
        pause(random); // the first frame opens the clip
        if (!press(config, watch, keyStop, inStandbyOff, ms))
            ++missed;
        waitForMedium(config);
        pause(random);
    }
    return missed;
}

std::unique_ptr<Config> connection(const std::string &uri)
{
    return std::unique_ptr<Config>(ConfigFactoryImpl::GetInstance()->create(uri));
}

} // namespace

/// The one argument is "record" or "shuttle"; the transport is in E-E or in Play.
int main(int argc, char **argv)
{
    const std::string_view what = argc == 2 ? argv[1] : "";
    if (what != "record" && what != "shuttle") {
        std::fprintf(stderr, "usage: command_latency record|shuttle\n");
        return 1;
    }
    CreateDescriptors();
    StateWatch watch;
    const std::unique_ptr<Config> config = connection(GetConfigURI("udp"));
    const std::unique_ptr<Config> events = connection(GetEventsURI("udp"));
    if (!config || !events) {
        std::fprintf(stderr, "command_latency: no store\n");
        return 1;
    }
    events->registerListener(&watch);
    const bool isRecord = what == "record";
    unsigned int state = 0;
    const unsigned int wanted = isRecord ? inStandbyOff : inPlay;
    if (!config->getUInt32(eParamTransportState, state) || state != wanted) {
        std::fprintf(stderr, "command_latency: the transport is in state %u\n", state);
        return 1;
    }
    std::vector<double> figures;
    const int missed = isRecord ? measureRecord(*config, watch, figures)
                                : measureShuttle(*config, watch, figures);
    if (missed > 0)
        std::fprintf(stderr, "command_latency: %d states did not come\n", missed);
    return printFigures("command to state", "commands", figures, "ms", 2) ? 0 : 1;
}
