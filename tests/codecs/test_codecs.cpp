// Every record format, modelled as its fields in wire order with offsets and kinds: encode then decode must agree
// with the model, and any prefix of the data decode safely. Arbitrary data is the decoders fuzz target's work.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iomanip>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string_view>
#include <utility>

#include "records/codecs/codecs.h"
#include "records/codecs/fitness.h"
#include "records/fields.h"
#include "records/garmin_time.h"

using namespace trekcom;
using namespace trekcom::records;

namespace {

using Field_List = std::vector<std::pair<std::string, std::string>>;
template <typename T>
std::string Print(const T& value) {  // for comparing and showing
    std::ostringstream o;
    if constexpr (std::is_same_v<T, std::string>) o << '[' << value << ']';
    else if constexpr (std::is_same_v<T, Bytes>) {
        o << '[' << std::hex;
        for (int b : value) o << std::setw(2) << std::setfill('0') << b;
        o << ']';
    }
    else o << std::setprecision(17) << +value;
    return o.str();
}
#define F(f) {#f, Print(r.f)}
Field_List Fields(const cWaypoint& r) { return {F(Ident), F(Lat), F(Lon), F(Cmnt), F(Dspl), F(Smbl), F(Unused1),
    F(Dist), F(Prox_Index), F(Color), F(Alt), F(Dpth), F(Wpt_Class), F(Sub_Class), F(Attrib), F(Link), F(State),
    F(Country), F(City), F(Address), F(Facility), F(Cross_Road), F(Unused2), F(Ete), F(Dtype), F(Temp), F(Time),
    F(Time_Seconds), F(Wpt_Category)}; }
Field_List Fields(const cRoute& r) { return {F(Number), F(Ident), F(Cmnt), F(Link_Class), F(Link_Sub_Class),
    F(Link_Ident)}; }
Field_List Fields(const cTrack& r) { return {F(Lat), F(Lon), F(Time), F(Seconds), F(New_Segment), F(Alt), F(Dpth),
    F(Dspl), F(Color), F(Ident), F(Datum), F(Index), F(Temp)}; }
Field_List Fields(const cAlmanac& r) { return {F(svid), F(wn), F(toa), F(af0), F(af1), F(e), F(sqrta), F(m0), F(w),
    F(omg0), F(odot), F(i), F(hlth)}; }
Field_List Fields(const cLap& r) { return {F(Start_Time), F(Start_Time_Seconds), F(Total_Time), F(Total_Distance),
    F(Begin_Lat), F(Begin_Lon), F(End_Lat), F(End_Lon), F(Calories), F(Track_Index), F(Unused)}; }
Field_List Fields(const cFlightbook_Record& r) { return {F(Takeoff_Time), F(Takeoff_Seconds), F(Landing_Time),
    F(Landing_Seconds), F(Takeoff_Lat), F(Takeoff_Lon), F(Landing_Lat), F(Landing_Lon), F(Night_Time), F(Num_Landings),
    F(Max_Speed), F(Max_Alt), F(Distance), F(Cross_Country), F(Departure_Airport_Name), F(Departure_Airport_Ident),
    F(Arrival_Airport_Name), F(Arrival_Airport_Ident), F(Aircraft_ID)}; }
Field_List Fields(const cRun& r) { return {F(Track_Index), F(First_Lap_Index), F(Last_Lap_Index), F(Sport_Type),
    F(Program_Type), F(Multisport), F(Unused1), F(Unused2), F(Partner_Time), F(Partner_Distance), F(Workout)}; }
Field_List Fields(const cFitness_Lap& r) { return {F(Index), F(Start_Time), F(Total_Time), F(Total_Dist),
    F(Max_Speed), F(Begin_Lat), F(Begin_Lon), F(End_Lat), F(End_Lon), F(Calories), F(Unused), F(Avg_Heart_Rate),
    F(Max_Heart_Rate), F(Intensity), F(Avg_Cadence), F(Trigger_Method), F(Extra)}; }
Field_List Fields(const cFitness_Point& r) { return {F(Lat), F(Lon), F(Time), F(Alt), F(Distance), F(Track_Index),
    F(Heart_Rate), F(Cadence), F(Sensor)}; }
Field_List Fields(const cCourse& r) { return {F(Index), F(Unused), F(Course_Name), F(Track_Index)}; }
Field_List Fields(const cCourse_Lap& r) { return {F(Course_Index), F(Lap_Index), F(Total_Time), F(Total_Dist),
    F(Begin_Lat), F(Begin_Lon), F(End_Lat), F(End_Lon), F(Avg_Heart_Rate), F(Max_Heart_Rate), F(Intensity),
    F(Avg_Cadence)}; }
Field_List Fields(const cCourse_Point& r) { return {F(Name), F(Unused1), F(Course_Index), F(Unused2),
    F(Track_Point_Time), F(Point_Type)}; }
Field_List Fields(const cCourse_Limits& r) { return {F(Max_Courses), F(Max_Course_Laps), F(Max_Course_Pnt),
    F(Max_Course_Trk_Pnt)}; }
#undef F
// The fitness records go back out byte for byte as they came, spare and unknown bytes included.
template <typename R>
constexpr bool kByte_Exact = std::is_same_v<R, cRun> || std::is_same_v<R, cFitness_Lap> ||
    std::is_same_v<R, cFitness_Point> || std::is_same_v<R, cCourse> || std::is_same_v<R, cCourse_Lap> ||
    std::is_same_v<R, cCourse_Point> || std::is_same_v<R, cCourse_Limits>;

// The fields where two records differ, or "".
template <typename R>
std::string Differences(const R& got, const R& want) {
    const auto g = Fields(got), w = Fields(want);
    std::string out;
    for (std::size_t k = 0; k < g.size(); ++k)
        if (g[k] != w[k]) out += " " + g[k].first + ": got " + g[k].second + " want " + w[k].second;
    return out;
}

// A letter as the host writes it (UTF-8, lower and upper case) and as the wire carries it. DLE, ETX frame packets;
// NUL, last, only in binary texts.
struct Letter {
    std::string_view lower, upper;
    std::uint8_t wire_lower, wire_upper;
};
constexpr Letter kAlphabet[] = {
    {"a", "A", 'a', 'A'},     {"z", "Z", 'z', 'Z'},     {"7", "7", '7', '7'},     {" ", " ", ' ', ' '},
    {"\x10", "\x10", 16, 16}, {"\x03", "\x03", 3, 3},   {"\x7F", "\x7F", 127, 127}, {"é", "É", 0xE9, 0xC9},
    {"þ", "Þ", 0xFE, 0xDE},   {"ÿ", "Ÿ", 0xFF, 0x9F},   {"š", "Š", 0x9A, 0x8A},   {"œ", "Œ", 0x9C, 0x8C},
    {"€", "€", 0x80, 0x80},   {"÷", "÷", 0xF7, 0xF7},   {"ß", "ß", 0xDF, 0xDF},   {{"", 1}, {"", 1}, 0, 0},
};
std::string Trim(const std::string& s) {
    const auto first = s.find_first_not_of(' ');
    return first == s.npos ? "" : s.substr(first, s.find_last_not_of(' ') - first + 1);
}

// The seed is new each run unless CODEC_SEED gives one; failures print it.
struct Rng {
    std::uint64_t seed = std::getenv("CODEC_SEED") ? std::stoull(std::getenv("CODEC_SEED")) : std::random_device{}();
    std::mt19937_64 engine{seed};

