// The built-in data set, the large-log generator and the JSON data files.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include <nlohmann/json.hpp>

#include "civil_time.h"
#include "trekcom_sim/data.h"

namespace trekcom::sim {

namespace {

using nlohmann::json;

std::uint32_t Receiver_Time(int y, int mo, int d, int h, int mi, int s) {
    return static_cast<std::uint32_t>(Unix_From_Civil({y, mo, d, h, mi, s}) - kEpochOffset_s);
}

Waypoint Wpt(const char* ident, double lat, double lon, float alt, const char* comment, std::int16_t symbol,
             const char* facility = "", const char* city = "") {
    Waypoint w;
    w.ident = ident;
    w.lat = Deg_To_Semi(lat);
    w.lon = Deg_To_Semi(lon);
    w.alt = alt;
    w.comment = comment;
    w.symbol = symbol;
    w.facility = facility;
    w.city = city;
    w.state = "VD";
    w.country = "CH";
    w.time = Receiver_Time(2024, 5, 17, 16, 30, 0);
    return w;
}

}  // namespace

Data_Set Builtin_Data() {
    Data_Set d;
    d.situation.lat_deg = 46.6356;
    d.situation.lon_deg = 6.2822;
    d.situation.alt_m = 1008.5f;
    d.situation.utc_start = Receiver_Time(2024, 6, 1, 12, 0, 0);
    d.situation.unit_id = 3456789012u;
    d.situation.internal_v = 2.95f;
    d.situation.external_v = 0.0f;

    d.waypoints = {
        Wpt("HOME", 46.635600, 6.282200, 1008.5f, "CABIN BY THE LAKE", 10, "CABIN", "LE SENTIER"),
        Wpt("DOCK", 46.632911, 6.279854, 1004.0f, "BOAT DOCK", 18, "PORT", "LE SENTIER"),
        Wpt("CAMP01", 46.618452, 6.251137, 1012.25f, "CAMPSITE NORTH SHORE", 151, "CAMPING", "LE PONT"),
        Wpt("BRIDGE", 46.665321, 6.325418, 1005.0f, "OLD STONE BRIDGE", 18),
        Wpt("SUMMIT", 46.601234, 6.212345, 1677.0f, "DENT DE VAULION", 156),
        Wpt("SPRING", 46.642817, 6.301999, 1046.75f, "WATER SOURCE", 18),
        Wpt("CHAPEL", 46.654002, 6.309876, 1021.5f, "CHAPEL", 8),
        Wpt("PARK1", 46.612345, 6.241234, 1010.0f, "TRAILHEAD PARKING", 158),
        Wpt("VIEW", 46.628765, 6.198765, 1415.5f, "VIEWPOINT WEST", 18),
        Wpt("FERRY", -33.861500, 151.210300, 3.0f, "SOUTH AND EAST HALF", 18),
        Wpt("OBS", -22.953400, -43.210400, 702.0f, "NEGATIVE LAT AND LON", 18),
        Wpt("ANTI", 0.000001, -179.999999, 0.0f, "NEAR THE DATE LINE", 18),
    };
    d.waypoints[2].dist = 50.0f;

    d.proximity = {Wpt("CLIFF", 46.610000, 6.220000, 1300.0f, "STEEP DROP", 18),
                   Wpt("SHOAL", 46.640000, 6.290000, 1004.0f, "SHALLOW WATER", 18)};
    d.proximity[0].dist = 150.0f;
    d.proximity[0].prox_index = 1;
    d.proximity[1].dist = 400.5f;
    d.proximity[1].prox_index = 2;

    Route loop;
    loop.number = 1;
    loop.ident = "LAKE LOOP";
    loop.comment = "LAKE LOOP";
    loop.points = {d.waypoints[0], d.waypoints[1], d.waypoints[3], d.waypoints[6], d.waypoints[0]};
    Route climb;
    climb.number = 2;
    climb.ident = "SUMMIT CLIMB";
    climb.comment = "SUMMIT CLIMB";
    climb.points = {d.waypoints[7], d.waypoints[8], d.waypoints[4]};
    d.routes = {loop, climb};

    Track walk;
    walk.ident = "MORNING WALK";
    walk.color = 2;
    const std::uint32_t t0 = Receiver_Time(2024, 5, 18, 7, 0, 0);
    for (int i = 0; i < 40; ++i) {
        Track_Point p;
        p.lat = Deg_To_Semi(46.6356 - i * 0.00021);
        p.lon = Deg_To_Semi(6.2822 - i * 0.00034 + (i % 5) * 0.00002);
        p.time = t0 + static_cast<std::uint32_t>(i * 15 + (i >= 20 ? 600 : 0));
        p.alt = 1008.5f + static_cast<float>(i % 10) * 1.25f;
        p.new_segment = i == 20;  // a pause for a swim
        walk.points.push_back(p);
    }
    Track ridge;
    ridge.ident = "RIDGE";
    ridge.color = 5;
    const std::uint32_t t1 = Receiver_Time(2024, 5, 19, 13, 45, 30);
    for (int i = 0; i < 25; ++i) {
        Track_Point p;
        p.lat = Deg_To_Semi(46.6123 - i * 0.0004);
        p.lon = Deg_To_Semi(6.2412 - i * 0.0011);
        p.time = t1 + static_cast<std::uint32_t>(i * 30);
        p.alt = 1010.0f + static_cast<float>(i) * 26.75f;
        p.temp = 18.5f - static_cast<float>(i) * 0.25f;
        ridge.points.push_back(p);
    }
    d.tracks = {walk, ridge};

    for (int sv = 0; sv < 31; ++sv) {
        Almanac a;
        a.svid = static_cast<std::uint8_t>(sv);
        a.wn = 270;
        a.toa = 405504.0f;
        a.af0 = 1.0e-5f * static_cast<float>(sv % 7 - 3);
        a.af1 = 0.0f;
        a.e = 0.0005f + 0.0003f * static_cast<float>(sv % 11);
        a.sqrta = 5153.6f + static_cast<float>(sv % 5) * 0.05f;
        a.m0 = -3.0f + 0.2f * static_cast<float>(sv);
        a.w = 1.0f - 0.05f * static_cast<float>(sv);
        a.omg0 = -2.9f + 0.19f * static_cast<float>(sv);
        a.odot = -7.9e-9f;
        a.i = 0.96f + 0.001f * static_cast<float>(sv % 9);
        a.hlth = sv == 13 ? 63 : 0;
        d.almanac.push_back(a);
    }

    for (int i = 0; i < 3; ++i) {
        Lap l;
        l.start_time = t0 + static_cast<std::uint32_t>(i * 420);
        l.total_time = 41500u + static_cast<std::uint32_t>(i) * 1200u;
        l.total_dist = 1000.0f + static_cast<float>(i) * 12.5f;
        l.begin_lat = Deg_To_Semi(46.6356 - i * 0.009);
        l.begin_lon = Deg_To_Semi(6.2822);
        l.end_lat = Deg_To_Semi(46.6356 - (i + 1) * 0.009);
        l.end_lon = Deg_To_Semi(6.2822);
        l.calories = static_cast<std::uint16_t>(70 + i * 3);
        l.track_index = 0;
        l.unused = 0xFF;
        d.laps.push_back(l);
    }

    Flight f;
    f.takeoff_time = Receiver_Time(2024, 5, 20, 9, 12, 0);
    f.landing_time = Receiver_Time(2024, 5, 20, 10, 47, 0);
    f.takeoff_lat = Deg_To_Semi(46.2381);
    f.takeoff_lon = Deg_To_Semi(6.1090);
    f.landing_lat = Deg_To_Semi(47.4647);
    f.landing_lon = Deg_To_Semi(8.5492);
    f.num_landings = 1;
    f.max_speed = 61.5f;
    f.max_alt = 2743.0f;
    f.distance = 229000.0f;
    f.cross_country = true;
    f.departure_name = "GENEVA";
    f.departure_ident = "LSGG";
    f.arrival_name = "ZURICH";
    f.arrival_ident = "LSZH";
    f.aircraft_id = "HB-KFC";
    d.flights.push_back(f);
    return d;
}

void Add_Generated_Track(Data_Set& data, std::size_t n, std::uint32_t seed) {
    Track t;
    t.ident = "LOG " + std::to_string(n);
    t.points.reserve(n);
    std::uint32_t state = seed ? seed : 1;
    auto next = [&state] {  // a small linear congruential generator: same seed, same walk
        state = state * 1664525u + 1013904223u;
        return static_cast<double>(state >> 8) / 16777216.0 - 0.5;
    };
    double lat = data.situation.lat_deg, lon = data.situation.lon_deg, alt = data.situation.alt_m;
    const std::uint32_t start = data.situation.utc_start - static_cast<std::uint32_t>(std::min<std::size_t>(n, 1u << 30));
    for (std::size_t i = 0; i < n; ++i) {
        lat = std::clamp(lat + next() * 0.0002, -89.0, 89.0);
        lon += next() * 0.0002;
        if (lon >= 180.0) lon -= 360.0;
        alt = std::clamp(alt + next() * 2.0, -100.0, 8000.0);
        Track_Point p;
        p.lat = Deg_To_Semi(lat);
        p.lon = Deg_To_Semi(lon);
        p.time = start + static_cast<std::uint32_t>(i);
        p.alt = static_cast<float>(std::round(alt * 8) / 8);
        p.new_segment = i % 500 == 0;
        t.points.push_back(p);
    }
    data.tracks.push_back(std::move(t));
}

// ---------------------------------------------------------------- JSON

namespace {

// Wire text is single-byte; files are UTF-8. Bytes map to the code points
// of the same value, and code points above 255 come back as '?'.
std::string To_Utf8(const std::string& s) {
    std::string out;
    for (char ch : s) {
        const auto c = static_cast<unsigned char>(ch);
        if (c < 0x80) {
            out.push_back(ch);
        } else {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

std::string From_Utf8(const std::string& s) {
    std::string out;
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        int extra = c < 0x80 ? 0 : c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
        unsigned cp = extra == 0 ? c : c & (0x3F >> extra);
        std::size_t j = i + 1;
        for (int k = 0; k < extra && j < s.size(); ++k, ++j) cp = (cp << 6) | (static_cast<unsigned char>(s[j]) & 0x3F);
        out.push_back(cp <= 0xFF ? static_cast<char>(cp) : '?');
        i = j;
    }
    return out;
}

std::string Iso_Time(std::uint32_t t) {
    const Civil c = Civil_From_Unix(std::int64_t{t} + kEpochOffset_s);
    char buf[32];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02dZ", c.year, c.month, c.day, c.hour, c.minute,
                  c.second);
    return buf;
}

std::uint32_t Parse_Time(const json& j) {
    if (j.is_number()) {
        const double v = j.get<double>();
        if (!(v >= 0 && v <= 4294967295.0)) throw std::runtime_error("time out of range");
        return static_cast<std::uint32_t>(v);
    }
    const std::string s = j.get<std::string>();
    int y, mo, d, h, mi, se;
    char z = 0;
    if (std::sscanf(s.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &y, &mo, &d, &h, &mi, &se, &z) < 6 || mo < 1 ||
        mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || se > 60 || y < 1989 || y > 2124)
        throw std::runtime_error("bad time \"" + s + "\"");
    const std::int64_t r = Unix_From_Civil({y, mo, d, h, mi, se}) - kEpochOffset_s;
    if (r < 0 || r > 0xFFFFFFFEll) throw std::runtime_error("time out of range \"" + s + "\"");
    return static_cast<std::uint32_t>(r);
}

template <typename T>
void Num(const json& j, const char* key, T& out) {
    if (!j.contains(key) || j.at(key).is_null()) return;
    const double v = j.at(key).get<double>();
    if constexpr (std::is_floating_point_v<T>) {
        out = static_cast<T>(v);
    } else {
        if (!std::isfinite(v) || v < static_cast<double>(std::numeric_limits<T>::min()) ||
            v > static_cast<double>(std::numeric_limits<T>::max()))
            throw std::runtime_error(std::string("\"") + key + "\" out of range");
        out = static_cast<T>(v);
    }
}

void Text(const json& j, const char* key, std::string& out) {
    if (j.contains(key) && !j.at(key).is_null()) out = From_Utf8(j.at(key).get<std::string>());
}

void Pos(const json& j, const char* lat, const char* lon, std::int32_t& la, std::int32_t& lo) {
    double a = Semi_To_Deg(la), b = Semi_To_Deg(lo);
    Num(j, lat, a);
    Num(j, lon, b);
    if (!(std::fabs(a) <= 90.0) || !std::isfinite(b)) throw std::runtime_error("position out of range");
    la = Deg_To_Semi(a);
    lo = Deg_To_Semi(b);
}

void Put_Float(json& j, const char* key, float v) {
    if (v != kNoValue) j[key] = v;
}

std::string Hex(const Subclass& s) {
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (auto b : s) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 15]);
    }
    return out;
}

