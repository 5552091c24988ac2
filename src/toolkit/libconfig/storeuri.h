#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Where a store listens, in host byte order.
struct StoreAddress {
    std::uint32_t host;
    std::uint16_t port;
};

inline constexpr std::uint16_t defaultStorePort = 7461;
inline constexpr std::uint32_t loopbackHost = 0x7f000001;

/// The store's port: that of the environment variable RVD_STORE_PORT when it is a number from 1 to
/// 65535, else 7461. Values and events share it.
std::uint16_t storePort();

/// "udp://127.0.0.1:PORT/SERVICE" for the transport "udp", else "".
std::string storeUri(const std::string &transport, const std::string &service);

/// The address in a URI of that form; none when it has another.
std::optional<StoreAddress> parseStoreUri(const std::string &uri);
