#include "services/rvstore/storeserver.h"

#include "libconfig/packet.h"
#include "libconfig/storeuri.h"
#include "services/rvstore/valuefile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace
{

// Datagrams taken in before what is due is sent, so that no client keeps the others waiting.
constexpr int maxReceived = 64;
constexpr int receiveBufferBytes = 1 << 20;

// The kernel's filter of the socket, in its own machine's words: offsets count from the UDP header.
constexpr std::uint32_t udpHeaderBytes = 8;
sock_filter filterSteps[] = {
    BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0),
    BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, udpHeaderBytes + maxPacketBytes, 4, 0),
    BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, udpHeaderBytes + packetFrameBytes, 0, 3),
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, udpHeaderBytes),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, packetMagic, 0, 1),
    BPF_STMT(BPF_RET | BPF_K, 0xffffffff),
    BPF_STMT(BPF_RET | BPF_K, 0),
};
const sock_fprog packetFilter{std::size(filterSteps), filterSteps};

std::uint64_t randomNumber()
{
    std::random_device source;
    const std::uint64_t number = std::uint64_t(source()) << 32 | source();
    return number ? number : 1;
}

StoreTime currentTime()
{
    timespec monotonic{};
    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    timeval wall{};
    gettimeofday(&wall, nullptr);
    return {std::int64_t(monotonic.tv_sec) * 1000 + monotonic.tv_nsec / 1000000, wall};
}

sockaddr_in toSocketAddress(const Peer &peer)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(peer.port);
    address.sin_addr.s_addr = htonl(peer.host);
    return address;
}

} // namespace

StoreServer::StoreServer(ValueFile *file)
    : _file(file), _wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      _core(
          randomNumber(), {randomNumber(), randomNumber()},
          [this](const Peer &peer, const std::string &datagram) { send(peer, datagram); },
          file ? [file](eParam_t id, const ParamValue &value,
                        std::uint64_t revision) { file->keep(id, value, revision); }
               : StoreCore::Keep(),
          file ? [file] { file->hurry(); } : StoreCore::Hurry())
{
    static_assert(std::atomic<bool>::is_always_lock_free, "stop() is called by signal handlers");
}

StoreServer::~StoreServer()
{
    if (_socket >= 0) {
        close(_socket);
    }
    if (_wake >= 0) {
        close(_wake);
    }
}

bool StoreServer::open(std::uint16_t port, std::string &problem, std::uint32_t host)
{
    if (!bindSocket(port, host)) {
        problem = "cannot bind port " + std::to_string(port) + ": " + std::strerror(errno);
        return false;
    }
    if (_file) {
        restore(problem);
    }
    return true;
}

bool StoreServer::bindSocket(std::uint16_t port, std::uint32_t host)
{
    _socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address = toSocketAddress({host, port});
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    if (_wake < 0 || _socket < 0) {
        return false;
    }
    // What does not even begin like a packet takes no room from those that do.
    setsockopt(_socket, SOL_SOCKET, SO_ATTACH_FILTER, &packetFilter, sizeof packetFilter);
    setsockopt(_socket, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    const int on = 1;
    setsockopt(_socket, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    if (bind(_socket, plain, sizeof address) != 0) {
        return false;
    }
    socklen_t length = sizeof address;
    getsockname(_socket, plain, &length);
    _port = ntohs(address.sin_port);
    return true;
}

void StoreServer::restore(std::string &problem)
{
    std::size_t misfits = 0;
    for (const auto &[id, value] : _file->load(problem, [this] { wake(); })) {
        misfits += !_core.values().restore(id, value, currentTime().wall);
    }
    if (misfits > 0) {
        problem += (problem.empty() ? "" : "; ") + std::to_string(misfits) +
                   " kept values fit no parameter any more and are left out";
    }
}

void StoreServer::run()
{
    std::array<pollfd, 2> fds{{{_socket, POLLIN, 0}, {_wake, POLLIN, 0}}};
    while (!_stop) {
        const StoreTime now = currentTime();
        const std::int64_t next = _core.step(now);
        const std::int64_t wait = next < 0 ? -1 : std::max<std::int64_t>(next - now.monotonicMs, 0);
        if (poll(fds.data(), fds.size(), static_cast<int>(wait)) < 0 && errno != EINTR) {
            return;
        }
        if (fds[1].revents) {
            std::uint64_t count = 0;
            [[maybe_unused]] const ssize_t got = read(_wake, &count, sizeof count);
            if (_file) {
                const ValueFile::Progress progress = _file->progress();
                _core.kept(progress.revision);
                _core.setKeeping(!progress.isFailing);
            }
        }
        receive();
    }
}

void StoreServer::stop()
{
    _stop = true;
    wake();
}

void StoreServer::wake()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(_wake, &one, sizeof one);
}

void StoreServer::receive()
{
    // One byte more than a packet may have, so that a longer datagram is seen as such.
    std::array<std::uint8_t, maxPacketBytes + 1> buffer;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(std::uint32_t))> control;
    const StoreTime now = currentTime();
    for (int i = 0; i < maxReceived; i++) {
        sockaddr_in from{};
        iovec part{buffer.data(), buffer.size()};
        msghdr message{};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = recvmsg(_socket, &message, 0);
        if (size < 0) {
            return;
        }
        if (const cmsghdr *header = CMSG_FIRSTHDR(&message); header && header->cmsg_type == SO_RXQ_OVFL) {
            std::uint32_t missed = 0;
            std::memcpy(&missed, CMSG_DATA(header), sizeof missed);
            // The kernel's count wraps at 32 bits; ours does not.
            _missed += static_cast<std::uint32_t>(missed - static_cast<std::uint32_t>(_missed));
        }
        const Peer peer{ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)};
        _core.receive(peer, {buffer.data(), static_cast<std::size_t>(size)}, now);
    }
}

void StoreServer::send(const Peer &peer, const std::string &datagram)
{
    const sockaddr_in address = toSocketAddress(peer);
    // A datagram that is lost is asked for, or sent, again.
    sendto(_socket, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr *>(&address), sizeof address);
}
