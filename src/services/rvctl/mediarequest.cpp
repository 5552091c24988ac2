#include "services/rvctl/mediarequest.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <random>

namespace
{

/// Nobody else's: two numbers of 32 random bits.
std::string freshToken()
{
    std::random_device random;
    char token[20];
    std::snprintf(token, sizeof token, "%08x%08x", unsigned(random()), unsigned(random()));
    return token;
}

/// Looks at every answer as it comes, on the store client's thread.
class AnswerListener : public ConfigEventListener
{
public:
    using ConfigEventListener::ParamChanged;

    AnswerListener(StoreClient &store, std::string token) : _store(store), _token(std::move(token))
    {
        _store.addListener(this);
    }
    ~AnswerListener() override { _store.removeListener(this); }

    void ParamChanged(eParam_t id, std::string value, timeval) override
    {
        if (id != eParamMediaAnswer || !value.starts_with(_token + " ")) {
            return;
        }
        const std::lock_guard lock(_mutex);
        _answer = value.substr(_token.size() + 1);
        _wake.notify_all();
    }

    std::optional<std::string> wait(std::chrono::milliseconds patience)
    {
        std::unique_lock lock(_mutex);
        _wake.wait_for(lock, patience, [this] { return _answer.has_value(); });
        return _answer;
    }

private:
    StoreClient &_store;
    std::string _token;
    std::mutex _mutex;
    std::condition_variable _wake;
    std::optional<std::string> _answer;
};

} // namespace

std::optional<MediaAnswer> mediaAnswer(Session &session, const std::string &request,
                                       std::chrono::milliseconds patience)
{
    const std::string token = freshToken();
    AnswerListener listener(session.store(), token);
    if (!session.store().set(eParamMediaRequest, token + " " + request)) {
        return MediaAnswer{false, "the request is too long, or the parameter store is lost"};
    }
    const auto answer = listener.wait(patience);
    if (!answer) {
        return std::nullopt;
    }
    const std::string failed = "failed ";
    const bool isDone = *answer == "done";
    return MediaAnswer{isDone, isDone ? "" : answer->substr(answer->starts_with(failed) ? failed.size() : 0)};
}

int askMedia(Session &session, const std::string &request)
{
    const auto answer = mediaAnswer(session, request, session.options().timeout);
    if (!answer) {
        return session.fail(NotRunning, "the media service does not answer");
    }
    return answer->isDone ? session.succeed() : session.fail(Failed, answer->problem);
}
