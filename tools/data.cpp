#include "data.h"
#include "files.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <utility>

namespace trekcom::tool {

namespace {

constexpr std::pair<Kind, std::string_view> kKind_Names[] = {
    {Kind::Waypoints, "waypoints"}, {Kind::Proximity, "proximity"},   {Kind::Routes, "routes"},
    {Kind::Tracks, "tracks"},       {Kind::Laps, "laps"},             {Kind::Flightbook, "flightbook"},
    {Kind::Almanac, "almanac"}};

// The symbols hosts meet most, as receivers name them. Codes 0..23 are the
// marine set, 150.. the land set, 8192.. and 16384.. the newer and aviation sets.
constexpr std::pair<std::int16_t, std::string_view> kSymbols[] = {
    {0, "Anchor"},
    {1, "Bell"},
    {2, "Diamond, Green"},
    {3, "Diamond, Red"},
    {4, "Diver Down Flag 1"},
    {5, "Diver Down Flag 2"},
    {6, "Bank"},
    {7, "Fishing Area"},
    {8, "Gas Station"},
    {9, "Horn"},
    {10, "Residence"},
    {11, "Restaurant"},
    {12, "Light"},
    {13, "Bar"},
    {14, "Skull and Crossbones"},
    {15, "Square, Green"},
    {16, "Square, Red"},
    {17, "White Buoy"},
    {18, "Waypoint"},
    {19, "Shipwreck"},
    {21, "Man Overboard"},
    {150, "Boat Ramp"},
    {151, "Campground"},
    {152, "Restroom"},
    {153, "Shower"},
    {154, "Drinking Water"},
    {155, "Telephone"},
    {156, "Medical Facility"},
    {157, "Information"},
    {158, "Parking Area"},
    {159, "Park"},
    {160, "Picnic Area"},
    {161, "Scenic Area"},
    {162, "Skiing Area"},
    {163, "Swimming Area"},
    {164, "Dam"},
    {165, "Controlled Area"},
    {166, "Danger Area"},
    {167, "Restricted Area"},
    {169, "Ball Park"},
    {170, "Car"},
    {171, "Hunting Area"},
    {172, "Shopping Center"},
    {173, "Lodging"},
    {174, "Mine"},
    {175, "Trail Head"},
    {176, "Truck Stop"},
    {177, "Exit"},
    {178, "Flag"},
    {179, "Circle with X"},
    {8192, "Interstate Hwy"},
    {8193, "US Hwy"},
    {8194, "State Hwy"},
    {8195, "Mile Marker"},
    {8196, "TracBack Point"},
    {8197, "Golf Course"},
    {8198, "City (Small)"},
    {8199, "City (Medium)"},
    {8200, "City (Large)"},
    {8203, "City (Capitol)"},
    {8204, "Amusement Park"},
    {8205, "Bowling"},
    {8206, "Car Rental"},
    {8207, "Car Repair"},
    {8208, "Fast Food"},
    {8209, "Fitness Center"},
    {8210, "Movie Theater"},
    {8211, "Museum"},
    {8212, "Pharmacy"},
    {8213, "Pizza"},
    {8214, "Post Office"},
    {8215, "RV Park"},
    {8216, "School"},
    {8217, "Stadium"},
    {8218, "Department Store"},
    {8219, "Zoo"},
    {8220, "Convenience Store"},
    {8221, "Live Theater"},
    {8226, "Scales"},
    {8227, "Toll Booth"},
    {8233, "Bridge"},
    {8234, "Building"},
    {8235, "Cemetery"},
    {8236, "Church"},
    {8237, "Civil"},
    {8238, "Crossing"},
    {8239, "Ghost Town"},
    {8240, "Levee"},
    {8241, "Military"},
    {8242, "Oil Field"},
    {8243, "Tunnel"},
    {8244, "Beach"},
    {8245, "Forest"},
    {8246, "Summit"},
    {16384, "Airport"},
    {16385, "Intersection"},
    {16386, "Non-directional Beacon"},
    {16387, "VHF Omni-range"},
    {16388, "Heliport"},
    {16389, "Private Field"},
    {16390, "Soft Field"},
    {16391, "Tall Tower"},
    {16392, "Short Tower"},
    {16393, "Glider Area"},
    {16394, "Ultralight Area"},
    {16395, "Parachute Area"},
};

constexpr std::string_view kGeneric_Symbol = "Symbol ";

bool Same_Text(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

}  // namespace

std::string_view Kind_Name(Kind k) {
    for (const auto& [kind, name] : kKind_Names)
        if (kind == k) return name;
    return "?";
}

std::optional<Kind> Kind_Named(std::string_view name) {
    for (const auto& [kind, n] : kKind_Names)
        if (Same_Text(n, name)) return kind;
    return std::nullopt;
}

bool Data::Has(Kind k) const { return std::find(kinds.begin(), kinds.end(), k) != kinds.end(); }

std::size_t Data::Count(Kind k) const {
    switch (k) {
        case Kind::Waypoints: return waypoints.size();
        case Kind::Proximity: return proximity.size();
        case Kind::Routes: return routes.size();
        case Kind::Tracks: return tracks.size();
        case Kind::Laps: return laps.size();
        case Kind::Flightbook: return flights.size();
        case Kind::Almanac: return almanac.size();
    }
    return 0;
}

void Data::Clear(Kind k) {
    switch (k) {
        case Kind::Waypoints: waypoints.clear(); break;
        case Kind::Proximity: proximity.clear(); break;
        case Kind::Routes: routes.clear(); break;
        case Kind::Tracks: tracks.clear(); break;
        case Kind::Laps: laps.clear(); break;
        case Kind::Flightbook: flights.clear(); break;
        case Kind::Almanac: almanac.clear(); break;
    }
}

std::string Iso_Time(std::int64_t garmin_seconds) {
    using namespace std::chrono;
    const sys_seconds t{seconds{garmin_seconds + kGarmin_Epoch_Unix}};
    const auto day = floor<days>(t);
    const year_month_day ymd{day};
    const hh_mm_ss hms{t - day};
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02ld:%02ld:%02ldZ", static_cast<int>(ymd.year()),
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                  static_cast<long>(hms.hours().count()), static_cast<long>(hms.minutes().count()),
                  static_cast<long>(hms.seconds().count()));
    return text;
}

std::optional<std::int64_t> Parse_Iso_Time(std::string_view s) {
    std::size_t at = 0;
    auto number = [&](std::size_t digits, int& out) {
        if (at + digits > s.size()) return false;
        const auto r = std::from_chars(s.data() + at, s.data() + at + digits, out);
        if (r.ec != std::errc{} || r.ptr != s.data() + at + digits) return false;
        at += digits;
        return true;
    };
    auto literal = [&](char c) { return at < s.size() && s[at++] == c; };
    int y, mo, d, h, mi, sec;
    if (!number(4, y) || !literal('-') || !number(2, mo) || !literal('-') || !number(2, d) || !literal('T') ||
        !number(2, h) || !literal(':') || !number(2, mi) || !literal(':') || !number(2, sec))
        return std::nullopt;
    if (at < s.size() && s[at] == '.') {  // fractions of a second: the receiver keeps whole seconds
        ++at;
        while (at < s.size() && std::isdigit(static_cast<unsigned char>(s[at]))) ++at;
    }
    int offset_s = 0;
    if (at < s.size() && (s[at] == '+' || s[at] == '-')) {
        const int sign = s[at++] == '-' ? -1 : 1;
        int oh, om;
        if (!number(2, oh) || !literal(':') || !number(2, om)) return std::nullopt;
        offset_s = sign * (oh * 3600 + om * 60);
    } else if (at < s.size() && s[at] == 'Z') {
        ++at;
    }
    if (at != s.size()) return std::nullopt;
    using namespace std::chrono;
    const year_month_day ymd{year{y}, month{static_cast<unsigned>(mo)}, day{static_cast<unsigned>(d)}};
    if (!ymd.ok() || h > 23 || mi > 59 || sec > 60) return std::nullopt;
    const auto unix_s = sys_days{ymd}.time_since_epoch().count() * 86400LL + h * 3600 + mi * 60 + sec - offset_s;
    return unix_s - kGarmin_Epoch_Unix;
}

std::string Symbol_Name(std::int16_t code) {
    for (const auto& [c, name] : kSymbols)
        if (c == code) return std::string(name);
    return std::string(kGeneric_Symbol) + std::to_string(code);
}

std::optional<std::int16_t> Symbol_Code(std::string_view name) {
    for (const auto& [c, n] : kSymbols)
        if (Same_Text(n, name)) return c;
    if (name.size() > kGeneric_Symbol.size() && Same_Text(name.substr(0, kGeneric_Symbol.size()), kGeneric_Symbol)) {
        int code = 0;
        const auto digits = name.substr(kGeneric_Symbol.size());
        const auto r = std::from_chars(digits.data(), digits.data() + digits.size(), code);
        if (r.ec == std::errc{} && r.ptr == digits.data() + digits.size() && code >= -32768 && code <= 32767)
            return static_cast<std::int16_t>(code);
    }
    return std::nullopt;
}

// ---------------------------------------------------------------- record writers

void Data_Writer::Begin_Kind(Kind k) {
    kind_ = k;
    if (!data_.Has(k)) data_.kinds.push_back(k);
}

void Data_Writer::Waypoint(const cWaypoint& w) {
    if (kind_ != Kind::Routes) return (kind_ == Kind::Proximity ? data_.proximity : data_.waypoints).push_back(w);
    if (data_.routes.empty()) data_.routes.emplace_back();
    data_.routes.back().points.push_back(w);
}

void Data_Writer::Route(const cRoute& header) {
    data_.routes.push_back({header, {}});
    data_.routes.back().header.Waypoints.reset();  // the points are kept beside it
}

void Data_Writer::Track_Point(const cTrack& point) {
    if (data_.tracks.empty()) data_.tracks.emplace_back();
    data_.tracks.back().points.push_back(point);
}

void Write_Set(const Data& data, Record_Writer& out) {
    out.Begin(data.source);
    for (Kind k : kAll_Kinds) {
        if (!data.Has(k) && data.Count(k) == 0) continue;
        out.Begin_Kind(k);
        switch (k) {
            case Kind::Waypoints:
                for (const auto& w : data.waypoints) out.Waypoint(w);
                break;
            case Kind::Proximity:
                for (const auto& w : data.proximity) out.Waypoint(w);
                break;
            case Kind::Routes:
                for (const auto& r : data.routes) {
                    out.Route(r.header);
                    for (const auto& w : r.points) out.Waypoint(w);
                }
                break;
            case Kind::Tracks:
                for (const auto& t : data.tracks) {
                    out.Track(t.header);
                    for (const auto& p : t.points) out.Track_Point(p);
                }
                break;
            case Kind::Laps:
                for (const auto& l : data.laps) out.Lap(l);
                break;
            case Kind::Flightbook:
                for (const auto& f : data.flights) out.Flight(f);
                break;
            case Kind::Almanac:
                for (const auto& a : data.almanac) out.Almanac(a);
                break;
        }
        out.End_Kind(k);
    }
    out.Finish();
}

}  // namespace trekcom::tool
