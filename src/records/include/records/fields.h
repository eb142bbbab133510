// Field conversions shared by every record codec: little-endian numbers,
// fixed-width text, semicircles.
//
// Buffers are whole packets: element 0 the frame start, 1 the packet id, 2
// the data size N, data byte k at element 3 + k, then checksum and trailer.
// Every index below is a buffer index (data offset + 3). "Upper bound" is the
// last valid index, size - 1.
//
// Nothing here reads or writes outside the buffer, whatever the index: a
// reader whose field does not fit returns 0, a writer whose field does not fit
// writes nothing.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace trekcom::records {

using Const_Buffer = std::span<const std::uint8_t>;
using Buffer = std::span<std::uint8_t>;

// ---------------------------------------------------------------- readers

// The one little-endian reader behind Pkt2* and cSAK's Byte2*: returns the T
// stored at index .. index + sizeof(T) - 1, or 0 unless
// 0 <= index <= upper bound - limit. Each public reader passes its own limit.
// Defined for std::uint8_t, std::int16_t, std::int32_t, float and double.
template <typename T>
T Read_LE(Const_Buffer buffer, std::int64_t index, std::int64_t limit);

// The control's readers. index is a 16-bit signed buffer index. Each refuses
// (returns 0) a field that would end on the buffer's last element: with the
// checksum and trailer behind the data, no field inside the data is refused.
std::int16_t Pkt2Int(Const_Buffer buffer, std::int16_t index);   // 0 if index > upper bound - 2
std::int32_t Pkt2Long(Const_Buffer buffer, std::int16_t index);  // 0 if index > upper bound - 4
float Pkt2Single(Const_Buffer buffer, std::int16_t index);       // 0 if index > upper bound - 4
double Pkt2Double(Const_Buffer buffer, std::int16_t index);      // 0 if index > upper bound - 8

// Fixed-width text at start .. start + length - 1, returned as UTF-8 of
// exactly `length` characters (its byte length can be larger, see
// From_Wire). Reading stops at a NUL byte unless keep_nuls is nonzero (any
// nonzero value), and at the end of the buffer; the characters not reached
// stay spaces. A length of 0 or less gives "". Callers trim the result.
std::string Pkt2Str(Const_Buffer buffer, std::int16_t start, std::int16_t length, std::int16_t keep_nuls);
// The same with 32-bit start and length (cSAK's Byte2Str).
std::string Wire_Text(Const_Buffer buffer, std::int64_t start, std::int64_t length, std::int64_t keep_nuls);

// The record codecs' readers, on a packet's data alone (data byte k is
// element k): the field at a data offset when it lies wholly inside the data,
// otherwise 0, the value a new record starts with.
std::uint8_t Data_Byte(Const_Buffer data, std::int64_t offset);
std::int16_t Data_Int(Const_Buffer data, std::int64_t offset);
std::int32_t Data_Long(Const_Buffer data, std::int64_t offset);
float Data_Single(Const_Buffer data, std::int64_t offset);
double Data_Double(Const_Buffer data, std::int64_t offset);

// ---------------------------------------------------------------- text writer

// Fills `field` with the text converted to wire bytes (To_Wire), left-aligned,
// padded with spaces and cut at the field's size, never NUL-terminated: the
// padding and the cut are measured in wire bytes, not UTF-8 bytes. An empty
// text leaves the field all spaces. No upper-casing here (see Upper_Text).
void Str2Pkt(std::string_view text_utf8, Buffer field);

// ---------------------------------------------------------------- writers

// Little-endian writers for the encoders. Each writes its bytes at index when
// 0 <= index and the last byte is inside the buffer; otherwise it writes
// nothing and returns false. Given a packet's data alone, the index is the
// data offset.
bool Put_Byte(Buffer buffer, std::int64_t index, std::uint8_t value);
bool Put_Int(Buffer buffer, std::int64_t index, std::int16_t value);
bool Put_Long(Buffer buffer, std::int64_t index, std::int32_t value);
bool Put_Single(Buffer buffer, std::int64_t index, float value);
bool Put_Double(Buffer buffer, std::int64_t index, double value);
// Str2Pkt into buffer[index .. index + width - 1] when that lies inside the
// buffer (width >= 0); otherwise nothing is written and the result is false.
bool Put_Str(Buffer buffer, std::int64_t index, std::int64_t width, std::string_view text_utf8);

// ---------------------------------------------------------------- semicircles

// A position that has no semicircle value: degrees outside -180 <= d < 180
// (after rounding), or not a number. The operation that converts catches it.
class Overflow_Error : public std::overflow_error {
public:
    using std::overflow_error::overflow_error;
};

// Degrees to semicircles (2^31 semicircles = 180 degrees): (2^31 / 180) x
// degrees in double precision, rounded to the nearest integer, ties to even.
// +180 gives 2^31, which does not fit, and throws Overflow_Error; -180 gives
// -2^31.
std::int32_t Deg2Semi(double degrees);

// Semicircles to degrees, (180 / 2^31) x semicircles, not rounded.
double Semi2Deg(std::int32_t semicircles);

}  // namespace trekcom::records
