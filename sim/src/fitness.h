// The fitness units' record layouts, both ways, and their packet ids and
// command codes (all above 255: these units speak USB).
#pragma once

#include <cstdint>

#include "trekcom/types.h"
#include "trekcom_sim/data.h"

namespace trekcom::sim::fitness {

inline constexpr int kPid_Run = 990;
inline constexpr int kPid_Course = 1061;
inline constexpr int kPid_Course_Lap = 1062;
inline constexpr int kPid_Course_Point = 1063;
inline constexpr int kPid_Course_Trk_Hdr = 1064;
inline constexpr int kPid_Course_Trk_Data = 1065;
inline constexpr int kPid_Course_Limits = 1066;
inline constexpr int kCmnd_Runs = 450;
inline constexpr int kCmnd_Courses = 561;
inline constexpr int kCmnd_Course_Laps = 562;
inline constexpr int kCmnd_Course_Points = 563;
inline constexpr int kCmnd_Course_Tracks = 564;
inline constexpr int kCmnd_Course_Limits = 565;

Bytes Encode_Run(const Run& r, std::uint16_t type);  // D1000, D1009, D1010
Bytes Encode_Lap(const Fitness_Lap& l, std::uint16_t type);  // D1001, D1011, D1015
Bytes Encode_Track_Index(std::uint16_t index);  // D311
bool Decode_Track_Index(const Bytes& data, std::uint16_t& index);
Bytes Encode_Point(const Fitness_Point& p, std::uint16_t type);  // D303, D304
bool Decode_Point(const Bytes& data, std::uint16_t type, Fitness_Point& p);
Bytes Encode_Course(const Course& c);  // D1006
bool Decode_Course(const Bytes& data, Course& c);
Bytes Encode_Course_Lap(const Course_Lap& l);  // D1007
bool Decode_Course_Lap(const Bytes& data, Course_Lap& l);
Bytes Encode_Course_Point(const Course_Point& p);  // D1012
bool Decode_Course_Point(const Bytes& data, Course_Point& p);
Bytes Encode_Limits(const Course_Limits& l);  // D1013

}  // namespace trekcom::sim::fitness