void Get_Subclass(const json& j, Subclass& s) {
    if (!j.contains("subclass")) return;
    const std::string h = j.at("subclass").get<std::string>();
    if (h.size() != 36) throw std::runtime_error("subclass must be 36 hex digits");
    for (std::size_t i = 0; i < 18; ++i) s[i] = static_cast<std::uint8_t>(std::stoul(h.substr(i * 2, 2), nullptr, 16));
}

json Wpt_Json(const Waypoint& w) {
    json j;
    j["ident"] = To_Utf8(w.ident);
    j["lat"] = Semi_To_Deg(w.lat);
    j["lon"] = Semi_To_Deg(w.lon);
    for (auto [key, text] : {std::pair{"comment", &w.comment}, {"facility", &w.facility}, {"city", &w.city},
                             {"state", &w.state}, {"country", &w.country}, {"address", &w.address},
                             {"cross_road", &w.cross_road}, {"link", &w.link}})
        if (!text->empty()) j[key] = To_Utf8(*text);
    Put_Float(j, "alt", w.alt);
    Put_Float(j, "depth", w.depth);
    Put_Float(j, "dist", w.dist);
    Put_Float(j, "temp", w.temp);
    j["symbol"] = w.symbol;
    j["class"] = w.wpt_class;
    j["color"] = w.color;
    j["display"] = w.display;
    j["attr"] = w.attr;
    if (w.subclass != Default_Subclass()) j["subclass"] = Hex(w.subclass);
    if (w.ete != 0xFFFFFFFFu) j["ete"] = w.ete;
    if (w.time != kNoTime) j["time"] = Iso_Time(w.time);
    j["category"] = w.category;
    j["prox_index"] = w.prox_index;
    j["unused"] = w.unused;
    return j;
}