    std::uint64_t Below(std::uint64_t n) { return std::uniform_int_distribution<std::uint64_t>(0, n - 1)(engine); }
    bool Coin() { return Below(2) == 1; }
    template <typename T>
    T Pick(std::initializer_list<T> values) { return values.begin()[Below(values.size())]; }
    // Half the time an edge value: the type's extremes, 0, NaN and infinities.
    template <typename T>
    T Value() {
        using L = std::numeric_limits<T>;
        if constexpr (std::is_floating_point_v<T>)
            return Coin() ? Pick<T>({0, -T{0}, L::max(), L::lowest(), L::denorm_min(), L::infinity(), L::quiet_NaN()})
                          : std::bit_cast<T>(static_cast<std::uint32_t>(engine()));
        else
            return Coin() ? Pick<T>({0, 1, L::max(), L::min()}) : static_cast<T>(engine());
    }
};

// Walks a format's fields: each call draws the field into `in`, sets what must come back in `out`, and the
// bytes expected at its offset in `wire` (an offset below 0 leaves the wire unpinned).
template <typename R>
struct Carry {
    Rng& rng;
    R& in;
    R& out;
    std::map<int, std::uint8_t> wire;
    std::optional<std::uint8_t> announced;  // the size the packet announces when not its own

    template <typename T>
    void Put(int at, T value) {
        const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(value);  // little-endian host
        for (std::size_t k = 0; at >= 0 && k < bytes.size(); ++k) wire[at + static_cast<int>(k)] = bytes[k];
    }
    template <typename T>
    void Same(T R::*field, int at) { Put(at, in.*field = out.*field = rng.Value<T>()); }
    template <typename T>
    void Byte(T R::*field, int at, int max = 255) {  // 127 and 128 bound the subclass
        const int value = rng.Coin() ? rng.Pick({0, 127, 128, 255}) : static_cast<int>(rng.Below(256));
        Put(at, static_cast<std::uint8_t>(in.*field = out.*field = static_cast<T>(value % (max + 1))));
    }
    void Position(double R::*field, int at) {  // degrees back as the nearest semicircle
        const double random = static_cast<double>(rng.Below(1u << 31)) * (360.0 / (1u << 31)) - 180;
        in.*field = rng.Coin() ? rng.Pick({0.0, -180.0, 179.9999999, 1e-9}) : random;
        const auto semi = static_cast<std::int32_t>(std::nearbyint(2147483648.0 / 180.0 * in.*field));
        Put(at, semi), out.*field = 180.0 / 2147483648.0 * semi;
    }
    void Integer(float R::*field, int at) {  // a Single sent rounded half to even, no negative zero
        const float random = static_cast<float>(rng.Below(65535)) - 32767.7f;
        in.*field = rng.Coin() ? rng.Pick({-32768.0f, 32767.0f, 0.5f, 1.5f, -0.0f}) : random;
        const auto integer = static_cast<std::int16_t>(std::nearbyint(in.*field));
        Put(at, integer), out.*field = integer;
    }
    void Time(std::int32_t R::*seconds, std::string R::*text, int at) {
        Same(seconds, at), out.*text = records::Seconds2Time(in.*seconds);
    }
    // A field narrower on the wire than in the record.
    template <typename Wire, typename T>
    void Narrow(T R::*field, int at) { Put(at, static_cast<Wire>(in.*field = out.*field = rng.Value<Wire>())); }
    // A position or the unit's invalid mark, which reads as NaN.
    void Marked(double R::*field, int at) {
        if (rng.Coin()) in.*field = std::nan(""), Put(at, std::int32_t{0x7FFFFFFF});
        else Position(field, at);
        if (wire[at + 3] == 0x7F && wire[at] == 0xFF && wire[at + 1] == 0xFF && wire[at + 2] == 0xFF) out.*field = std::nan("");
    }
    void Block(Bytes R::*field, int at, int size) {
        in.*field = out.*field = Bytes(static_cast<std::size_t>(size));
        for (auto& b : in.*field) b = static_cast<std::uint8_t>(rng.engine());
        for (int k = 0; k < size; ++k) Put(at + k, (out.*field = in.*field)[static_cast<std::size_t>(k)]);
    }
    // A name padded with NULs, case and spaces kept.
    void Name(std::string R::*field, int at, int width) {
        const auto text = Draw(field, false, static_cast<std::size_t>(width) + 4, static_cast<std::size_t>(width), 1);
        for (int k = 0; k < width; ++k) Put(at + k, k < static_cast<int>(text.size()) ? text[k] : std::uint8_t{0});
    }
    // Fixed-width text: upper-cased unless binary, space-padded, cut to width, read back trimmed.
    void Text(std::string R::*field, int at, int width, bool upper = true) {
        const auto text = Draw(field, upper, 44, static_cast<std::size_t>(width));
        for (int k = 0; k < width; ++k) Put(at + k, k < static_cast<int>(text.size()) ? text[k] : std::uint8_t{' '});
        out.*field = Trim(out.*field);
    }
    // NUL-terminated texts in a row, upper-cased, 30 letters at most so all fit; `trimmed` if read as fixed text.
    void Texts(int at, std::initializer_list<std::string R::*> fields, bool trimmed = false) {
        for (auto field : fields) {
            for (std::uint8_t byte : Draw(field, true, 30, 30)) Put(at++, byte);
            Put(at++, std::uint8_t{0});
            if (trimmed) out.*field = Trim(out.*field);
        }
    }
    void Default_Subclass(int at) {  // six zero bytes and twelve 0xFF: the subclass of a record without one
        for (int k = 0; k < 18; ++k) Put(at + k, static_cast<std::uint8_t>(k < 6 ? 0 : 0xFF));
    }

private:
    // Sets in, and out to the first `kept` letters; returns the wire bytes.
    std::vector<std::uint8_t> Draw(std::string R::*field, bool upper, std::size_t longest, std::size_t kept,
                                   std::size_t no_nul = 0) {
        const std::size_t length = rng.Coin() ? rng.Pick<std::size_t>({0, 2, 6, longest}) : rng.Below(longest + 1);
        std::vector<std::uint8_t> bytes;
        in.*field = out.*field = "";
        while (bytes.size() < length) {
            const Letter& l = kAlphabet[rng.Below(std::size(kAlphabet) - (upper ? 1 : no_nul))];
            in.*field += l.lower;
            if (bytes.size() < kept) out.*field += upper ? l.upper : l.lower;
            bytes.push_back(upper ? l.wire_upper : l.wire_lower);
        }
        return bytes;
    }
};

using W = cWaypoint;
using Packet = std::optional<link::Packet>;
constexpr std::uint16_t kId = 0x1234;  // ids are 16 bits wide, whatever the transport
constexpr std::uint8_t kWpt = 35, kPrx = 19;
std::uint16_t Id(const std::string& format) { return format[1] == '1' ? kWpt : format[1] == '4' ? kPrx : kId; }
// D400, D403 and D450 are D100, D103 and D150 sent as proximity waypoints.
std::string Base(std::string f) { return f == "D400" ? "D100" : f == "D403" ? "D103" : f == "D450" ? "D150" : f; }

// A D450 as a receiver sends it, around the D150 a host sends: the index, the D150, the distance.
Packet D450(const W& w) {
    Bytes data = Encode_Waypoint(w, "D150", kPrx, true)->data;
    data.insert(data.begin(), 2, 0), data.resize(121);
    Put_Int(data, 0, w.Prox_Index), Put_Single(data, 117, w.Dist);
    return link::Packet{kPrx, data, std::nullopt};
}
// The current track a point copies its name, colour and display flag from.
const cTrack kCurrent = [] { cTrack t; t.Ident = "TRK1", t.Color = 5, t.Dspl = true; return t; }();

Packet Encode(const W& w, std::string f) {
    return f == "D450" ? D450(w) : Encode_Waypoint(w, Base(f), Id(f), f[1] == '4');
}
Packet Encode(const cRoute& r, std::string f) {
    return f == "D210" ? Encode_Route_Link(r, kId) : Encode_Route_Header(r, f, kId);
}
Packet Encode(const cTrack& t, std::string f) {
    return f[2] == '1' ? Encode_Track_Header(t, f, kId) : Encode_Track_Point(t, f, kId);
}
Packet Encode(const cAlmanac& a, const std::string& f) { return Encode_Almanac(a, f, kId); }
Packet Encode(const cLap& l, const std::string&) { return Encode_Lap(l, kId); }
Packet Encode(const cFlightbook_Record& r, const std::string&) { return Encode_Flightbook(r, kId); }
Packet Encode(const cRun& r, const std::string& f) { return Encode_Run(r, f, Id(f)); }
Packet Encode(const cFitness_Lap& l, const std::string& f) { return Encode_Fitness_Lap(l, f, Id(f)); }
Packet Encode(const cFitness_Point& t, const std::string& f) { return Encode_Fitness_Point(t, f, Id(f)); }
Packet Encode(const cCourse& c, const std::string& f) { return Encode_Course(c, Id(f)); }
Packet Encode(const cCourse_Lap& c, const std::string& f) { return Encode_Course_Lap(c, Id(f)); }
Packet Encode(const cCourse_Point& c, const std::string& f) { return Encode_Course_Point(c, Id(f)); }
Packet Encode(const cCourse_Limits& c, const std::string& f) { return Encode_Course_Limits(c, Id(f)); }
constexpr std::uint16_t kTrack_Index = 7;  // what the last track header named

template <typename R>
R Decode(link::Data_View d, const std::string& f) {
    R r;
    if constexpr (std::is_same_v<R, W>) r = Decode_Waypoint(d, Base(f));
    if constexpr (std::is_same_v<R, cRoute>)
        f == "D210" ? Decode_Route_Link(d, r) : void(r = Decode_Route_Header(d, f));
    if constexpr (std::is_same_v<R, cTrack>)
        r = f[2] == '1' ? Decode_Track_Header(d, f) : Decode_Track_Point(d, f, kCurrent);
    if constexpr (std::is_same_v<R, cAlmanac>) Decode_Almanac(d, f, r);
    if constexpr (std::is_same_v<R, cLap>) r = Decode_Lap(d);
    if constexpr (std::is_same_v<R, cFlightbook_Record>) r = Decode_Flightbook(d);
    if constexpr (std::is_same_v<R, cRun>) r = Decode_Run(d, f);
    if constexpr (std::is_same_v<R, cFitness_Lap>) r = Decode_Fitness_Lap(d, f);
    if constexpr (std::is_same_v<R, cFitness_Point>) r = Decode_Fitness_Point(d, f, kTrack_Index);
    if constexpr (std::is_same_v<R, cCourse>) r = Decode_Course(d);
    if constexpr (std::is_same_v<R, cCourse_Lap>) r = Decode_Course_Lap(d);
    if constexpr (std::is_same_v<R, cCourse_Point>) r = Decode_Course_Point(d);
    if constexpr (std::is_same_v<R, cCourse_Limits>) r = Decode_Course_Limits(d);
    return r;
}

// Every prefix of the data decodes, reading nothing past it (each prefix is a buffer of its own, for the
// sanitizer), to fields whole or absent: a number its full value or the initial one, a text a leading part.
template <typename R>
void Prefixes(const std::string& f, const Bytes& data) {
    const auto initial = Fields(Decode<R>({}, f)), whole = Fields(Decode<R>(data, f));
    for (std::size_t n = 0; n <= data.size(); ++n) {
        const auto got = Fields(Decode<R>(Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(n)), f));
        for (std::size_t k = 0; k < got.size(); ++k) {
            const std::string& v = got[k].second;
            const bool leading_text = v.starts_with('[') && whole[k].second.starts_with(v.substr(0, v.size() - 1));
            ASSERT_TRUE(v == whole[k].second || v == initial[k].second || leading_text)
                << "prefix " << n << " of " << data.size() << ": " << got[k].first << " = " << v;
        }
    }
}

