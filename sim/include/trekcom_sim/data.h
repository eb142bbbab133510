// What a simulated receiver holds: its waypoints, routes, tracks and the rest,
// in the receiver's own terms (positions in semicircles, times in seconds since
// 1989-12-31 00:00:00 UTC), so that what goes out on the wire and what comes
// back can be compared bit for bit.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace trekcom::sim {

// Receivers mark a float field that holds nothing with this value.
inline constexpr float kNoValue = 1.0e25f;
// ...and a time that holds nothing with all ones.
inline constexpr std::uint32_t kNoTime = 0xFFFFFFFFu;
// Seconds from the Unix epoch to the receiver's epoch (1989-12-31 00:00:00 UTC).
inline constexpr std::int64_t kEpochOffset_s = 631065600;

// 2^31 semicircles are 180 degrees.
std::int32_t Deg_To_Semi(double degrees);
double Semi_To_Deg(std::int32_t semicircles);

using Subclass = std::array<std::uint8_t, 18>;
// The subclass a receiver gives a user waypoint: six zeros, then twelve 0xFF.
Subclass Default_Subclass();

// One waypoint; the union of the fields of every waypoint layout. A layout
// that lacks a field sends a neutral value and leaves the field alone when it
// receives.
struct Waypoint {
    std::string ident;
    std::int32_t lat = 0;  // semicircles
    std::int32_t lon = 0;
    std::string comment;
    std::string facility;
    std::string city;
    std::string state;    // two characters
    std::string country;  // two characters
    std::string address;
    std::string cross_road;
    std::string link;  // the link ident of the D106 layout
    float alt = kNoValue;  // metres
    float depth = kNoValue;
    float dist = kNoValue;  // proximity distance, metres
    float temp = kNoValue;
    std::int16_t symbol = 18;  // a dot in the newer symbol set
    std::uint8_t wpt_class = 0;
    std::uint8_t color = 0xFF;  // 0xFF: the unit's default colour
    std::uint8_t display = 0;
    std::uint8_t attr = 0;
    Subclass subclass = Default_Subclass();
    std::uint32_t ete = 0xFFFFFFFFu;
    std::uint32_t time = kNoTime;
    std::uint16_t category = 0;
    std::int16_t prox_index = 0;  // the D450 proximity index
    std::uint32_t unused = 0;     // the spare word of the D100 family

    bool operator==(const Waypoint&) const = default;
};

struct Route_Link {
    std::uint16_t link_class = 3;  // 3: a direct line
    Subclass subclass = Default_Subclass();
    std::string ident;
    bool operator==(const Route_Link&) const = default;
};

struct Route {
    std::uint8_t number = 0;
    std::string ident;    // D202
    std::string comment;  // D201
    std::vector<Waypoint> points;
    // links[i] joins points[i] and points[i + 1]; missing ones go out as direct lines.
    std::vector<Route_Link> links;
    bool operator==(const Route&) const = default;
};

struct Track_Point {
    std::int32_t lat = 0;
    std::int32_t lon = 0;
    std::uint32_t time = kNoTime;
    float alt = kNoValue;
    float depth = kNoValue;
    float temp = kNoValue;
    bool new_segment = false;
    bool operator==(const Track_Point&) const = default;
};

struct Track {
    std::string ident;
    std::uint8_t color = 0xFF;
    bool display = true;
    std::uint16_t index = 0;  // D311
    std::vector<Track_Point> points;
    bool operator==(const Track&) const = default;
};

struct Almanac {
    std::uint8_t svid = 0;  // 0-based satellite number
    std::int16_t wn = 0;
    float toa = 0, af0 = 0, af1 = 0, e = 0, sqrta = 0, m0 = 0, w = 0, omg0 = 0, odot = 0, i = 0;
    std::uint8_t hlth = 0;
    bool operator==(const Almanac&) const = default;
};

struct Lap {
    std::uint32_t start_time = 0;
    std::uint32_t total_time = 0;  // hundredths of a second
    float total_dist = 0;          // metres
    std::int32_t begin_lat = 0, begin_lon = 0, end_lat = 0, end_lon = 0;
    std::uint16_t calories = 0;
    std::uint8_t track_index = 0;
    std::uint8_t unused = 0;
    bool operator==(const Lap&) const = default;
};

struct Flight {
    std::uint32_t takeoff_time = 0, landing_time = 0;
    std::int32_t takeoff_lat = 0, takeoff_lon = 0, landing_lat = 0, landing_lon = 0;
    std::uint32_t night_time = 0, num_landings = 0;
    float max_speed = 0, max_alt = 0, distance = 0;
    bool cross_country = false;
    std::string departure_name, departure_ident, arrival_name, arrival_ident, aircraft_id;
    bool operator==(const Flight&) const = default;
};

// ---- fitness units: runs with laps and tracks, courses