Waypoint Wpt_From(const json& j) {
    Waypoint w;
    Text(j, "ident", w.ident);
    Pos(j, "lat", "lon", w.lat, w.lon);
    Text(j, "comment", w.comment);
    Text(j, "facility", w.facility);
    Text(j, "city", w.city);
    Text(j, "state", w.state);
    Text(j, "country", w.country);
    Text(j, "address", w.address);
    Text(j, "cross_road", w.cross_road);
    Text(j, "link", w.link);
    Num(j, "alt", w.alt);
    Num(j, "depth", w.depth);
    Num(j, "dist", w.dist);
    Num(j, "temp", w.temp);
    Num(j, "symbol", w.symbol);
    Num(j, "class", w.wpt_class);
    Num(j, "color", w.color);
    Num(j, "display", w.display);
    Num(j, "attr", w.attr);
    Get_Subclass(j, w.subclass);
    Num(j, "ete", w.ete);
    if (j.contains("time")) w.time = Parse_Time(j.at("time"));
    Num(j, "category", w.category);
    Num(j, "prox_index", w.prox_index);
    Num(j, "unused", w.unused);
    return w;
}

const json& List(const json& j, const char* key) {
    static const json empty = json::array();
    if (!j.contains(key)) return empty;
    if (!j.at(key).is_array()) throw std::runtime_error(std::string("\"") + key + "\" must be a list");
    return j.at(key);
}

