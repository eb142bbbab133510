// JSON files of record sets. Each record class has one table of its fields,
// which both writes a record and reads it back, so what `get --json` saves
// is exactly what `put` restores.
#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <optional>
#include <sstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "files.h"

namespace trekcom::tool {

namespace {

using nlohmann::json;

// What is wrong with a value, named by its place in the file ("waypoints[2].Lat").
struct Bad_Value {
    std::string what;
};

template <typename T>
T Number_In(const json& v, const std::string& where) {
    if constexpr (std::is_same_v<T, bool>) {
        if (!v.is_boolean()) throw Bad_Value{where + " is not true or false"};
        return v.get<bool>();
    } else if constexpr (std::is_integral_v<T>) {
        if (!v.is_number_integer()) throw Bad_Value{where + " is not a whole number"};
        const bool fits = v.is_number_unsigned()
                              ? v.get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<T>::max())
                              : v.get<std::int64_t>() >= std::numeric_limits<T>::min() &&
                                    v.get<std::int64_t>() <= std::numeric_limits<T>::max();
        if (!fits) throw Bad_Value{where + " " + v.dump() + " does not fit its field"};
        return static_cast<T>(v.get<std::int64_t>());
    } else {
        if (!v.is_number() || !std::isfinite(v.get<double>())) throw Bad_Value{where + " is not a number"};
        return static_cast<T>(v.get<double>());
    }
}

// One field of a record: how it goes into a file and how it comes back.
// A field a file leaves out keeps the value `Field::absent` gives it.
template <typename R>
struct Field {
    const char* name;
    std::function<void(const R&, json&)> put;
    std::function<void(const json&, const std::string& where, R&)> get;  // null: written only
    std::function<void(R&)> absent;                                       // null: left as it is
};

template <typename R, typename T>
Field<R> Plain(const char* name, T R::*m) {
    return {name, [=](const R& r, json& j) { j[name] = r.*m; },
            [=](const json& v, const std::string& where, R& r) {
                if constexpr (std::is_same_v<T, std::string>) {
                    if (!v.is_string()) throw Bad_Value{where + " is not text"};
                    r.*m = v.get<std::string>();
                } else {
                    r.*m = Number_In<T>(v, where);
                }
            },
            nullptr};
}

// Text that files leave out when it is empty.
template <typename R>
Field<R> Text(const char* name, std::string R::*m) {
    Field<R> f = Plain(name, m);
    f.put = [=](const R& r, json& j) {
        if (!(r.*m).empty()) j[name] = r.*m;
    };
    return f;
}

// Degrees of latitude (limit 90) or longitude (limit 180).
template <typename R>
Field<R> Angle(const char* name, double R::*m, double limit) {
    Field<R> f = Plain(name, m);
    f.get = [=](const json& v, const std::string& where, R& r) {
        const double d = Number_In<double>(v, where);
        if (d < -limit || d > limit) throw Bad_Value{where + " " + v.dump() + " is outside its range"};
        r.*m = d;
    };
    return f;
}

// A float the receiver may mark as having no value: left out of files then.
template <typename R>
Field<R> Measure(const char* name, float R::*m) {
    return {name, [=](const R& r, json& j) {
                if (Has_Value(r.*m)) j[name] = r.*m;
            },
            [=](const json& v, const std::string& where, R& r) {
                const float x = Number_In<float>(v, where);
                if (!Has_Value(x)) throw Bad_Value{where + " " + v.dump() + " is out of range"};
                r.*m = x;
            },
            [=](R& r) { r.*m = kNo_Value; }};
}

// A time field as ISO 8601 text. An optional one is left out when it holds
// no time; one that is always written keeps whatever the field held.
template <typename R>
Field<R> Time(const char* name, std::int32_t R::*m, bool optional) {
    return {name, [=](const R& r, json& j) {
                if (!optional || Has_Time(r.*m)) j[name] = Record_Iso_Time(r.*m);
            },
            [=](const json& v, const std::string& where, R& r) {
                // A plain value, not the optional itself: g++ 12 at -Os misjudges
                // the optional as maybe uninitialized.
                constexpr std::int64_t kNot_A_Time = std::numeric_limits<std::int64_t>::min();
                const std::int64_t t = v.is_string() ? Parse_Iso_Time(v.get<std::string>()).value_or(kNot_A_Time)
                                                     : kNot_A_Time;
                if (t == kNot_A_Time) throw Bad_Value{where + " is not an ISO 8601 time"};
                // The receiver counts unsigned seconds from its epoch.
                if (t < 0 || t > 0xFFFFFFFFLL) throw Bad_Value{where + " " + v.dump() + " is before 1990 or after 2126"};
                r.*m = static_cast<std::int32_t>(static_cast<std::uint32_t>(t));
            },
            [=](R& r) {
                if (optional) r.*m = kNo_Time;
            }};
}

const std::vector<Field<cWaypoint>>& Waypoint_Fields() {
    using W = cWaypoint;
    static const std::vector<Field<W>> fields = [] {
        std::vector<Field<W>> f = {
            Plain("Ident", &W::Ident),         Angle("Lat", &W::Lat, 90),       Angle("Lon", &W::Lon, 180),
            Plain("Cmnt", &W::Cmnt),           Plain("Smbl", &W::Smbl),         Plain("Dspl", &W::Dspl),
            Plain("Color", &W::Color),         Plain("Wpt_Class", &W::Wpt_Class), Plain("Attrib", &W::Attrib),
            Plain("Prox_Index", &W::Prox_Index), Plain("Wpt_Category", &W::Wpt_Category),
            Measure("Alt", &W::Alt),           Measure("Dpth", &W::Dpth),       Measure("Dist", &W::Dist),
            Measure("Temp", &W::Temp),         Time("Time", &W::Time_Seconds, true),
            Text("Facility", &W::Facility),    Text("City", &W::City),          Text("State", &W::State),
            Text("Country", &W::Country),      Text("Address", &W::Address),    Text("Cross_Road", &W::Cross_Road),
            Text("Link", &W::Link)};
        // For people reading the file: the symbol's name. Smbl is what is read back.
        f.push_back({"Symbol", [](const W& w, json& j) { j["Symbol"] = Symbol_Name(w.Smbl); }, nullptr, nullptr});
        return f;
    }();
    return fields;
}

const std::vector<Field<cRoute>>& Route_Fields() {
    static const std::vector<Field<cRoute>> fields = {Plain("Number", &cRoute::Number), Plain("Ident", &cRoute::Ident),
                                                      Plain("Cmnt", &cRoute::Cmnt)};
    return fields;
}

const std::vector<Field<cTrack>>& Track_Header_Fields() {
    using T = cTrack;
    static const std::vector<Field<T>> fields = {Plain("Ident", &T::Ident), Plain("Color", &T::Color),
                                                 Plain("Dspl", &T::Dspl), Plain("Index", &T::Index)};
    return fields;
}

const std::vector<Field<cTrack>>& Track_Point_Fields() {
    using T = cTrack;
    static const std::vector<Field<T>> fields = {
        Angle("Lat", &T::Lat, 90),  Angle("Lon", &T::Lon, 180), Plain("New_Segment", &T::New_Segment),
        Measure("Alt", &T::Alt),    Measure("Dpth", &T::Dpth),   Measure("Temp", &T::Temp),
        Time("Time", &T::Seconds, true)};
    return fields;
}

const std::vector<Field<cLap>>& Lap_Fields() {
    using L = cLap;
    static const std::vector<Field<L>> fields = {
        Time("Start_Time", &L::Start_Time_Seconds, false), Plain("Total_Time", &L::Total_Time),
        Plain("Total_Distance", &L::Total_Distance),        Angle("Begin_Lat", &L::Begin_Lat, 90),
        Angle("Begin_Lon", &L::Begin_Lon, 180),             Angle("End_Lat", &L::End_Lat, 90),
        Angle("End_Lon", &L::End_Lon, 180),                 Plain("Calories", &L::Calories),
        Plain("Track_Index", &L::Track_Index)};
    return fields;
}

const std::vector<Field<cFlightbook_Record>>& Flight_Fields() {
    using F = cFlightbook_Record;
    static const std::vector<Field<F>> fields = {
        Time("Takeoff_Time", &F::Takeoff_Seconds, false),
        Time("Landing_Time", &F::Landing_Seconds, false),
        Angle("Takeoff_Lat", &F::Takeoff_Lat, 90),
        Angle("Takeoff_Lon", &F::Takeoff_Lon, 180),
        Angle("Landing_Lat", &F::Landing_Lat, 90),
        Angle("Landing_Lon", &F::Landing_Lon, 180),
        Plain("Night_Time", &F::Night_Time),
        Plain("Num_Landings", &F::Num_Landings),
        Plain("Max_Speed", &F::Max_Speed),
        Plain("Max_Alt", &F::Max_Alt),
        Plain("Distance", &F::Distance),
        Plain("Cross_Country", &F::Cross_Country),
        Plain("Departure_Airport_Name", &F::Departure_Airport_Name),
        Plain("Departure_Airport_Ident", &F::Departure_Airport_Ident),
        Plain("Arrival_Airport_Name", &F::Arrival_Airport_Name),
        Plain("Arrival_Airport_Ident", &F::Arrival_Airport_Ident),
        Plain("Aircraft_ID", &F::Aircraft_ID)};
    return fields;
}

const std::vector<Field<cAlmanac>>& Almanac_Fields() {
    using A = cAlmanac;
    static const std::vector<Field<A>> fields = {
        Plain("svid", &A::svid), Plain("wn", &A::wn),     Plain("toa", &A::toa),   Plain("af0", &A::af0),
        Plain("af1", &A::af1),   Plain("e", &A::e),       Plain("sqrta", &A::sqrta), Plain("m0", &A::m0),
        Plain("w", &A::w),       Plain("omg0", &A::omg0), Plain("odot", &A::odot), Plain("i", &A::i),
        Plain("hlth", &A::hlth)};
    return fields;
}

template <typename R>
json Write(const R& r, const std::vector<Field<R>>& fields) {
    json j = json::object();
    for (const auto& f : fields) f.put(r, j);
    return j;
}

// Fields a record object lacks keep their "absent" value; names the table
// does not know are left alone, so a file may carry notes of its own.
template <typename R>
void Read(const json& j, const std::string& where, const std::vector<Field<R>>& fields, R& r) {
    if (!j.is_object()) throw Bad_Value{where + " is not an object"};
    for (const auto& f : fields) {
        if (!f.get) continue;
        const auto it = j.find(f.name);
        if (it != j.end())
            f.get(*it, where + "." + f.name, r);
        else if (f.absent)
            f.absent(r);
    }
}

const json& Array_In(const json& j, const char* name, const std::string& where) {
    static const json empty = json::array();
    const auto it = j.find(name);
    if (it == j.end()) return empty;
    if (!it->is_array()) throw Bad_Value{where + name + " is not a list"};
    return *it;
}

// Reads each element of the list `name` with read(element, "name[i]").
template <typename F>
void Each(const json& j, const char* name, const std::string& where, F read) {
    const json& list = Array_In(j, name, where);
    for (std::size_t i = 0; i < list.size(); ++i) read(list[i], where + name + "[" + std::to_string(i) + "]");
}

// A waypoint as the GPX reader makes one, before the file's fields apply.
cWaypoint Blank_Waypoint() {
    cWaypoint w;
    w.Smbl = 18;
    w.Color = 0xFF;
    w.Ete = -1;
    return w;
}

void Read_Set(const json& j, Data& out) {
    if (!j.is_object()) throw Bad_Value{"the file is not a JSON object"};
    if (const auto it = j.find("source"); it != j.end() && it->is_string()) out.source = it->get<std::string>();
    for (Kind k : kAll_Kinds)
        if (j.contains(std::string(Kind_Name(k)))) out.kinds.push_back(k);
    for (const auto& [name, list] : {std::pair{"waypoints", &out.waypoints}, {"proximity", &out.proximity}}) {
        std::vector<cWaypoint>& into = *list;
        Each(j, name, "", [&](const json& e, const std::string& where) {
            cWaypoint w = Blank_Waypoint();
            Read(e, where, Waypoint_Fields(), w);
            into.push_back(std::move(w));
        });
    }
    Each(j, "routes", "", [&](const json& e, const std::string& where) {
        Route_Data r;
        Read(e, where, Route_Fields(), r.header);
        Each(e, "Waypoints", where + ".", [&](const json& p, const std::string& at) {
            cWaypoint w = Blank_Waypoint();
            Read(p, at, Waypoint_Fields(), w);
            r.points.push_back(std::move(w));
        });
        out.routes.push_back(std::move(r));
    });
    Each(j, "tracks", "", [&](const json& e, const std::string& where) {
        Track_Data t;
        t.header.Dspl = true;
        t.header.Color = 0xFF;
        Read(e, where, Track_Header_Fields(), t.header);
        Each(e, "Points", where + ".", [&](const json& p, const std::string& at) {
            cTrack point;
            Read(p, at, Track_Point_Fields(), point);
            t.points.push_back(std::move(point));
        });
        out.tracks.push_back(std::move(t));
    });
    Each(j, "laps", "", [&](const json& e, const std::string& where) {
        Read(e, where, Lap_Fields(), out.laps.emplace_back());
    });
    Each(j, "flightbook", "", [&](const json& e, const std::string& where) {
        Read(e, where, Flight_Fields(), out.flights.emplace_back());
    });
    Each(j, "almanac", "", [&](const json& e, const std::string& where) {
        Read(e, where, Almanac_Fields(), out.almanac.emplace_back());
    });
}

// Text from a receiver is not always valid UTF-8: what is not is replaced.
std::string Dump(const json& j) { return j.dump(2, ' ', false, json::error_handler_t::replace); }

// JSON written as the records come, laid out as a whole document dumped
// with an indent of two: each record is dumped on its own and indented to
// its place; the lists that hold records are written around them.
class Json_Stream : public Record_Writer {
public:
    explicit Json_Stream(std::ostream& out) : out_(out) {}

