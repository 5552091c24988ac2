// The parameter store beside an MQTT broker that does the same: retained messages at quality of service 1, one topic a
// parameter, both over loopback, both with clients of their own library in this process.
//
//   store_mqtt RVSTORE MOSQUITTO
//
// A row a line: name, store, broker, unit. "more" or "less" says which is better.

#include "libconfig/storeclient.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <csignal>

#include <arpa/inet.h>
#include <fcntl.h>
#include <mosquitto.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int listeners = 32;
constexpr int latencies = 2000;
constexpr int coldReads = 200;
constexpr int bulk = 60000;
constexpr int burst = 50;
constexpr int bursts = 40;
constexpr int rounds = 10;

[[noreturn]] void fail(const char *text)
{
    std::fprintf(stderr, "store_mqtt: %s\n", text);
    std::exit(1);
}

/// Counts what arrives, and lets one wait for it.
class Counter
{
public:
    void add()
    {
        const std::lock_guard lock(_mutex);
        if (++_count >= _wanted) {
            _wake.notify_all();
        }
    }

    void expect(long more)
    {
        const std::lock_guard lock(_mutex);
        _wanted = _count + more;
    }

    void expectOneMore()
    {
        const std::lock_guard lock(_mutex);
        _wanted++;
    }

    void wait()
    {
        std::unique_lock lock(_mutex);
        if (!_wake.wait_for(lock, std::chrono::seconds(20), [this] { return _count >= _wanted; })) {
            fail("something did not arrive");
        }
    }

private:
    std::mutex _mutex;
    std::condition_variable _wake;
    long _count = 0;
    long _wanted = 0;
};

class StoreListener : public ConfigEventListener
{
public:
    using ConfigEventListener::ParamChanged;

    explicit StoreListener(Counter &counter) : _counter(counter) {}
    void ParamChanged(ConfigEvent) override { _counter.add(); }

private:
    Counter &_counter;
};

/// What both can do. Times are of one operation.
class System
{
public:
    virtual ~System() = default;
    /// Have so many listeners of every change, which count into arrived().
    virtual void listen(int count) = 0;
    /// Hand over a change.
    virtual void send(std::uint32_t value) = 0;
    /// Wait until the other side has confirmed what was handed over.
    virtual void confirm() = 0;
    /// A client that is there asks for the value.
    virtual void get() = 0;
    /// A new client comes to hold a value, and goes.
    virtual void coldRead() = 0;
    Counter &arrived() { return _arrived; }

protected:
    Counter _arrived;
};

class StoreSystem : public System
{
public:
    explicit StoreSystem(std::uint16_t port) : _address{loopbackHost, port}, _sender(open()) {}

    ~StoreSystem() override
    {
        for (const auto &client : _clients) {
            client->removeListener(&_listener);
        }
    }

    void listen(int count) override
    {
        for (int i = 0; i < count; i++) {
            _clients.push_back(open());
            _clients.back()->addListener(&_listener);
        }
    }

    void send(std::uint32_t value) override
    {
        // A command, so that none takes the place of another while it waits.
        while (!_sender->set(eParamGotoClipIndex, value)) {
            confirm();
        }
    }

    void confirm() override
    {
        if (!_sender->flush(std::chrono::seconds(20)).isComplete) {
            fail("the store does not answer");
        }
    }

    void get() override
    {
        if (!_sender->value(eParamGotoClipIndex)) {
            fail("the store has no value");
        }
    }

    void coldRead() override { open()->value(eParamEncodeType); }

private:
    std::shared_ptr<StoreClient> open() const
    {
        auto client = StoreClient::openPrivate(_address);
        if (!client || !client->waitUntilReady(std::chrono::seconds(20))) {
            fail("no store");
        }
        return client;
    }

    StoreAddress _address;
    std::shared_ptr<StoreClient> _sender;
    std::vector<std::shared_ptr<StoreClient>> _clients;
    StoreListener _listener{_arrived};
};