template <typename R>
using Models = std::vector<std::pair<std::string, std::function<void(Carry<R>&)>>>;

// Encode then decode gives back the fields the format carries, initial values elsewhere, each field at its offset.
template <typename R>
void Check_Formats(const Models<R>& models, Rng& rng) {
    for (const auto& [f, model] : models) {
        SCOPED_TRACE(f + ", CODEC_SEED=" + std::to_string(rng.seed) + " replays");
        for (int round = 0; round < 300; ++round) {
            R in, out = Decode<R>({}, f);
            Carry<R> c{rng, in, out, {}, {}};
            model(c);
            const auto packet = Encode(in, f);
            ASSERT_TRUE(packet && packet->id == Id(f) && packet->announced == c.announced);
            for (const auto& [at, byte] : c.wire)
                ASSERT_EQ(at < static_cast<int>(packet->data.size()) ? packet->data[at] : -1, byte) << "offset " << at;
            ASSERT_EQ(Differences(Decode<R>(packet->data, f), out), "") << "round " << round;
            if constexpr (kByte_Exact<R>) { ASSERT_EQ(Encode(Decode<R>(packet->data, f), f)->data, packet->data); }
            // A D450 is told from a D150 by its whole size: a part of one is a D150.
            if (round < 40 && f != "D450") { ASSERT_NO_FATAL_FAILURE(Prefixes<R>(f, packet->data)); }
        }
    }
}

