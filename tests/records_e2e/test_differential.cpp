// The control against the simulated unit on random data: every kind of
// record each unit profile serves comes down through the control, over a
// serial line and over USB, exactly as the unit's layouts carry it, and goes
// back up, one Send_* per record, to be read back from the unit. The two
// sides are separate readings of the protocol, so a layout, framing or
// transfer mistake in either shows up against the other.
//
// The data is awkward on purpose: bytes 16 and 3 in texts, positions and
// floats (so the serial frames are thick with stuffed DLEs, often right
// before a 3), positions at the edges of the globe, texts at and past their
// field lengths, and sets of every size from none. A failure prints its seed;
// TREKCOM_SEED=<n> replays that one set alone.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>

#include "support/host_fixture.h"
#include "support/scratch.h"
#include "trekcom/trekcom.h"
#include "trekcom_sim/unit.h"
#include "usb/sim_usb_driver.h"

// Records print as the simulator's JSON, so a failure shows the fields.
namespace trekcom::sim {
template <typename T>
void Print_Record(std::vector<T> Data_Set::*list, const T& record, std::ostream* os) {
    Data_Set d;
    (d.*list).push_back(record);
    *os << To_Json(d);
}
inline void PrintTo(const Waypoint& w, std::ostream* os) { Print_Record(&Data_Set::waypoints, w, os); }
inline void PrintTo(const Route& r, std::ostream* os) { Print_Record(&Data_Set::routes, r, os); }
inline void PrintTo(const Track& t, std::ostream* os) { Print_Record(&Data_Set::tracks, t, os); }
inline void PrintTo(const Almanac& a, std::ostream* os) { Print_Record(&Data_Set::almanac, a, os); }
inline void PrintTo(const Lap& l, std::ostream* os) { Print_Record(&Data_Set::laps, l, os); }
inline void PrintTo(const Flight& f, std::ostream* os) { Print_Record(&Data_Set::flights, f, os); }
inline void PrintTo(const Track_Point& p, std::ostream* os) { PrintTo(Track{"", 0, false, 0, {p}}, os); }
}  // namespace trekcom::sim

namespace trekcom::testing {
namespace {

using sim::Data_Set;

// ---------------------------------------------------------------- random data sets

class Generator {
public:
    explicit Generator(std::uint32_t seed) : rng_(seed) {}

    std::uint32_t Below(std::uint32_t n) { return n ? rng_() % n : 0; }
    bool One_In(std::uint32_t n) { return Below(n) == 0; }

    // Four bytes, often holding a run of 16s before a 3 (or a 3 before 16s).
    std::uint32_t Awkward_Word() {
        static const std::vector<Bytes> runs = {{16, 3}, {16, 16, 3}, {16, 16, 16, 3}, {3, 16, 16}, {16, 16, 16, 16}};
        Bytes b(4);
        for (auto& x : b) x = static_cast<std::uint8_t>(rng_());
        if (!One_In(4)) {
            const Bytes& run = runs[Below(static_cast<std::uint32_t>(runs.size()))];
            std::copy(run.begin(), run.end(), b.begin() + Below(static_cast<std::uint32_t>(5 - run.size())));
        }
        return b[0] | b[1] << 8 | b[2] << 16 | std::uint32_t{b[3]} << 24;
    }
    // Semicircles within |limit| degrees, often at or next to an edge.
    std::int32_t Position(bool latitude) {
        const std::int64_t max = latitude ? (std::int64_t{1} << 30) : (std::int64_t{1} << 31) - 1;
        const std::int64_t min = latitude ? -max : -(std::int64_t{1} << 31);
        switch (Below(6)) {
            case 0: return static_cast<std::int32_t>(One_In(2) ? max : min);
            case 1: return static_cast<std::int32_t>(One_In(2) ? max - 1 : min + 1);
            case 2: return static_cast<std::int32_t>(Below(3)) - 1;
            default: {
                const std::int64_t v = static_cast<std::int32_t>(Awkward_Word());
                return static_cast<std::int32_t>(latitude ? v / 2 : v);
            }
        }
    }
    // A float whose bytes are awkward, never NaN or infinite; sometimes the
    // unit's "no value".
    float Value() {
        if (One_In(5)) return sim::kNoValue;
        for (;;) {
            const std::uint32_t w = Awkward_Word();
            float f;
            std::memcpy(&f, &w, 4);
            if (std::isfinite(f)) return f;
        }
    }
    std::uint32_t Time() { return One_In(5) ? sim::kNoTime : Awkward_Word(); }
    // Upper-case text (what every layout carries), thick with 16s and 3s;
    // often exactly the field length fits, sometimes past it.
    std::string Text(std::size_t field) {
        static const std::string chars = "\x10\x03\x10\x03" "ABCXYZ0189 -";
        std::size_t n;
        switch (Below(4)) {
            case 0: n = 0; break;
            case 1: n = field; break;
            case 2: n = field + 1 + Below(4); break;
            default: n = 1 + Below(static_cast<std::uint32_t>(field)); break;
        }
        std::string s;
        for (std::size_t i = 0; i < n; ++i) s += chars[Below(static_cast<std::uint32_t>(chars.size()))];
        // Fixed fields are padded with spaces, and the control trims them
        // from both ends: a space is data only between other characters.
        if (!s.empty() && s.front() == ' ') s.front() = '-';
        if (!s.empty() && s.back() == ' ') s.back() = '-';
        return s;
    }
    template <typename T>
    T Any() {
        return static_cast<T>(Awkward_Word());
    }

    sim::Waypoint Waypoint() {
        // Classes below 127 send no subclass.
        return {Text(Below(2) ? 6 : 16), Position(true), Position(false), Text(40), Text(One_In(2) ? 30 : 8),
                Text(24), Text(2), Text(2), Text(20), Text(20), "", Value(), Value(), Value(), Value(),
                Any<std::int16_t>(), static_cast<std::uint8_t>(Below(127)), Any<std::uint8_t>(),
                Any<std::uint8_t>(), Any<std::uint8_t>(), sim::Default_Subclass(), Awkward_Word(), Time(),
                Any<std::uint16_t>(), Any<std::int16_t>(), Awkward_Word()};
    }