class MqttSystem : public System
{
public:
    explicit MqttSystem(int port) : _port(port)
    {
        _sender = open(this);
        mosquitto_publish_callback_set(_sender, [](mosquitto *, void *self, int) {
            static_cast<MqttSystem *>(self)->_confirmed.add();
        });
        mosquitto_message_callback_set(_sender, [](mosquitto *, void *self, const mosquitto_message *) {
            static_cast<MqttSystem *>(self)->_got.add();
        });
        send(0);
        confirm();
    }

    ~MqttSystem() override
    {
        for (mosquitto *client : _clients) {
            close(client);
        }
        close(_sender);
    }

    void listen(int count) override
    {
        // Each hears the retained value first; after that it is there.
        _arrived.expect(count);
        for (int i = 0; i < count; i++) {
            mosquitto *client = open(&_arrived);
            mosquitto_message_callback_set(client, [](mosquitto *, void *counter, const mosquitto_message *) {
                static_cast<Counter *>(counter)->add();
            });
            mosquitto_subscribe(client, nullptr, topic, 1);
            _clients.push_back(client);
        }
        _arrived.wait();
    }

    void send(std::uint32_t value) override
    {
        _confirmed.expectOneMore();
        if (mosquitto_publish(_sender, nullptr, topic, sizeof value, &value, 1, true) != MOSQ_ERR_SUCCESS) {
            fail("the broker does not take a message");
        }
    }

    void confirm() override
    {
        _confirmed.wait();
    }

    /// A broker has no question of its own: it sends what it retains to whom subscribes.
    void get() override
    {
        _got.expect(1);
        mosquitto_subscribe(_sender, nullptr, topic, 1);
        _got.wait();
        mosquitto_unsubscribe(_sender, nullptr, topic);
    }

    void coldRead() override
    {
        Counter got;
        got.expect(1);
        mosquitto *client = open(&got);
        mosquitto_message_callback_set(client, [](mosquitto *, void *counter, const mosquitto_message *) {
            static_cast<Counter *>(counter)->add();
        });
        mosquitto_subscribe(client, nullptr, topic, 1);
        got.wait();
        close(client);
    }

    static constexpr const char *topic = "recorder/GotoClipIndex";

private:
    mosquitto *open(void *user) const
    {
        mosquitto *client = mosquitto_new(nullptr, true, user);
        mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_max_inflight_messages_set(client, 1000);
        if (!client || mosquitto_connect(client, "127.0.0.1", _port, 60) != MOSQ_ERR_SUCCESS ||
            mosquitto_loop_start(client) != MOSQ_ERR_SUCCESS) {
            fail("no broker");
        }
        return client;
    }

    static void close(mosquitto *client)
    {
        mosquitto_disconnect(client);
        mosquitto_loop_stop(client, false);
        mosquitto_destroy(client);
    }

    int _port;
    mosquitto *_sender = nullptr;
    std::vector<mosquitto *> _clients;
    Counter _confirmed;
    Counter _got;
};

double microseconds(Clock::time_point begun)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - begun).count();
}

