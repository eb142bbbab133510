// The Garmin serial frame: DLE, id, size, data, checksum, DLE, ETX, with every
// 16 in size, data and checksum doubled on the wire. These few functions are
// the one place that knows the layout; the control and the simulated receiver
// both use them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "trekcom/types.h"

namespace trekcom::link {

inline constexpr std::uint8_t DLE = 16;
inline constexpr std::uint8_t ETX = 3;
// An unstuffed packet has data size + 6 elements.
inline constexpr std::size_t kFrameOverhead = 6;

// Two's complement of the sum of id, size and data: elements 1 .. n-3 of an
// unstuffed packet. Packets shorter than a frame have a checksum of 0.
std::uint8_t Calc_Checksum(const Bytes& packet);

// Completes an unstuffed packet in place: the DLE, the checksum, the DLE ETX.
// The caller has filled id, size and data; packets under 6 elements are left alone.
void Seal_Packet(Bytes& packet);

// A complete unstuffed packet with this id and data (data beyond 255 bytes is cut).
Bytes Make_Packet(std::uint8_t id, const Bytes& data);

// The wire form: size, data and checksum with each 16 doubled; id and the
// framing DLE ETX as they are.
Bytes Stuff_Packet(const Bytes& packet);

// Unstuffs one wire frame (DLE through ETX) into a packet. The size byte says
// where the checksum is, except for id 123 (the expanded form), where the
// frame's length does. Returns nothing when the frame runs out first.
std::optional<Bytes> Unstuff_Frame(std::string_view frame);

// The data bytes of an unstuffed packet (elements 3 .. n-4), clipped to what exists.
Bytes Packet_Data(const Bytes& packet);

}  // namespace trekcom::link
