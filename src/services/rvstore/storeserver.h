#pragma once

#include "services/rvstore/storecore.h"

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

    /// Read the kept values and bind the port of 127.0.0.1 (0: any free one). False when the port
    /// is not to be had; `problem` says what went wrong, also when the store can do without.
    bool open(std::uint16_t port, std::string &problem);
    /// The port that is bound.
    std::uint16_t port() const { return _port; }
    /// Serve until stop().
    void run();
    /// Have run() return soon. Any thread, also a signal handler.
    void stop();

    const StoreCore &core() const { return _core; }

private:
    void receive();
    void send(const Peer &peer, const std::string &datagram);

    ValueFile *_file;
    int _socket = -1;
    int _wake = -1;
    std::uint16_t _port = 0;
    StoreCore _core;
};
