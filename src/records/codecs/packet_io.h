// What every codec does to a packet's data: take a field out at its data
// offset with the shared field readers, put it back with the shared writers.
// Private to the codecs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "link/packet.h"
#include "records/fields.h"
#include "trekcom/types.h"

namespace trekcom::records::codec {

using link::Data_View;

// ---------------------------------------------------------------- reading
//
// Numbers come from the data readers in fields.h (Data_Byte, Data_Int, ...).

// A position in semicircles at a data offset, in degrees.
double Position_At(Data_View data, int offset);
// Positions one after another from a data offset, four bytes each.
void Positions_At(Data_View data, int offset, std::initializer_list<double*> degrees);

// Fixed-width text at a data offset, stopped at the first NUL and trimmed of
// spaces: every fixed text field.
std::string Fixed_Text(Data_View data, int offset, int width);

// `width` bytes at a data offset as text, NULs kept, nothing trimmed.
std::string Raw_Text(Data_View data, int offset, int width);

// The NUL-terminated texts that run from a data offset to the end of the
// data, in order. A text with no NUL after it is left "", and so are all
// that follow: without its terminator a text's end is not known.
std::vector<std::string> Texts_From(Data_View data, int offset, std::size_t count);

// Spaces trimmed from both ends.
std::string Trim(std::string_view text);
// Spaces trimmed from both ends, then cut at the first NUL (in this order, so
// spaces before a NUL stay).
std::string Trim_Null(std::string_view text);

// ---------------------------------------------------------------- writing
//
// Numbers go in with the writers in fields.h (Put_Byte, Put_Int, ...), the
// data offset as their index.

// `size` zero data bytes; throws Overflow_Error past 255, which no size byte
// can announce.
Bytes New_Data(std::size_t size);

// Degrees as semicircles at a data offset (Deg2Semi: may throw Overflow_Error).
void Put_Position(Bytes& data, int offset, double degrees);
// Positions one after another from a data offset, four bytes each.
void Put_Positions(Bytes& data, int offset, std::initializer_list<double> degrees);

// Fixed-width text at a data offset, upper-cased, space-padded, cut to width.
void Put_Upper_Text(Bytes& data, int offset, int width, std::string_view text);

// The wire bytes of texts sent as NUL-terminated: each upper-cased and
// followed by one NUL, joined in order.
std::string Terminated_Texts(std::initializer_list<std::string_view> texts);

// Wire bytes copied as they are to a data offset.
void Put_Wire(Bytes& data, int offset, std::string_view wire);

// A number for a one-byte field; Overflow_Error outside 0..255.
std::uint8_t Wire_Byte(std::int64_t value);
// A Single for an Integer field, rounded half to even; Overflow_Error when
// it does not fit (or is not a number).
std::int16_t Wire_Integer(float value);

// The default subclass: six bytes 0x00, twelve 0xFF, for records that carry
// no subclass of their own.
void Put_Default_Subclass(Bytes& data, int offset);

}  // namespace trekcom::records::codec
