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
          randomNumber(),
          [this](const Peer &peer, const std::string &datagram) { send(peer, datagram); },
          [this](eParam_t id, const ParamValue &value) {
              if (_file) {
                  _file->keep(id, value);
              }
          })
{
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

bool StoreServer::open(std::uint16_t port, std::string &problem)
{
    _socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address = toSocketAddress({loopbackHost, port});
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    if (_wake < 0 || _socket < 0 || bind(_socket, plain, sizeof address) != 0) {
        problem = "cannot bind port " + std::to_string(port) + ": " + std::strerror(errno);
        return false;
    }
    setsockopt(_socket, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    socklen_t length = sizeof address;
    getsockname(_socket, plain, &length);
    _port = ntohs(address.sin_port);
    if (_file) {
        for (const auto &[id, value] : _file->load(problem)) {
            _core.values().restore(id, value, currentTime().wall);
        }
    }
    return true;
}

void StoreServer::run()
{
    std::array<pollfd, 2> fds{{{_socket, POLLIN, 0}, {_wake, POLLIN, 0}}};
    for (;;) {
        const StoreTime now = currentTime();
        const std::int64_t next = _core.step(now);
        const std::int64_t wait = next < 0 ? -1 : std::max<std::int64_t>(next - now.monotonicMs, 0);
        if (poll(fds.data(), fds.size(), static_cast<int>(wait)) < 0 && errno != EINTR) {
            return;
        }
        if (fds[1].revents) {
            return;
        }
        receive();
    }
}

void StoreServer::stop()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(_wake, &one, sizeof one);
}

void StoreServer::receive()
{
    // One byte more than a packet may have, so that a longer datagram is seen as such.
    std::array<std::uint8_t, maxPacketBytes + 1> buffer;
    const StoreTime now = currentTime();
    for (int i = 0; i < maxReceived; i++) {
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t size = recvfrom(_socket, buffer.data(), buffer.size(), 0,
                                      reinterpret_cast<sockaddr *>(&from), &length);
        if (size < 0) {
            return;
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
