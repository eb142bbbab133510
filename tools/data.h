// What the tool moves between a receiver and a file: the control's own
// record classes, with tracks grouped under their headers, and the helpers
// that turn the receiver's conventions (no-value markers, its epoch) into
// the plain ones of files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <trekcom/trekcom.h>

namespace trekcom::tool {

// The record kinds `get` knows, in the order `all` downloads them.
enum class Kind { Waypoints, Proximity, Routes, Tracks, Laps, Flightbook, Almanac };
inline constexpr Kind kAll_Kinds[] = {Kind::Waypoints, Kind::Proximity, Kind::Routes, Kind::Tracks,
                                      Kind::Laps,      Kind::Flightbook, Kind::Almanac};
// "waypoints", "proximity", ...: the names on the command line and in files.
std::string_view Kind_Name(Kind k);
std::optional<Kind> Kind_Named(std::string_view name);

struct Route_Data {
    cRoute header;  // its Waypoints member is not used: see points
    std::vector<cWaypoint> points;
};

struct Track_Data {
    cTrack header;  // Ident, Color, Dspl, Index; a unit without headers leaves it empty
    std::vector<cTrack> points;
};

struct Data {
    std::vector<Kind> kinds;  // the kinds this set holds (even when empty)
    std::vector<cWaypoint> waypoints;
    std::vector<cWaypoint> proximity;
    std::vector<Route_Data> routes;
    std::vector<Track_Data> tracks;
    std::vector<cLap> laps;
    std::vector<cFlightbook_Record> flights;
    std::vector<cAlmanac> almanac;
    std::string source;  // the receiver's description, for the file's metadata

    bool Has(Kind k) const;
    std::size_t Count(Kind k) const;
    // Leaves out every record of this kind.
    void Clear(Kind k);
};

// Receivers mark an empty float field with 1.0e25 and an empty time with all ones.
inline constexpr float kNo_Value = 1.0e25f;
inline constexpr std::int32_t kNo_Time = -1;
inline bool Has_Value(float v) { return v == v && v < 1.0e24f && v > -1.0e24f; }
// Times of 0 come from layouts without a time field; -1 is the receiver's "none".
inline bool Has_Time(std::int32_t garmin_seconds) { return garmin_seconds != 0 && garmin_seconds != kNo_Time; }

// Seconds since 1989-12-31 00:00:00 UTC <-> "2024-05-01T10:00:00Z".
std::string Iso_Time(std::int64_t garmin_seconds);
// A record's time field: the receiver counts unsigned seconds, so times after
// 2058 sit in the record's signed field as negative numbers.
inline std::string Record_Iso_Time(std::int32_t field) { return Iso_Time(static_cast<std::uint32_t>(field)); }
// Accepts a date, 'T', a time with optional fraction, and 'Z' or an offset.
std::optional<std::int64_t> Parse_Iso_Time(std::string_view text);
// Unix seconds of a Garmin time.
inline constexpr std::int64_t kGarmin_Epoch_Unix = 631065600;

// Symbol codes and the names receivers show for them; an unknown code is
// "Symbol N", which maps back to N.
std::string Symbol_Name(std::int16_t code);
std::optional<std::int16_t> Symbol_Code(std::string_view name);

}  // namespace trekcom::tool
