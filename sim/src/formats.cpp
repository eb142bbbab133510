#include "formats.h"

#include <cmath>
#include <limits>
#include <numbers>

#include "civil_time.h"
#include "wire.h"

namespace trekcom::sim::formats {

using wire::Reader;
using wire::Writer;

namespace {

// Floats leave for integer fields only through here: NaN and out-of-range
// values are clamped instead of being undefined.
std::int16_t To_I16(float v) {
    if (!std::isfinite(v) || std::fabs(v) >= 1.0e9f) return 0;
    const long r = std::lround(v);
    return static_cast<std::int16_t>(std::clamp<long>(r, std::numeric_limits<std::int16_t>::min(),
                                                      std::numeric_limits<std::int16_t>::max()));
}

void Put_Position(Writer& w, std::int32_t lat, std::int32_t lon) {
    w.I32(lat);
    w.I32(lon);
}

void Get_Position(Reader& r, std::int32_t& lat, std::int32_t& lon) {
    lat = r.I32();
    lon = r.I32();
}

// The part shared by D100 to D104, D107 and the D151 family.
void Put_D100(Writer& w, const Waypoint& p) {
    w.Fixed(p.ident, 6);
    Put_Position(w, p.lat, p.lon);
    w.U32(p.unused);
    w.Fixed(p.comment, 40);
}

void Get_D100(Reader& r, Waypoint& p) {
    p.ident = r.Fixed(6);
    Get_Position(r, p.lat, p.lon);
    p.unused = r.U32();
    p.comment = r.Fixed(40);
}

void Put_D150(Writer& w, const Waypoint& p) {
    w.Fixed(p.ident, 6);
    w.Fixed(p.country, 2);
    w.U8(p.wpt_class);
    Put_Position(w, p.lat, p.lon);
    w.I16(To_I16(p.alt == kNoValue ? 0.0f : p.alt));
    w.Fixed(p.city, 24);
    w.Fixed(p.state, 2);
    w.Fixed(p.facility, 30);
    w.Fixed(p.comment, 40);
}

void Get_D150(Reader& r, Waypoint& p) {
    p.ident = r.Fixed(6);
    p.country = r.Fixed(2);
    p.wpt_class = r.U8();
    Get_Position(r, p.lat, p.lon);
    p.alt = r.I16();
    p.city = r.Fixed(24);
    p.state = r.Fixed(2);
    p.facility = r.Fixed(30);
    p.comment = r.Fixed(40);
}

// D109 and D110 pack colour (bits 0-4, 0x1F = default) and display (bits 5-6).
std::uint8_t Display_Color(const Waypoint& p) {
    const std::uint8_t c = p.color == 0xFF ? 0x1F : static_cast<std::uint8_t>(p.color & 0x1F);
    return static_cast<std::uint8_t>(c | ((p.display & 3) << 5));
}

void Set_Display_Color(Waypoint& p, std::uint8_t b) {
    const std::uint8_t c = b & 0x1F;
    p.color = c == 0x1F ? 0xFF : c;
    p.display = static_cast<std::uint8_t>((b >> 5) & 3);
}

// The variable texts of D108 to D110, cut so that the record fits in a packet.
void Put_Texts(Writer& w, const std::initializer_list<const std::string*> texts) {
    std::size_t budget = 255 - w.Size() - texts.size();
    for (const std::string* t : texts) {
        const std::size_t n = std::min(t->size(), budget);
        w.Text(*t, n);
        budget -= std::min(n, budget);
    }
}

void Get_Texts(Reader& r, Waypoint& p) {
    p.ident = r.Text();
    p.comment = r.Text();
    p.facility = r.Text();
    p.city = r.Text();
    p.address = r.Text();
    p.cross_road = r.Text();
}

}  // namespace

bool Known_Waypoint_Type(std::uint16_t t) {
    return (t >= 100 && t <= 110) || t == 150 || t == 151 || t == 152 || t == 154 || t == 155 ||
           t == 400 || t == 403 || t == 450;
}

Bytes Encode_Waypoint(const Waypoint& p, std::uint16_t type) {
    Writer w;
    switch (type) {
        case 100:
            Put_D100(w, p);
            break;
        case 101:
            Put_D100(w, p);
            w.F32(p.dist);
            w.U8(static_cast<std::uint8_t>(p.symbol));
            break;
        case 102:
            Put_D100(w, p);
            w.F32(p.dist);
            w.I16(p.symbol);
            break;
        case 103:
            Put_D100(w, p);
            w.U8(static_cast<std::uint8_t>(p.symbol));
            w.U8(p.display);
            break;
        case 104:
            Put_D100(w, p);
            w.F32(p.dist);
            w.I16(p.symbol);
            w.U8(p.display);
            break;
        case 105:
            Put_Position(w, p.lat, p.lon);
            w.I16(p.symbol);
            w.Text(p.ident, 240);
            break;
        case 106:
            w.U8(p.wpt_class);
            w.Raw(p.subclass.data(), 13);
            Put_Position(w, p.lat, p.lon);
            w.I16(p.symbol);
            w.Text(p.ident, 100);
            w.Text(p.link, 100);
            break;
        case 107:
            Put_D100(w, p);
            w.U8(static_cast<std::uint8_t>(p.symbol));
            w.U8(p.display);
            w.F32(p.dist);
            w.U8(p.color);
            break;
        case 108:
        case 109:
        case 110:
            if (type == 108) {
                w.U8(p.wpt_class);
                w.U8(p.color);
                w.U8(p.display);
                w.U8(0x60);
            } else {
                w.U8(0x01);  // the packet type byte
                w.U8(p.wpt_class);
                w.U8(Display_Color(p));
                w.U8(type == 109 ? 0x70 : 0x80);
            }
            w.I16(p.symbol);
            w.Raw(p.subclass.data(), p.subclass.size());
            Put_Position(w, p.lat, p.lon);
            w.F32(p.alt);
            w.F32(p.depth);
            w.F32(p.dist);
            w.Fixed(p.state, 2);
            w.Fixed(p.country, 2);
            if (type != 108) w.U32(p.ete);
            if (type == 110) {
                w.F32(p.temp);
                w.U32(p.time);
                w.U16(p.category);
            }
            Put_Texts(w, {&p.ident, &p.comment, &p.facility, &p.city, &p.address, &p.cross_road});
            break;
        case 150:
            Put_D150(w, p);
            break;
        case 151:
        case 152:
        case 154:
        case 155:
            Put_D100(w, p);
            w.F32(p.dist);
            w.Fixed(p.facility, 30);
            w.Fixed(p.city, 24);
            w.Fixed(p.state, 2);
            w.I16(To_I16(p.alt == kNoValue ? 0.0f : p.alt));
            w.Fixed(p.country, 2);
            w.U8(0);
            w.U8(p.wpt_class);
            if (type >= 154) w.I16(p.symbol);
            if (type == 155) w.U8(p.display);
            break;
        case 400:
            Put_D100(w, p);
            w.F32(p.dist);
            break;
        case 403:
            Put_D100(w, p);
            w.U8(static_cast<std::uint8_t>(p.symbol));
            w.U8(p.display);
            w.F32(p.dist);
            break;
        case 450:
            w.I16(p.prox_index);
            Put_D150(w, p);
            w.F32(p.dist);
            break;
        default:
            break;
    }
    return w.Take();
}

bool Decode_Waypoint(const Bytes& data, std::uint16_t type, Waypoint& out) {
    Reader r(data);
    Waypoint p = out;
    switch (type) {
        case 100:
            Get_D100(r, p);
            break;
        case 101:
            Get_D100(r, p);
            p.dist = r.F32();
            p.symbol = r.U8();
            break;
        case 102:
            Get_D100(r, p);
            p.dist = r.F32();
            p.symbol = r.I16();
            break;
        case 103:
            Get_D100(r, p);
            p.symbol = r.U8();
            p.display = r.U8();
            break;
        case 104:
            Get_D100(r, p);
            p.dist = r.F32();
            p.symbol = r.I16();
            p.display = r.U8();
            break;
        case 105:
            Get_Position(r, p.lat, p.lon);
            p.symbol = r.I16();
            p.ident = r.Text();
            break;
        case 106:
            p.wpt_class = r.U8();
            r.Raw(p.subclass.data(), 13);
            Get_Position(r, p.lat, p.lon);
            p.symbol = r.I16();
            p.ident = r.Text();
            p.link = r.Text();
            break;
        case 107:
            Get_D100(r, p);
            p.symbol = r.U8();
            p.display = r.U8();
            p.dist = r.F32();
            p.color = r.U8();
            break;
        case 108:
        case 109:
        case 110:
            if (type == 108) {
                p.wpt_class = r.U8();
                p.color = r.U8();
                p.display = r.U8();
                p.attr = r.U8();
            } else {
                r.U8();  // the packet type byte
                p.wpt_class = r.U8();
                Set_Display_Color(p, r.U8());
                p.attr = r.U8();
            }
            p.symbol = r.I16();
            r.Raw(p.subclass.data(), p.subclass.size());
            Get_Position(r, p.lat, p.lon);
            p.alt = r.F32();
            p.depth = r.F32();
            p.dist = r.F32();
            p.state = r.Fixed(2);
            p.country = r.Fixed(2);
            if (type != 108) p.ete = r.U32();
            if (type == 110) {
                p.temp = r.F32();
                p.time = r.U32();
                p.category = r.U16();
            }
            Get_Texts(r, p);
            break;
        case 150:
            Get_D150(r, p);
            break;
        case 151:
        case 152:
        case 154:
        case 155:
            Get_D100(r, p);
            p.dist = r.F32();
            p.facility = r.Fixed(30);
            p.city = r.Fixed(24);
            p.state = r.Fixed(2);
            p.alt = r.I16();
            p.country = r.Fixed(2);
            r.U8();
            p.wpt_class = r.U8();
            if (type >= 154) p.symbol = r.I16();
            if (type == 155) p.display = r.U8();
            break;
        case 400:
            Get_D100(r, p);
            p.dist = r.F32();
            break;
        case 403:
            Get_D100(r, p);
            p.symbol = r.U8();
            p.display = r.U8();
            p.dist = r.F32();
            break;
        case 450:
            p.prox_index = r.I16();
            Get_D150(r, p);
            p.dist = r.F32();
            break;
        default:
            return false;
    }
    if (!r.Ok()) return false;
    out = std::move(p);
    return true;
}

Bytes Encode_Route_Header(const Route& route, std::uint16_t type) {
    Writer w;
    switch (type) {
        case 200:
            w.U8(route.number);
            break;
        case 201:
            w.U8(route.number);
            w.Fixed(route.comment, 20);
            break;
        case 202:
            w.Text(route.ident, 250);
            break;
        default:
            break;
    }
    return w.Take();
}

bool Decode_Route_Header(const Bytes& data, std::uint16_t type, Route& out) {
    Reader r(data);
    Route route = out;
    switch (type) {
        case 200:
            route.number = r.U8();
            break;
        case 201:
            route.number = r.U8();
            route.comment = r.Fixed(20);
            break;
        case 202:
            route.ident = r.Text();
            break;
        default:
            return false;
    }
    if (!r.Ok()) return false;
    out = std::move(route);
    return true;
}

Bytes Encode_Route_Link(const Route_Link& l) {
    Writer w;
    w.U16(l.link_class);
    w.Raw(l.subclass.data(), l.subclass.size());
    w.Text(l.ident, 230);
    return w.Take();
}

bool Decode_Route_Link(const Bytes& data, Route_Link& out) {
    Reader r(data);
    Route_Link l;
    l.link_class = r.U16();
    r.Raw(l.subclass.data(), l.subclass.size());
    l.ident = r.Text();
    if (!r.Ok()) return false;
    out = std::move(l);
    return true;
}

Bytes Encode_Track_Header(const Track& t, std::uint16_t type) {
    Writer w;
    if (type == 311) {
        w.U16(t.index);
    } else if (type == 310 || type == 312) {
        w.U8(t.display ? 1 : 0);
        w.U8(t.color);
        w.Text(t.ident, 250);
    }
    return w.Take();
}

bool Decode_Track_Header(const Bytes& data, std::uint16_t type, Track& out) {
    Reader r(data);
    Track t = out;
    if (type == 311) {
        t.index = r.U16();
    } else if (type == 310 || type == 312) {
        t.display = r.U8() != 0;
        t.color = r.U8();
        t.ident = r.Text();
    } else {
        return false;
    }
    if (!r.Ok()) return false;
    out = std::move(t);
    return true;
}

Bytes Encode_Track_Point(const Track_Point& p, std::uint16_t type) {
    Writer w;
    if (type < 300 || type > 302) return {};
    Put_Position(w, p.lat, p.lon);
    w.U32(p.time);
    if (type >= 301) {
        w.F32(p.alt);
        w.F32(p.depth);
    }
    if (type == 302) w.F32(p.temp);
    w.U8(p.new_segment ? 1 : 0);
    return w.Take();
}

bool Decode_Track_Point(const Bytes& data, std::uint16_t type, Track_Point& out) {
    if (type < 300 || type > 302) return false;
    Reader r(data);
    Track_Point p = out;
    Get_Position(r, p.lat, p.lon);
    p.time = r.U32();
    if (type >= 301) {
        p.alt = r.F32();
        p.depth = r.F32();
    }
    if (type == 302) p.temp = r.F32();
    p.new_segment = r.U8() != 0;
    if (!r.Ok()) return false;
    out = p;
    return true;
}

Bytes Encode_Almanac(const Almanac& a, std::uint16_t type) {
    Writer w;
    if (type != 500 && type != 501 && type != 550 && type != 551) return {};
    if (type >= 550) w.U8(a.svid);
    w.I16(a.wn);
    for (float f : {a.toa, a.af0, a.af1, a.e, a.sqrta, a.m0, a.w, a.omg0, a.odot, a.i}) w.F32(f);
    if (type == 501 || type == 551) w.U8(a.hlth);
    return w.Take();
}

bool Decode_Almanac(const Bytes& data, std::uint16_t type, Almanac& out) {
    if (type != 500 && type != 501 && type != 550 && type != 551) return false;
    Reader r(data);
    Almanac a = out;
    if (type >= 550) a.svid = r.U8();
    a.wn = r.I16();
    for (float* f : {&a.toa, &a.af0, &a.af1, &a.e, &a.sqrta, &a.m0, &a.w, &a.omg0, &a.odot, &a.i}) *f = r.F32();
    if (type == 501 || type == 551) a.hlth = r.U8();
    if (!r.Ok()) return false;
    out = a;
    return true;
}

Bytes Encode_Lap(const Lap& l) {
    Writer w;
    w.U32(l.start_time);
    w.U32(l.total_time);
    w.F32(l.total_dist);
    Put_Position(w, l.begin_lat, l.begin_lon);
    Put_Position(w, l.end_lat, l.end_lon);
    w.U16(l.calories);
    w.U8(l.track_index);
    w.U8(l.unused);
    return w.Take();
}

bool Decode_Lap(const Bytes& data, Lap& out) {
    Reader r(data);
    Lap l;
    l.start_time = r.U32();
    l.total_time = r.U32();
    l.total_dist = r.F32();
    Get_Position(r, l.begin_lat, l.begin_lon);
    Get_Position(r, l.end_lat, l.end_lon);
    l.calories = r.U16();
    l.track_index = r.U8();
    l.unused = r.U8();
    if (!r.Ok()) return false;
    out = l;
    return true;
}

Bytes Encode_Flight(const Flight& f) {
    Writer w;
    w.U32(f.takeoff_time);
    w.U32(f.landing_time);
    Put_Position(w, f.takeoff_lat, f.takeoff_lon);
    Put_Position(w, f.landing_lat, f.landing_lon);
    w.U32(f.night_time);
    w.U32(f.num_landings);
    w.F32(f.max_speed);
    w.F32(f.max_alt);
    w.F32(f.distance);
    w.U8(f.cross_country ? 1 : 0);
    for (const std::string* t :
         {&f.departure_name, &f.departure_ident, &f.arrival_name, &f.arrival_ident, &f.aircraft_id})
        w.Text(*t, 40);
    return w.Take();
}

bool Decode_Flight(const Bytes& data, Flight& out) {
    Reader r(data);
    Flight f;
    f.takeoff_time = r.U32();
    f.landing_time = r.U32();
    Get_Position(r, f.takeoff_lat, f.takeoff_lon);
    Get_Position(r, f.landing_lat, f.landing_lon);
    f.night_time = r.U32();
    f.num_landings = r.U32();
    f.max_speed = r.F32();
    f.max_alt = r.F32();
    f.distance = r.F32();
    f.cross_country = r.U8() != 0;
    for (std::string* t : {&f.departure_name, &f.departure_ident, &f.arrival_name, &f.arrival_ident, &f.aircraft_id})
        *t = r.Text();
    if (!r.Ok()) return false;
    out = std::move(f);
    return true;
}

Date_Time To_Date_Time(std::uint32_t receiver_seconds) {
    const std::int64_t unix_s = std::int64_t{receiver_seconds} + kEpochOffset_s;
    const Civil c = Civil_From_Unix(unix_s);
    Date_Time d;
    d.year = static_cast<std::uint16_t>(c.year);
    d.month = static_cast<std::uint8_t>(c.month);
    d.day = static_cast<std::uint8_t>(c.day);
    d.hour = static_cast<std::uint16_t>(c.hour);
    d.minute = static_cast<std::uint8_t>(c.minute);
    d.second = static_cast<std::uint8_t>(c.second);
    return d;
}

std::uint32_t From_Date_Time(const Date_Time& d) {
    const std::int64_t unix_s = Unix_From_Civil({d.year, d.month, d.day, d.hour, d.minute, d.second});
    const std::int64_t s = unix_s - kEpochOffset_s;
    if (s < 0 || s > std::int64_t{0xFFFFFFFE}) return 0;
    return static_cast<std::uint32_t>(s);
}

Bytes Encode_Date_Time(const Date_Time& d) {
    Writer w;
    w.U8(d.month);
    w.U8(d.day);
    w.U16(d.year);
    w.U16(d.hour);
    w.U8(d.minute);
    w.U8(d.second);
    return w.Take();
}

bool Decode_Date_Time(const Bytes& data, Date_Time& out) {
    Reader r(data);
    Date_Time d;
    d.month = r.U8();
    d.day = r.U8();
    d.year = r.U16();
    d.hour = r.U16();
    d.minute = r.U8();
    d.second = r.U8();
    if (!r.Ok() || d.month < 1 || d.month > 12 || d.day < 1 || d.day > 31 || d.hour > 23 || d.minute > 59 ||
        d.second > 60)
        return false;
    out = d;
    return true;
}

Bytes Encode_Position(double lat_rad, double lon_rad) {
    Writer w;
    w.F64(lat_rad);
    w.F64(lon_rad);
    return w.Take();
}

bool Decode_Position(const Bytes& data, double& lat_rad, double& lon_rad) {
    Reader r(data);
    const double lat = r.F64();
    const double lon = r.F64();
    if (!r.Ok() || !std::isfinite(lat) || !std::isfinite(lon) || std::fabs(lat) > std::numbers::pi / 2 ||
        std::fabs(lon) > std::numbers::pi)
        return false;
    lat_rad = lat;
    lon_rad = lon;
    return true;
}

Bytes Encode_Pvt(const Pvt& p) {
    Writer w;
    w.F32(p.alt);
    w.F32(p.epe);
    w.F32(p.eph);
    w.F32(p.epv);
    w.I16(p.fix);
    w.F64(p.tow);
    w.F64(p.lat_rad);
    w.F64(p.lon_rad);
    w.F32(p.east);
    w.F32(p.north);
    w.F32(p.up);
    w.F32(p.msl_hght);
    w.I16(p.leap_scnds);
    w.U32(p.wn_days);
    return w.Take();
}

bool Decode_Pvt(const Bytes& data, Pvt& out) {
    Reader r(data);
    Pvt p;
    p.alt = r.F32();
    p.epe = r.F32();
    p.eph = r.F32();
    p.epv = r.F32();
    p.fix = r.I16();
    p.tow = r.F64();
    p.lat_rad = r.F64();
    p.lon_rad = r.F64();
    p.east = r.F32();
    p.north = r.F32();
    p.up = r.F32();
    p.msl_hght = r.F32();
    p.leap_scnds = r.I16();
    p.wn_days = r.U32();
    if (!r.Ok()) return false;
    out = p;
    return true;
}

}  // namespace trekcom::sim::formats