    void Begin(const std::string& source) override {
        out_ << '{';
        if (!source.empty()) Key("source", Dump(json(source)));
    }
    void Begin_Kind(Kind k) override {
        kind_ = k;
        Key(std::string(Kind_Name(k)), "[");
        list_.emplace(1);
    }
    void Waypoint(const cWaypoint& w) override {
        if (kind_ == Kind::Routes) {
            if (!inner_) Route(cRoute{});
            return Item(*inner_, Write(w, Waypoint_Fields()));
        }
        Item(*list_, Write(w, Waypoint_Fields()));
    }
    void Route(const cRoute& header) override { Holder(Write(header, Route_Fields()), "Waypoints"); }
    void Track(const cTrack& header) override { Holder(Write(header, Track_Header_Fields()), "Points"); }
    void Track_Point(const cTrack& p) override {
        if (!inner_) Track(cTrack{});
        Item(*inner_, Write(p, Track_Point_Fields()));
    }
    void Lap(const cLap& l) override { Item(*list_, Write(l, Lap_Fields())); }
    void Flight(const cFlightbook_Record& f) override { Item(*list_, Write(f, Flight_Fields())); }
    void Almanac(const cAlmanac& a) override { Item(*list_, Write(a, Almanac_Fields())); }
    void End_Kind(Kind) override {
        Close_Holder();
        if (list_) Close(*list_);
        list_.reset();
    }
    void Finish() override {
        End_Kind(kind_);
        out_ << (keys_ ? "\n}\n" : "}\n");
        out_.flush();
    }

private:
    // A list being written: its depth and whether it has an item yet.
    struct List {
        explicit List(int depth) : depth(depth) {}
        int depth;
        bool empty = true;
    };

