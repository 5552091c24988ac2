#pragma once

#include "libconfig/storeuri.h"
#include "services/rvstore/storecore.h"

#include <atomic>
#include <cstdint>
#include <string>

class ValueFile;

/// The parameter store on a UDP socket of the loopback interface.
class StoreServer
{
public:
    /// `file` may be null: then nothing is kept. It is not owned.
    explicit StoreServer(ValueFile *file);
    ~StoreServer();
    StoreServer(const StoreServer &) = delete;
    StoreServer &operator=(const StoreServer &) = delete;

    /// Read the kept values and bind the port of a loopback address (0: any free one). False when the
    /// port is not to be had; `problem` says what went wrong, also when the store can do without.
    bool open(std::uint16_t port, std::string &problem, std::uint32_t host = loopbackHost);
    /// The port that is bound.
    std::uint16_t port() const { return _port; }
    /// Serve until stop().
    void run();
    /// Have run() return soon. Any thread, also a signal handler.
    void stop();

    const StoreCore &core() const { return _core; }
    /// Datagrams that the kernel did not hand over: no packets by their first bytes, or more than could be read.
    std::uint64_t missed() const { return _missed; }

private:
    bool bindSocket(std::uint16_t port, std::uint32_t host);
    void restore(std::string &problem);
    void receive();
    void wake();
    void send(const Peer &peer, const std::string &datagram);

    ValueFile *_file;
    int _socket = -1;
    int _wake = -1;
    std::uint16_t _port = 0;
    std::uint64_t _missed = 0;
    std::atomic<bool> _stop = false;
    StoreCore _core;
};
