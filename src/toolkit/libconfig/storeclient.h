#pragma once

#include "libconfig/config.h"
#include "libconfig/storelink.h"
#include "libconfig/storeuri.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// A process's view of one parameter store: a mirror of every value, kept current by a thread of
/// its own, which also sends what is set and tells listeners of changes. Nothing here waits for the
/// store except where a time is given. All functions may be called from any thread.
class StoreClient
{
public:
    using Milliseconds = std::chrono::milliseconds;

    /// What has become of sets since the last flush().
    struct Outcome {
        bool isComplete;                   ///< all were answered in time
        std::vector<StoreRefusal> refused; ///< what the store refused, or was lost on the way
        std::uint64_t moreRefused;         ///< how many more of them there were
    };

    /// The view of the store at an address that all of this process shares; null when sockets fail.
    static std::shared_ptr<StoreClient> open(StoreAddress address);
    /// A view of its own, for tests.
    static std::shared_ptr<StoreClient> openPrivate(StoreAddress address);

    /// Gives what was set up to 300 ms to arrive. Not from a listener's call.
    ~StoreClient();
    StoreClient(const StoreClient &) = delete;
    StoreClient &operator=(const StoreClient &) = delete;

    /// Wait for the first complete list of values, until listeners have been told of it: one that is added then hears
    /// of later changes only. False when it has not come in time. Not for a listener's call.
    bool waitUntilReady(Milliseconds timeout);
    /// Whether the store answers.
    bool isReachable() const;

    /// The mirrored value; none when the parameter is unknown.
    std::optional<ParamValue> value(eParam_t id) const;
    /// When the store's value was set; zero when it never was.
    timeval when(eParam_t id) const;
    /// Queue a value. False when it does not fit, too many wait, or the store does not answer; in
    /// the latter case the last value of a parameter that is not momentary is sent when it does.
    bool set(eParam_t id, const ParamValue &value);
    /// Wait until the store has answered all sets so far, and has those of kept parameters on its medium.
    Outcome flush(Milliseconds timeout);

    /// Tell a listener of every change from now on, on this client's thread; and at once, in the
    /// caller's, that the store is lost, if it is.
    void addListener(ConfigEventListener *listener);
    /// Returns when no call to the listener is under way any more, unless called from such a call.
    void removeListener(ConfigEventListener *listener);

private:
    StoreClient(int socket, int wake, int timer);

    void run();
    void stepHere();
    void receive();
    void deliver(const std::vector<ConfigEvent> &events);
    void deliverReachability();
    void wake();

    int _socket;
    int _wake;
    int _timer;
    mutable std::mutex _mutex; ///< guards what follows but for the listeners
    std::condition_variable _progress;
    StoreLink _link;
    bool _isTelling = false; ///< the link has changes that listeners have yet to hear of
    bool _stop = false;
    int _flushing = 0;
    std::int64_t _sleepsUntilMs = 0; ///< when the thread looks again by itself
    std::recursive_mutex _dispatch; ///< held while listeners are called; never taken inside _mutex
    bool _toldReachable = true;     ///< what listeners have been told; guarded by _dispatch
    std::vector<ConfigEventListener *> _listeners;
    std::thread _thread;
};
