#include "libconfig/packet.h"

#include <array>

using lumo::store::Packet;

namespace
{

constexpr std::uint8_t version = 2;

// Row k holds what a byte does that k more bytes follow: eight bytes are taken at a time.
using CrcTable = std::array<std::array<std::uint32_t, 256>, 8>;

constexpr CrcTable makeCrcTable()
{
    CrcTable table{};
    for (std::uint32_t n = 0; n < 256; n++) {
        std::uint32_t crc = n;
        for (int bit = 0; bit < 8; bit++) {
            crc = (crc >> 1) ^ ((crc & 1) ? 0x82f63b78u : 0u);
        }
        table[0][n] = crc;
    }
    for (std::size_t k = 1; k < 8; k++) {
        for (std::size_t n = 0; n < 256; n++) {
            table[k][n] = (table[k - 1][n] >> 8) ^ table[0][table[k - 1][n] & 0xff];
        }
    }
    return table;
}

constexpr CrcTable crcTable = makeCrcTable();

std::uint32_t checksum(std::span<const std::uint8_t> datagram)
{
    return crc32c(datagram.subspan(packetFrameBytes), crc32c(datagram.first(8)));
}

std::uint32_t readBig32(const std::uint8_t *bytes)
{
    return std::uint32_t(bytes[0]) << 24 | std::uint32_t(bytes[1]) << 16 |
           std::uint32_t(bytes[2]) << 8 | bytes[3];
}

void writeBig32(std::uint8_t *bytes, std::uint32_t number)
{
    for (int i = 0; i < 4; i++) {
        bytes[i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    }
}

} // namespace

std::uint32_t crc32c(std::span<const std::uint8_t> bytes, std::uint32_t before)
{
    std::uint32_t crc = ~before;
    for (; bytes.size() >= 8; bytes = bytes.subspan(8)) {
        const auto at = [&](std::size_t i) -> std::uint32_t {
            return i < 4 ? (bytes[i] ^ (crc >> (8 * i))) & 0xff : bytes[i];
        };
        crc = crcTable[7][at(0)] ^ crcTable[6][at(1)] ^ crcTable[5][at(2)] ^ crcTable[4][at(3)] ^
              crcTable[3][at(4)] ^ crcTable[2][at(5)] ^ crcTable[1][at(6)] ^ crcTable[0][at(7)];
    }
    for (const std::uint8_t byte : bytes) {
        crc = (crc >> 8) ^ crcTable[0][(crc ^ byte) & 0xff];
    }
    return ~crc;
}

std::optional<Packet> decodePacket(std::span<const std::uint8_t> datagram, PacketError &error)
{
    const auto fail = [&error](PacketError why) {
        error = why;
        return std::nullopt;
    };
    error = PacketError::None;
    if (datagram.size() < packetFrameBytes || datagram.size() > maxPacketBytes) {
        return fail(PacketError::Length);
    }
    if (readBig32(datagram.data()) != packetMagic) {
        return fail(PacketError::Magic);
    }
    if (datagram[4] != version || datagram[5] != 0) {
        return fail(PacketError::Version);
    }
    const std::size_t length = std::size_t(datagram[6]) << 8 | datagram[7];
    if (length != datagram.size() - packetFrameBytes) {
        return fail(PacketError::Length);
    }
    if (readBig32(datagram.data() + 8) != checksum(datagram)) {
        return fail(PacketError::Checksum);
    }
    Packet packet;
    if (!packet.ParseFromArray(datagram.data() + packetFrameBytes, static_cast<int>(length)) ||
        packet.client() == 0 || packet.body_case() == Packet::BODY_NOT_SET) {
        return fail(PacketError::Message);
    }
    return packet;
}

std::string encodePacket(const Packet &packet)
{
    const std::size_t length = packet.ByteSizeLong();
    if (length > maxPacketBytes - packetFrameBytes) {
        return {};
    }
    std::string datagram(packetFrameBytes + length, '\0');
    auto *bytes = reinterpret_cast<std::uint8_t *>(datagram.data());
    writeBig32(bytes, packetMagic);
    bytes[4] = version;
    bytes[6] = static_cast<std::uint8_t>(length >> 8);
    bytes[7] = static_cast<std::uint8_t>(length);
    packet.SerializeWithCachedSizesToArray(bytes + packetFrameBytes);
    writeBig32(bytes + 8, checksum({bytes, datagram.size()}));
    return datagram;
}

lumo::store::Value valueToWire(const ParamValue &value)
{
    lumo::store::Value wire;
    if (const auto *number = std::get_if<std::uint32_t>(&value)) {
        wire.set_number(*number);
    } else {
        wire.set_bytes(std::get<std::string>(value));
    }
    return wire;
}

std::optional<ParamValue> valueFromWire(const lumo::store::Value &value)
{
    switch (value.kind_case()) {
    case lumo::store::Value::kNumber:
        return ParamValue(std::uint32_t(value.number()));
    case lumo::store::Value::kBytes:
        return ParamValue(value.bytes());
    default:
        return std::nullopt;
    }
}