// ---- fitness records. A position the unit has none of is null; absent
// numbers take the record's defaults, so a hand-written set stays short.

constexpr std::int32_t kNo_Position = 0x7FFFFFFF;

// Each coordinate on its own: a unit may mark one and not the other.
void Fit_Pos(json& j, const char* lat, const char* lon, std::int32_t la, std::int32_t lo) {
    j[lat] = la == kNo_Position ? json(nullptr) : json(Semi_To_Deg(la));
    j[lon] = lo == kNo_Position ? json(nullptr) : json(Semi_To_Deg(lo));
}
void Fit_Pos_From(const json& j, const char* lat, const char* lon, std::int32_t& la, std::int32_t& lo) {
    for (auto [key, out, limit] : {std::tuple{lat, &la, 90.0}, {lon, &lo, 180.0}}) {
        if (!j.contains(key)) continue;
        if (j.at(key).is_null()) {
            *out = kNo_Position;
            continue;
        }
        const double v = j.at(key).get<double>();
        if (!(std::fabs(v) <= limit)) throw std::runtime_error("position out of range");
        *out = Deg_To_Semi(v);
    }
}
std::uint32_t Time_Of(const json& j, const char* key) { return j.contains(key) ? Parse_Time(j.at(key)) : 0; }

json Track_Json(const Fitness_Track& t) {
    json jt = {{"index", t.index}, {"points", json::array()}};
    for (const Fitness_Point& p : t.points) {
        json jp = {{"time", Iso_Time(p.time)}, {"heart_rate", p.heart_rate}, {"cadence", p.cadence}, {"sensor", p.sensor}};
        Fit_Pos(jp, "lat", "lon", p.lat, p.lon);
        Put_Float(jp, "alt", p.alt);
        Put_Float(jp, "distance", p.distance);
        jt["points"].push_back(jp);
    }
    return jt;
}
Fitness_Track Track_From(const json& jt) {
    Fitness_Track t;
    Num(jt, "index", t.index);
    for (const json& jp : List(jt, "points")) {
        Fitness_Point p;
        Fit_Pos_From(jp, "lat", "lon", p.lat, p.lon);
        p.time = Time_Of(jp, "time");
        Num(jp, "alt", p.alt), Num(jp, "distance", p.distance), Num(jp, "heart_rate", p.heart_rate);
        Num(jp, "cadence", p.cadence), Num(jp, "sensor", p.sensor);
        t.points.push_back(p);
    }
    return t;
}