    // Awkward values in every fitness field but the times and indices that tie runs, laps and tracks together.
    void Stir(Data_Set& d) {
        const auto place = [&](std::int32_t& lat, std::int32_t& lon) {
            lat = One_In(6) ? 0x7FFFFFFF : Position(true), lon = One_In(6) ? 0x7FFFFFFF : Position(false);
        };
        const auto name = [&](std::size_t width) { return Text(Below(2) ? width : width / 2).substr(0, width); };
        for (sim::Run& r : d.runs)
            r = {r.track_index, r.first_lap, r.last_lap, Any<std::uint8_t>(), Any<std::uint8_t>(), Any<std::uint8_t>(),
                 Awkward_Word(), Value(), name(16), Any<std::uint8_t>()};
        for (sim::Fitness_Lap& l : d.fitness_laps) {
            l.total_time = Awkward_Word(), l.total_dist = Value(), l.max_speed = Value(), place(l.begin_lat, l.begin_lon);
            place(l.end_lat, l.end_lon), l.calories = Any<std::uint16_t>(), l.avg_heart_rate = Any<std::uint8_t>();
            l.max_heart_rate = Any<std::uint8_t>(), l.avg_cadence = Any<std::uint8_t>(), l.extra[Below(5)] = 16;
        }
        for (auto* tracks : {&d.fitness_tracks, &d.course_tracks})
            for (sim::Fitness_Track& t : *tracks)
                for (sim::Fitness_Point& p : t.points)
                    place(p.lat, p.lon), p.alt = Value(), p.distance = Value(), p.heart_rate = Any<std::uint8_t>(),
                        p.cadence = Any<std::uint8_t>(), p.sensor = Any<std::uint8_t>();
        for (sim::Course& c : d.courses) c.name = name(16);
        for (sim::Course_Point& p : d.course_points) p.name = name(11), p.type = Any<std::uint8_t>();
        for (sim::Course_Lap& l : d.course_laps)
            l.total_dist = Value(), place(l.begin_lat, l.begin_lon), l.avg_cadence = Any<std::uint8_t>();
    }

