#pragma once

#include "libconfig/storeclient.h"

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// How the program ends.
enum ExitCode {
    Done = 0,
    Failed = 1,
    Usage = 2,
    NotRunning = 3,
};

/// The command line: options and words.
struct Options {
    bool json = false;
    bool wait = false;
    bool isTimed = false; ///< a time was given
    std::chrono::milliseconds timeout{5000};
    bool byName = false;
    std::vector<std::string> words;
};

/// One run of the program: the store, and how results are told.
class Session
{
public:
    explicit Session(const Options &options);

    const Options &options() const { return _options; }
    StoreClient &store() { return *_store; }

    /// Whether the store answers; tells the user when not.
    bool connect();
    /// Whether the store answers and the transport daemon runs; tells the user when not.
    bool connectToRecorder();

    std::uint32_t number(eParam_t id) const;
    std::string text(eParam_t id) const;
    /// The value of a parameter for people.
    std::string shown(eParam_t id) const;

    /// Set and wait for the store's answer; tells the user when it fails.
    int send(eParam_t id, const ParamValue &value);

    /// Set them all and wait for the store's answers; tells the user when one fails. Should the store be lost on
    /// the way, some are set; doing it again does no harm.
    int sendAll(const std::vector<std::pair<const ParamDescriptor *, ParamValue>> &values);

    /// Tell of success, in JSON with some more members (", \"a\": 1" or nothing).
    int succeed(const std::string &members = {}) const;
    /// Tell of a failure and answer with its code.
    int fail(int code, const std::string &message) const;

private:
    Options _options;
    std::shared_ptr<StoreClient> _store;
};

/// Waits until a condition on the mirrored values holds.
class Waiter : public ConfigEventListener
{
public:
    enum class Result {
        Met,
        TimedOut,
        StoreLost,
    };

    using ConfigEventListener::ParamChanged;

    explicit Waiter(StoreClient &store);
    ~Waiter() override;

    void ParamChanged(ConfigEvent event) override;
    Result waitFor(const std::function<bool()> &isMet, std::chrono::milliseconds timeout);

private:
    StoreClient &_store;
    std::mutex _mutex;
    std::condition_variable _wake;
    std::uint64_t _events = 0;
};
