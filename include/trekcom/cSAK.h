// cSAK: the public utility object. The control holds one and forwards its own
// TrimNull, Address_Of, WaitFor and xLate to it; a host may make its own.
//
// The byte readers read little-endian fields from a byte array at a 0-based
// index and return 0 when the field lies outside the array (any index,
// negative or huge, is safe). Their limits are those of the control's packet
// readers with one exception: Byte2Long accepts one byte less than Pkt2Long,
// because hosts rely on reading a Long that ends on the array's last element.
//
// Text crosses in UTF-8; byte arrays hold Windows-1252, one byte per character.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "trekcom/platform.h"
#include "trekcom/types.h"

namespace trekcom {

class cSAK {
public:
    // Split's compare modes.
    static constexpr int vbBinaryCompare = 0;
    static constexpr int vbTextCompare = 1;  // case-insensitive, by the 1252 upper-case rule

    // The platform is what WaitFor yields to and measures time on.
    explicit cSAK(std::shared_ptr<Platform> platform = Default_Platform());

    // Integer from 2 bytes at index; 0 if index > upper bound - 2.
    std::int16_t Byte2Int(const Bytes& bytes, std::int32_t index) const;
    // Long from 4 bytes at index; 0 if index > upper bound - 3.
    std::int32_t Byte2Long(const Bytes& bytes, std::int32_t index) const;
    // Single from 4 bytes at index; 0 if index > upper bound - 4.
    float Byte2Single(const Bytes& bytes, std::int32_t index) const;
    // Double from 8 bytes at index; 0 if index > upper bound - 8.
    double Byte2Double(const Bytes& bytes, std::int32_t index) const;

    // Text of exactly `length` characters from start: stops at a NUL (unless
    // keep_nuls is nonzero) or at the end of the array; the characters not
    // reached are spaces. UTF-8, so the byte length can exceed `length`.
    // The padding is real: a length of a billion makes a billion-character text.
    std::string Byte2Str(const Bytes& bytes, std::int32_t start, std::int32_t length, std::int16_t keep_nuls) const;
    // Fills the whole array with the text's bytes, space-padded and cut at the
    // array's size, no NUL. Characters outside 1252 become '?'.
    void Str2Byte(const std::string& text, Bytes& bytes) const;

    // The 32 bits of a Long read as unsigned.
    double uLong2Dbl(std::int32_t value) const;
    // The same number: lets a caller treat an address it took as a plain Long.
    std::int32_t Address_Of(std::int32_t address) const;

    // Pieces of text between delimiters, at most `limit` of them; the last
    // piece taken runs to the delimiter after it (or the end), so a limit
    // smaller than the number of pieces drops the rest rather than joining it.
    // A limit of 0 or less takes no pieces. A trailing delimiter adds no empty
    // piece; an empty delimiter gives the whole text as one piece; empty text
    // gives no pieces.
    std::vector<std::string> Split(const std::string& text, const std::string& delimiter, std::int32_t limit,
                                   int compare = vbBinaryCompare) const;
    // The comma-separated fields of text into `fields` (resized to fit). Empty
    // fields, the last one included, become a single space: "a,,b" gives
    // {"a", " ", "b"}, "a," gives {"a", " "}, "" gives {" "}.
    void sParse(const std::string& text, std::vector<std::string>& fields) const;
    // Trims spaces from both ends of `text` itself (the caller's string
    // changes), then returns it up to its first NUL.
    std::string TrimNull(std::string& text) const;

    // Returns after `delay`: below 30 it is seconds, from 30 up milliseconds.
    // Yields to the platform's loop meanwhile (at least once), so port and
    // timer events keep running. Measured on the monotonic clock, so a wait
    // that spans midnight ends on time.
    void WaitFor(std::int32_t delay);

    // Arc cosine and arc sine in radians, from arctangents. At x = +-1 they
    // give 0 / pi and +-pi/2; outside [-1, 1] NaN.
    double acos(double x) const;
    double asin(double x) const;

    // Area of the polygon through (x[i], y[i]) by the shoelace formula; an
    // open polygon is closed back to its first point. y must be at least as
    // long as x (std::invalid_argument otherwise); fewer than 3 points give 0.
    double PolygonArea(const std::vector<double>& x, const std::vector<double>& y) const;

    // The phrase in the current Language, from the translation file
    // "<folder>/<base>_<Language>.tlt" (see Platform::Translation_Folder);
    // "English" or an empty Language returns it unchanged.
    std::string xLate(const std::string& phrase) const;
    std::string Language() const { return language_; }
    void Language(const std::string& language) { language_ = language; }

private:
    std::shared_ptr<Platform> platform_;
    std::string language_ = "English";
};

}  // namespace trekcom
