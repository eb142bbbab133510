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

// Each layout is written once, as a list of fields: Put walks the list to
// encode a record, Get walks the same list to decode one, so the two
// directions cannot drift apart. The few fields that travel differently each
// way (a constant sent where a value is received, packed or clamped values)
// are named operations of their own.
class Put {
public:
    void U8(std::uint8_t v) { w_.U8(v); }
    void U16(std::uint16_t v) { w_.U16(v); }
    void I16(std::int16_t v) { w_.I16(v); }
    void U32(std::uint32_t v) { w_.U32(v); }
    void F32(float v) { w_.F32(v); }
    void F64(double v) { w_.F64(v); }
    void Bool(bool v) { w_.U8(v ? 1 : 0); }
    void Position(std::int32_t lat, std::int32_t lon) {
        w_.I32(lat);
        w_.I32(lon);
    }
    void Fixed(const std::string& text, std::size_t width) { w_.Fixed(text, width); }
    void Text(const std::string& text, std::size_t max_len) { w_.Text(text, max_len); }
    void Raw(const std::uint8_t* p, std::size_t n) { w_.Raw(p, n); }
    // A byte the unit fills in itself and the host's value of which it ignores.
    void Sent_As(std::uint8_t value) { w_.U8(value); }
    void Sent_As(std::uint8_t, std::uint8_t value) { w_.U8(value); }
    void Symbol_U8(std::int16_t symbol) { w_.U8(static_cast<std::uint8_t>(symbol)); }
    void Alt_I16(float alt) { w_.I16(To_I16(alt == kNoValue ? 0.0f : alt)); }
    void Display_Color(const Waypoint& p) { w_.U8(formats::Display_Color(p)); }
    // The variable texts of D108 to D110, cut so that the record fits in a packet.
    void Texts(std::initializer_list<const std::string*> texts) {
        std::size_t budget = 255 - w_.Size() - texts.size();
        for (const std::string* t : texts) {
            const std::size_t n = std::min(t->size(), budget);
            w_.Text(*t, n);
            budget -= std::min(n, budget);
        }
    }

    Bytes Take() { return w_.Take(); }

private:
    Writer w_;
};

class Get {
public:
    explicit Get(const Bytes& data) : r_(data) {}
    void U8(std::uint8_t& v) { v = r_.U8(); }
    void U16(std::uint16_t& v) { v = r_.U16(); }
    void I16(std::int16_t& v) { v = r_.I16(); }
    void U32(std::uint32_t& v) { v = r_.U32(); }
    void F32(float& v) { v = r_.F32(); }
    void F64(double& v) { v = r_.F64(); }
    void Bool(bool& v) { v = r_.U8() != 0; }
    void Position(std::int32_t& lat, std::int32_t& lon) {
        lat = r_.I32();
        lon = r_.I32();
    }
    void Fixed(std::string& text, std::size_t width) { text = r_.Fixed(width); }
    void Text(std::string& text, std::size_t) { text = r_.Text(); }
    void Raw(std::uint8_t* p, std::size_t n) { r_.Raw(p, n); }
    void Sent_As(std::uint8_t) { r_.U8(); }
    void Sent_As(std::uint8_t& received, std::uint8_t) { received = r_.U8(); }
    void Symbol_U8(std::int16_t& symbol) { symbol = r_.U8(); }
    void Alt_I16(float& alt) { alt = r_.I16(); }
    void Display_Color(Waypoint& p) { Set_Display_Color(p, r_.U8()); }
    void Texts(std::initializer_list<std::string*> texts) {
        for (std::string* t : texts) *t = r_.Text();
    }

    bool Ok() const { return r_.Ok(); }

private:
    Reader r_;
};

template <typename T, typename Fields>
Bytes Encode(const T& record, Fields fields) {
    Put io;
    fields(io, record);
    return io.Take();
}

// All or nothing: the output changes only when the whole layout was read.
// fields returns false for a layout it does not know.
template <typename T, typename Fields>
bool Decode(const Bytes& data, T& out, Fields fields) {
    Get io(data);
    T record = out;
    if (!fields(io, record) || !io.Ok()) return false;
    out = std::move(record);
    return true;
}

