// Text on the wire is one byte per character in Windows-1252; the host sees
// UTF-8. These functions are the only crossing between the two.
//
// The mapping is lossless for every wire byte: the five bytes 1252 leaves
// undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) become the control characters
// U+0081 .. U+009D of the same value and map back to themselves, so any bytes
// a receiver sends come back unchanged when the host sends them again.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace trekcom::records {

// UTF-8 to wire bytes, one byte per character. A character 1252 lacks, and
// each byte of malformed UTF-8, becomes '?'.
std::string To_Wire(std::string_view utf8);

// Wire bytes to UTF-8. The result has one character per byte (NUL included),
// so its length in characters equals wire.size() while its length in bytes
// can be up to three times that.
std::string From_Wire(std::string_view wire);

// Upper-cases wire bytes the way the receiver's code page does: a-z, the
// accented letters (é -> É, ÿ -> Ÿ at 0x9F, š -> Š, œ -> Œ, ž -> Ž). Letters
// with no capital in the page (ß, µ) and every other byte stay as they are.
std::string Upper_Wire(std::string_view wire);
unsigned char Upper_Wire_Byte(unsigned char b);

// Upper-cases UTF-8 text by the same rule, for callers that stay in UTF-8.
// Characters outside 1252 are kept (not replaced by '?').
std::string Upper_Text(std::string_view utf8);

// One step of a UTF-8 walk: the character starting at byte pos, and how many
// bytes it takes. A malformed byte is one character of its own, reported as
// the code point 0xDC00 + byte (never a valid character), so every input can
// be walked and sliced back byte for byte.
struct Utf8_Char {
    char32_t code_point;
    std::size_t bytes;
};
Utf8_Char Next_Char(std::string_view utf8, std::size_t pos);

// The upper-case partner of a character, by the 1252 rule above; characters
// outside 1252 are returned unchanged.
char32_t Upper_Char(char32_t code_point);

}  // namespace trekcom::records
