// Codecs of the fitness units' records: runs, fitness laps, track points with
// heart rate, courses and their parts. The rules of codecs.h hold: decoders
// read untrusted data of any size (a field the data does not reach keeps its
// start value), encoders give the packet for a known format and nothing for
// another, and throw Overflow_Error for a position without a semicircle form.
//
// These records travel over USB, where a packet may hold more than 255 data
// bytes (a run holds 685). A record decoded from a whole packet encodes back
// to the same bytes, spare and unknown ones included; bytes past a layout's
// end are not kept, except the five D1015 adds to D1011.
#pragma once

#include <optional>
#include <string_view>

#include "link/packet.h"
#include "trekcom/records.h"

namespace trekcom::records {

// D1000, D1009, D1010. The workout block is kept as it came; an encoder pads
// or cuts it to its 661 bytes. D1009's no-track 0xFFFF reads as kNo_Track.
cRun Decode_Run(link::Data_View data, std::string_view format);
std::optional<link::Packet> Encode_Run(const cRun& run, std::string_view format, std::uint16_t packet_id);

// D1001, D1011, D1015.
cFitness_Lap Decode_Fitness_Lap(link::Data_View data, std::string_view format);
std::optional<link::Packet> Encode_Fitness_Lap(const cFitness_Lap& lap, std::string_view format,
                                               std::uint16_t packet_id);

// D303, D304. Track_Index is the caller's: the index of the last D311 header.
cFitness_Point Decode_Fitness_Point(link::Data_View data, std::string_view format, std::uint16_t track_index);
std::optional<link::Packet> Encode_Fitness_Point(const cFitness_Point& point, std::string_view format,
                                                 std::uint16_t packet_id);

// One layout each: D1006, D1007, D1012, D1013.
cCourse Decode_Course(link::Data_View data);
link::Packet Encode_Course(const cCourse& course, std::uint16_t packet_id);
cCourse_Lap Decode_Course_Lap(link::Data_View data);
link::Packet Encode_Course_Lap(const cCourse_Lap& lap, std::uint16_t packet_id);
cCourse_Point Decode_Course_Point(link::Data_View data);
link::Packet Encode_Course_Point(const cCourse_Point& point, std::uint16_t packet_id);
cCourse_Limits Decode_Course_Limits(link::Data_View data);
link::Packet Encode_Course_Limits(const cCourse_Limits& limits, std::uint16_t packet_id);

}  // namespace trekcom::records
