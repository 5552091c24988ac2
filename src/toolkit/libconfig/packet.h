#pragma once

#include "libconfig/paramvalue.h"
#include "libmessages/wire.pb.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

// The frame of a datagram between the store and its clients. Integers are big-endian.
//
//   offset  bytes  content
//        0      4  "RVPS"
//        4      1  version, 2
//        5      1  0
//        6      2  bytes of the message that follows the frame
//        8      4  CRC-32C of bytes 0 to 7 and of the message
//       12      n  message: a lumo.store.Packet

inline constexpr std::size_t maxPacketBytes = 1200;
inline constexpr std::size_t packetFrameBytes = 12;
/// "RVPS" as a big-endian number.
inline constexpr std::uint32_t packetMagic = 0x52565053;

/// Why a datagram is no packet.
enum class PacketError {
    None,
    Length,
    Magic,
    Version,
    Checksum,
    Message,
};

/// The message in a datagram; none when any rule of the frame or of the message is broken, and then
/// `error` says which.
std::optional<lumo::store::Packet> decodePacket(std::span<const std::uint8_t> datagram,
                                                PacketError &error);

/// The datagram of a message; empty when it would be longer than maxPacketBytes.
std::string encodePacket(const lumo::store::Packet &packet);

/// The CRC-32C of some bytes, going on from that of the bytes before them.
std::uint32_t crc32c(std::span<const std::uint8_t> bytes, std::uint32_t before = 0);

/// A value as the wire has it, and back; none when the wire has neither number nor bytes.
lumo::store::Value valueToWire(const ParamValue &value);
std::optional<ParamValue> valueFromWire(const lumo::store::Value &value);