// The part shared by D100 to D104, D107, D400, D403 and the D151 family.
template <typename Io, typename W>
void D100_Fields(Io& io, W& p) {
    io.Fixed(p.ident, 6);
    io.Position(p.lat, p.lon);
    io.U32(p.unused);
    io.Fixed(p.comment, 40);
}

template <typename Io, typename W>
void D150_Fields(Io& io, W& p) {
    io.Fixed(p.ident, 6);
    io.Fixed(p.country, 2);
    io.U8(p.wpt_class);
    io.Position(p.lat, p.lon);
    io.Alt_I16(p.alt);
    io.Fixed(p.city, 24);
    io.Fixed(p.state, 2);
    io.Fixed(p.facility, 30);
    io.Fixed(p.comment, 40);
}

template <typename Io, typename W>
bool Waypoint_Fields(Io& io, W& p, std::uint16_t type) {
    switch (type) {
        case 100:
            D100_Fields(io, p);
            return true;
        case 101:
            D100_Fields(io, p);
            io.F32(p.dist);
            io.Symbol_U8(p.symbol);
            return true;
        case 102:
            D100_Fields(io, p);
            io.F32(p.dist);
            io.I16(p.symbol);
            return true;
        case 103:
        case 403:
            D100_Fields(io, p);
            io.Symbol_U8(p.symbol);
            io.U8(p.display);
            if (type == 403) io.F32(p.dist);
            return true;
        case 104:
            D100_Fields(io, p);
            io.F32(p.dist);
            io.I16(p.symbol);
            io.U8(p.display);
            return true;
        case 105:
            io.Position(p.lat, p.lon);
            io.I16(p.symbol);
            io.Text(p.ident, 240);
            return true;
        case 106:
            io.U8(p.wpt_class);
            io.Raw(p.subclass.data(), 13);
            io.Position(p.lat, p.lon);
            io.I16(p.symbol);
            io.Text(p.ident, 100);
            io.Text(p.link, 100);
            return true;
        case 107:
            D100_Fields(io, p);
            io.Symbol_U8(p.symbol);
            io.U8(p.display);
            io.F32(p.dist);
            io.U8(p.color);
            return true;
        case 108:
        case 109:
        case 110:
            if (type == 108) {
                io.U8(p.wpt_class);
                io.U8(p.color);
                io.U8(p.display);
                io.Sent_As(p.attr, 0x60);
            } else {
                io.Sent_As(0x01);  // the packet type byte
                io.U8(p.wpt_class);
                io.Display_Color(p);
                io.Sent_As(p.attr, type == 109 ? 0x70 : 0x80);
            }
            io.I16(p.symbol);
            io.Raw(p.subclass.data(), p.subclass.size());
            io.Position(p.lat, p.lon);
            io.F32(p.alt);
            io.F32(p.depth);
            io.F32(p.dist);
            io.Fixed(p.state, 2);
            io.Fixed(p.country, 2);
            if (type != 108) io.U32(p.ete);
            if (type == 110) {
                io.F32(p.temp);
                io.U32(p.time);
                io.U16(p.category);
            }
            io.Texts({&p.ident, &p.comment, &p.facility, &p.city, &p.address, &p.cross_road});
            return true;
        case 150:
            D150_Fields(io, p);
            return true;
        case 151:
        case 152:
        case 154:
        case 155:
            D100_Fields(io, p);
            io.F32(p.dist);
            io.Fixed(p.facility, 30);
            io.Fixed(p.city, 24);
            io.Fixed(p.state, 2);
            io.Alt_I16(p.alt);
            io.Fixed(p.country, 2);
            io.Sent_As(0);
            io.U8(p.wpt_class);
            if (type >= 154) io.I16(p.symbol);
            if (type == 155) io.U8(p.display);
            return true;
        case 400:
            D100_Fields(io, p);
            io.F32(p.dist);
            return true;
        case 450:
            io.I16(p.prox_index);
            D150_Fields(io, p);
            io.F32(p.dist);
            return true;
        default:
            return false;
    }
}

template <typename Io, typename R>
bool Route_Header_Fields(Io& io, R& route, std::uint16_t type) {
    switch (type) {
        case 200:
        case 201:
            io.U8(route.number);
            if (type == 201) io.Fixed(route.comment, 20);
            return true;
        case 202:
            io.Text(route.ident, 250);
            return true;
        default:
            return false;
    }
}