void Fitness_To_Json(json& j, const Data_Set& d) {
    if (d.runs.empty() && d.courses.empty()) return;
    for (const Run& r : d.runs)
        j["runs"].push_back({{"track_index", r.track_index}, {"first_lap", r.first_lap}, {"last_lap", r.last_lap},
                             {"sport", r.sport}, {"program", r.program}, {"multisport", r.multisport},
                             {"partner_time", r.partner_time}, {"partner_distance", r.partner_distance},
                             {"workout_name", To_Utf8(r.workout_name)}, {"workout_sport", r.workout_sport}});
    for (const Fitness_Lap& l : d.fitness_laps) {
        json jl = {{"index", l.index}, {"start", Iso_Time(l.start_time)}, {"total_time", l.total_time},
                   {"total_dist", l.total_dist}, {"max_speed", l.max_speed}, {"calories", l.calories},
                   {"avg_heart_rate", l.avg_heart_rate}, {"max_heart_rate", l.max_heart_rate},
                   {"intensity", l.intensity}, {"avg_cadence", l.avg_cadence}, {"trigger_method", l.trigger_method},
                   {"extra", l.extra}};
        Fit_Pos(jl, "begin_lat", "begin_lon", l.begin_lat, l.begin_lon);
        Fit_Pos(jl, "end_lat", "end_lon", l.end_lat, l.end_lon);
        j["fitness_laps"].push_back(jl);
    }
    for (const Fitness_Track& t : d.fitness_tracks) j["fitness_tracks"].push_back(Track_Json(t));
    for (const Course& c : d.courses)
        j["courses"].push_back({{"index", c.index}, {"name", To_Utf8(c.name)}, {"track_index", c.track_index}});
    for (const Course_Lap& l : d.course_laps) {
        json jl = {{"course_index", l.course_index}, {"lap_index", l.lap_index}, {"total_time", l.total_time},
                   {"total_dist", l.total_dist}, {"avg_heart_rate", l.avg_heart_rate},
                   {"max_heart_rate", l.max_heart_rate}, {"intensity", l.intensity}, {"avg_cadence", l.avg_cadence}};
        Fit_Pos(jl, "begin_lat", "begin_lon", l.begin_lat, l.begin_lon);
        Fit_Pos(jl, "end_lat", "end_lon", l.end_lat, l.end_lon);
        j["course_laps"].push_back(jl);
    }
    for (const Course_Point& p : d.course_points)
        j["course_points"].push_back({{"name", To_Utf8(p.name)}, {"course_index", p.course_index},
                                      {"time", Iso_Time(p.time)}, {"type", p.type}});
    for (const Fitness_Track& t : d.course_tracks) j["course_tracks"].push_back(Track_Json(t));
    const Course_Limits& m = d.course_limits;
    j["course_limits"] = {{"courses", m.courses}, {"laps", m.laps}, {"points", m.points}, {"track_points", m.track_points}};
}

