// The packet trace line raised as HexDebug.
//
//   outgoing  "PC -» GPS 10 0A 02 07 00 E5 10 03 "
//   incoming  "PC «- GPS (   12.5 ms) 10 06 02 0A 00 EE 10 03 "
//   error     "Error <note> <bytes>"     note      "<note> <bytes>"
//
// The first character of the direction picks the arrow ("O" out, "I" in,
// "X" in on the USB side, "*" a mark, "!" an error note, ":" a plain note);
// the rest of the direction is note text. Incoming lines carry the time since
// the last outgoing command in milliseconds, so a reader sees how long the
// receiver took to answer. « and » are written in UTF-8, as all host text is.
#pragma once

#include <string>
#include <string_view>

#include "trekcom/types.h"

namespace trekcom::link {

inline constexpr std::string_view kArrowOut = "PC -\u00BB GPS ";
inline constexpr std::string_view kArrowIn = "PC \u00AB- GPS ";

// elapsed_ms is printed on incoming lines only.
std::string Trace_Line(const Bytes& packet, std::string_view direction, double elapsed_ms);

// "####0.0" right-aligned in seven characters.
std::string Format_Elapsed(double ms);

// Two upper-case hex digits, as the trace's notes print ids and codes.
std::string Hex2(unsigned value);

}  // namespace trekcom::link
