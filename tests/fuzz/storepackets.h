#pragma once

#include "libconfig/packet.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// A fuzz input as datagrams: before each stands a byte that says how it is framed, and its length in two bytes, the
// high one first. 0: as it is. Else a message that gets a sound frame; 2 and above also the right addressee.

struct FuzzDatagram {
    std::uint8_t kind;
    std::string bytes;
};

inline std::vector<FuzzDatagram> fuzzDatagrams(const std::uint8_t *data, std::size_t size)
{
    std::vector<FuzzDatagram> all;
    while (size >= 3 && all.size() < 64) {
        const std::size_t length = std::min<std::size_t>(std::size_t(data[1]) << 8 | data[2], size - 3);
        all.push_back({data[0], std::string(reinterpret_cast<const char *>(data) + 3, length)});
        data += 3 + length;
        size -= 3 + length;
    }
    return all;
}

/// The datagram of a message, whose header is put right first by `fix` when its kind asks for that.
template <typename Fix>
std::string fuzzDatagram(const FuzzDatagram &input, Fix fix)
{
    if (input.kind == 0) {
        return input.bytes;
    }
    lumo::store::Packet packet;
    if (!packet.ParseFromString(input.bytes)) {
        return input.bytes;
    }
    if (input.kind >= 2) {
        fix(packet);
    }
    return encodePacket(packet);
}

inline std::span<const std::uint8_t> fuzzBytes(const std::string &text)
{
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}
