#include "libconfig/storeclient.h"

#include "libconfig/packet.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <random>
#include <utility>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

namespace
{

constexpr std::chrono::milliseconds farewellTime{300};
// Datagrams taken in before what is due is sent.
constexpr int maxReceived = 64;

std::uint64_t randomClient()
{
    std::random_device source;
    const std::uint64_t number = std::uint64_t(source()) << 32 | source();
    return number ? number : 1;
}

std::int64_t monotonicMs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int connectedSocket(StoreAddress address)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(address.port);
    to.sin_addr.s_addr = htonl(address.host);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof to) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

} // namespace

std::shared_ptr<StoreClient> StoreClient::open(StoreAddress address)
{
    using Key = std::pair<std::uint32_t, std::uint16_t>;
    // Never deleted, so that it outlives every static object that holds a connection.
    static auto *mutex = new std::mutex;
    static auto *clients = new std::map<Key, std::weak_ptr<StoreClient>>;
    const std::lock_guard lock(*mutex);
    auto &known = (*clients)[{address.host, address.port}];
    std::shared_ptr<StoreClient> client = known.lock();
    if (!client) {
        client = openPrivate(address);
        known = client;
    }
    return client;
}

std::shared_ptr<StoreClient> StoreClient::openPrivate(StoreAddress address)
{
    const int socket = connectedSocket(address);
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (socket < 0 || wake < 0 || timer < 0) {
        close(socket);
        close(wake);
        close(timer);
        return nullptr;
    }
    return std::shared_ptr<StoreClient>(new StoreClient(socket, wake, timer));
}

StoreClient::StoreClient(int socket, int wake, int timer)
    : _socket(socket), _wake(wake), _timer(timer),
      // A datagram that cannot be sent now is sent again, like any that is lost.
      _link(randomClient(), [socket](const std::string &datagram) {
          ::send(socket, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      })
{
    _thread = std::thread([this] { run(); });
}

StoreClient::~StoreClient()
{
    {
        std::unique_lock lock(_mutex);
        _link.wantKept(true);
        stepHere();
        // A store that is lost is not waited for.
        _progress.wait_for(lock, farewellTime, [this] { return _link.isIdle() || !_link.isReachable(); });
        _link.goodbye();
        _stop = true;
    }
    this->wake();
    _thread.join();
    close(_socket);
    close(_wake);
    close(_timer);
}

bool StoreClient::waitUntilReady(Milliseconds timeout)
{
    std::unique_lock lock(_mutex);
    return _progress.wait_for(lock, timeout, [this] { return _link.isReady() && !_isTelling; });
}

bool StoreClient::isReachable() const
{
    const std::lock_guard lock(_mutex);
    return _link.isReachable();
}

std::optional<ParamValue> StoreClient::value(eParam_t id) const
{
    const std::lock_guard lock(_mutex);
    return _link.value(id);
}

timeval StoreClient::when(eParam_t id) const
{
    const std::lock_guard lock(_mutex);
    return _link.when(id);
}

bool StoreClient::set(eParam_t id, const ParamValue &value)
{
    const std::lock_guard lock(_mutex);
    const bool isSet = _link.set(id, value);
    stepHere();
    return isSet;
}

/// Sends what is due from the caller's thread: the way out costs no change of threads, and the client's own sleeps
/// until an answer comes or the time for it is over. With _mutex held.
void StoreClient::stepHere()
{
    const std::int64_t next = _link.step(monotonicMs());
    if (next < _sleepsUntilMs) {
        _sleepsUntilMs = next;
        const itimerspec at{{}, {static_cast<time_t>(next / 1000), static_cast<long>(next % 1000) * 1000000}};
        timerfd_settime(_timer, TFD_TIMER_ABSTIME, &at, nullptr);
    }
}

StoreClient::Outcome StoreClient::flush(Milliseconds timeout)
{
    std::unique_lock lock(_mutex);
    _flushing++;
    _link.wantKept(true);
    stepHere();
    const bool isComplete = _progress.wait_for(lock, timeout, [this] { return _link.isIdle(); });
    _flushing--;
    _link.wantKept(_flushing > 0);
    return {isComplete, _link.takeRefusals(), _link.takeMoreRefusals()};
}

void StoreClient::addListener(ConfigEventListener *listener)
{
    const std::lock_guard lock(_dispatch);
    _listeners.push_back(listener);
    _toldReachable = isReachable();
    if (!_toldReachable) {
        listener->StoreReachable(false);
    }
}

void StoreClient::removeListener(ConfigEventListener *listener)
{
    const std::lock_guard lock(_dispatch);
    const auto found = std::ranges::find(_listeners, listener);
    if (found != _listeners.end()) {
        _listeners.erase(found);
    }
}

void StoreClient::run()
{
    std::array<pollfd, 3> fds{{{_socket, POLLIN, 0}, {_wake, POLLIN, 0}, {_timer, POLLIN, 0}}};
    for (;;) {
        std::int64_t wait = 0;
        {
            const std::lock_guard lock(_mutex);
            if (_stop) {
                return;
            }
            const std::int64_t now = monotonicMs();
            _sleepsUntilMs = _link.step(now);
            wait = std::max<std::int64_t>(_sleepsUntilMs - now, 0);
        }
        _progress.notify_all();
        deliverReachability();
        poll(fds.data(), fds.size(), static_cast<int>(wait));
        for (const pollfd &fd : {fds[1], fds[2]}) {
            std::uint64_t count = 0;
            [[maybe_unused]] const ssize_t got = fd.revents ? read(fd.fd, &count, sizeof count) : 0;
        }
        if (fds[0].revents) {
            receive();
        }
    }
}

void StoreClient::receive()
{
    // One byte more than a packet may have, so that a longer datagram is seen as such.
    std::array<std::uint8_t, maxPacketBytes + 1> buffer;
    std::vector<ConfigEvent> events;
    for (int i = 0; i < maxReceived; i++) {
        const ssize_t size = recv(_socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
        std::unique_lock lock(_mutex);
        if (size >= 0) {
            const bool wasIdle = _link.isIdle();
            _link.receive({buffer.data(), static_cast<std::size_t>(size)}, monotonicMs(), events);
            _isTelling = !events.empty();
            if (!wasIdle && _link.isIdle()) {
                // Who waits goes on while the rest is read.
                lock.unlock();
                _progress.notify_all();
            }
        } else if (errno == ECONNREFUSED) {
            _link.refused(monotonicMs());
        } else {
            break;
        }
    }
    _progress.notify_all();
    if (events.empty()) {
        return;
    }
    deliver(events);
    {
        const std::lock_guard lock(_mutex);
        _isTelling = false;
    }
    _progress.notify_all();
}

void StoreClient::deliver(const std::vector<ConfigEvent> &events)
{
    const std::lock_guard lock(_dispatch);
    for (const ConfigEvent &event : events) {
        // A listener may add or remove listeners in its call.
        const auto listeners = _listeners;
        for (ConfigEventListener *listener : listeners) {
            if (std::ranges::find(_listeners, listener) != _listeners.end()) {
                listener->ParamChanged(event);
            }
        }
    }
}

void StoreClient::deliverReachability()
{
    const bool isReachable = this->isReachable();
    const std::lock_guard lock(_dispatch);
    if (isReachable == _toldReachable || _listeners.empty()) {
        return;
    }
    _toldReachable = isReachable;
    const auto listeners = _listeners;
    for (ConfigEventListener *listener : listeners) {
        if (std::ranges::find(_listeners, listener) != _listeners.end()) {
            listener->StoreReachable(isReachable);
        }
    }
}

void StoreClient::wake()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(_wake, &one, sizeof one);
}