    void Key(const std::string& name, const std::string& value) {
        out_ << (keys_++ ? ",\n  " : "\n  ") << json(name).dump() << ": " << value;
    }
    // One record dumped and indented to the list's depth.
    void Item(List& list, const json& record) {
        out_ << (list.empty ? "\n" : ",\n") << Indented(Dump(record), list.depth + 1);
        list.empty = false;
    }
    void Close(const List& list) {
        if (list.empty)
            out_ << ']';
        else
            out_ << '\n' << std::string(2 * static_cast<std::size_t>(list.depth), ' ') << ']';
    }
    // A route or track: its header's fields, then the list of its points
    // (whose name sorts after every field, as a dumped object would place it).
    void Holder(const json& header, const char* list_name) {
        Close_Holder();
        std::string text = Indented(Dump(header), list_->depth + 1);
        text.resize(text.rfind('\n'));  // the closing brace comes after the points
        out_ << (list_->empty ? "\n" : ",\n") << text << ",\n"
             << std::string(2 * static_cast<std::size_t>(list_->depth + 2), ' ') << '"' << list_name << "\": [";
        list_->empty = false;
        inner_.emplace(list_->depth + 2);
    }
    void Close_Holder() {
        if (!inner_) return;
        Close(*inner_);
        out_ << '\n' << std::string(2 * static_cast<std::size_t>(list_->depth + 1), ' ') << '}';
        inner_.reset();
    }
    static std::string Indented(const std::string& text, int depth) {
        const std::string pad(2 * static_cast<std::size_t>(depth), ' ');
        std::string out = pad;
        for (char c : text) {
            out += c;
            if (c == '\n') out += pad;
        }
        return out;
    }