using C = Carry<W>;
void D100_Part(C& c) {
    c.Text(&W::Ident, 0, 6), c.Position(&W::Lat, 6), c.Position(&W::Lon, 10), c.Same(&W::Unused1, 14);
    c.Text(&W::Cmnt, 18, 40);
}
void D103_Part(C& c) { D100_Part(c), c.Byte(&W::Smbl, 58), c.Byte(&W::Dspl, 59); }
void D150_Part(C& c, int at) {
    c.Text(&W::Ident, at, 6), c.Text(&W::Country, at + 6, 2), c.Byte(&W::Wpt_Class, at + 8);
    c.Position(&W::Lat, at + 9), c.Position(&W::Lon, at + 13), c.Integer(&W::Alt, at + 17);
    c.Text(&W::City, at + 19, 24), c.Text(&W::State, at + 43, 2), c.Text(&W::Facility, at + 45, 30);
    c.Text(&W::Cmnt, at + 75, 40);
}
void D151_Part(C& c) {
    D100_Part(c);
    c.Same(&W::Dist, 58), c.Text(&W::Facility, 62, 30), c.Text(&W::City, 92, 24), c.Text(&W::State, 116, 2);
    c.Integer(&W::Alt, 118), c.Text(&W::Country, 120, 2), c.Byte(&W::Wpt_Class, 123);
}
// D108, D109, D110: a head, then fields at fixed offsets, then NUL-terminated texts.
void D108_Part(C& c, bool d108) {
    if (d108) c.Byte(&W::Wpt_Class, 0), c.Byte(&W::Color, 1), c.Byte(&W::Dspl, 2);
    if (!d108) {  // colour and display share a byte
        c.Byte(&W::Dtype, 0), c.Byte(&W::Wpt_Class, 1), c.Byte(&W::Color, -1, 31), c.Byte(&W::Dspl, -1, 3);
        c.Put(2, static_cast<std::uint8_t>(c.in.Color + 32 * c.in.Dspl)), c.Same(&W::Ete, 48);
    }
    c.Byte(&W::Attrib, 3), c.Same(&W::Smbl, 4);
    if (c.in.Wpt_Class > 127) c.Text(&W::Sub_Class, 6, 18, false);  // binary: kept as it is
    if (c.in.Wpt_Class < 127) c.Default_Subclass(6);
    c.Position(&W::Lat, 24), c.Position(&W::Lon, 28), c.Same(&W::Alt, 32), c.Same(&W::Dpth, 36);
    c.Same(&W::Dist, 40), c.Text(&W::State, 44, 2), c.Text(&W::Country, 46, 2);
}
void D108_Texts(C& c, int at) {
    c.Texts(at, {&W::Ident, &W::Cmnt, &W::Facility, &W::City, &W::Address, &W::Cross_Road});
}

