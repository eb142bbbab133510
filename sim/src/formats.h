// The receiver's record layouts (D types), both ways. Encoders always produce
// a whole record; decoders return false, leaving the output alone, when the
// data does not hold the layout.
#pragma once

#include <cstdint>

#include "trekcom/types.h"
#include "trekcom_sim/data.h"

namespace trekcom::sim::formats {

// Waypoints: D100-D110, D150-D155; proximity: D400, D403, D450 (or any
// waypoint layout that carries a distance).
bool Known_Waypoint_Type(std::uint16_t type);
Bytes Encode_Waypoint(const Waypoint& w, std::uint16_t type);
bool Decode_Waypoint(const Bytes& data, std::uint16_t type, Waypoint& w);

// Route headers D200-D202 (the header fields of a Route; points stay alone).
Bytes Encode_Route_Header(const Route& r, std::uint16_t type);
bool Decode_Route_Header(const Bytes& data, std::uint16_t type, Route& r);
Bytes Encode_Route_Link(const Route_Link& l);  // D210
bool Decode_Route_Link(const Bytes& data, Route_Link& l);

// Tracks: headers D310-D312, points D300-D302.
Bytes Encode_Track_Header(const Track& t, std::uint16_t type);
bool Decode_Track_Header(const Bytes& data, std::uint16_t type, Track& t);
Bytes Encode_Track_Point(const Track_Point& p, std::uint16_t type);
bool Decode_Track_Point(const Bytes& data, std::uint16_t type, Track_Point& p);

// Almanac D500, D501, D550, D551.
Bytes Encode_Almanac(const Almanac& a, std::uint16_t type);
bool Decode_Almanac(const Bytes& data, std::uint16_t type, Almanac& a);

Bytes Encode_Lap(const Lap& l);  // D906
bool Decode_Lap(const Bytes& data, Lap& l);
Bytes Encode_Flight(const Flight& f);  // D650
bool Decode_Flight(const Bytes& data, Flight& f);

// Real-time data.
struct Date_Time {
    std::uint8_t month = 1, day = 1;
    std::uint16_t year = 1990;
    std::uint16_t hour = 0;
    std::uint8_t minute = 0, second = 0;
};
Date_Time To_Date_Time(std::uint32_t receiver_seconds);
std::uint32_t From_Date_Time(const Date_Time& d);
Bytes Encode_Date_Time(const Date_Time& d);  // D600
bool Decode_Date_Time(const Bytes& data, Date_Time& d);
Bytes Encode_Position(double lat_rad, double lon_rad);  // D700
bool Decode_Position(const Bytes& data, double& lat_rad, double& lon_rad);

struct Pvt {
    float alt = 0, epe = 0, eph = 0, epv = 0;
    std::int16_t fix = 3;
    double tow = 0, lat_rad = 0, lon_rad = 0;
    float east = 0, north = 0, up = 0, msl_hght = 0;
    std::int16_t leap_scnds = 18;
    std::uint32_t wn_days = 0;
};
Bytes Encode_Pvt(const Pvt& p);  // D800, 64 bytes
bool Decode_Pvt(const Bytes& data, Pvt& p);

}  // namespace trekcom::sim::formats