template <typename Io, typename L>
bool Route_Link_Fields(Io& io, L& l) {
    io.U16(l.link_class);
    io.Raw(l.subclass.data(), l.subclass.size());
    io.Text(l.ident, 230);
    return true;
}

template <typename Io, typename T>
bool Track_Header_Fields(Io& io, T& t, std::uint16_t type) {
    if (type == 311) {
        io.U16(t.index);
    } else if (type == 310 || type == 312) {
        io.Bool(t.display);
        io.U8(t.color);
        io.Text(t.ident, 250);
    } else {
        return false;
    }
    return true;
}

template <typename Io, typename P>
bool Track_Point_Fields(Io& io, P& p, std::uint16_t type) {
    if (type < 300 || type > 302) return false;
    io.Position(p.lat, p.lon);
    io.U32(p.time);
    if (type >= 301) {
        io.F32(p.alt);
        io.F32(p.depth);
    }
    if (type == 302) io.F32(p.temp);
    io.Bool(p.new_segment);
    return true;
}

template <typename Io, typename A>
bool Almanac_Fields(Io& io, A& a, std::uint16_t type) {
    if (type != 500 && type != 501 && type != 550 && type != 551) return false;
    if (type >= 550) io.U8(a.svid);
    io.I16(a.wn);
    for (auto field : {&Almanac::toa, &Almanac::af0, &Almanac::af1, &Almanac::e, &Almanac::sqrta, &Almanac::m0,
                       &Almanac::w, &Almanac::omg0, &Almanac::odot, &Almanac::i})
        io.F32(a.*field);
    if (type == 501 || type == 551) io.U8(a.hlth);
    return true;
}

template <typename Io, typename L>
bool Lap_Fields(Io& io, L& l) {
    io.U32(l.start_time);
    io.U32(l.total_time);
    io.F32(l.total_dist);
    io.Position(l.begin_lat, l.begin_lon);
    io.Position(l.end_lat, l.end_lon);
    io.U16(l.calories);
    io.U8(l.track_index);
    io.U8(l.unused);
    return true;
}

template <typename Io, typename F>
bool Flight_Fields(Io& io, F& f) {
    io.U32(f.takeoff_time);
    io.U32(f.landing_time);
    io.Position(f.takeoff_lat, f.takeoff_lon);
    io.Position(f.landing_lat, f.landing_lon);
    io.U32(f.night_time);
    io.U32(f.num_landings);
    io.F32(f.max_speed);
    io.F32(f.max_alt);
    io.F32(f.distance);
    io.Bool(f.cross_country);
    for (auto text : {&Flight::departure_name, &Flight::departure_ident, &Flight::arrival_name,
                      &Flight::arrival_ident, &Flight::aircraft_id})
        io.Text(f.*text, 40);
    return true;
}

template <typename Io, typename D>
bool Date_Time_Fields(Io& io, D& d) {
    io.U8(d.month);
    io.U8(d.day);
    io.U16(d.year);
    io.U16(d.hour);
    io.U8(d.minute);
    io.U8(d.second);
    return true;
}

struct Position_Rad {
    double lat = 0, lon = 0;
};

template <typename Io, typename P>
bool Position_Fields(Io& io, P& p) {
    io.F64(p.lat);
    io.F64(p.lon);
    return true;
}

template <typename Io, typename P>
bool Pvt_Fields(Io& io, P& p) {
    io.F32(p.alt);
    io.F32(p.epe);
    io.F32(p.eph);
    io.F32(p.epv);
    io.I16(p.fix);
    io.F64(p.tow);
    io.F64(p.lat_rad);
    io.F64(p.lon_rad);
    io.F32(p.east);
    io.F32(p.north);
    io.F32(p.up);
    io.F32(p.msl_hght);
    io.I16(p.leap_scnds);
    io.U32(p.wn_days);
    return true;
}

}  // namespace

bool Known_Waypoint_Type(std::uint16_t t) {
    return (t >= 100 && t <= 110) || t == 150 || t == 151 || t == 152 || t == 154 || t == 155 ||
           t == 400 || t == 403 || t == 450;
}