void Fitness_From_Json(const json& j, Data_Set& d) {
    for (const json& jr : List(j, "runs")) {
        Run r;
        Num(jr, "track_index", r.track_index), Num(jr, "first_lap", r.first_lap), Num(jr, "last_lap", r.last_lap);
        Num(jr, "sport", r.sport), Num(jr, "program", r.program), Num(jr, "multisport", r.multisport);
        Num(jr, "partner_time", r.partner_time), Num(jr, "partner_distance", r.partner_distance);
        Text(jr, "workout_name", r.workout_name), Num(jr, "workout_sport", r.workout_sport);
        d.runs.push_back(r);
    }
    for (const json& jl : List(j, "fitness_laps")) {
        Fitness_Lap l;
        Num(jl, "index", l.index), l.start_time = Time_Of(jl, "start"), Num(jl, "total_time", l.total_time);
        Num(jl, "total_dist", l.total_dist), Num(jl, "max_speed", l.max_speed), Num(jl, "calories", l.calories);
        Fit_Pos_From(jl, "begin_lat", "begin_lon", l.begin_lat, l.begin_lon);
        Fit_Pos_From(jl, "end_lat", "end_lon", l.end_lat, l.end_lon);
        Num(jl, "avg_heart_rate", l.avg_heart_rate), Num(jl, "max_heart_rate", l.max_heart_rate);
        Num(jl, "intensity", l.intensity), Num(jl, "avg_cadence", l.avg_cadence);
        Num(jl, "trigger_method", l.trigger_method);
        if (jl.contains("extra")) l.extra = jl.at("extra").get<std::array<std::uint8_t, 5>>();
        d.fitness_laps.push_back(l);
    }
    for (const json& jt : List(j, "fitness_tracks")) d.fitness_tracks.push_back(Track_From(jt));
    for (const json& jc : List(j, "courses")) {
        Course c;
        Num(jc, "index", c.index), Text(jc, "name", c.name), Num(jc, "track_index", c.track_index);
        d.courses.push_back(c);
    }
    for (const json& jl : List(j, "course_laps")) {
        Course_Lap l;
        Num(jl, "course_index", l.course_index), Num(jl, "lap_index", l.lap_index);
        Num(jl, "total_time", l.total_time), Num(jl, "total_dist", l.total_dist);
        Fit_Pos_From(jl, "begin_lat", "begin_lon", l.begin_lat, l.begin_lon);
        Fit_Pos_From(jl, "end_lat", "end_lon", l.end_lat, l.end_lon);
        Num(jl, "avg_heart_rate", l.avg_heart_rate), Num(jl, "max_heart_rate", l.max_heart_rate);
        Num(jl, "intensity", l.intensity), Num(jl, "avg_cadence", l.avg_cadence);
        d.course_laps.push_back(l);
    }
    for (const json& jp : List(j, "course_points")) {
        Course_Point p;
        Text(jp, "name", p.name), Num(jp, "course_index", p.course_index), p.time = Time_Of(jp, "time");
        Num(jp, "type", p.type);
        d.course_points.push_back(p);
    }
    for (const json& jt : List(j, "course_tracks")) d.course_tracks.push_back(Track_From(jt));
    if (j.contains("course_limits")) {
        const json& m = j.at("course_limits");
        Course_Limits& l = d.course_limits;
        Num(m, "courses", l.courses), Num(m, "laps", l.laps), Num(m, "points", l.points);
        Num(m, "track_points", l.track_points);
    }
}

}  // namespace