/// Times of one operation, from all rounds.
class Times
{
public:
    void measure(int count, const std::function<void(int)> &run)
    {
        for (int i = 0; i < count; i++) {
            const auto begun = Clock::now();
            run(i);
            _all.push_back(microseconds(begun));
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }

    double part(int percent)
    {
        std::ranges::sort(_all);
        return _all[_all.size() * std::size_t(percent) / 100];
    }

private:
    std::vector<double> _all;
};

struct Figures {
    Times set;
    Times get;
    Times cold;
    Times event;
    double bulkSeconds = 0;
    double fanOutSeconds = 0;
};

void measureSets(System &system, Figures &figures)
{
    figures.set.measure(latencies / rounds, [&](int i) {
        system.send(static_cast<std::uint32_t>(i));
        system.confirm();
    });
    figures.get.measure(latencies / rounds, [&](int) { system.get(); });
    figures.cold.measure(coldReads / rounds, [&](int) { system.coldRead(); });
    const auto begun = Clock::now();
    for (int i = 0; i < bulk / rounds; i += 500) {
        for (int k = 0; k < 500; k++) {
            system.send(static_cast<std::uint32_t>(i + k));
        }
        system.confirm();
    }
    figures.bulkSeconds += microseconds(begun) / 1e6;
}

void measureEvents(System &system, Figures &figures)
{
    figures.event.measure(latencies / rounds, [&](int i) {
        system.arrived().expect(1);
        system.send(static_cast<std::uint32_t>(i));
        system.arrived().wait();
        system.confirm();
    });
}

void measureFanOut(System &system, Figures &figures)
{
    const auto begun = Clock::now();
    for (int i = 0; i < bursts / rounds; i++) {
        system.arrived().expect(long(listeners) * burst);
        for (int k = 0; k < burst; k++) {
            system.send(static_cast<std::uint32_t>(i * burst + k));
        }
        system.arrived().wait();
        system.confirm();
    }
    figures.fanOutSeconds += microseconds(begun) / 1e6;
}

/// A port of loopback that nobody has at the moment.
int freePort(int type)
{
    const int fd = socket(AF_INET, type, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        fail("no port");
    }
    close(fd);
    return ntohs(address.sin_port);
}

pid_t start(std::vector<std::string> words)
{
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    if (posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
        fail("a server does not start");
    }
    posix_spawn_file_actions_destroy(&actions);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    return pid;
}

void stop(pid_t pid)
{
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

/// The broker's settings in a file: in memory only, as the store is here, and with no delays of its own.
std::string brokerSettings(int port)
{
    std::string path = "/tmp/store_mqtt-XXXXXX";
    const int fd = mkstemp(path.data());
    FILE *file = fd < 0 ? nullptr : fdopen(fd, "w");
    if (!file) {
        fail("no temporary file");
    }
    std::fprintf(file,
                 "listener %d 127.0.0.1\nallow_anonymous true\npersistence false\nset_tcp_nodelay true\n"
                 "max_inflight_messages 0\nmax_queued_messages 0\nlog_type none\nuser root\n",
                 port);
    std::fclose(file);
    return path;
}

void row(const char *name, double store, double broker, const char *unit, const char *better)
{
    std::printf("%s; %.6g; %.6g; %s; %s\n", name, store, broker, unit, better);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        fail("usage: store_mqtt RVSTORE MOSQUITTO");
    }
    mosquitto_lib_init();
    const int storePort = freePort(SOCK_DGRAM);
    const int brokerPort = freePort(SOCK_STREAM);
    const std::string settings = brokerSettings(brokerPort);
    const pid_t pids[] = {start({argv[1], "--no-db", "--port", std::to_string(storePort)}),
                          start({argv[2], "-c", settings})};
    Figures store;
    Figures broker;
    {
        StoreSystem ours(static_cast<std::uint16_t>(storePort));
        MqttSystem theirs(brokerPort);
        // By turns, so that whatever else the machine does befalls both.
        const auto byTurns = [&](void (*measure)(System &, Figures &)) {
            for (int i = 0; i < rounds; i++) {
                measure(ours, store);
                measure(theirs, broker);
            }
        };
        byTurns(measureSets);
        ours.listen(1);
        theirs.listen(1);
        byTurns(measureEvents);
        ours.listen(listeners - 1);
        theirs.listen(listeners - 1);
        byTurns(measureFanOut);
    }
    for (const pid_t pid : pids) {
        stop(pid);
    }
    unlink(settings.c_str());
    constexpr double delivered = double(bursts) * burst * listeners;
    row("set, confirmed: median", store.set.part(50), broker.set.part(50), "us", "less");
    row("set, confirmed: 99 %", store.set.part(99), broker.set.part(99), "us", "less");
    row("get: median", store.get.part(50), broker.get.part(50), "us", "less");
    row("get: 99 %", store.get.part(99), broker.get.part(99), "us", "less");
    row("set to event in another client: median", store.event.part(50), broker.event.part(50), "us", "less");
    row("set to event in another client: 99 %", store.event.part(99), broker.event.part(99), "us", "less");
    row("new client holds a value: median", store.cold.part(50), broker.cold.part(50), "us", "less");
    row("sets a second, one client", bulk / store.bulkSeconds, bulk / broker.bulkSeconds, "/s", "more");
    row("events a second to 32 clients", delivered / store.fanOutSeconds, delivered / broker.fanOutSeconds, "/s", "more");
    mosquitto_lib_cleanup();
}