Bytes Encode_Waypoint(const Waypoint& w, std::uint16_t type) {
    return Encode(w, [type](Put& io, const Waypoint& p) { return Waypoint_Fields(io, p, type); });
}

bool Decode_Waypoint(const Bytes& data, std::uint16_t type, Waypoint& out) {
    return Decode(data, out, [type](Get& io, Waypoint& p) { return Waypoint_Fields(io, p, type); });
}

Bytes Encode_Route_Header(const Route& r, std::uint16_t type) {
    return Encode(r, [type](Put& io, const Route& x) { return Route_Header_Fields(io, x, type); });
}

bool Decode_Route_Header(const Bytes& data, std::uint16_t type, Route& out) {
    return Decode(data, out, [type](Get& io, Route& x) { return Route_Header_Fields(io, x, type); });
}

Bytes Encode_Route_Link(const Route_Link& l) { return Encode(l, Route_Link_Fields<Put, const Route_Link>); }

bool Decode_Route_Link(const Bytes& data, Route_Link& out) {
    return Decode(data, out, Route_Link_Fields<Get, Route_Link>);
}

Bytes Encode_Track_Header(const Track& t, std::uint16_t type) {
    return Encode(t, [type](Put& io, const Track& x) { return Track_Header_Fields(io, x, type); });
}

bool Decode_Track_Header(const Bytes& data, std::uint16_t type, Track& out) {
    return Decode(data, out, [type](Get& io, Track& x) { return Track_Header_Fields(io, x, type); });
}

Bytes Encode_Track_Point(const Track_Point& p, std::uint16_t type) {
    return Encode(p, [type](Put& io, const Track_Point& x) { return Track_Point_Fields(io, x, type); });
}

bool Decode_Track_Point(const Bytes& data, std::uint16_t type, Track_Point& out) {
    return Decode(data, out, [type](Get& io, Track_Point& x) { return Track_Point_Fields(io, x, type); });
}

Bytes Encode_Almanac(const Almanac& a, std::uint16_t type) {
    return Encode(a, [type](Put& io, const Almanac& x) { return Almanac_Fields(io, x, type); });
}

bool Decode_Almanac(const Bytes& data, std::uint16_t type, Almanac& out) {
    return Decode(data, out, [type](Get& io, Almanac& x) { return Almanac_Fields(io, x, type); });
}

Bytes Encode_Lap(const Lap& l) { return Encode(l, Lap_Fields<Put, const Lap>); }

bool Decode_Lap(const Bytes& data, Lap& out) { return Decode(data, out, Lap_Fields<Get, Lap>); }

Bytes Encode_Flight(const Flight& f) { return Encode(f, Flight_Fields<Put, const Flight>); }

bool Decode_Flight(const Bytes& data, Flight& out) { return Decode(data, out, Flight_Fields<Get, Flight>); }

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

Bytes Encode_Date_Time(const Date_Time& d) { return Encode(d, Date_Time_Fields<Put, const Date_Time>); }

bool Decode_Date_Time(const Bytes& data, Date_Time& out) {
    Date_Time d;
    if (!Decode(data, d, Date_Time_Fields<Get, Date_Time>) || d.month < 1 || d.month > 12 || d.day < 1 ||
        d.day > 31 || d.hour > 23 || d.minute > 59 || d.second > 60)
        return false;
    out = d;
    return true;
}

Bytes Encode_Position(double lat_rad, double lon_rad) {
    return Encode(Position_Rad{lat_rad, lon_rad}, Position_Fields<Put, const Position_Rad>);
}

bool Decode_Position(const Bytes& data, double& lat_rad, double& lon_rad) {
    Position_Rad p;
    if (!Decode(data, p, Position_Fields<Get, Position_Rad>) || !std::isfinite(p.lat) || !std::isfinite(p.lon) ||
        std::fabs(p.lat) > std::numbers::pi / 2 || std::fabs(p.lon) > std::numbers::pi)
        return false;
    lat_rad = p.lat;
    lon_rad = p.lon;
    return true;
}

Bytes Encode_Pvt(const Pvt& p) { return Encode(p, Pvt_Fields<Put, const Pvt>); }

bool Decode_Pvt(const Bytes& data, Pvt& out) { return Decode(data, out, Pvt_Fields<Get, Pvt>); }

}  // namespace trekcom::sim::formats
