#include "libconfig/storeuri.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

#include <arpa/inet.h>

namespace
{

std::optional<std::uint16_t> parsePort(std::string_view text)
{
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0) {
        return std::nullopt;
    }
    return port;
}

} // namespace

std::uint16_t storePort()
{
    const char *text = std::getenv("RVD_STORE_PORT");
    return text ? parsePort(text).value_or(defaultStorePort) : defaultStorePort;
}

std::string storeUri(const std::string &transport, const std::string &service)
{
    if (transport != "udp") {
        return {};
    }
    return "udp://127.0.0.1:" + std::to_string(storePort()) + "/" + service;
}

std::optional<StoreAddress> parseStoreUri(const std::string &uri)
{
    const std::string scheme = "udp://";
    if (uri.compare(0, scheme.size(), scheme) != 0) {
        return std::nullopt;
    }
    const std::size_t colon = uri.find(':', scheme.size());
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t slash = std::min(uri.find('/', colon), uri.size());
    const std::string host = uri.substr(scheme.size(), colon - scheme.size());
    in_addr address{};
    const auto port = parsePort(std::string_view(uri).substr(colon + 1, slash - colon - 1));
    if (!port || inet_pton(AF_INET, host.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return StoreAddress{ntohl(address.s_addr), *port};
}