    Data_Set Data() {
        Data_Set d;
        d.situation = sim::Builtin_Data().situation;
        d.almanac = sim::Builtin_Data().almanac;  // a whole set, to be filled
        for (std::uint32_t i = Below(25); i > 0; --i) d.waypoints.push_back(Waypoint());
        for (std::uint32_t i = Below(6); i > 0; --i) d.proximity.push_back(Waypoint());
        for (std::uint32_t i = Below(4); i > 0; --i) {
            sim::Route r{Any<std::uint8_t>(), Text(20), Text(20), {}, {}};
            for (std::uint32_t k = Below(6); k > 0; --k) r.points.push_back(Waypoint());
            // Every link of a route alike: an upload sends the route's one set
            // of link fields with each.
            const sim::Route_Link link{static_cast<std::uint16_t>(One_In(2) ? 3 : 255), sim::Default_Subclass(), Text(12)};
            if (r.points.size() > 1) r.links.assign(r.points.size() - 1, link);
            d.routes.push_back(r);
        }
        for (std::uint32_t i = Below(4); i > 0; --i) {
            sim::Track t{Text(One_In(2) ? 12 : 30), Any<std::uint8_t>(), One_In(2), Any<std::uint16_t>(), {}};
            for (std::uint32_t k = Below(40); k > 0; --k)
                t.points.push_back({Position(true), Position(false), Time(), Value(), Value(), Value(), One_In(8)});
            d.tracks.push_back(t);
        }
        for (sim::Almanac& a : d.almanac) {
            a.wn = Any<std::int16_t>();
            for (float* f : {&a.toa, &a.af0, &a.af1, &a.e, &a.sqrta, &a.m0, &a.w, &a.omg0, &a.odot, &a.i})
                *f = Value();
            a.hlth = Any<std::uint8_t>();
        }
        for (std::uint32_t i = Below(8); i > 0; --i)
            d.laps.push_back({Awkward_Word(), Awkward_Word(), Value(), Position(true), Position(false),
                              Position(true), Position(false), Any<std::uint16_t>(), Any<std::uint8_t>(),
                              Any<std::uint8_t>()});
        for (std::uint32_t i = Below(5); i > 0; --i)
            d.flights.push_back({Awkward_Word(), Awkward_Word(), Position(true), Position(false), Position(true),
                                 Position(false), Awkward_Word(), Awkward_Word(), Value(), Value(), Value(),
                                 One_In(2), Text(20), Text(6), Text(20), Text(6), Text(10)});
        return d;
    }

private:
    std::mt19937 rng_;
};

// ---------------------------------------------------------------- the control's records in the unit's terms

sim::Waypoint To_Sim(const cWaypoint& w) {
    return {w.Ident, sim::Deg_To_Semi(w.Lat), sim::Deg_To_Semi(w.Lon), w.Cmnt, w.Facility, w.City, w.State,
            w.Country, w.Address, w.Cross_Road, w.Link, w.Alt, w.Dpth, w.Dist, w.Temp, w.Smbl,
            static_cast<std::uint8_t>(w.Wpt_Class), static_cast<std::uint8_t>(w.Color),
            static_cast<std::uint8_t>(w.Dspl), static_cast<std::uint8_t>(w.Attrib), sim::Default_Subclass(),
            static_cast<std::uint32_t>(w.Ete), static_cast<std::uint32_t>(w.Time_Seconds),
            static_cast<std::uint16_t>(w.Wpt_Category), w.Prox_Index, static_cast<std::uint32_t>(w.Unused1)};
}

sim::Track_Point To_Sim(const cTrack& t) {
    return {sim::Deg_To_Semi(t.Lat), sim::Deg_To_Semi(t.Lon), static_cast<std::uint32_t>(t.Seconds), t.Alt, t.Dpth,
            t.Temp, t.New_Segment};
}

sim::Almanac To_Sim(const cAlmanac& a) {
    return {a.svid, a.wn, a.toa, a.af0, a.af1, a.e, a.sqrta, a.m0, a.w, a.omg0, a.odot, a.i,
            static_cast<std::uint8_t>(a.hlth)};
}

sim::Lap To_Sim(const cLap& l) {
    return {static_cast<std::uint32_t>(l.Start_Time_Seconds), static_cast<std::uint32_t>(l.Total_Time),
            l.Total_Distance, sim::Deg_To_Semi(l.Begin_Lat), sim::Deg_To_Semi(l.Begin_Lon),
            sim::Deg_To_Semi(l.End_Lat), sim::Deg_To_Semi(l.End_Lon), static_cast<std::uint16_t>(l.Calories),
            l.Track_Index, l.Unused};
}

sim::Flight To_Sim(const cFlightbook_Record& f) {
    return {static_cast<std::uint32_t>(f.Takeoff_Seconds), static_cast<std::uint32_t>(f.Landing_Seconds),
            sim::Deg_To_Semi(f.Takeoff_Lat), sim::Deg_To_Semi(f.Takeoff_Lon), sim::Deg_To_Semi(f.Landing_Lat),
            sim::Deg_To_Semi(f.Landing_Lon), static_cast<std::uint32_t>(f.Night_Time),
            static_cast<std::uint32_t>(f.Num_Landings), f.Max_Speed, f.Max_Alt, f.Distance, f.Cross_Country,
            f.Departure_Airport_Name, f.Departure_Airport_Ident, f.Arrival_Airport_Name, f.Arrival_Airport_Ident,
            f.Aircraft_ID};
}

std::int32_t Semi_Or_Mark(double degrees) { return std::isnan(degrees) ? 0x7FFFFFFF : sim::Deg_To_Semi(degrees); }

sim::Fitness_Point To_Sim(const cFitness_Point& p) {
    return {Semi_Or_Mark(p.Lat), Semi_Or_Mark(p.Lon), p.Time, p.Alt, p.Distance, p.Heart_Rate, p.Cadence, p.Sensor};
}
sim::Fitness_Lap To_Sim(const cFitness_Lap& l) {
    sim::Fitness_Lap s{l.Index, l.Start_Time, l.Total_Time, l.Total_Dist, l.Max_Speed, Semi_Or_Mark(l.Begin_Lat),
                       Semi_Or_Mark(l.Begin_Lon), Semi_Or_Mark(l.End_Lat), Semi_Or_Mark(l.End_Lon), l.Calories,
                       l.Avg_Heart_Rate, l.Max_Heart_Rate, l.Intensity, l.Avg_Cadence, l.Trigger_Method, {}};
    std::copy_n(l.Extra.begin(), std::min<std::size_t>(l.Extra.size(), 5), s.extra.begin());
    return s;
}
sim::Run To_Sim(const cRun& r) {  // the workout's name and sport lie at the end of its block
    const std::string name(r.Workout.begin() + std::min<std::size_t>(644, r.Workout.size()),
                           r.Workout.begin() + std::min<std::size_t>(660, r.Workout.size()));
    return {r.Track_Index, r.First_Lap_Index, r.Last_Lap_Index, r.Sport_Type, r.Program_Type, r.Multisport,
            r.Partner_Time, r.Partner_Distance, name.substr(0, name.find('\0')),
            r.Workout.size() > 660 ? r.Workout[660] : std::uint8_t{0}};
}
sim::Course To_Sim(const cCourse& c) { return {c.Index, c.Course_Name, c.Track_Index}; }
sim::Course_Lap To_Sim(const cCourse_Lap& l) {
    return {l.Course_Index, l.Lap_Index, l.Total_Time, l.Total_Dist, Semi_Or_Mark(l.Begin_Lat), Semi_Or_Mark(l.Begin_Lon),
            Semi_Or_Mark(l.End_Lat), Semi_Or_Mark(l.End_Lon), l.Avg_Heart_Rate, l.Max_Heart_Rate, l.Intensity,
            l.Avg_Cadence};
}
sim::Course_Point To_Sim(const cCourse_Point& p) { return {p.Name, p.Course_Index, p.Track_Point_Time, p.Point_Type}; }

template <typename T>
auto To_Sim(const Collection<T>& list) {
    std::vector<decltype(To_Sim(std::declval<const T&>()))> out;
    for (const auto& item : list) out.push_back(To_Sim(*item));
    return out;
}

std::size_t Points_Count(const std::vector<sim::Fitness_Track>& tracks) {
    std::size_t n = 0;
    for (const auto& t : tracks) n += t.points.size();
    return n;
}

bool Has_Track_Headers(const sim::Profile& p) { return p.track_protocol != 300 && p.track_header_type != 0; }

// An L002 unit known by the product table keeps the L001 proximity and
// route-waypoint ids and the L001 proximity command: the control cannot
// reach those records as the unit sends them.
bool Table_L002(const sim::Profile& p) { return p.link == 2 && !p.capability_array; }

// The control's track records (headers and points in arrival order) cut
// into tracks of the shape the unit sent.
std::vector<sim::Track> Tracks_Of(const Collection<cTrack>& list, const std::vector<sim::Track>& shape, bool headers) {
    std::vector<sim::Track> out;
    std::int32_t next = 1;
    for (const sim::Track& like : shape) {
        sim::Track t;
        if (headers && next <= list.Count()) {
            const cTrack& h = *list.Item(next++);
            t.ident = h.Ident;
            t.color = h.Color;
            t.display = h.Dspl;
            t.index = static_cast<std::uint16_t>(h.Index);
        }
        for (std::size_t i = 0; i < like.points.size() && next <= list.Count(); ++i) t.points.push_back(To_Sim(*list.Item(next++)));
        out.push_back(std::move(t));
    }
    EXPECT_EQ(next - 1, list.Count()) << "records the unit did not send";
    return out;
}

std::vector<sim::Track_Point> Points_Of(const std::vector<sim::Track>& tracks) {
    std::vector<sim::Track_Point> out;
    for (const auto& t : tracks) out.insert(out.end(), t.points.begin(), t.points.end());
    return out;
}

// What a unit of this profile reads from a data set: its layouts drop what
// they cannot carry, so the control's records compare field for field with
// the unit's own view once both have been through the layout.
Data_Set As_Unit_Reads(const sim::Profile& profile, Data_Set data) {
    return sim::Unit(profile, std::move(data)).Visible_Data();
}

// The float the control reads for af0 of a D550/D551 entry: four bytes from
// one before the field, the last byte of toa and the first three of af0.
float Af0_Read_Early(float toa, float af0) {
    std::uint8_t wire[8];
    std::memcpy(wire, &toa, 4);
    std::memcpy(wire + 4, &af0, 4);
    float read;
    std::memcpy(&read, wire + 3, 4);
    return read;
}


// Lists compared record by record: a failure names the first record that
// differs and shows both.
template <typename T>
void Expect_Same(const std::vector<T>& got, const std::vector<T>& want, const char* what) {
    EXPECT_EQ(got.size(), want.size()) << what;
    for (std::size_t i = 0; i < std::min(got.size(), want.size()); ++i)
        if (!(got[i] == want[i])) {
            ADD_FAILURE() << what << " #" << i << "\ngot:  " << ::testing::PrintToString(got[i])
                          << "\nwant: " << ::testing::PrintToString(want[i]);
            return;
        }
}

// ---------------------------------------------------------------- a control on either transport

struct Rig {
    Rig(const sim::Profile& profile, const Data_Set& data, bool over_usb) : profile(profile) {
        ctl.Advise(rec);
        ctl.Track_Point_True_Size(true);
        if (over_usb) {
            receiver = Plug_In(vp, profile);
            receiver->unit.Data() = data;
            unit = &receiver->unit;
            ctl.Port(0);
        } else {
            serial = std::make_shared<sim::Virtual_Unit>(profile, data);
            vp->Attach(1, serial);
            unit = &serial->Sim();
            EXPECT_TRUE(ctl.PortOpen());
        }
    }

    // One download to its end: its event, or for kinds that raise none, the
    // unit's transfer-complete packet.
    void Download(void (TrekcomCtl::*request)(), int Recorder::*event) {
        const int before = event ? rec.*event : 0;
        const std::size_t received = rec.received.size();
        (ctl.*request)();
        if (event) {
            ASSERT_TRUE(vp->Run_Until([&] { return rec.*event == before + 1; }, 600000));
        } else {
            vp->Run_Until([&] {
                for (std::size_t i = received; i < rec.received.size(); ++i)
                    if (rec.received[i].size() > 1 && rec.received[i][1] == ctl.PID_Xfer_Cmplt()) return true;
                return false;
            }, 600000);
        }
    }
    void Batch(std::size_t n, const std::function<void()>& sends) {
        std::int16_t count = static_cast<std::int16_t>(n);
        ctl.Start_of_Records(count);
        sends();
        ctl.End_of_Records();
    }