const Models<W> kWaypoints{
    {"D100", D100_Part},
    {"D101", [](C& c) { D100_Part(c), c.Same(&W::Dist, 58), c.Byte(&W::Smbl, 62); }},
    {"D102", [](C& c) { D100_Part(c), c.Same(&W::Dist, 58), c.Same(&W::Smbl, 62); }},
    {"D103", D103_Part},
    {"D104", [](C& c) { D100_Part(c), c.Same(&W::Dist, 58), c.Same(&W::Smbl, 62), c.Byte(&W::Dspl, 64); }},
    {"D105", [](C& c) {
         c.Position(&W::Lat, 0), c.Position(&W::Lon, 4), c.Same(&W::Smbl, 8), c.Texts(10, {&W::Ident});
     }},
    {"D106", [](C& c) {  // the subclass read as fixed text: up to a NUL
         c.Byte(&W::Wpt_Class, 0), c.Text(&W::Sub_Class, 1, 13, false), c.Position(&W::Lat, 14);
         c.Position(&W::Lon, 18), c.Same(&W::Smbl, 22), c.Texts(24, {&W::Ident, &W::Link});
         c.out.Sub_Class = Trim(c.out.Sub_Class.substr(0, c.out.Sub_Class.find('\0')));
     }},
    {"D107", [](C& c) { D103_Part(c), c.Same(&W::Dist, 60), c.Byte(&W::Color, 64); }},
    {"D108", [](C& c) { D108_Part(c, true), D108_Texts(c, 48); }},
    {"D109", [](C& c) { D108_Part(c, false), D108_Texts(c, 52); }},
    {"D110", [](C& c) {
         D108_Part(c, false), c.Same(&W::Temp, 52), c.Time(&W::Time_Seconds, &W::Time, 56);
         c.Same(&W::Wpt_Category, 60), D108_Texts(c, 62);
     }},
    {"D150", [](C& c) { D150_Part(c, 0); }},
    {"D151", D151_Part},
    {"D152", D151_Part},
    {"D154", [](C& c) { D151_Part(c), c.Same(&W::Smbl, 124); }},
    {"D155", [](C& c) { D151_Part(c), c.Same(&W::Smbl, 124), c.Byte(&W::Dspl, 126); }},
    {"D400", [](C& c) { D100_Part(c), c.Same(&W::Dist, 58); }},
    {"D403", [](C& c) { D103_Part(c), c.Same(&W::Dist, 60); }},
    // The distance is read one byte early: the comment's last byte and three of its own.
    {"D450", [](C& c) {
         c.Same(&W::Prox_Index, 0), D150_Part(c, 2), c.Same(&W::Dist, 117);
         c.out.Dist = std::bit_cast<float>(std::bit_cast<std::uint32_t>(c.in.Dist) << 8 | c.wire[116]);
     }},
};

