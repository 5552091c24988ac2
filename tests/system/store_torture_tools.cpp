#include "store_torture.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <queue>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <csignal>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace torture
{

namespace
{

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int udpSocket()
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    check(fd >= 0, "no socket");
    return fd;
}

std::uint16_t portOf(int fd)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
}

volatile std::sig_atomic_t isClean = 0;

/// A datagram on its way.
struct Letter {
    Clock::time_point due;
    std::uint64_t number;
    std::size_t client;
    bool isToStore;
    std::string datagram;

    bool operator<(const Letter &other) const { return std::tie(due, number) > std::tie(other.due, other.number); }
};

/// A client behind the proxy, and the socket that stands for it before the store.
struct Guest {
    sockaddr_in address;
    int socket;
};

/// The network of the proxy: what is on its way, and whom it belongs to.
class BadNetwork
{
public:
    BadNetwork(int front, std::uint16_t storePort, std::uint32_t seed)
        : _front(front), _storePort(storePort), _random(seed)
    {
    }

    void serve()
    {
        std::vector<pollfd> fds{{_front, POLLIN, 0}};
        for (const Guest &guest : _guests) {
            fds.push_back({guest.socket, POLLIN, 0});
        }
        poll(fds.data(), fds.size(), _letters.empty() ? 50 : 1);
        for (std::size_t i = 1; i < fds.size(); i++) {
            drain(fds[i], i - 1);
        }
        drain(fds[0], 0);
        deliver();
    }

private:
    void drain(const pollfd &fd, std::size_t client)
    {
        if (!fd.revents) {
            return;
        }
        char buffer[2048];
        for (int i = 0; i < 256; i++) {
            sockaddr_in from{};
            socklen_t length = sizeof from;
            const ssize_t size = recvfrom(fd.fd, buffer, sizeof buffer, MSG_DONTWAIT,
                                          reinterpret_cast<sockaddr *>(&from), &length);
            if (size < 0) {
                return;
            }
            const bool isToStore = fd.fd == _front;
            post(isToStore ? guestAt(from) : client, isToStore, {buffer, static_cast<std::size_t>(size)});
        }
    }

    std::size_t guestAt(const sockaddr_in &from)
    {
        for (std::size_t i = 0; i < _guests.size(); i++) {
            if (_guests[i].address.sin_port == from.sin_port) {
                return i;
            }
        }
        const int fd = udpSocket();
        const sockaddr_in store = loopback(_storePort);
        check(connect(fd, reinterpret_cast<const sockaddr *>(&store), sizeof store) == 0, "the proxy finds no store");
        _guests.push_back({from, fd});
        return _guests.size() - 1;
    }

    void post(std::size_t client, bool isToStore, const std::string &datagram)
    {
        const bool isGood = isClean;
        const int copies = 1 + (!isGood && _random() % 100 < 30);
        for (int i = 0; i < copies; i++) {
            if (isGood || _random() % 100 >= 30) {
                const auto delay = std::chrono::microseconds(isGood ? 0 : _random() % 8000);
                _letters.push({Clock::now() + delay, ++_count, client, isToStore, datagram});
            }
        }
    }

    void deliver()
    {
        const auto now = Clock::now();
        for (; !_letters.empty() && _letters.top().due <= now; _letters.pop()) {
            const Letter &letter = _letters.top();
            const Guest &guest = _guests[letter.client];
            if (letter.isToStore) {
                ::send(guest.socket, letter.datagram.data(), letter.datagram.size(), MSG_DONTWAIT);
            } else {
                sendto(_front, letter.datagram.data(), letter.datagram.size(), MSG_DONTWAIT,
                       reinterpret_cast<const sockaddr *>(&guest.address), sizeof guest.address);
            }
        }
    }

    int _front;
    std::uint16_t _storePort;
    std::mt19937 _random;
    std::vector<Guest> _guests;
    std::priority_queue<Letter> _letters;
    std::uint64_t _count = 0;
};

} // namespace

void check(bool holds, const std::string &message)
{
    if (!holds) {
        std::fprintf(stderr, "FAILED: %s\n", message.c_str());
        std::fflush(stdout);
        // Children go with us: they ask for that themselves.
        _exit(1);
    }
}

double secondsSince(Clock::time_point begun)
{
    return std::chrono::duration<double>(Clock::now() - begun).count();
}

bool sleepMs(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    return true;
}

std::shared_ptr<StoreClient> connectTo(std::uint16_t port, std::chrono::seconds timeout)
{
    auto client = StoreClient::openPrivate({loopbackHost, port});
    check(client && client->waitUntilReady(timeout), "the store does not answer");
    return client;
}

std::string valuesText(const StoreClient &client)
{
    std::string text;
    for (const ParamDescriptor *descriptor : allDescriptors()) {
        if (descriptor->isMomentary()) {
            continue;
        }
        const ParamValue value = *client.value(descriptor->id());
        const auto *number = std::get_if<std::uint32_t>(&value);
        text += (number ? std::to_string(*number) : std::get<std::string>(value)) + ",";
    }
    return text + "|";
}

long residentKilobytes(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;) {
        long kilobytes = 0;
        if (word == "RssAnon:" && status >> kilobytes) {
            return kilobytes;
        }
    }
    return 0;
}

std::uint64_t counterOf(const std::string &counters, const std::string &name)
{
    const auto at = counters.find(" " + name + " ");
    check(at != std::string::npos, "no counter " + name + " in " + counters);
    return std::strtoull(counters.c_str() + at + name.size() + 2, nullptr, 10);
}

