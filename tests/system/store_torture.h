#pragma once

// What the torture of the parameter store is made of: processes, a proxy, a listener.

#include "libconfig/storeclient.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <sys/types.h>

namespace torture
{

using Clock = std::chrono::steady_clock;

/// Ends the program with a message unless it holds.
void check(bool holds, const std::string &message);
double secondsSince(Clock::time_point begun);
/// Always true, for conditions.
bool sleepMs(int ms);
/// A client with a view of its own; ends the program when the store does not answer in time.
std::shared_ptr<StoreClient> connectTo(std::uint16_t port, std::chrono::seconds timeout = std::chrono::seconds(30));
/// Every value that is not momentary, in one line.
std::string valuesText(const StoreClient &client);
/// What a program has in memory.
long residentKilobytes(pid_t pid);
/// A figure from what the store says at its end.
std::uint64_t counterOf(const std::string &counters, const std::string &name);

/// Holds who sent which command last; each writer's commands must ascend.
class Listener : public ConfigEventListener
{
public:
    using ConfigEventListener::ParamChanged;

    void ParamChanged(ConfigEvent event) override;
    std::uint64_t twice() const;
    std::string report() const;

private:
    mutable std::mutex _mutex;
    std::map<std::uint32_t, std::uint32_t> _last;
    std::uint64_t _heard = 0;
    std::uint64_t _twice = 0;
};

/// A copy of this process that runs a function; its standard streams are pipes to us.
class Child
{
public:
    explicit Child(const std::function<int()> &run);
    /// Runs a program instead; its standard error is the pipe.
    Child(const std::string &program, const std::vector<std::string> &arguments);
    ~Child();
    Child(Child &&other) noexcept;
    Child &operator=(Child &&) = delete;

    pid_t pid() const { return _pid; }
    /// Its next line; empty at its end.
    std::string line();
    /// Have it say something: its next line after an empty one of ours.
    std::string ask();
    /// End its input.
    void close();
    /// Its exit status; -1 when a signal ended it.
    int wait();

private:
    pid_t _pid = -1;
    int _in = -1;
    int _out = -1;
    std::string _read;
};

/// The store as a process, on one file and, after the first start, one port.
class Store
{
public:
    Store(std::string binary, std::string database);

    void start();
    /// Ends it in order; what it says at its end.
    std::string stop();
    /// Ends it at this instant.
    void kill();
    std::uint16_t port() const { return _port; }
    pid_t pid() const { return _child->pid(); }

private:
    std::string _binary;
    std::string _database;
    std::uint16_t _port = 0;
    std::unique_ptr<Child> _child;
};

/// A process between clients and the store that loses 30 % of the datagrams, repeats 30 % and delays each by up to
/// eight milliseconds, both ways.
class Proxy
{
public:
    Proxy(std::uint16_t storePort, std::uint32_t seed);
    ~Proxy();

    std::uint16_t port() const { return _port; }
    /// From now on every datagram arrives at once.
    void beClean();

private:
    int run(std::uint16_t storePort, std::uint32_t seed);

    std::uint16_t _port = 0;
    std::unique_ptr<Child> _child;
};

/// Sends datagrams to a port of this machine.
class Socket
{
public:
    explicit Socket(std::uint16_t port);
    ~Socket();
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    void send(const std::string &datagram) const;

private:
    int _socket;
};

/// A folder that is gone at the end.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::string &path() const { return _path; }

private:
    std::string _path;
};

} // namespace torture