const Models<cRoute> kRoutes{
    {"D200", [](Carry<cRoute>& c) { c.Byte(&cRoute::Number, 0); }},
    {"D201", [](Carry<cRoute>& c) {  // a route with no comment is shown by its name
         c.Byte(&cRoute::Number, 0), c.Text(&cRoute::Cmnt, 1, 20);
         if (c.in.Cmnt.empty()) c.Text(&cRoute::Ident, 1, 20), c.out.Cmnt = std::exchange(c.out.Ident, "");
     }},
    {"D202", [](Carry<cRoute>& c) { c.Texts(0, {&cRoute::Ident}, true); }},
    {"D210", [](Carry<cRoute>& c) {  // direct (3) and snapped (255) links carry no subclass
         const auto link = c.rng.Coin() ? c.rng.Pick<std::int16_t>({3, 255}) : c.rng.Value<std::int16_t>();
         c.Put(0, c.in.Link_Class = c.out.Link_Class = link);
         link == 3 || link == 255 ? c.Default_Subclass(2) : c.Text(&cRoute::Link_Sub_Class, 2, 18);
         c.Texts(20, {&cRoute::Link_Ident}, true);
     }},
};

using T = Carry<cTrack>;
void Track_Header(T& c) {
    c.in.Dspl = c.rng.Coin(), c.Put(0, c.in.Dspl);  // sent, never read back
    c.Same(&cTrack::Color, 1), c.Texts(2, {&cTrack::Ident}, true);
}
void Track_Point(T& c, int segment_at) {
    c.Position(&cTrack::Lat, 0), c.Position(&cTrack::Lon, 4), c.Time(&cTrack::Seconds, &cTrack::Time, 8);
    c.Same(&cTrack::New_Segment, segment_at);
    if (segment_at > 12) c.announced = 13;  // every point announces the D300 size
}
const Models<cTrack> kTracks{
    {"D310", Track_Header},
    {"D311", [](T& c) { c.Same(&cTrack::Index, 0); }},
    {"D312", Track_Header},
    {"D300", [](T& c) { Track_Point(c, 12); }},
    {"D301", [](T& c) { Track_Point(c, 20), c.Same(&cTrack::Alt, 12), c.Same(&cTrack::Dpth, 16); }},
    // No altitude or depth: those eight bytes stay zero.
    {"D302", [](T& c) { Track_Point(c, 24), c.Put(12, std::uint64_t{0}), c.Same(&cTrack::Temp, 20); }},
};

void Almanac_Part(Carry<cAlmanac>& c, int base, bool health) {
    c.Same(&cAlmanac::wn, base);
    int at = base + 2;
    for (auto s : {&cAlmanac::toa, &cAlmanac::af0, &cAlmanac::af1, &cAlmanac::e, &cAlmanac::sqrta, &cAlmanac::m0,
                   &cAlmanac::w, &cAlmanac::omg0, &cAlmanac::odot, &cAlmanac::i})
        c.Same(s, at), at += 4;
    if (health) c.Same(&cAlmanac::hlth, at);
}
// D550, D551: the id first, read back only from a digit; behind it af0 is read one byte early (toa's last byte).
void Satellite(Carry<cAlmanac>& c, bool health) {
    c.in.svid = c.rng.Coin() ? c.rng.Pick<std::uint8_t>({'0', '9', '/', ':'}) : c.rng.Value<std::uint8_t>();
    if (c.in.svid >= '0' && c.in.svid <= '9') c.out.svid = static_cast<std::uint8_t>(c.in.svid - '0');
    c.Put(0, c.in.svid), Almanac_Part(c, 1, health);
    c.out.af0 = std::bit_cast<float>(std::bit_cast<std::uint32_t>(c.in.af0) << 8 | c.wire[6]);
}
const Models<cAlmanac> kAlmanacs{
    {"D500", [](Carry<cAlmanac>& c) { Almanac_Part(c, 0, false); }},
    {"D501", [](Carry<cAlmanac>& c) { Almanac_Part(c, 0, true); }},
    {"D550", [](Carry<cAlmanac>& c) { Satellite(c, false); }},
    {"D551", [](Carry<cAlmanac>& c) { Satellite(c, true); }},
};

const Models<cLap> kLaps{{"D906", [](Carry<cLap>& c) {
    using L = cLap;
    c.Time(&L::Start_Time_Seconds, &L::Start_Time, 0), c.Same(&L::Total_Time, 4), c.Same(&L::Total_Distance, 8);
    c.Position(&L::Begin_Lat, 12), c.Position(&L::Begin_Lon, 16), c.Position(&L::End_Lat, 20);
    c.Position(&L::End_Lon, 24), c.Same(&L::Calories, 28), c.Same(&L::Track_Index, 30);
    c.in.Unused = 7, c.Put(31, std::uint8_t{0});  // the unused byte goes out as 0
}}};

