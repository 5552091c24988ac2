#include "services/rvctl/session.h"

#include "services/rvctl/names.h"

#include <cstdio>

namespace
{

constexpr std::chrono::milliseconds connectTime{700};
constexpr std::chrono::milliseconds answerTime{5000};
// How soon a lost store is noticed while waiting.
constexpr std::chrono::milliseconds lookAgain{100};

const char *reasonOf(lumo::store::Status status)
{
    switch (status) {
    case lumo::store::Status::UnknownParameter:
        return "the store does not know the parameter";
    case lumo::store::Status::WrongKind:
        return "the value is of another kind";
    case lumo::store::Status::OutOfRange:
        return "the value is out of range";
    case lumo::store::Status::TooLong:
        return "the value is too long";
    case lumo::store::Status::OtherEpoch:
        return "the store was lost on the way";
    case lumo::store::Status::NotKept:
        return "it is set, but the store cannot write its file and will forget it";
    default:
        return "the store is busy";
    }
}

} // namespace

Session::Session(const Options &options) : _options(options) {}

bool Session::connect()
{
    _store = StoreClient::open({loopbackHost, storePort()});
    if (_store && _store->waitUntilReady(connectTime)) {
        return true;
    }
    fail(NotRunning,
         "the recorder is not running: no parameter store on port " + std::to_string(storePort()));
    return false;
}

bool Session::connectToRecorder()
{
    if (!connect()) {
        return false;
    }
    if (number(eParamTransportRunning) == 1) {
        return true;
    }
    fail(NotRunning, "the recorder is not running");
    return false;
}

std::uint32_t Session::number(eParam_t id) const
{
    const auto value = _store->value(id);
    const auto *number = value ? std::get_if<std::uint32_t>(&*value) : nullptr;
    return number ? *number : 0;
}

std::string Session::text(eParam_t id) const
{
    const auto value = _store->value(id);
    const auto *text = value ? std::get_if<std::string>(&*value) : nullptr;
    return text ? *text : std::string();
}

std::string Session::shown(eParam_t id) const
{
    return valueText(*GetDescriptor(id), *_store->value(id));
}

int Session::send(eParam_t id, const ParamValue &value)
{
    return sendAll({{GetDescriptor(id), value}});
}

int Session::sendAll(const std::vector<std::pair<const ParamDescriptor *, ParamValue>> &values)
{
    for (const auto &[descriptor, value] : values) {
        if (!_store->set(descriptor->id(), value)) {
            return _store->isReachable() ? fail(Failed, "the value does not fit " + shortName(*descriptor))
                                         : fail(NotRunning, "the parameter store is lost");
        }
    }
    const auto outcome = _store->flush(answerTime);
    if (!outcome.isComplete) {
        return fail(NotRunning, "the parameter store does not answer");
    }
    if (!outcome.refused.empty()) {
        const StoreRefusal &refusal = outcome.refused.front();
        return fail(Failed, shortName(*GetDescriptor(refusal.id)) + ": " + reasonOf(refusal.status));
    }
    return Done;
}

int Session::succeed(const std::string &members) const
{
    if (_options.json) {
        std::printf("{\"ok\": true%s}\n", members.c_str());
    }
    return Done;
}

int Session::fail(int code, const std::string &message) const
{
    if (_options.json) {
        std::printf("{\"ok\": false, \"code\": %d, \"error\": %s}\n", code,
                    jsonString(message).c_str());
    } else {
        std::fprintf(stderr, "rvctl: %s\n", message.c_str());
    }
    return code;
}

Waiter::Waiter(StoreClient &store) : _store(store)
{
    _store.addListener(this);
}

Waiter::~Waiter()
{
    _store.removeListener(this);
}

void Waiter::ParamChanged(ConfigEvent)
{
    const std::lock_guard lock(_mutex);
    _events++;
    _wake.notify_all();
}

Waiter::Result Waiter::waitFor(const std::function<bool()> &isMet,
                               std::chrono::milliseconds timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(_mutex);
    for (;;) {
        const std::uint64_t seen = _events;
        lock.unlock();
        const bool met = isMet();
        const bool isLost = !_store.isReachable();
        lock.lock();
        if (met || isLost) {
            return met ? Result::Met : Result::StoreLost;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now >= end) {
            return Result::TimedOut;
        }
        _wake.wait_until(lock, std::min(end, now + lookAgain), [&] { return _events != seen; });
    }
}