// A track point with heart rate (D303), distance, cadence and sensor (D304).
struct Fitness_Point {
    std::int32_t lat = 0;  // semicircles; 0x7FFFFFFF: no position
    std::int32_t lon = 0;
    std::uint32_t time = 0;
    float alt = kNoValue;
    float distance = kNoValue;
    std::uint8_t heart_rate = 0;  // 0: none
    std::uint8_t cadence = 0xFF;  // 0xFF: none
    std::uint8_t sensor = 0;
    bool operator==(const Fitness_Point&) const = default;
};

struct Fitness_Track {
    std::uint16_t index = 0;  // D311
    std::vector<Fitness_Point> points;
    bool operator==(const Fitness_Track&) const = default;
};

// A lap (D1001, D1011, D1015).
struct Fitness_Lap {
    std::uint32_t index = 0;
    std::uint32_t start_time = 0;
    std::uint32_t total_time = 0;  // hundredths of a second
    float total_dist = 0, max_speed = 0;
    std::int32_t begin_lat = 0, begin_lon = 0, end_lat = 0, end_lon = 0;
    std::uint16_t calories = 0;
    std::uint8_t avg_heart_rate = 0, max_heart_rate = 0, intensity = 0;
    std::uint8_t avg_cadence = 0xFF, trigger_method = 0;
    std::array<std::uint8_t, 5> extra{};  // D1015's bytes of unknown meaning
    bool operator==(const Fitness_Lap&) const = default;
};

// A run (D1000, D1009, D1010); its workout block carries a name and a sport.
struct Run {
    std::uint32_t track_index = 0xFFFFFFFFu;  // all ones: no track
    std::uint32_t first_lap = 0, last_lap = 0;
    std::uint8_t sport = 0, program = 0, multisport = 0;
    std::uint32_t partner_time = 0;
    float partner_distance = 0;
    std::string workout_name;
    std::uint8_t workout_sport = 0;
    bool operator==(const Run&) const = default;
};

struct Course {
    std::uint16_t index = 0;
    std::string name;  // up to 16 characters
    std::uint16_t track_index = 0;
    bool operator==(const Course&) const = default;
};

struct Course_Lap {
    std::uint16_t course_index = 0, lap_index = 0;
    std::uint32_t total_time = 0;
    float total_dist = 0;
    std::int32_t begin_lat = 0, begin_lon = 0, end_lat = 0, end_lon = 0;
    std::uint8_t avg_heart_rate = 0, max_heart_rate = 0, intensity = 0, avg_cadence = 0xFF;
    bool operator==(const Course_Lap&) const = default;
};

struct Course_Point {
    std::string name;  // up to 10 characters
    std::uint16_t course_index = 0;
    std::uint32_t time = 0;  // of the track point it marks
    std::uint8_t type = 0;
    bool operator==(const Course_Point&) const = default;
};

struct Course_Limits {
    std::uint32_t courses = 50, laps = 100, points = 100, track_points = 1000;
    bool operator==(const Course_Limits&) const = default;
};

// The unit's own state that is not a record list.
struct Situation {
    double lat_deg = 0;  // where the unit stands
    double lon_deg = 0;
    float alt_m = 0;
    std::uint32_t utc_start = 0;  // receiver time when the unit starts
    std::uint32_t unit_id = 0;
    float internal_v = 0;
    float external_v = 0;
    bool operator==(const Situation&) const = default;
};

struct Data_Set {
    std::vector<Waypoint> waypoints;
    std::vector<Waypoint> proximity;
    std::vector<Route> routes;
    std::vector<Track> tracks;
    std::vector<Almanac> almanac;
    std::vector<Lap> laps;
    std::vector<Flight> flights;
    std::vector<Run> runs;
    std::vector<Fitness_Lap> fitness_laps;
    std::vector<Fitness_Track> fitness_tracks;
    std::vector<Course> courses;
    std::vector<Course_Lap> course_laps;
    std::vector<Course_Point> course_points;
    std::vector<Fitness_Track> course_tracks;
    Course_Limits course_limits;
    Situation situation;
    bool operator==(const Data_Set&) const = default;
};

// A small, realistic set: a dozen waypoints around a lake, two routes, two
// tracks with a segment break, an almanac, laps and flights. Text fits the
// narrowest layouts (six-character upper-case idents), so every profile serves it whole.
Data_Set Builtin_Data();

// Adds a fitness unit's records: runs of both sports (one of several laps,
// one without a track), heart rate and cadence present and absent, invalid
// positions inside a track, and two courses.
void Add_Fitness_Data(Data_Set& data);

// Appends a track of n points (a walk with altitude and one-second spacing,
// segment breaks every 500 points), for large logs. Deterministic.
void Add_Generated_Track(Data_Set& data, std::size_t n, std::uint32_t seed = 1);

// JSON data files: the same fields as above, degrees for positions, ISO 8601
// UTC for times (see Save_Data's output for the exact shape). Missing fields
// take the defaults above. False with a reason when the file cannot be used.
bool Load_Data(const std::string& path, Data_Set& out, std::string& error);
bool Save_Data(const std::string& path, const Data_Set& data, std::string& error);
std::string To_Json(const Data_Set& data);
bool From_Json(const std::string& text, Data_Set& out, std::string& error);

}  // namespace trekcom::sim