const Models<cFlightbook_Record> kFlights{{"D650", [](Carry<cFlightbook_Record>& c) {
    using F = cFlightbook_Record;
    c.Time(&F::Takeoff_Seconds, &F::Takeoff_Time, 0), c.Time(&F::Landing_Seconds, &F::Landing_Time, 4);
    c.Position(&F::Takeoff_Lat, 8), c.Position(&F::Takeoff_Lon, 12), c.Position(&F::Landing_Lat, 16);
    c.Position(&F::Landing_Lon, 20), c.Same(&F::Night_Time, 24), c.Same(&F::Num_Landings, 28);
    c.Same(&F::Max_Speed, 32), c.Same(&F::Max_Alt, 36), c.Same(&F::Distance, 40), c.Same(&F::Cross_Country, 44);
    c.Texts(45, {&F::Departure_Airport_Name, &F::Departure_Airport_Ident, &F::Arrival_Airport_Name,
                 &F::Arrival_Airport_Ident, &F::Aircraft_ID});
}}};

using Run = Carry<cRun>;
void Run_Tail(Run& c, int at) {
    c.Same(&cRun::Partner_Time, at), c.Same(&cRun::Partner_Distance, at + 4), c.Block(&cRun::Workout, at + 8, 661);
}
void Run_Wide(Run& c, bool d1010) {
    c.Same(&cRun::Track_Index, 0), c.Same(&cRun::First_Lap_Index, 4), c.Same(&cRun::Last_Lap_Index, 8);
    c.Same(&cRun::Sport_Type, 12), c.Same(&cRun::Program_Type, 13);
    d1010 ? (c.Same(&cRun::Multisport, 14), c.Same(&cRun::Unused1, 15)) : c.Same(&cRun::Unused2, 14);
    Run_Tail(c, 16);
}
const Models<cRun> kRuns{
    {"D1000", [](Run& c) { Run_Wide(c, false); }},
    {"D1010", [](Run& c) { Run_Wide(c, true); }},
    {"D1009", [](Run& c) {  // 16-bit indices; 0xFFFF, no track, reads as the wide mark
         c.Narrow<std::uint16_t>(&cRun::Track_Index, 0), c.Narrow<std::uint16_t>(&cRun::First_Lap_Index, 2);
         if (c.in.Track_Index == 0xFFFF) c.out.Track_Index = kNo_Track;
         c.Narrow<std::uint16_t>(&cRun::Last_Lap_Index, 4), c.Same(&cRun::Sport_Type, 6);
         c.Same(&cRun::Program_Type, 7), c.Same(&cRun::Multisport, 8), c.Same(&cRun::Unused1, 9);
         c.Same(&cRun::Unused2, 10), Run_Tail(c, 12);
     }},
};

using FL = cFitness_Lap;
void Lap_Body(Carry<FL>& c) {
    c.Same(&FL::Start_Time, 4), c.Same(&FL::Total_Time, 8), c.Same(&FL::Total_Dist, 12), c.Same(&FL::Max_Speed, 16);
    c.Marked(&FL::Begin_Lat, 20), c.Marked(&FL::Begin_Lon, 24), c.Marked(&FL::End_Lat, 28);
    c.Marked(&FL::End_Lon, 32), c.Same(&FL::Calories, 36), c.Same(&FL::Avg_Heart_Rate, 38);
    c.Same(&FL::Max_Heart_Rate, 39), c.Same(&FL::Intensity, 40);
}
void D1011(Carry<FL>& c) {
    c.Narrow<std::uint16_t>(&FL::Index, 0), c.Same(&FL::Unused, 2), Lap_Body(c);
    c.Same(&FL::Avg_Cadence, 41), c.Same(&FL::Trigger_Method, 42);
}
const Models<FL> kFitness_Laps{
    {"D1001", [](Carry<FL>& c) { c.Same(&FL::Index, 0), Lap_Body(c); }},  // no cadence: none
    {"D1011", D1011},
    {"D1015", [](Carry<FL>& c) { D1011(c), c.Block(&FL::Extra, 43, 5); }},
};

using FP = cFitness_Point;
void Point_Head(Carry<FP>& c) {
    c.Marked(&FP::Lat, 0), c.Marked(&FP::Lon, 4), c.Same(&FP::Time, 8), c.Same(&FP::Alt, 12);
}
const Models<FP> kFitness_Points{
    {"D303", [](Carry<FP>& c) { Point_Head(c), c.Same(&FP::Heart_Rate, 16); }},  // no distance, no cadence: none
    {"D304", [](Carry<FP>& c) {
         Point_Head(c), c.Same(&FP::Distance, 16), c.Same(&FP::Heart_Rate, 20), c.Same(&FP::Cadence, 21);
         c.Same(&FP::Sensor, 22);
     }},
};

