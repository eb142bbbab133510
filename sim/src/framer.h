// The receiver's side of the serial frame: DLE, id, size, data, checksum,
// DLE, ETX, with every 16 after the id doubled on the wire. Written apart from
// the host library's own framing on purpose: the unit is a second reading of
// the protocol, so a mistake in one shows up against the other.
#pragma once

#include <cstdint>

#include "trekcom/types.h"

namespace trekcom::sim::frame {

inline constexpr std::uint8_t kDle = 16;
inline constexpr std::uint8_t kEtx = 3;
// DLE, id, size, checksum, DLE, ETX around the data.
inline constexpr std::size_t kOverhead = 6;

// The unstuffed packet: DLE, id, size, data (at most 255 bytes), checksum, DLE, ETX.
Bytes Packet(std::uint8_t id, const Bytes& data);

// The data of an unstuffed packet; empty for anything shorter than a packet.
Bytes Data(const Bytes& packet);

// What goes on the line: the packet with each 16 between the id and the
// closing DLE ETX sent twice.
Bytes Wire(const Bytes& packet);

}  // namespace trekcom::sim::frame