std::string To_Json(const Data_Set& d) {
    json j;
    const Situation& s = d.situation;
    j["situation"] = {{"lat", s.lat_deg},       {"lon", s.lon_deg},
                      {"alt", s.alt_m},         {"time", Iso_Time(s.utc_start)},
                      {"unit_id", s.unit_id},   {"internal_v", s.internal_v},
                      {"external_v", s.external_v}};
    j["waypoints"] = json::array();
    for (const auto& w : d.waypoints) j["waypoints"].push_back(Wpt_Json(w));
    j["proximity"] = json::array();
    for (const auto& w : d.proximity) j["proximity"].push_back(Wpt_Json(w));
    j["routes"] = json::array();
    for (const Route& r : d.routes) {
        json jr = {{"number", r.number}, {"ident", To_Utf8(r.ident)}, {"comment", To_Utf8(r.comment)}};
        jr["points"] = json::array();
        for (const auto& w : r.points) jr["points"].push_back(Wpt_Json(w));
        jr["links"] = json::array();
        for (const auto& l : r.links) {
            json jl = {{"class", l.link_class}, {"ident", To_Utf8(l.ident)}};
            if (l.subclass != Default_Subclass()) jl["subclass"] = Hex(l.subclass);
            jr["links"].push_back(jl);
        }
        j["routes"].push_back(jr);
    }
    j["tracks"] = json::array();
    for (const Track& t : d.tracks) {
        json jt = {{"ident", To_Utf8(t.ident)}, {"color", t.color}, {"display", t.display}, {"index", t.index}};
        jt["points"] = json::array();
        for (const auto& p : t.points) {
            json jp = {{"lat", Semi_To_Deg(p.lat)}, {"lon", Semi_To_Deg(p.lon)}};
            if (p.time != kNoTime) jp["time"] = Iso_Time(p.time);
            Put_Float(jp, "alt", p.alt);
            Put_Float(jp, "depth", p.depth);
            Put_Float(jp, "temp", p.temp);
            if (p.new_segment) jp["new_segment"] = true;
            jt["points"].push_back(jp);
        }
        j["tracks"].push_back(jt);
    }
    j["almanac"] = json::array();
    for (const auto& a : d.almanac)
        j["almanac"].push_back({{"svid", a.svid}, {"wn", a.wn},     {"toa", a.toa},     {"af0", a.af0},
                                {"af1", a.af1},   {"e", a.e},       {"sqrta", a.sqrta}, {"m0", a.m0},
                                {"w", a.w},       {"omg0", a.omg0}, {"odot", a.odot},   {"i", a.i},
                                {"hlth", a.hlth}});
    j["laps"] = json::array();
    for (const auto& l : d.laps)
        j["laps"].push_back({{"start", Iso_Time(l.start_time)}, {"total_time", l.total_time},
                             {"total_dist", l.total_dist},      {"begin_lat", Semi_To_Deg(l.begin_lat)},
                             {"begin_lon", Semi_To_Deg(l.begin_lon)}, {"end_lat", Semi_To_Deg(l.end_lat)},
                             {"end_lon", Semi_To_Deg(l.end_lon)}, {"calories", l.calories},
                             {"track_index", l.track_index}, {"unused", l.unused}});
    j["flights"] = json::array();
    for (const auto& f : d.flights)
        j["flights"].push_back({{"takeoff", Iso_Time(f.takeoff_time)},
                                {"landing", Iso_Time(f.landing_time)},
                                {"takeoff_lat", Semi_To_Deg(f.takeoff_lat)},
                                {"takeoff_lon", Semi_To_Deg(f.takeoff_lon)},
                                {"landing_lat", Semi_To_Deg(f.landing_lat)},
                                {"landing_lon", Semi_To_Deg(f.landing_lon)},
                                {"night_time", f.night_time},
                                {"num_landings", f.num_landings},
                                {"max_speed", f.max_speed},
                                {"max_alt", f.max_alt},
                                {"distance", f.distance},
                                {"cross_country", f.cross_country},
                                {"departure_name", To_Utf8(f.departure_name)},
                                {"departure_ident", To_Utf8(f.departure_ident)},
                                {"arrival_name", To_Utf8(f.arrival_name)},
                                {"arrival_ident", To_Utf8(f.arrival_ident)},
                                {"aircraft_id", To_Utf8(f.aircraft_id)}});
    Fitness_To_Json(j, d);
    return j.dump(1);
}