const Models<cCourse> kCourses{{"D1006", [](Carry<cCourse>& c) {
    c.Same(&cCourse::Index, 0), c.Same(&cCourse::Unused, 2), c.Name(&cCourse::Course_Name, 4, 16);
    c.Same(&cCourse::Track_Index, 20);
}}};
const Models<cCourse_Lap> kCourse_Laps{{"D1007", [](Carry<cCourse_Lap>& c) {
    using L = cCourse_Lap;
    c.Same(&L::Course_Index, 0), c.Same(&L::Lap_Index, 2), c.Same(&L::Total_Time, 4), c.Same(&L::Total_Dist, 8);
    c.Marked(&L::Begin_Lat, 12), c.Marked(&L::Begin_Lon, 16), c.Marked(&L::End_Lat, 20), c.Marked(&L::End_Lon, 24);
    c.Same(&L::Avg_Heart_Rate, 28), c.Same(&L::Max_Heart_Rate, 29), c.Same(&L::Intensity, 30);
    c.Same(&L::Avg_Cadence, 31);
}}};
const Models<cCourse_Point> kCourse_Points{{"D1012", [](Carry<cCourse_Point>& c) {
    using P = cCourse_Point;
    c.Name(&P::Name, 0, 11), c.Same(&P::Unused1, 11), c.Same(&P::Course_Index, 12), c.Same(&P::Unused2, 14);
    c.Same(&P::Track_Point_Time, 16), c.Same(&P::Point_Type, 20);
}}};
const Models<cCourse_Limits> kCourse_Limits{{"D1013", [](Carry<cCourse_Limits>& c) {
    using L = cCourse_Limits;
    c.Same(&L::Max_Courses, 0), c.Same(&L::Max_Course_Laps, 4), c.Same(&L::Max_Course_Pnt, 8);
    c.Same(&L::Max_Course_Trk_Pnt, 12);
}}};

}  // namespace

TEST(RecordCodecs, EveryRecordComesBackWithEachFieldAtItsOffsetAndAnyPrefixDecodesSafely) {
    Rng rng;
    Check_Formats(kWaypoints, rng), Check_Formats(kRoutes, rng), Check_Formats(kTracks, rng);
    Check_Formats(kAlmanacs, rng), Check_Formats(kLaps, rng), Check_Formats(kFlights, rng);
    Check_Formats(kRuns, rng), Check_Formats(kFitness_Laps, rng), Check_Formats(kFitness_Points, rng);
    Check_Formats(kCourses, rng), Check_Formats(kCourse_Laps, rng), Check_Formats(kCourse_Points, rng);
    Check_Formats(kCourse_Limits, rng);
}

// Unknown formats, and bytes only a receiver sends.
TEST(RecordCodecs, OddDataDecodesAsItAlwaysHas) {
    const Bytes data(64, 0x41);  // D319 is an unknown track header, D399 an unknown point
    EXPECT_FALSE(Encode(W{}, "D999") || Encode(cRoute{}, "D299") || Encode(cTrack{}, "D319") ||
                 Encode(cTrack{}, "D399") || Encode(cAlmanac{}, "D599"));
    EXPECT_EQ(Differences(Decode<W>(data, "D999"), W{}) + Differences(Decode<cTrack>(data, "D319"), cTrack{}) +
                  Differences(Decode<cTrack>(data, "D399"), kCurrent), "");
    cAlmanac almanac{.wn = 7};
    Decode_Almanac(data, "D599", almanac);
    EXPECT_EQ(almanac.wn, 7);
    EXPECT_FALSE(Decode_Track_Point(Bytes(13, 0xFF), "D300", kCurrent).New_Segment);  // only a 1 starts a segment
    // A text with no NUL after it is left empty, and so are the texts after it.
    const std::string wire = std::string(45, '\0') + "LAX" + '\0' + "SFO";
    const auto texts = Decode_Flightbook(Bytes(wire.begin(), wire.end()));
    EXPECT_EQ(texts.Departure_Airport_Name + "|" + texts.Departure_Airport_Ident, "LAX|");
}

TEST(RecordCodecs, ValuesWithoutAWireFormAreOverflowErrors) {
    const auto refused = [](const char* format, auto field, auto value) {
        W w;
        w.*field = value;
        EXPECT_THROW(Encode_Waypoint(w, format, kWpt, false), Overflow_Error) << format << " " << Print(value);
    };
    for (double bad : {180.0, -180.001, std::nan("")}) refused("D100", &W::Lat, bad);
    for (std::int16_t bad : {-1, 256}) refused("D103", &W::Smbl, bad);
    for (float bad : {32767.5f, -32769.0f, std::nanf("")}) refused("D150", &W::Alt, bad);
    refused("D109", &W::Dspl, std::int16_t{8});  // 32 x 8 does not fit the colour-and-display byte
    // Texts fill a packet to 255 data bytes and no further.
    const W longest = [] { W w; w.Address = std::string(255 - 62 - 6, 'A'); return w; }();
    EXPECT_EQ(Decode_Waypoint(Encode_Waypoint(longest, "D110", kWpt, false)->data, "D110").Address, longest.Address);
    refused("D110", &W::Address, longest.Address + 'A');
}

TEST(RecordCodecs, EachWaypointJoinsTheLastRouteIfItHasACollection) {
    Collection<cRoute> routes;
    Join_Last_Route(routes, std::make_shared<W>());  // no route: nothing to join
    for (int k = 0; k < 2; ++k) routes.Add(std::make_shared<cRoute>(Decode_Route_Header(Bytes{1}, "D200")));
    routes.Add(std::make_shared<cRoute>());  // a host's route, without a collection: skipped
    Join_Last_Route(routes, std::make_shared<W>());
    routes.Remove(3), Join_Last_Route(routes, std::make_shared<W>());
    EXPECT_EQ(routes.Item(1)->Waypoints->Count(), 0);
    EXPECT_EQ(routes.Item(2)->Waypoints->Count(), 1);
}