    std::ostream& out_;
    Kind kind_ = Kind::Waypoints;
    int keys_ = 0;
    std::optional<List> list_;   // the kind's list
    std::optional<List> inner_;  // the current route's waypoints or track's points
};

}  // namespace

std::unique_ptr<Record_Writer> Json_Writer(std::ostream& out) { return std::make_unique<Json_Stream>(out); }

std::string Json_Text(const Data& data) {
    std::ostringstream os;
    Write_Set(data, *Json_Writer(os));
    return os.str();
}

bool Parse_Json(const std::string& text, const std::string& name, Data& out, std::string& error) {
    json j;
    try {
        j = json::parse(text);
    } catch (const json::parse_error& e) {
        error = name + ": not valid JSON: " + e.what();
        return false;
    }
    Data read;
    try {
        Read_Set(j, read);
    } catch (const Bad_Value& e) {
        error = name + ": " + e.what;
        return false;
    }
    out = std::move(read);
    return true;
}

bool Read_Records(const std::string& path, Data& out, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = path + ": cannot be read";
        return false;
    }
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    // A JSON set is an object; GPX starts with markup.
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && text[first] == '{') return Parse_Json(text, path, out, error);
    return Parse_Gpx(text, path, out, error);
}

}  // namespace trekcom::tool