bool From_Json(const std::string& text, Data_Set& out, std::string& error) {
    try {
        const json j = json::parse(text);
        if (!j.is_object()) throw std::runtime_error("the top level must be an object");
        Data_Set d;
        if (j.contains("situation")) {
            const json& s = j.at("situation");
            Num(s, "lat", d.situation.lat_deg);
            Num(s, "lon", d.situation.lon_deg);
            Num(s, "alt", d.situation.alt_m);
            if (s.contains("time")) d.situation.utc_start = Parse_Time(s.at("time"));
            Num(s, "unit_id", d.situation.unit_id);
            Num(s, "internal_v", d.situation.internal_v);
            Num(s, "external_v", d.situation.external_v);
            if (!(std::fabs(d.situation.lat_deg) <= 90.0) || !(std::fabs(d.situation.lon_deg) <= 180.0))
                throw std::runtime_error("situation position out of range");
        }
        for (const json& w : List(j, "waypoints")) d.waypoints.push_back(Wpt_From(w));
        for (const json& w : List(j, "proximity")) d.proximity.push_back(Wpt_From(w));
        for (const json& jr : List(j, "routes")) {
            Route r;
            Num(jr, "number", r.number);
            Text(jr, "ident", r.ident);
            Text(jr, "comment", r.comment);
            for (const json& w : List(jr, "points")) r.points.push_back(Wpt_From(w));
            for (const json& jl : List(jr, "links")) {
                Route_Link l;
                Num(jl, "class", l.link_class);
                Text(jl, "ident", l.ident);
                Get_Subclass(jl, l.subclass);
                r.links.push_back(l);
            }
            d.routes.push_back(std::move(r));
        }
        for (const json& jt : List(j, "tracks")) {
            Track t;
            Text(jt, "ident", t.ident);
            Num(jt, "color", t.color);
            if (jt.contains("display")) t.display = jt.at("display").get<bool>();
            Num(jt, "index", t.index);
            for (const json& jp : List(jt, "points")) {
                Track_Point p;
                Pos(jp, "lat", "lon", p.lat, p.lon);
                if (jp.contains("time")) p.time = Parse_Time(jp.at("time"));
                Num(jp, "alt", p.alt);
                Num(jp, "depth", p.depth);
                Num(jp, "temp", p.temp);
                if (jp.contains("new_segment")) p.new_segment = jp.at("new_segment").get<bool>();
                t.points.push_back(p);
            }
            d.tracks.push_back(std::move(t));
        }
        for (const json& ja : List(j, "almanac")) {
            Almanac a;
            Num(ja, "svid", a.svid);
            Num(ja, "wn", a.wn);
            Num(ja, "toa", a.toa);
            Num(ja, "af0", a.af0);
            Num(ja, "af1", a.af1);
            Num(ja, "e", a.e);
            Num(ja, "sqrta", a.sqrta);
            Num(ja, "m0", a.m0);
            Num(ja, "w", a.w);
            Num(ja, "omg0", a.omg0);
            Num(ja, "odot", a.odot);
            Num(ja, "i", a.i);
            Num(ja, "hlth", a.hlth);
            d.almanac.push_back(a);
        }
        for (const json& jl : List(j, "laps")) {
            Lap l;
            if (jl.contains("start")) l.start_time = Parse_Time(jl.at("start"));
            Num(jl, "total_time", l.total_time);
            Num(jl, "total_dist", l.total_dist);
            Pos(jl, "begin_lat", "begin_lon", l.begin_lat, l.begin_lon);
            Pos(jl, "end_lat", "end_lon", l.end_lat, l.end_lon);
            Num(jl, "calories", l.calories);
            Num(jl, "track_index", l.track_index);
            Num(jl, "unused", l.unused);
            d.laps.push_back(l);
        }
        for (const json& jf : List(j, "flights")) {
            Flight f;
            if (jf.contains("takeoff")) f.takeoff_time = Parse_Time(jf.at("takeoff"));
            if (jf.contains("landing")) f.landing_time = Parse_Time(jf.at("landing"));
            Pos(jf, "takeoff_lat", "takeoff_lon", f.takeoff_lat, f.takeoff_lon);
            Pos(jf, "landing_lat", "landing_lon", f.landing_lat, f.landing_lon);
            Num(jf, "night_time", f.night_time);
            Num(jf, "num_landings", f.num_landings);
            Num(jf, "max_speed", f.max_speed);
            Num(jf, "max_alt", f.max_alt);
            Num(jf, "distance", f.distance);
            if (jf.contains("cross_country")) f.cross_country = jf.at("cross_country").get<bool>();
            Text(jf, "departure_name", f.departure_name);
            Text(jf, "departure_ident", f.departure_ident);
            Text(jf, "arrival_name", f.arrival_name);
            Text(jf, "arrival_ident", f.arrival_ident);
            Text(jf, "aircraft_id", f.aircraft_id);
            d.flights.push_back(std::move(f));
        }
        Fitness_From_Json(j, d);
        out = std::move(d);
        return true;
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
}

bool Load_Data(const std::string& path, Data_Set& out, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot open " + path;
        return false;
    }
    std::stringstream ss;
    ss << in.rdbuf();
    if (!From_Json(ss.str(), out, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

bool Save_Data(const std::string& path, const Data_Set& data, std::string& error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        error = "cannot write " + path;
        return false;
    }
    out << To_Json(data) << '\n';
    if (!out) {
        error = "cannot write " + path;
        return false;
    }
    return true;
}

}  // namespace trekcom::sim