    sim::Profile profile;
    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    std::shared_ptr<Sim_Usb_Receiver> receiver;
    std::shared_ptr<sim::Virtual_Unit> serial;
    sim::Unit* unit = nullptr;
    TrekcomCtl ctl{vp};
    Recorder rec;
};

// Downloads every kind, checks each against the unit, uploads what came and
// checks what the unit stored.
void Round_Trip(Rig& r) {
    const sim::Profile& p = r.profile;
    TrekcomCtl& ctl = r.ctl;
    const Data_Set visible = r.unit->Visible_Data();
    Data_Set got;

    // The counts first: packets of each kind, -1 for a kind the unit lacks.
    ctl.Request_Counts();
    std::size_t route_packets = 0, track_packets = 0;
    for (const auto& route : visible.routes)
        route_packets += 1 + route.points.size() + (p.route_link_type ? route.links.size() : 0);
    for (const auto& t : visible.tracks) track_packets += Has_Track_Headers(p) + t.points.size();
    ASSERT_EQ(r.rec.counts.size(), 1u);
    const Recorder::Counts& c = r.rec.counts[0];
    EXPECT_EQ(c.w, static_cast<std::int16_t>(visible.waypoints.size()));
    EXPECT_EQ(c.p, p.proximity_protocol && !Table_L002(p) ? static_cast<std::int16_t>(visible.proximity.size()) : -1);
    EXPECT_EQ(c.r, static_cast<std::int16_t>(route_packets));
    EXPECT_EQ(c.t, p.track_protocol ? static_cast<std::int16_t>(track_packets) : -1);
    r.rec.errors.clear();  // a table-known L002 unit does not answer the L001 proximity command

    r.Download(&TrekcomCtl::Request_Waypoints, &Recorder::waypoints);
    const std::vector<std::shared_ptr<cWaypoint>> waypoints(ctl.Waypoints()->begin(), ctl.Waypoints()->end());
    got.waypoints = To_Sim(*ctl.Waypoints());
    Expect_Same(As_Unit_Reads(p, got).waypoints, visible.waypoints, "waypoint");

    std::vector<std::shared_ptr<cWaypoint>> proximity;
    if (p.proximity_protocol && !Table_L002(p)) {
        r.Download(&TrekcomCtl::Request_Prox_Waypoints, &Recorder::waypoints);
        proximity.assign(ctl.Waypoints()->begin(), ctl.Waypoints()->end());
        got.proximity = To_Sim(*ctl.Waypoints());
        Expect_Same(As_Unit_Reads(p, got).proximity, visible.proximity, "proximity waypoint");
    }

    r.Download(&TrekcomCtl::Request_Routes, &Recorder::routes);
    const std::vector<std::shared_ptr<cRoute>> routes(ctl.Routes()->begin(), ctl.Routes()->end());
    for (const auto& route : routes)
        got.routes.push_back({static_cast<std::uint8_t>(route->Number), route->Ident, route->Cmnt,
                              To_Sim(*route->Waypoints), {}});
    std::vector<sim::Route> want_routes = visible.routes;
    for (sim::Route& route : want_routes) {
        route.links.clear();  // links fill the route in place: checked on the way back up
        if (Table_L002(p)) route.points.clear();  // their id is one the control does not route
    }
    Data_Set read = As_Unit_Reads(p, got);
    for (sim::Route& route : read.routes) route.links.clear();
    Expect_Same(read.routes, want_routes, "route");
    if (Table_L002(p)) r.rec.errors.clear();  // the count check reports the route waypoints it missed

    std::vector<std::shared_ptr<cTrack>> tracks;
    if (p.track_protocol) {
        r.Download(&TrekcomCtl::Request_Tracks, &Recorder::tracks);
        tracks.assign(ctl.Tracks()->begin(), ctl.Tracks()->end());
        got.tracks = Tracks_Of(*ctl.Tracks(), visible.tracks, Has_Track_Headers(p));
        read = As_Unit_Reads(p, got);
        if (Has_Track_Headers(p)) {
            std::vector<sim::Track> want = visible.tracks;
            for (sim::Track& t : want) t.display = false;  // the decoder never takes it from a header
            Expect_Same(read.tracks, want, "track");
        } else {
            Expect_Same(Points_Of(read.tracks), Points_Of(visible.tracks), "track point");
        }
    }
    if (p.almanac_type) {
        r.Download(&TrekcomCtl::Request_Almanac_Data, nullptr);
        // Every entry fills the one Almanac in place: the last remains. svid
        // travels as a byte but is read as a digit (none of 0..30 is one);
        // the one-byte health is past the reader of a four-byte Single.
        sim::Almanac want = visible.almanac.back();
        want.svid = 0;
        want.hlth = 0;
        if (p.almanac_type >= 550) want.af0 = Af0_Read_Early(want.toa, want.af0);
        EXPECT_EQ(To_Sim(*ctl.Almanac()), want);
    }
    if (p.laps) {
        r.Download(&TrekcomCtl::Request_Laps, nullptr);
        Expect_Same(To_Sim(*ctl.Laps()), visible.laps, "lap");
    }
    if (p.flightbook) {
        r.Download(&TrekcomCtl::Request_Flightbook, nullptr);
        Expect_Same(To_Sim(*ctl.Flightbook_Records()), visible.flights, "flight");
    }
    EXPECT_TRUE(r.rec.errors.empty()) << Errors(r.rec);
    r.rec.errors.clear();

    // ...and back up: one batch per kind, one Send_* per record.
    auto batch = [&](const auto& records, auto put, void (TrekcomCtl::*send)()) {
        r.Batch(records.size(), [&] {
            for (const auto& record : records) {
                (ctl.*put)(record);
                (ctl.*send)();
            }
        });
    };
    using W = void (TrekcomCtl::*)(std::shared_ptr<cWaypoint>);
    batch(waypoints, static_cast<W>(&TrekcomCtl::Waypoint), &TrekcomCtl::Send_Waypoint);
    batch(proximity, static_cast<W>(&TrekcomCtl::Waypoint), &TrekcomCtl::Send_Prox_Waypoint);
    std::size_t route_records = 0;
    for (const auto& route : routes) route_records += 1 + 2 * route->Waypoints->Count();
    r.Batch(route_records, [&] {
        for (const auto& route : routes) {
            ctl.Route(route);
            ctl.Send_Route_Header();
            for (std::int32_t i = 1; i <= route->Waypoints->Count(); ++i) {
                ctl.Waypoint(route->Waypoints->Item(i));
                ctl.Send_Route_Waypoint();
                if (p.route_link_type && i < route->Waypoints->Count()) ctl.Send_Route_Link();
            }
        }
    });
    r.Batch(tracks.size(), [&] {
        std::size_t next = 0;
        for (const sim::Track& like : visible.tracks)
            for (std::size_t i = Has_Track_Headers(p) ? 0 : 1; i <= like.points.size(); ++i) {
                ctl.Track(tracks.at(next++));
                i == 0 ? ctl.Send_Track_Header() : ctl.Send_Track();
            }
    });
    if (p.almanac_type) r.Batch(1, [&] { ctl.Send_Almanac_Data(); });
    if (p.laps) {
        const std::vector<std::shared_ptr<cLap>> laps(ctl.Laps()->begin(), ctl.Laps()->end());
        batch(laps, static_cast<void (TrekcomCtl::*)(std::shared_ptr<cLap>)>(&TrekcomCtl::Lap), &TrekcomCtl::Send_Lap);
    }
    if (p.flightbook) {
        const std::vector<std::shared_ptr<cFlightbook_Record>> flights(ctl.Flightbook_Records()->begin(),
                                                                      ctl.Flightbook_Records()->end());
        batch(flights, static_cast<void (TrekcomCtl::*)(std::shared_ptr<cFlightbook_Record>)>(&TrekcomCtl::Flightbook_Record),
              &TrekcomCtl::Send_Flightbook_Record);
    }
    r.vp->Advance(5000);

    const Data_Set& up = r.unit->Uploaded();
    EXPECT_TRUE(r.rec.errors.empty()) << Errors(r.rec);
    EXPECT_EQ(r.unit->Stats().records_rejected, 0);
    Expect_Same(up.waypoints, visible.waypoints, "uploaded waypoint");
    Expect_Same(up.proximity, Table_L002(p) ? std::vector<sim::Waypoint>{} : visible.proximity, "uploaded proximity waypoint");
    want_routes = visible.routes;
    if (Table_L002(p))
        for (sim::Route& route : want_routes) route.points.clear();
    Expect_Same(up.routes, want_routes, "uploaded route");
    if (Has_Track_Headers(p)) {
        std::vector<sim::Track> want = visible.tracks;
        for (sim::Track& t : want) {
            t.display = false;
            if (p.track_point_type == 302)  // the control sends no altitude or depth in a D302 point
                for (sim::Track_Point& pt : t.points) pt.alt = pt.depth = 0;
        }
        Expect_Same(up.tracks, want, "uploaded track");
    } else if (p.track_protocol) {
        Expect_Same(Points_Of(up.tracks), Points_Of(visible.tracks), "uploaded track point");
    }
    if (p.almanac_type) {
        EXPECT_EQ(up.almanac, std::vector<sim::Almanac>{To_Sim(*ctl.Almanac())});
    }
    if (p.laps) {
        std::vector<sim::Lap> want = visible.laps;
        for (sim::Lap& l : want) l.unused = 0;  // the spare byte always goes out as 0
        Expect_Same(up.laps, want, "uploaded lap");
    }
    if (p.flightbook) Expect_Same(up.flights, visible.flights, "uploaded flight");
}

// A track record's texts and index, which the unit's side does not compare.
std::string Texts_Of(const cTrack& t) { return t.Ident + "|" + t.Time + "|" + t.Datum + "|" + std::to_string(t.Index); }

// Each download again through a record sink: the same records in the same
// order, while the control's collections stay empty.
void Sink_Gets_What_Collections_Get(Rig& r) {
    struct Sink : Record_Sink {
        Collection<cWaypoint> waypoints;
        Collection<cTrack> tracks;
        Collection<cLap> laps;
        Collection<cFlightbook_Record> flights;
        std::vector<std::string> routes;
        void Waypoint(const cWaypoint& w) override { waypoints.Add(std::make_shared<cWaypoint>(w)); }
        void Route(const cRoute& h) override { routes.push_back(std::to_string(h.Number) + h.Ident + h.Cmnt); }
        void Track_Header(const cTrack& t) override { tracks.Add(std::make_shared<cTrack>(t)); }
        void Track_Point(const cTrack& t) override { tracks.Add(std::make_shared<cTrack>(t)); }
        void Lap(const cLap& l) override { laps.Add(std::make_shared<cLap>(l)); }
        void Flightbook_Record(const cFlightbook_Record& f) override { flights.Add(std::make_shared<cFlightbook_Record>(f)); }
    };
    TrekcomCtl& ctl = r.ctl;
    const auto kept = [&](const auto& c) {
        std::vector<std::string> routes, idents;
        for (const auto& route : *c.Routes()) routes.push_back(std::to_string(route->Number) + route->Ident + route->Cmnt);
        for (const auto& t : *c.Tracks()) idents.push_back(Texts_Of(*t));
        return std::tuple{To_Sim(*c.Waypoints()), routes, To_Sim(*c.Tracks()), idents, To_Sim(*c.Laps()),
                          To_Sim(*c.Flightbook_Records())};
    };
    // A download clears its own collection only (a route download adds to the waypoints').
    const auto clear = [&] {
        ctl.Waypoints()->Clear(), ctl.Routes()->Clear(), ctl.Tracks()->Clear(), ctl.Laps()->Clear();
        ctl.Flightbook_Records()->Clear();
    };
    const sim::Profile& p = r.profile;
    std::vector<std::pair<void (TrekcomCtl::*)(), int Recorder::*>> downloads = {
        {&TrekcomCtl::Request_Waypoints, &Recorder::waypoints}, {&TrekcomCtl::Request_Routes, &Recorder::routes}};
    if (p.track_protocol) downloads.push_back({&TrekcomCtl::Request_Tracks, &Recorder::tracks});
    if (p.laps) downloads.push_back({&TrekcomCtl::Request_Laps, nullptr});
    if (p.flightbook) downloads.push_back({&TrekcomCtl::Request_Flightbook, nullptr});
    for (const auto& [request, event] : downloads) {
        clear();
        r.Download(request, event);
        const auto stored = kept(ctl);
        Sink sink;
        clear();
        ctl.Record_Sink(&sink);
        r.Download(request, event);
        ctl.Record_Sink(nullptr);
        std::vector<std::string> idents;
        for (const auto& t : sink.tracks) idents.push_back(Texts_Of(*t));
        EXPECT_TRUE(std::tuple(To_Sim(sink.waypoints), sink.routes, To_Sim(sink.tracks), idents, To_Sim(sink.laps),
                               To_Sim(sink.flights)) == stored);
        EXPECT_EQ(ctl.Waypoints()->Count() + ctl.Routes()->Count() + ctl.Tracks()->Count() + ctl.Laps()->Count() +
                      ctl.Flightbook_Records()->Count(),
                  0);
    }
    r.rec.errors.clear();  // units lacking a kind say so, as in the round trip
}

// The seeds: TREKCOM_SEED alone when given, else a fixed run of them.
std::vector<std::uint32_t> Seeds(std::uint32_t first, int n) {
    if (const char* s = std::getenv("TREKCOM_SEED")) return {static_cast<std::uint32_t>(std::strtoul(s, nullptr, 10))};
    std::vector<std::uint32_t> out;
    for (int i = 0; i < n; ++i) out.push_back(first + static_cast<std::uint32_t>(i));
    return out;
}

class Differential : public ::testing::TestWithParam<std::tuple<std::string, bool>> {};

TEST_P(Differential, RandomSetsComeDownAsTheUnitHoldsThemAndReadBackAfterUpload) {
    const auto& [name, over_usb] = GetParam();
    const sim::Profile profile = sim::Profile::Named(name);
    std::uint32_t first = 0;
    for (const char c : name) first = first * 31 + static_cast<std::uint8_t>(c);
    for (const std::uint32_t seed : Seeds(first % 100000 * 10 + over_usb, 6)) {
        SCOPED_TRACE("TREKCOM_SEED=" + std::to_string(seed));
        Rig rig(profile, Generator(seed).Data(), over_usb);
        Round_Trip(rig);
        Sink_Gets_What_Collections_Get(rig);
        if (HasFailure()) return;  // one seed to replay is enough
    }
}

// USB units speak L001 with a capability array.
INSTANTIATE_TEST_SUITE_P(Serial, Differential,
                         ::testing::Combine(::testing::ValuesIn(sim::Profile::Names()), ::testing::Values(false)),
                         [](const auto& info) {
                             std::string name = std::get<0>(info.param);
                             for (char& c : name)
                                 if (c == '-') c = '_';
                             return name;
                         });
INSTANTIATE_TEST_SUITE_P(Usb, Differential,
                         ::testing::Combine(::testing::Values("current", "d110", "aviator"), ::testing::Values(true)),
                         [](const auto& info) { return std::get<0>(info.param); });


// What cannot go out is reported and not sent, and a batch reports a
// missing transfer once (the next batch again); nothing reaches the host as
// an exception.
TEST(Uploads, RecordsThatCannotGoOutAreReported) {
    Rig r(sim::Profile::Named("d110"), sim::Builtin_Data(), false);  // no proximity, no laps
    r.ctl.Request_Product_Data();
    std::int16_t n = 4;
    r.ctl.Start_of_Records(n);
    r.ctl.Send_Prox_Waypoint();
    r.ctl.Send_Lap();             // silent: the batch has reported
    r.ctl.Waypoint()->Lat = 180.0;  // has no semicircle form
    EXPECT_NO_THROW(r.ctl.Send_Waypoint());
    r.ctl.End_of_Records();
    ASSERT_EQ(r.rec.errors.size(), 2u);
    EXPECT_EQ(r.rec.errors[0].message, "GPS model/version does not support Proximity Waypoints");
    EXPECT_EQ(r.rec.errors[0].packet, Bytes{0});
    EXPECT_EQ(r.rec.errors[1].code, 6);
    EXPECT_TRUE(r.rec.errors[1].message.starts_with("Overflow: ")) << r.rec.errors[1].message;
    EXPECT_TRUE(r.unit->Uploaded().waypoints.empty());
    r.ctl.Start_of_Records(n);
    r.ctl.Send_Lap();
    ASSERT_EQ(r.rec.errors.size(), 3u);
    EXPECT_EQ(r.rec.errors[2].message, "GPS model/version does not support Lap Data");
}


// A log past what the records packet's 16 bits can count comes down whole
// and in order, and its count is not reported short.
TEST(Downloads, HundredThousandTrackPointsArriveInOrder) {
    Data_Set data;
    sim::Add_Generated_Track(data, 100000);
    Rig r(sim::Profile::Named("current"), data, false);
    r.Download(&TrekcomCtl::Request_Tracks, &Recorder::tracks);
    const Data_Set visible = r.unit->Visible_Data();
    Data_Set got;
    got.tracks = Tracks_Of(*r.ctl.Tracks(), visible.tracks, true);
    ASSERT_EQ(got.tracks.size(), 1u);
    EXPECT_EQ(got.tracks[0].points.size(), 100000u);
    EXPECT_EQ(As_Unit_Reads(r.profile, got).tracks[0].points, visible.tracks[0].points);
    EXPECT_TRUE(r.rec.errors.empty()) << Errors(r.rec);
}


// ---------------------------------------------------------------- screens

// The screen as its user sees it, in the colours the unit gives its indices
// (a grey unit's brightness levels run 0..15).
Picture Seen(const sim::Screen& s) {
    Picture p{s.width, s.height, {}};
    for (const std::uint8_t i : s.pixels)
        p.Pixels.push_back(s.palette.empty() ? 0x010101u * 17u * s.grey_levels[i] : s.palette[i]);
    return p;
}

void Expect_Same(const Picture& got, const Picture& want) {
    ASSERT_EQ(got.Width, want.Width);
    ASSERT_EQ(got.Height, want.Height);
    const auto diff = std::mismatch(got.Pixels.begin(), got.Pixels.end(), want.Pixels.begin(), want.Pixels.end());
    if (diff.first == got.Pixels.end() && diff.second == want.Pixels.end()) return;
    const auto at = diff.first - got.Pixels.begin();
    ADD_FAILURE() << "pixel (" << at % got.Width << ", " << at / got.Width << ") of " << got.Pixels.size();
}

// Random screens of random sizes, their frames turned any way the unit may
// lay them (the grey unit keeps its model's own quarter turn, which the
// control must know), pixel packets in order or last row first.
class Screens : public ::testing::TestWithParam<std::tuple<std::string, bool>> {};

TEST_P(Screens, CapturesEqualTheUnitsScreenPixelForPixel) {
    const auto& [name, over_usb] = GetParam();
    const Scratch_Folder scratch;
    static constexpr Screen_Turn kUndo[] = {Screen_Turn::Upright, Screen_Turn::Quarter_Left, Screen_Turn::Half,
                                            Screen_Turn::Quarter_Right};
    for (const std::uint32_t seed : Seeds(7000 + static_cast<std::uint32_t>(name.size() * 2 + over_usb), 4)) {
        SCOPED_TRACE("TREKCOM_SEED=" + std::to_string(seed));
        Generator g(seed);
        sim::Profile profile = sim::Profile::Named(name);
        sim::Screen& s = profile.screen;
        const bool model_turn = name == "grey-legend";
        if (!model_turn) s.frame_quarters = static_cast<int>(g.Below(4));
        s.frame_mirrored = !model_turn && s.frame_quarters == 0 && g.One_In(2);
        if (name == "current" && !over_usb) {  // every depth, each with its palette
            s.bpp = 1 << seed % 4;
            s.palette = sim::Screen::Pattern(s.bpp, 1, 1, 0, true).palette;
        }
        s.width = 1 + static_cast<int>(g.Below(200));
        s.height = 1 + static_cast<int>(g.Below(120));
        s.pixels.clear();
        for (int i = 0; i < s.width * s.height; ++i)
            s.pixels.push_back(static_cast<std::uint8_t>(g.Below(1u << s.bpp)));
        Rig rig(profile, sim::Builtin_Data(), over_usb);
        rig.unit->Fault_Knobs().display_rows_reversed = g.One_In(2);
        if (!model_turn) rig.ctl.Display_Turn(s.frame_mirrored ? Screen_Turn::Mirror : kUndo[s.frame_quarters]);
        // A grey unit's colours can come from a GIMP palette instead.
        Picture want = Seen(s);
        if (s.palette.empty() && g.One_In(2)) {
            std::ofstream gpl(scratch / "greys.gpl");
            gpl << "GIMP Palette\nName: test\n#\n";
            for (std::uint32_t i = 0; i < 4; ++i) gpl << 60 * i << ' ' << 7 * i << ' ' << 255 - i << "\tlevel\n";
            for (std::size_t i = 0; i < s.pixels.size(); ++i)
                want.Pixels[i] = 60u * s.pixels[i] << 16 | 7u * s.pixels[i] << 8 | (255u - s.pixels[i]);
            rig.ctl.Palette_File((scratch / "greys.gpl").string());
        }
        rig.ctl.Request_Display();
        ASSERT_FALSE(rig.rec.image_pcts.empty()) << Errors(rig.rec);
        ASSERT_EQ(rig.rec.image_pcts.back(), 100) << Errors(rig.rec);
        EXPECT_TRUE(std::is_sorted(rig.rec.image_pcts.begin(), rig.rec.image_pcts.end(), std::less_equal<>()));
        Expect_Same(rig.rec.image, want);
        EXPECT_EQ(rig.ctl.Display()->Bits_Per_Pixel, s.bpp);
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Units, Screens,
                         ::testing::Values(std::tuple{"current", false}, std::tuple{"grey-legend", false},
                                           std::tuple{"d110", true}, std::tuple{"current", true}),
                         [](const auto& info) {
                             std::string n = std::get<0>(info.param) + (std::get<1>(info.param) ? "_usb" : "");
                             std::replace(n.begin(), n.end(), '-', '_');
                             return n;
                         });

// A lost screen packet ends the capture with error 7 and no picture within
// a few seconds, and the next capture works.
TEST(Screens, ALostPacketEndsTheCaptureAndTheControlGoesOn) {
    for (const bool over_usb : {false, true}) {
        for (const std::uint32_t seed : Seeds(7100 + over_usb, 3)) {
            SCOPED_TRACE("TREKCOM_SEED=" + std::to_string(seed) + (over_usb ? " usb" : " serial"));
            Rig rig(sim::Profile::Named("current"), sim::Builtin_Data(), over_usb);
            rig.unit->Fault_Knobs().drop_display_packet = 1 + static_cast<int>(Generator(seed).Below(117));
            const double start = rig.vp->Now_ms();
            rig.ctl.Request_Display();
            EXPECT_LT(rig.vp->Now_ms() - start, 10000);
            ASSERT_EQ(rig.rec.errors.size(), 1u) << Errors(rig.rec);
            EXPECT_EQ(rig.rec.errors[0].code, 7);
            EXPECT_TRUE(rig.rec.image_pcts.empty() || rig.rec.image_pcts.back() < 100);
            rig.ctl.Request_Display();
            EXPECT_EQ(rig.rec.errors.size(), 1u) << Errors(rig.rec);
            ASSERT_FALSE(rig.rec.image_pcts.empty());
            EXPECT_EQ(rig.rec.image_pcts.back(), 100);
        }
    }
}

// ---------------------------------------------------------------- icons

// A 24-bit bitmap file of a picture.
Bytes Bmp24(const Picture& p) {
    const std::size_t row = (static_cast<std::size_t>(p.Width) * 3 + 3) / 4 * 4, h = static_cast<std::size_t>(p.Height);
    Bytes f(54 + row * h, 0);
    const auto put = [&](std::size_t at, std::size_t v) {
        for (std::size_t i = 0; i < 4; ++i) f[at + i] = static_cast<std::uint8_t>(v >> 8 * i);
    };
    f[0] = 'B', f[1] = 'M', f[26] = 1, f[28] = 24;
    put(2, f.size()), put(10, 54), put(14, 40), put(18, static_cast<std::size_t>(p.Width)), put(22, h);
    for (std::size_t i = 0; i < p.Pixels.size(); ++i)
        for (std::size_t k = 0; k < 3; ++k)
            f[54 + (h - 1 - i / p.Width) * row + i % p.Width * 3 + k] = static_cast<std::uint8_t>(p.Pixels[i] >> 8 * k);
    return f;
}

std::uint32_t Nearest(std::uint32_t c, const std::vector<std::uint32_t>& palette) {
    const auto distance = [c](std::uint32_t p) {
        int d = 0;
        for (const int s : {0, 8, 16}) d += (int(c >> s & 255) - int(p >> s & 255)) * (int(c >> s & 255) - int(p >> s & 255));
        return d;
    };
    return *std::min_element(palette.begin(), palette.end(),
                             [&](std::uint32_t a, std::uint32_t b) { return distance(a) < distance(b); });
}

std::vector<std::uint32_t> Green_Pixels(std::size_t n) { return std::vector<std::uint32_t>(n, 0x00FF00); }

// An icon written then read back is the icon in the unit's palette: its
// colours and magenta unchanged, any other colour the nearest. The bitmap a
// read gives goes back up as it is.
TEST(Icons, AWrittenIconReadsBackInTheUnitsPalette) {
    Rig rig(sim::Profile::Named("d110"), sim::Builtin_Data(), true);
    const std::vector<std::uint32_t> palette = sim::Icon_Palette();
    for (const std::uint32_t seed : Seeds(7200, 4)) {
        SCOPED_TRACE("TREKCOM_SEED=" + std::to_string(seed));
        Generator g(seed);
        Picture icon{16, 16, {}}, want{16, 16, {}};
        for (int i = 0; i < 256; ++i) {
            const std::uint32_t c = g.One_In(4) ? g.Below(1u << 24) : palette[g.Below(256)];
            icon.Pixels.push_back(c);
            want.Pixels.push_back(Nearest(c, palette));
        }
        const auto slot = static_cast<std::int32_t>(g.Below(24));
        rig.ctl.Send_Icon(slot, Bmp24(icon));
        rig.ctl.Request_Icon(slot);
        ASSERT_TRUE(rig.rec.errors.empty()) << Errors(rig.rec);
        Expect_Same(rig.rec.icon, want);
        const Bytes read = rig.rec.icon_bmp;
        rig.rec.icon = {};
        rig.ctl.Send_Icon((slot + 1) % 24, read);
        rig.ctl.Request_Icon((slot + 1) % 24);
        Expect_Same(rig.rec.icon, want);
        // An icon of another size is refused before anything is written.
        rig.ctl.Send_Icon(slot, Bmp24(Picture{16, 15, Green_Pixels(15 * 16)}));
        ASSERT_EQ(rig.rec.errors.size(), 1u);
        rig.rec.errors.clear();
        rig.ctl.Request_Icon(slot);
        Expect_Same(rig.rec.icon, want);
        if (HasFailure()) return;
    }
}

// ---------------------------------------------------------------- identity

// The name is the model; the id is the unit's answer, read unsigned, or over
// USB its session's id; a unit that gives none leaves it empty, quietly.
TEST(Identity, NameAndUnitIdComeFromTheUnitOrStayEmptyWithoutAnError) {
    for (const bool answers : {true, false}) {
        for (const bool over_usb : {false, true}) {
            SCOPED_TRACE(std::string(answers ? "answers" : "silent") + (over_usb ? " usb" : " serial"));
            sim::Profile profile = sim::Profile::Named("current");
            profile.unit_id = answers;
            Data_Set data = sim::Builtin_Data();
            data.situation.unit_id = 0xFEDCBA98;
            Rig rig(profile, data, over_usb);
            rig.ctl.Product_Data()->Unit_ID = "stale";
            rig.ctl.Request_GPS_Name();
            EXPECT_TRUE(rig.rec.errors.empty()) << Errors(rig.rec);
            EXPECT_EQ(rig.ctl.Product_Data()->GPS_Name, "TREKSIM 60");
            EXPECT_EQ(rig.ctl.Product_Data()->Unit_ID, answers || over_usb ? "4275878552" : "");
        }
    }
}

// ---------------------------------------------------------------- fitness units

// The unit's fitness records as the layouts of its profile carry them.
Data_Set Fitness_Visible(const sim::Profile& p, Data_Set d) {
    for (sim::Fitness_Lap& l : d.fitness_laps) {
        if (p.lap_type != 1015) l.extra = {};
        if (p.lap_type == 1001) l.avg_cadence = 0xFF, l.trigger_method = 0;
    }
    for (auto* tracks : {&d.fitness_tracks, &d.course_tracks})
        for (sim::Fitness_Track& t : *tracks)
            for (sim::Fitness_Point& pt : t.points)
                if (p.track_point_type == 303) pt.distance = sim::kNoValue, pt.cadence = 0xFF, pt.sensor = kNo_Sensor;
    if (p.run_type == 1000)
        for (sim::Run& r : d.runs) r.multisport = 0;
    return d;
}

// Every layout of runs, laps and points: whole runs and courses come down over USB as the unit holds them (a
// run's laps those of its index range, its points those of its track), and the courses sent to an empty unit
// read back equal. Courses too big for the unit's limits are refused before anything is sent.
TEST(Fitness, RunsAndCoursesComeDownWholeAndCoursesReadBackAfterUpload) {
    for (const auto& [run, lap, point] : {std::tuple{1009, 1015, 304}, {1000, 1001, 303}, {1010, 1011, 304}})
        for (const std::uint32_t seed : Seeds(static_cast<std::uint32_t>(run + lap + point) * 10, 3)) {
        sim::Profile p = sim::Profile::Named("fitness");
        p.run_type = static_cast<std::uint16_t>(run), p.lap_type = static_cast<std::uint16_t>(lap);
        p.track_point_type = static_cast<std::uint16_t>(point);
        SCOPED_TRACE("D" + std::to_string(run) + " D" + std::to_string(lap) + " D" + std::to_string(point) +
                     " TREKCOM_SEED=" + std::to_string(seed));
        Data_Set data, loaded;
        sim::Add_Fitness_Data(data);
        Generator(seed).Stir(data);
        std::string error;  // the data file keeps every fitness field
        ASSERT_TRUE(sim::From_Json(sim::To_Json(data), loaded, error) && loaded == data) << error;
        const Data_Set want = Fitness_Visible(p, data);
        Rig r(p, data, true);
        r.ctl.Request_Counts();
        EXPECT_EQ(r.ctl.Counts()->Run_Records, static_cast<std::int16_t>(want.runs.size()));
        EXPECT_EQ(r.ctl.Counts()->Course_Records, static_cast<std::int16_t>(want.courses.size()));
        r.ctl.Request_Runs();
        const std::size_t after_runs = r.rec.received.size();
        r.ctl.Request_Courses();
        ASSERT_EQ(r.rec.runs + r.rec.courses, 2) << Errors(r.rec);
        EXPECT_TRUE(r.rec.errors.empty()) << Errors(r.rec);
        Expect_Same(To_Sim(*r.ctl.Runs()), want.runs, "run");
        EXPECT_TRUE(std::equal(r.rec.each_run.begin(), r.rec.each_run.end(), r.ctl.Runs()->begin(), r.ctl.Runs()->end()))
            << "each run handed over once, in order";
        EXPECT_LT(r.rec.run_after.at(0), after_runs - 1) << "the first run before its download is over";
        for (const auto& got : *r.ctl.Runs()) {
            const auto first = want.fitness_laps.begin() + got->First_Lap_Index;
            Expect_Same(To_Sim(*got->Laps), {first, first + (got->Last_Lap_Index - got->First_Lap_Index + 1)}, "lap");
            std::vector<sim::Fitness_Point> points;
            for (const auto& t : want.fitness_tracks)
                if (t.index == got->Track_Index) points = t.points;
            Expect_Same(To_Sim(*got->Points), points, "point");
        }
        Expect_Same(To_Sim(*r.ctl.Courses()), want.courses, "course");
        std::vector<sim::Course_Lap> laps;
        std::vector<sim::Course_Point> marks;
        std::vector<sim::Fitness_Track> tracks;
        for (const auto& c : *r.ctl.Courses()) {
            for (const auto& l : *c->Laps) laps.push_back(To_Sim(*l));
            for (const auto& m : *c->Course_Points) marks.push_back(To_Sim(*m));
            tracks.push_back({c->Track_Index, To_Sim(*c->Points)});
        }
        Expect_Same(laps, want.course_laps, "course lap");
        Expect_Same(marks, want.course_points, "course point");
        Expect_Same(tracks, want.course_tracks, "course track");

        Data_Set empty;
        empty.course_limits = data.course_limits;
        Rig up(p, empty, true);
        up.ctl.Send_Courses(*r.ctl.Courses());
        EXPECT_TRUE(up.rec.errors.empty()) << Errors(up.rec);
        Data_Set back = up.unit->Uploaded();
        for (sim::Fitness_Track& t : back.course_tracks)  // the unit keeps no mark for a sensor it cannot tell
            for (sim::Fitness_Point& pt : t.points) pt.sensor = point == 303 ? kNo_Sensor : pt.sensor;
        Expect_Same(back.courses, want.courses, "uploaded course");
        Expect_Same(back.course_laps, want.course_laps, "uploaded course lap");
        Expect_Same(back.course_points, want.course_points, "uploaded course point");
        Expect_Same(back.course_tracks, want.course_tracks, "uploaded course track");

        up.unit->Data().course_limits.track_points = static_cast<std::uint32_t>(Points_Count(want.course_tracks) - 1);
        up.ctl.Send_Courses(*r.ctl.Courses());
        ASSERT_EQ(up.rec.errors.size(), 1u);
        EXPECT_EQ(up.rec.errors[0].code, 8) << up.rec.errors[0].message;
        EXPECT_EQ(up.unit->Uploaded().courses.size(), want.courses.size()) << "nothing more sent";
        if (HasFailure()) return;  // one seed to replay is enough
    }
}

}  // namespace
}  // namespace trekcom::testing