void Listener::ParamChanged(ConfigEvent event)
{
    if (event.id != eParamGotoClipIndex) {
        return;
    }
    const std::lock_guard lock(_mutex);
    const auto number = std::get<std::uint32_t>(event.value);
    auto [last, isFirst] = _last.emplace(number >> 24, number);
    _heard++;
    _twice += !isFirst && number <= last->second;
    last->second = number;
}

std::uint64_t Listener::twice() const
{
    const std::lock_guard lock(_mutex);
    return _twice;
}

std::string Listener::report() const
{
    const std::lock_guard lock(_mutex);
    return " heard " + std::to_string(_heard) + ", twice " + std::to_string(_twice);
}

Child::Child(const std::function<int()> &run)
{
    int in[2];
    int out[2];
    check(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0, "no pipes");
    std::fflush(stdout);
    _pid = fork();
    check(_pid >= 0, "no process");
    if (_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        // Nothing else of ours: a pipe ends only when nobody holds its other end.
        close_range(3, ~0u, 0);
        const int status = run();
        std::fflush(stdout);
        _exit(status);
    }
    ::close(in[0]);
    ::close(out[1]);
    _in = in[1];
    _out = out[0];
}

Child::Child(const std::string &program, const std::vector<std::string> &arguments)
{
    int out[2];
    check(pipe2(out, O_CLOEXEC) == 0, "no pipe");
    std::vector<char *> words{const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments) {
        words.push_back(const_cast<char *>(argument.c_str()));
    }
    words.push_back(nullptr);
    _pid = vfork();
    if (_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(out[1], STDERR_FILENO);
        execv(program.c_str(), words.data());
        _exit(127);
    }
    ::close(out[1]);
    _out = out[0];
}

Child::Child(Child &&other) noexcept
    : _pid(std::exchange(other._pid, -1)), _in(std::exchange(other._in, -1)), _out(std::exchange(other._out, -1)),
      _read(std::move(other._read))
{
}

Child::~Child()
{
    if (_pid > 0) {
        ::kill(_pid, SIGKILL);
        waitpid(_pid, nullptr, 0);
    }
    close();
    if (_out >= 0) {
        ::close(_out);
    }
}

std::string Child::line()
{
    for (;;) {
        const auto end = _read.find('\n');
        if (end != std::string::npos) {
            const std::string text = _read.substr(0, end);
            _read.erase(0, end + 1);
            return text;
        }
        char buffer[4096];
        const ssize_t size = read(_out, buffer, sizeof buffer);
        if (size <= 0) {
            return std::exchange(_read, {});
        }
        _read.append(buffer, static_cast<std::size_t>(size));
    }
}

std::string Child::ask()
{
    check(write(_in, "\n", 1) == 1, "a process has ended");
    return line();
}

void Child::close()
{
    if (_in >= 0) {
        ::close(_in);
        _in = -1;
    }
}

int Child::wait()
{
    int status = 0;
    waitpid(std::exchange(_pid, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Store::Store(std::string binary, std::string database) : _binary(std::move(binary)), _database(std::move(database)) {}

void Store::start()
{
    _child = std::make_unique<Child>(
        _binary, std::vector<std::string>{"--db", _database, "--port", std::to_string(_port)});
    std::string line;
    unsigned int port = 0;
    do {
        line = _child->line();
        check(!line.empty(), "the store does not start");
        check(line.find("damaged") == std::string::npos, "the store's file is damaged: " + line);
    } while (std::sscanf(line.c_str(), "rvstore: ready on 127.0.0.1:%u,", &port) != 1);
    _port = static_cast<std::uint16_t>(port);
}

std::string Store::stop()
{
    ::kill(_child->pid(), SIGTERM);
    std::string last;
    for (std::string line = _child->line(); !line.empty(); line = _child->line()) {
        last = line;
    }
    check(_child->wait() == 0, "the store does not end in order: " + last);
    return last + "\n";
}

void Store::kill()
{
    ::kill(_child->pid(), SIGKILL);
    _child->wait();
}

Proxy::Proxy(std::uint16_t storePort, std::uint32_t seed)
{
    _child = std::make_unique<Child>([this, storePort, seed] { return run(storePort, seed); });
    _port = static_cast<std::uint16_t>(std::strtoul(_child->line().c_str(), nullptr, 10));
    check(_port != 0, "the proxy does not start");
}

Proxy::~Proxy() = default;

void Proxy::beClean()
{
    ::kill(_child->pid(), SIGUSR1);
}

int Proxy::run(std::uint16_t storePort, std::uint32_t seed)
{
    signal(SIGUSR1, [](int) { isClean = 1; });
    const int front = udpSocket();
    const sockaddr_in address = loopback(0);
    check(bind(front, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0, "the proxy has no port");
    std::printf("%u\n", unsigned(portOf(front)));
    std::fflush(stdout);
    BadNetwork network(front, storePort, seed);
    for (;;) {
        network.serve();
    }
}

Socket::Socket(std::uint16_t port) : _socket(udpSocket())
{
    const sockaddr_in address = loopback(port);
    check(connect(_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0, "no socket");
}

Socket::~Socket()
{
    close(_socket);
}

void Socket::send(const std::string &datagram) const
{
    ::send(_socket, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

TemporaryFolder::TemporaryFolder() : _path((std::filesystem::temp_directory_path() / "store-torture-XXXXXX").string())
{
    check(mkdtemp(_path.data()) != nullptr, "no temporary folder");
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
}

} // namespace torture
