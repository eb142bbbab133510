// The USB form of a packet: type (0 = USB protocol layer, 20 = application
// layer), three reserved bytes, a 16-bit id, two reserved bytes, a 32-bit
// data size, then the data. No framing, no checksum, no ACK/NAK.
#pragma once

#include <cstdint>

#include "trekcom/types.h"
#include "wire.h"

namespace trekcom::sim::usb {

inline constexpr std::uint8_t kProtocol = 0;
inline constexpr std::uint8_t kApplication = 20;
inline constexpr std::uint16_t kDataAvailable = 2;
inline constexpr std::uint16_t kStartSession = 5;
inline constexpr std::uint16_t kSessionStarted = 6;
inline constexpr std::uint16_t kStartSession2 = 16;
inline constexpr std::uint16_t kSessionStarted2 = 17;
inline constexpr std::size_t kHeaderSize = 12;
inline constexpr std::uint32_t kMaxData = 1046;

struct Packet {
    std::uint8_t type = 0;
    std::uint16_t id = 0;
    Bytes data;
};

inline Bytes Make_Packet(std::uint8_t type, std::uint16_t id, const Bytes& data) {
    wire::Writer w;
    w.U8(type);
    w.U8(0);
    w.U16(0);
    w.U16(id);
    w.U16(0);
    w.U32(static_cast<std::uint32_t>(data.size()));
    w.Raw(data.data(), data.size());
    return w.Take();
}

// False for anything that is not one whole, sane packet.
inline bool Parse(const Bytes& bytes, Packet& out) {
    wire::Reader r(bytes);
    const std::uint8_t type = r.U8();
    r.U8();
    r.U16();
    const std::uint16_t id = r.U16();
    r.U16();
    const std::uint32_t size = r.U32();
    if (!r.Ok() || (type != kProtocol && type != kApplication) || size > kMaxData || r.Left() != size) return false;
    out.type = type;
    out.id = id;
    out.data.assign(bytes.begin() + kHeaderSize, bytes.end());
    return true;
}

}  // namespace trekcom::sim::usb
