#include "clipinspector.h"

#include "libvanta/cliprecord.h"
#include "passeddescriptor.h"
#include "recoveryanswer.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <utility>

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

/// After so many files a fresh process goes on, with its limit of processor time ahead of it.
constexpr int filesPerProcess = 2000;
constexpr std::size_t longestAnswer = 8192;
/// Until the next part of a plan comes. A clip of ten hours on a slow disk has to be read first; the process's limit of
/// processor time ends one that is only busy.
constexpr int planPatienceMs = 600'000;

/// Ready to read within the time; false also when there is nothing more to come.
bool waitFor(int socket, int patienceMs)
{
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + std::chrono::milliseconds(patienceMs);
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        pollfd question{socket, POLLIN, 0};
        const int answer = ::poll(&question, 1, static_cast<int>(std::max<long long>(left, 0)));
        if (answer >= 0 || errno != EINTR)
            return answer > 0 && (question.revents & POLLIN);
    }
}

} // namespace

ClipInspector::ClipInspector(std::string program, int patienceMs)
    : _program(std::move(program)), _patienceMs(patienceMs)
{
}

ClipInspector::~ClipInspector()
{
    end();
}

bool ClipInspector::start()
{
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    std::string name = "rvgrok";
    char *arguments[] = {name.data(), nullptr};
    char *environment[] = {nullptr};
    const int problem = ::posix_spawn(&_process, _program.c_str(), &actions, &attributes, arguments,
                                      environment);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (problem != 0) {
        ::close(ends[0]);
        _process = -1;
        return false;
    }
    _socket = ends[0];
    _inspected = 0;
    return true;
}

/// A process that a dying medium holds cannot be waited for; it is left to the system then.
void ClipInspector::end()
{
    if (_socket >= 0)
        ::close(_socket);
    _socket = -1;
    if (_process > 0) {
        ::kill(_process, SIGKILL);
        for (int i = 0; i < 100 && ::waitpid(_process, nullptr, WNOHANG) == 0; ++i)
            ::usleep(1000);
    }
    _process = -1;
}

bool ClipInspector::receive(Clip &clip) const
{
    std::string answer(longestAnswer, '\0');
    if (!waitFor(_socket, _patienceMs))
        return false;
    const ssize_t length = ::recv(_socket, answer.data(), answer.size(), MSG_DONTWAIT);
    if (length < 1)
        return false;
    answer.resize(std::size_t(length));
    return lumo::media::clipOf(answer, clip);
}

/// Before and behind it other processes read: one that a file has taken over judges no other file.
std::optional<clip::RecoveryPlan> ClipInspector::planRecovery(int descriptor)
{
    end();
    std::optional<clip::RecoveryPlan> plan;
    if (start() && passDescriptor(_socket, descriptor, static_cast<char>(Wanted::RecoveryPlan))) {
        plan = receivePlan([this](std::span<std::byte> bytes) {
            return waitFor(_socket, planPatienceMs)
                ? long(::recv(_socket, bytes.data(), bytes.size(), MSG_DONTWAIT))
                : -1L;
        });
    }
    end();
    return plan;
}

ClipInspector::Outcome ClipInspector::inspect(int descriptor, Clip &clip)
{
    if (_inspected >= filesPerProcess)
        end();
    if (_process < 0 && !start())
        return Outcome::NotStarted;
    ++_inspected;
    if (!passDescriptor(_socket, descriptor)) {
        // It may have died of something else since the last file: once more with a fresh one.
        end();
        if (!start() || !passDescriptor(_socket, descriptor)) {
            end();
            return Outcome::NotStarted;
        }
    }
    Clip read;
    if (!receive(read)) {
        end();
        return Outcome::Bad;
    }
    clip = std::move(read);
    return clip.state() == ClipState::Bad ? Outcome::Bad : Outcome::Read;
}
