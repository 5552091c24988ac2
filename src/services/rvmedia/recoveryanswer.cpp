#include "recoveryanswer.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/socket.h>

namespace
{

constexpr std::size_t numberBytes = 8;
constexpr std::size_t headBytes = 4 * numberBytes;
constexpr std::size_t mostBytesAMessage = 32768;

using Head = std::array<std::byte, headBytes>;

void put(Head &head, std::size_t at, std::uint64_t number)
{
    for (std::size_t i = 0; i < numberBytes; ++i)
        head[at * numberBytes + i] = static_cast<std::byte>(number >> (8 * i) & 0xff);
}

std::uint64_t numberAt(const Head &head, std::size_t at)
{
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < numberBytes; ++i)
        number |= std::to_integer<std::uint64_t>(head[at * numberBytes + i]) << (8 * i);
    return number;
}

bool sendMessage(int socket, std::span<const std::byte> bytes)
{
    ssize_t sent = -1;
    do {
        sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(bytes.size());
}

} // namespace

bool sendPlan(int socket, const clip::RecoveryPlan &plan)
{
    Head head{};
    put(head, 0, static_cast<std::uint64_t>(plan.kind));
    put(head, 1, plan.end);
    put(head, 2, static_cast<std::uint64_t>(plan.frames));
    put(head, 3, plan.movie.size());
    if (!sendMessage(socket, head))
        return false;
    std::span<const std::byte> rest(plan.movie);
    while (!rest.empty()) {
        const std::size_t length = std::min(rest.size(), mostBytesAMessage);
        if (!sendMessage(socket, rest.first(length)))
            return false;
        rest = rest.subspan(length);
    }
    return true;
}

std::optional<clip::RecoveryPlan> receivePlan(const MessageReader &next)
{
    Head head{};
    if (next(head) != static_cast<long>(head.size()))
        return std::nullopt;
    const std::uint64_t kind = numberAt(head, 0);
    const std::uint64_t frames = numberAt(head, 2);
    const std::uint64_t movieBytes = numberAt(head, 3);
    if (kind > static_cast<std::uint64_t>(clip::RecoveryPlan::Kind::Completed) ||
        frames > std::uint64_t(1) << 40 || movieBytes > clip::maxMovieBytes)
        return std::nullopt;
    clip::RecoveryPlan plan;
    plan.kind = static_cast<clip::RecoveryPlan::Kind>(kind);
    plan.end = numberAt(head, 1);
    plan.frames = static_cast<std::int64_t>(frames);
    std::array<std::byte, mostBytesAMessage> bytes;
    while (plan.movie.size() < movieBytes) {
        const long length = next(bytes);
        if (length < 1 || static_cast<std::uint64_t>(length) > movieBytes - plan.movie.size())
            return std::nullopt;
        plan.movie.insert(plan.movie.end(), bytes.begin(), bytes.begin() + length);
    }
    return plan;
}
