// Records end to end: every kind of record each simulated unit serves comes
// down through the control exactly as the unit's layouts carry it, and goes
// back up, one Send_* per record, to be read back from the unit.
#include <cstring>
#include <functional>

#include "protocol/protocol_fixture.h"

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

// ---------------------------------------------------------------- the control's records in the unit's terms

sim::Subclass Subclass_Of(const std::string& text) {
    if (text.empty()) return sim::Default_Subclass();
    sim::Subclass s{};
    s.fill(' ');
    std::memcpy(s.data(), text.data(), std::min(text.size(), s.size()));
    return s;
}

sim::Waypoint To_Sim(const cWaypoint& w) {
    return {w.Ident, sim::Deg_To_Semi(w.Lat), sim::Deg_To_Semi(w.Lon), w.Cmnt, w.Facility, w.City, w.State,
            w.Country, w.Address, w.Cross_Road, w.Link, w.Alt, w.Dpth, w.Dist, w.Temp, w.Smbl,
            static_cast<std::uint8_t>(w.Wpt_Class), static_cast<std::uint8_t>(w.Color),
            static_cast<std::uint8_t>(w.Dspl), static_cast<std::uint8_t>(w.Attrib), Subclass_Of(w.Sub_Class),
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

template <typename T>
auto To_Sim(const Collection<T>& list) {
    std::vector<decltype(To_Sim(std::declval<const T&>()))> out;
    for (const auto& item : list) out.push_back(To_Sim(*item));
    return out;
}

// The control's track records (headers and points together, in arrival
// order) cut into tracks of the shape the unit sent.
std::vector<sim::Track> Tracks_Of(const Collection<cTrack>& list, const std::vector<sim::Track>& shape,
                                  bool headers) {
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
        for (std::size_t i = 0; i < like.points.size() && next <= list.Count(); ++i) {
            const cTrack& p = *list.Item(next++);
            if (headers) {  // every point carries the name and colour of its header
                EXPECT_EQ(p.Ident, t.ident);
                EXPECT_EQ(p.Color, t.color);
            }
            t.points.push_back(To_Sim(p));
        }
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
// they cannot carry, so a record the control decoded compares field for
// field with the unit's own view.
Data_Set As_Unit_Reads(const sim::Profile& profile, Data_Set data) {
    return sim::Unit(profile, std::move(data)).Visible_Data();
}

template <typename T>
std::vector<std::shared_ptr<T>> Snapshot(const Collection<T>& list) {
    return {list.begin(), list.end()};
}

// A unit whose records the control cannot reach as the unit sends them: an
// L002 unit known by the product table keeps the L001 proximity and
// route-waypoint ids and the L001 proximity command.
bool Table_L002(const sim::Profile& p) { return p.link == 2 && !p.capability_array; }

bool Has_Track_Headers(const sim::Profile& p) { return p.track_protocol != 300 && p.track_header_type != 0; }

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

class Records : public Protocol_Test, public ::testing::WithParamInterface<std::string> {
protected:
    void SetUp() override {
        unit = Attach_Unit(sim::Profile::Named(GetParam()));
        profile = unit->Sim().Unit_Profile();
        visible = unit->Sim().Visible_Data();
    }

    // One download to its end: its event, or for kinds that raise none, the
    // unit's transfer-complete packet.
    void Download(void (TrekcomCtl::*request)(), int Recorder::*event) {
        const int before = event ? rec.*event : 0;
        const std::size_t received = rec.received.size();
        (ctl.*request)();
        if (event) {
            ASSERT_TRUE(vp->Run_Until([&] { return rec.*event == before + 1; }, 60000));
        } else {
            vp->Run_Until([&] {
                for (std::size_t i = received; i < rec.received.size(); ++i)
                    if (rec.received[i][1] == ctl.PID_Xfer_Cmplt()) return true;
                return false;
            }, 60000);
        }
    }

    // Every kind the unit serves, each checked against what the unit holds;
    // the records are kept for uploading.
    void Download_All() {
        const sim::Profile& p = profile;
        Download(&TrekcomCtl::Request_Waypoints, &Recorder::waypoints);
        waypoints = Snapshot(*ctl.Waypoints());
        Data_Set got;
        got.waypoints = To_Sim(*ctl.Waypoints());
        EXPECT_EQ(As_Unit_Reads(p, got).waypoints, visible.waypoints);

        if (p.proximity_protocol && !Table_L002(p)) {
            Download(&TrekcomCtl::Request_Prox_Waypoints, &Recorder::waypoints);
            proximity = Snapshot(*ctl.Waypoints());
            got.proximity = To_Sim(*ctl.Waypoints());
            EXPECT_EQ(As_Unit_Reads(p, got).proximity, visible.proximity);
        }

        Download(&TrekcomCtl::Request_Routes, &Recorder::routes);
        routes = Snapshot(*ctl.Routes());
        for (const auto& r : routes) got.routes.push_back({static_cast<std::uint8_t>(r->Number), r->Ident, r->Cmnt,
                                                            To_Sim(*r->Waypoints), {}});
        std::vector<sim::Route> want = visible.routes;
        // The route waypoints of such a unit come with an id the control does
        // not route: its routes arrive as bare headers.
        if (Table_L002(p)) {
            std::size_t lost = 0;
            for (sim::Route& r : want) {
                lost += r.points.size();
                r.points.clear();
            }
            // ...and the control says so: the unit counted them.
            ASSERT_EQ(rec.errors.size(), 1u);
            EXPECT_EQ(rec.errors[0].code, 7);
            EXPECT_EQ(rec.errors[0].message, "Incomplete transfer: " + std::to_string(want.size()) + " of " +
                                                 std::to_string(want.size() + lost) + " records received");
            rec.errors.clear();
        }
        EXPECT_EQ(As_Unit_Reads(p, got).routes, want);
        // A route's waypoints are the ones in Waypoints, shared.
        if (!routes.empty() && routes.back()->Waypoints->Count() > 0) {
            const auto& mine = *routes.back()->Waypoints;
            EXPECT_EQ(ctl.Waypoints()->Item(ctl.Waypoints()->Count()), mine.Item(mine.Count()));
        }
        if (p.route_link_type) {
            // Links fill the current route in place: the last one remains.
            const sim::Route_Link& last = visible.routes.back().links.back();
            EXPECT_EQ(ctl.Route(), routes.back());
            EXPECT_EQ(ctl.Route()->Link_Class, last.link_class);
            EXPECT_EQ(ctl.Route()->Link_Sub_Class, "");  // class 3: no subclass read
            EXPECT_EQ(ctl.Route()->Link_Ident, last.ident);
        }

        if (p.track_protocol) {
            Download(&TrekcomCtl::Request_Tracks, &Recorder::tracks);
            tracks = Snapshot(*ctl.Tracks());
            got.tracks = Tracks_Of(*ctl.Tracks(), visible.tracks, Has_Track_Headers(p));
            const Data_Set read = As_Unit_Reads(p, got);
            if (Has_Track_Headers(p)) {
                // The decoder never takes the display flag from a header.
                std::vector<sim::Track> want_tracks = visible.tracks;
                for (sim::Track& t : want_tracks) t.display = false;
                EXPECT_EQ(read.tracks, want_tracks);
            } else {
                EXPECT_EQ(Points_Of(read.tracks), Points_Of(visible.tracks));
            }
        }

        if (p.almanac_type) {
            Download(&TrekcomCtl::Request_Almanac_Data, nullptr);
            // Every entry fills the one Almanac in place: the last remains.
            sim::Almanac want = visible.almanac.back();
            // svid travels as a byte but is read as a digit: none of 0..30 is one.
            want.svid = 0;
            // A one-byte health field is past the reader of a four-byte Single.
            want.hlth = 0;
            if (p.almanac_type >= 550) want.af0 = Af0_Read_Early(want.toa, want.af0);
            EXPECT_EQ(To_Sim(*ctl.Almanac()), want);
        }
        if (p.laps) {
            Download(&TrekcomCtl::Request_Laps, nullptr);
            EXPECT_EQ(To_Sim(*ctl.Laps()), visible.laps);
            EXPECT_EQ(ctl.Lap(), ctl.Laps()->Item(ctl.Laps()->Count()));
        }
        if (p.flightbook) {
            Download(&TrekcomCtl::Request_Flightbook, nullptr);
            EXPECT_EQ(To_Sim(*ctl.Flightbook_Records()), visible.flights);
        }
        EXPECT_EQ(rec.Download_Events(), 2 + (proximity.empty() ? 0 : 1) + (p.track_protocol ? 1 : 0));
    }

    // One upload: the records packet, the sends, the completion packet.
    void Batch(std::size_t n, const std::function<void()>& sends) {
        std::int16_t count = static_cast<std::int16_t>(n);
        ctl.Start_of_Records(count);
        sends();
        ctl.End_of_Records();
    }

    std::shared_ptr<sim::Virtual_Unit> unit;
    sim::Profile profile;
    Data_Set visible;
    std::vector<std::shared_ptr<cWaypoint>> waypoints, proximity;
    std::vector<std::shared_ptr<cRoute>> routes;
    std::vector<std::shared_ptr<cTrack>> tracks;
};

// Every kind the unit holds comes down exactly, then goes back up and reads
// back from the unit.
TEST_P(Records, DownloadGivesWhatTheUnitHoldsAndUploadReadsBack) {
    Download_All();
    EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
    EXPECT_EQ(unit->Sim().Stats().abandoned, 0);
    const sim::Profile& p = profile;
    const sim::Counters before = unit->Sim().Stats();
    const std::size_t errors = rec.errors.size();

    Batch(waypoints.size(), [&] {
        for (const auto& w : waypoints) {
            ctl.Waypoint(w);
            ctl.Send_Waypoint();
        }
    });
    Batch(proximity.size(), [&] {
        for (const auto& w : proximity) {
            ctl.Waypoint(w);
            ctl.Send_Prox_Waypoint();
        }
    });
    std::size_t route_records = 0;
    for (const auto& r : routes) route_records += 1 + 2 * r->Waypoints->Count();
    Batch(route_records, [&] {
        for (const auto& r : routes) {
            ctl.Route(r);
            ctl.Send_Route_Header();
            for (std::int32_t i = 1; i <= r->Waypoints->Count(); ++i) {
                ctl.Waypoint(r->Waypoints->Item(i));
                ctl.Send_Route_Waypoint();
                if (p.route_link_type && i < r->Waypoints->Count()) ctl.Send_Route_Link();
            }
        }
    });
    Batch(tracks.size(), [&] {
        std::size_t next = 0;
        for (const sim::Track& like : visible.tracks) {
            if (Has_Track_Headers(p)) {
                ctl.Track(tracks.at(next++));
                ctl.Send_Track_Header();
            }
            for (std::size_t i = 0; i < like.points.size(); ++i) {
                ctl.Track(tracks.at(next++));
                ctl.Send_Track();
            }
        }
    });
    if (p.almanac_type) Batch(1, [&] { ctl.Send_Almanac_Data(); });
    if (p.laps)
        Batch(static_cast<std::size_t>(ctl.Laps()->Count()), [&] {
            for (const auto& l : *ctl.Laps()) {
                ctl.Lap(l);
                ctl.Send_Lap();
            }
        });
    if (p.flightbook)
        Batch(static_cast<std::size_t>(ctl.Flightbook_Records()->Count()), [&] {
            for (const auto& f : *ctl.Flightbook_Records()) {
                ctl.Flightbook_Record(f);
                ctl.Send_Flightbook_Record();
            }
        });

    const Data_Set& up = unit->Sim().Uploaded();
    const sim::Counters after = unit->Sim().Stats();
    // D301 and D302 points go out with the D300 size byte. The unit finds the
    // frame longer than the size says and NAKs every copy: no point is
    // stored, and each ends in the link's two errors.
    const bool sized_as_d300 = p.track_protocol && p.track_point_type != 300;
    const std::size_t points = Points_Of(visible.tracks).size();
    std::vector<sim::Track> want_tracks = visible.tracks;
    for (sim::Track& t : want_tracks) {
        t.display = false;  // as downloaded: the decoder never takes it
        if (sized_as_d300) t.points.clear();
    }
    if (sized_as_d300) {
        EXPECT_GE(after.bad_frames - before.bad_frames, static_cast<long>(points));
        ASSERT_EQ(rec.errors.size() - errors, 2 * points);
        for (std::size_t i = errors; i < rec.errors.size(); ++i)
            EXPECT_EQ(rec.errors[i].message, i % 2 == errors % 2 ? "Unable to communicate with device"
                                                                   : "No response from device");
    } else {
        EXPECT_EQ(after.bad_frames, before.bad_frames);
        EXPECT_EQ(rec.errors.size(), errors) << rec.errors.back().message;
    }
    EXPECT_EQ(after.records_rejected, before.records_rejected);
    EXPECT_EQ(up.waypoints, visible.waypoints);
    EXPECT_EQ(up.proximity, Table_L002(p) ? std::vector<sim::Waypoint>{} : visible.proximity);
    std::vector<sim::Route> want_routes = visible.routes;
    if (Table_L002(p))
        for (sim::Route& r : want_routes) r.points.clear();
    EXPECT_EQ(up.routes, want_routes);
    if (Has_Track_Headers(p)) {
        EXPECT_EQ(up.tracks, want_tracks);
    } else if (p.track_protocol) {
        EXPECT_EQ(Points_Of(up.tracks), Points_Of(visible.tracks));
    }
    if (p.almanac_type) {
        EXPECT_EQ(up.almanac, std::vector<sim::Almanac>{To_Sim(*ctl.Almanac())});
    }
    if (p.laps) {
        // The unused byte always goes out as 0.
        std::vector<sim::Lap> want_laps = visible.laps;
        for (sim::Lap& l : want_laps) l.unused = 0;
        EXPECT_EQ(up.laps, want_laps);
    }
    if (p.flightbook) {
        EXPECT_EQ(up.flights, visible.flights);
    }
}

INSTANTIATE_TEST_SUITE_P(Profiles, Records, ::testing::ValuesIn(sim::Profile::Names()),
                         [](const auto& info) {
                             std::string name = info.param;
                             for (char& c : name)
                                 if (c == '-') c = '_';
                             return name;
                         });

// What cannot go out is reported and not sent, and a batch reports a
// missing transfer once (the next batch again); nothing reaches the host as
// an exception.
TEST_F(Protocol_Test, RecordsThatCannotGoOutAreReported) {
    auto unit = Attach_Unit(sim::Profile::Named("d110"));  // no proximity, no laps
    ctl.Request_Product_Data();
    std::int16_t n = 4;
    ctl.Start_of_Records(n);
    ctl.Send_Prox_Waypoint();
    ctl.Send_Lap();  // silent: the batch has reported
    ctl.Waypoint()->Lat = 180.0;  // has no semicircle form
    EXPECT_NO_THROW(ctl.Send_Waypoint());
    ctl.Track(nullptr);  // an empty point
    ctl.Send_Track();
    ctl.End_of_Records();

    ASSERT_EQ(rec.errors.size(), 4u);
    EXPECT_EQ(rec.errors[0].message, "GPS model/version does not support Proximity Waypoints");
    EXPECT_EQ(rec.errors[0].packet, Bytes{0});
    EXPECT_EQ(rec.errors[1].code, 6);
    EXPECT_TRUE(rec.errors[1].message.starts_with("Overflow: ")) << rec.errors[1].message;
    EXPECT_TRUE(unit->Sim().Uploaded().waypoints.empty());
    // The empty point went out, and sized as D300 it was refused.
    ASSERT_NE(ctl.Track(), nullptr);
    EXPECT_GT(unit->Sim().Stats().bad_frames, 0);
    EXPECT_EQ(rec.errors[3].message, "No response from device");
    // A new batch reports a missing transfer again.
    ctl.Start_of_Records(n);
    ctl.Send_Lap();
    ASSERT_EQ(rec.errors.size(), 5u);
    EXPECT_EQ(rec.errors[4].message, "GPS model/version does not support Lap Data");
}

// A large log comes down whole and in order: 100,000 points behind one header.
TEST_F(Protocol_Test, HundredThousandTrackPointsArriveInOrder) {
    const sim::Profile profile = sim::Profile::Named("current");
    Data_Set data;
    data.situation = sim::Builtin_Data().situation;
    sim::Add_Generated_Track(data, 100000);
    auto unit = std::make_shared<sim::Virtual_Unit>(profile, data);
    vp->Attach(1, unit);
    ASSERT_TRUE(ctl.PortOpen());

    ctl.Request_Tracks();
    ASSERT_TRUE(vp->Run_Until([&] { return rec.tracks == 1; }, 24 * 3600e3));
    const Data_Set visible = unit->Sim().Visible_Data();
    Data_Set got;
    got.tracks = Tracks_Of(*ctl.Tracks(), visible.tracks, true);
    ASSERT_EQ(got.tracks.size(), 1u);
    EXPECT_EQ(got.tracks[0].points.size(), 100000u);
    EXPECT_EQ(As_Unit_Reads(profile, got).tracks[0].points, visible.tracks[0].points);
    EXPECT_TRUE(rec.errors.empty());
}

}  // namespace
}  // namespace trekcom::testing
