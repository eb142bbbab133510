// What every codec does to a packet: find a field by its data offset, take
// it out with the shared field readers, put it back with the shared writers.
// Private to the codecs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "records/fields.h"
#include "trekcom/types.h"

namespace trekcom::records::codec {

// Data offset to packet index: the data starts after DLE, id and size.
constexpr std::int16_t At(int offset) { return static_cast<std::int16_t>(3 + offset); }

// ---------------------------------------------------------------- reading

// The size byte, 0 for a packet too short to have one.
int Data_Size(const Bytes& packet);

// The byte at a data offset, 0 when the packet does not reach it.
std::uint8_t Byte_At(const Bytes& packet, int offset);

// A position in semicircles at a data offset, in degrees.
double Position_At(const Bytes& packet, int offset);

// Fixed-width text at a data offset, stopped at the first NUL and trimmed of
// spaces: every fixed text field.
std::string Fixed_Text(const Bytes& packet, int offset, int width);

// `width` bytes at a data offset as text, NULs kept, nothing trimmed.
std::string Raw_Text(const Bytes& packet, int offset, int width);

// The NUL-terminated texts that run from a data offset to the end of the
// data, in order. A text with no NUL after it is left "", and so are all
// that follow: without its terminator a text's end is not known.
std::vector<std::string> Texts_From(const Bytes& packet, int offset, std::size_t count);

// Spaces trimmed from both ends.
std::string Trim(std::string_view text);
// Spaces trimmed from both ends, then cut at the first NUL (in this order, so
// spaces before a NUL stay).
std::string Trim_Null(std::string_view text);

// ---------------------------------------------------------------- writing

// A packet of `data_size` zero data bytes with its id and size byte; throws
// Overflow_Error past 255 data bytes, which no size byte can announce.
Bytes New_Packet(std::uint8_t packet_id, std::size_t data_size);

// Checksum and trailer: the packet is complete.
void Seal(Bytes& packet);

// Degrees as semicircles at a data offset (Deg2Semi: may throw Overflow_Error).
void Put_Position(Bytes& packet, int offset, double degrees);

// Fixed-width text at a data offset, upper-cased, space-padded, cut to width.
void Put_Upper_Text(Bytes& packet, int offset, int width, std::string_view text);

// The wire bytes of texts sent as NUL-terminated: each upper-cased and
// followed by one NUL, joined in order.
std::string Terminated_Texts(std::initializer_list<std::string_view> texts);

// Wire bytes copied as they are to a data offset.
void Put_Wire(Bytes& packet, int offset, std::string_view wire);

// A number for a one-byte field; Overflow_Error outside 0..255.
std::uint8_t Wire_Byte(std::int64_t value);
// A Single for an Integer field, rounded half to even; Overflow_Error when
// it does not fit (or is not a number).
std::int16_t Wire_Integer(float value);

// The default subclass: six bytes 0x00, twelve 0xFF, for records that carry
// no subclass of their own.
void Put_Default_Subclass(Bytes& packet, int offset);

}  // namespace trekcom::records::codec
