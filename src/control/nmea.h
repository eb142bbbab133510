// NMEA 0183 sentences and "@" text lines: the checksum rule, the completion
// of a sentence for sending, and the verdict on a received line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace trekcom::detail::nmea {

// More mismatches than this since the last report raise an error.
inline constexpr std::int16_t kMax_Mismatches = 50;

// Two upper-case hex digits: the XOR of the characters from the second up to
// the first '*' (to the end when there is none). The first character, the
// '$', never counts.
std::string Checksum(std::string_view msg);

// The sentence as it is sent: without a '*' it gets "*hh"; ending in '*' it
// gets "hh"; with a '*' before its end it already has a checksum and is left
// as it is.
std::string Complete(std::string message);

// What a received line says about its checksum.
struct Verdict {
    bool chkerr = false;  // its own checksum was compared and is right
    bool report = false;  // the mismatch count just passed the limit (and was reset)
};

// Compares the line's checksum ("*hh" at its end) with the computed one,
// unless checks are off or the line is a text line. A mismatch counts in
// error_count; good sentences leave the count alone.
Verdict Judge(std::string_view line, bool text_line, bool ignore_checksum, std::int16_t& error_count);

}  // namespace trekcom::detail::nmea
