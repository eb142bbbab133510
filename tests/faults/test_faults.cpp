// Faults injected by the simulated receiver (and by a cable that can be cut)
// into downloads and uploads of every kind: each transfer ends as the link's
// error handling says, with re-sends where it can recover and errors 0, 2 or
// 3 where it cannot, never with a crash or a hang, and every record that
// arrived before the fault stays in its collection.
#include <algorithm>
#include <functional>
#include <optional>
#include <random>

#include "protocol/protocol_fixture.h"

namespace trekcom::testing {
namespace {

// The unit at the end of a cable that the test can cut: the host's bytes no
// longer reach it, and (pulled out) the host's port sees a line error.
struct Cable : VirtualDevice {
    explicit Cable(std::shared_ptr<sim::Virtual_Unit> u) : unit(std::move(u)) {}
    void Attached(VirtualLine& l) override {
        line = &l;
        unit->Attached(l);
    }
    void Host_Wrote(const Bytes& bytes) override {
        if (!cut) unit->Host_Wrote(bytes);
    }
    void Wake() override { unit->Wake(); }
    void Cut(bool pulled) {
        cut = true;
        if (pulled) line->Break();
    }

    std::shared_ptr<sim::Virtual_Unit> unit;
    VirtualLine* line = nullptr;
    bool cut = false;
};

// ---------------------------------------------------------------- kinds

// One batch sending back what the kind's download left; after_record runs
// after each record sent.
using Upload = void (*)(TrekcomCtl&, const std::function<void()>& after_record);

template <typename T, typename Send>
void Batch(TrekcomCtl& ctl, const std::vector<std::shared_ptr<T>>& items, Send send,
           const std::function<void()>& after_record) {
    std::int16_t n = static_cast<std::int16_t>(items.size());
    ctl.Start_of_Records(n);
    for (const auto& item : items) {
        send(item);
        after_record();
    }
    ctl.End_of_Records();
}

template <typename T>
std::vector<std::shared_ptr<T>> All(const Collection<T>& c) {
    return {c.begin(), c.end()};
}

struct Kind {
    const char* name;
    const char* profile;
    void (TrekcomCtl::*request)();
    int Recorder::*event;  // null: the download ends without one
    std::vector<std::uint8_t> (*record_ids)(TrekcomCtl&);
    std::int32_t (*items)(TrekcomCtl&);  // what its collections hold; -1: no collection
    Upload upload;                       // null: a download case
};

const Kind kKinds[] = {
    {"waypoints", "current", &TrekcomCtl::Request_Waypoints, &Recorder::waypoints,
     [](TrekcomCtl& c) { return std::vector<std::uint8_t>{c.PID_Wpt_Data()}; },
     [](TrekcomCtl& c) { return c.Waypoints()->Count(); }, nullptr},
    {"proximity", "current", &TrekcomCtl::Request_Prox_Waypoints, &Recorder::waypoints,
     [](TrekcomCtl& c) { return std::vector<std::uint8_t>{c.PID_Prx_Wpt_Data()}; },
     [](TrekcomCtl& c) { return c.Waypoints()->Count(); }, nullptr},
    {"routes", "current", &TrekcomCtl::Request_Routes, &Recorder::routes,
     [](TrekcomCtl& c) { return std::vector<std::uint8_t>{c.PID_Rte_Hdr(), c.PID_Rte_Wpt_Data()}; },
     [](TrekcomCtl& c) { return c.Routes()->Count() + c.Waypoints()->Count(); }, nullptr},
    {"tracks", "current", &TrekcomCtl::Request_Tracks, &Recorder::tracks,
     [](TrekcomCtl& c) { return std::vector<std::uint8_t>{c.PID_Trk_Hdr(), c.PID_Trk_Data()}; },
     [](TrekcomCtl& c) { return c.Tracks()->Count(); }, nullptr},
    {"laps", "current", &TrekcomCtl::Request_Laps, nullptr,
     [](TrekcomCtl& c) { return std::vector<std::uint8_t>{c.PID_Lap()}; },
     [](TrekcomCtl& c) { return c.Laps()->Count(); }, nullptr},
    {"flightbook", "aviator", &TrekcomCtl::Request_Flightbook, nullptr,
     [](TrekcomCtl& c) { return std::vector<std::uint8_t>{c.PID_Flightbook_Record()}; },
     [](TrekcomCtl& c) { return c.Flightbook_Records()->Count(); }, nullptr},
    {"almanac", "current", &TrekcomCtl::Request_Almanac_Data, nullptr,
     [](TrekcomCtl& c) { return std::vector<std::uint8_t>{c.PID_Almanac_Data()}; },
     [](TrekcomCtl&) { return -1; }, nullptr},

    {"waypoints_up", "current", &TrekcomCtl::Request_Waypoints, nullptr, nullptr, nullptr,
     [](TrekcomCtl& c, const std::function<void()>& after) {
         Batch(c, All(*c.Waypoints()), [&](const auto& w) { c.Waypoint(w); c.Send_Waypoint(); }, after);
     }},
    {"proximity_up", "current", &TrekcomCtl::Request_Prox_Waypoints, nullptr, nullptr, nullptr,
     [](TrekcomCtl& c, const std::function<void()>& after) {
         Batch(c, All(*c.Waypoints()), [&](const auto& w) { c.Waypoint(w); c.Send_Prox_Waypoint(); }, after);
     }},
    {"routes_up", "current", &TrekcomCtl::Request_Routes, nullptr, nullptr, nullptr,
     [](TrekcomCtl& c, const std::function<void()>& after) {
         // Headers and their waypoints, without links.
         const auto routes = All(*c.Routes());
         std::int16_t n = 0;
         for (const auto& r : routes) n = static_cast<std::int16_t>(n + 1 + r->Waypoints->Count());
         c.Start_of_Records(n);
         for (const auto& r : routes) {
             c.Route(r);
             c.Send_Route_Header();
             after();
             for (const auto& w : *r->Waypoints) {
                 c.Waypoint(w);
                 c.Send_Route_Waypoint();
                 after();
             }
         }
         c.End_of_Records();
     }},
    // A unit whose points carry the size they are sent with.
    {"tracks_up", "legacy25", &TrekcomCtl::Request_Tracks, nullptr, nullptr, nullptr,
     [](TrekcomCtl& c, const std::function<void()>& after) {
         Batch(c, All(*c.Tracks()), [&](const auto& t) { c.Track(t); c.Send_Track(); }, after);
     }},
    {"laps_up", "current", &TrekcomCtl::Request_Laps, nullptr, nullptr, nullptr,
     [](TrekcomCtl& c, const std::function<void()>& after) {
         Batch(c, All(*c.Laps()), [&](const auto& l) { c.Lap(l); c.Send_Lap(); }, after);
     }},
    {"flightbook_up", "aviator", &TrekcomCtl::Request_Flightbook, nullptr, nullptr, nullptr,
     [](TrekcomCtl& c, const std::function<void()>& after) {
         Batch(c, All(*c.Flightbook_Records()),
               [&](const auto& f) { c.Flightbook_Record(f); c.Send_Flightbook_Record(); }, after);
     }},
    {"almanac_up", "current", &TrekcomCtl::Request_Almanac_Data, nullptr, nullptr, nullptr,
     [](TrekcomCtl& c, const std::function<void()>& after) {
         Batch(c, std::vector<std::shared_ptr<cAlmanac>>{c.Almanac()}, [&](const auto&) { c.Send_Almanac_Data(); },
               after);
     }},
};

// ---------------------------------------------------------------- faults

constexpr int kRecord_K = 1;
constexpr std::int16_t kIncomplete = 7;

struct Fault {
    const char* name;
    void (*arm)(sim::Faults&);  // the unit's knobs
    int cut_after = -1;         // uploads: the cable goes after this many records
    bool pulled = false;        //   and the host's port sees it go
    // How it ends: 0 completed without an error; else the error code the
    // host reports (a download then raises no event).
    int error = 0;
    // The unit's faults on its data packets spare its ACKs: uploads complete.
    bool spares_uploads = false;
};

const Fault kFaults[] = {
    // Five NAKs are re-sent through; the sixth gives up.
    {"nak_storm", [](sim::Faults& f) { f.nak_first = 5; }, -1, false, 0},
    {"nak_storm_unending", [](sim::Faults& f) { f.nak_first = 1000000; }, -1, false, 2},
    {"corrupt_checksums", [](sim::Faults& f) { f.corrupt_every = 3; }, -1, false, 0},
    // The host refuses every packet and gives up in the end.
    {"corrupt_every_packet", [](sim::Faults& f) { f.corrupt_every = 1; }, -1, false, 3, true},
    {"dropped_bytes", [](sim::Faults& f) { f.drop_byte_every = 3; }, -1, false, 0},
    {"garbage_between_frames", [](sim::Faults& f) { f.garbage = {0x00, 0xFF, 0x03, '$', 'G', '\r', '\n', 0x55}; },
     -1, false, 0},
    // Noise holding DLE ETX costs only itself: every frame after it is found.
    {"dle_etx_noise_between_frames", [](sim::Faults& f) { f.garbage = sim::Dle_Etx_Noise(); }, -1, false, 0},
    {"stall_after_record", [](sim::Faults& f) { f.stall_after_record = kRecord_K; }, kRecord_K, false, 0},
    // A download's line goes with record K + 1 still on it.
    {"line_closed_mid_transfer", [](sim::Faults& f) { f.hang_up_after_record = kRecord_K + 1; }, kRecord_K, true, 0},
    {"switched_off_mid_transfer", [](sim::Faults& f) { f.off_after_record = kRecord_K; }, kRecord_K, false, 0},
};

bool Ends_Without_Transfer(const Fault& f) { return f.error != 0 || f.cut_after >= 0; }

class Faults : public Protocol_Test, public ::testing::WithParamInterface<std::tuple<Kind, Fault>> {
protected:
    // A download whose records packet came says, at its end, how many of the
    // announced records arrived when that is not all of them; a whole one
    // says nothing.
    void Expect_Count_Check() {
        // Every good packet after the records packet, but the link's own and
        // the completion, is a record of the transfer.
        std::optional<std::uint16_t> announced;
        std::int32_t records = 0;
        for (const Bytes& p : rec.received) {
            if (link::Calc_Checksum(p) != p[p.size() - 3]) continue;
            if (p[1] == ctl.PID_Records()) {
                announced = static_cast<std::uint16_t>(p[3] | (p[4] << 8));
                records = 0;
            } else if (p[1] != ctl.PID_Ack_Byte() && p[1] != ctl.PID_Nak_Byte() && p[1] != ctl.PID_Xfer_Cmplt()) {
                ++records;
            }
        }
        std::vector<std::string> reports;
        for (const auto& e : rec.errors)
            if (e.code == kIncomplete) reports.push_back(e.message);
        if (!announced || records == *announced) {
            EXPECT_TRUE(reports.empty()) << reports.front();
        } else {
            EXPECT_EQ(reports, std::vector<std::string>{"Incomplete transfer: " + std::to_string(records) + " of " +
                                                        std::to_string(*announced) + " records received"});
        }
    }
};

TEST_P(Faults, TransferEndsAsTheErrorHandlingSays) {
    // Plain references, not a structured binding: clang 14 cannot capture those.
    const auto& kind = std::get<0>(GetParam());
    const auto& fault = std::get<1>(GetParam());
    auto unit = std::make_shared<sim::Virtual_Unit>(sim::Profile::Named(kind.profile));
    auto cable = std::make_shared<Cable>(unit);
    vp->Attach(1, cable);
    ASSERT_TRUE(ctl.PortOpen());
    const sim::Counters& stats = unit->Sim().Stats();
    bool cut_short = fault.cut_after >= 0;  // packets were still to come when the line went

    if (kind.upload) {
        (ctl.*kind.request)();  // what goes back up
        Run(5000);
        ASSERT_TRUE(rec.errors.empty()) << rec.errors.front().message;
        const long before = stats.records_uploaded;
        fault.arm(unit->Sim().Fault_Knobs());
        if (fault.cut_after >= 0) unit->Sim().Fault_Knobs() = {};
        int sent = 0;
        kind.upload(ctl, [&] {
            if (++sent == fault.cut_after) cable->Cut(fault.pulled);
        });
        Run(10000);
        const long uploaded = stats.records_uploaded - before;
        ASSERT_GT(sent, 0);
        cut_short = cut_short && sent >= fault.cut_after;  // the completion packet is still to come
        if (fault.cut_after >= 0) {
            // Every record acknowledged before the cable went is the unit's.
            EXPECT_EQ(uploaded, std::min(sent, fault.cut_after));
        } else if (fault.error == 0 || fault.spares_uploads) {
            EXPECT_EQ(uploaded, sent);
        }
    } else {
        fault.arm(unit->Sim().Fault_Knobs());
        (ctl.*kind.request)();
        if (kind.event && !Ends_Without_Transfer(fault)) {
            EXPECT_TRUE(vp->Run_Until([&] { return rec.*kind.event == 1; }, 120000));
        }
        Run(20000);
        if (kind.event) {
            EXPECT_EQ(rec.*kind.event, Ends_Without_Transfer(fault) ? 0 : 1);
        }
        // Every record received is in its collection.
        const std::vector<std::uint8_t> ids = kind.record_ids(ctl);
        std::int32_t records = 0;
        // Receive also shows the packets refused for their checksum.
        for (const Bytes& p : rec.received)
            records += std::find(ids.begin(), ids.end(), p[1]) != ids.end() &&
                       link::Calc_Checksum(p) == p[p.size() - 3];
        if (kind.items(ctl) >= 0) {
            EXPECT_EQ(kind.items(ctl), records);
        }
        if (fault.cut_after >= 0) {
            EXPECT_EQ(records, kRecord_K);
        } else if (fault.error == 0) {
            EXPECT_EQ(unit->Sim().Stats().abandoned, 0);
        }
        Expect_Count_Check();
    }

    // The errors raised: none when the link recovered, else the fault's own.
    const int expected = fault.cut_after >= 0 || (kind.upload && fault.spares_uploads) ? 0 : fault.error;
    if (expected == 0 && !cut_short) {
        EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
    } else {
        ASSERT_FALSE(rec.errors.empty());
        EXPECT_EQ(rec.errors.front().code, expected) << rec.errors.front().message;
        for (const auto& e : rec.errors)
            EXPECT_TRUE(e.code == 0 || e.code == 2 || e.code == 3 || e.code == kIncomplete) << e.code;
    }
    // The line falls quiet: no watchdog, and no events for half a minute
    // (a unit that corrupts every packet runs through its records first).
    bool quiet = false;
    for (int i = 0; i < 40 && !quiet; ++i) {
        const std::size_t events = rec.order.size();
        Run(30000);
        quiet = rec.order.size() == events && !C().tmrTimeout->Enabled();
    }
    EXPECT_TRUE(quiet);
}

INSTANTIATE_TEST_SUITE_P(Table, Faults, ::testing::Combine(::testing::ValuesIn(kKinds), ::testing::ValuesIn(kFaults)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

// The control against the simulated unit on random sets and random stall
// points, over a random fault: whatever arrived stays, and the control's
// count report says exactly how many of how many, or nothing when all came.
TEST(RandomStalls, CountReportMatchesWhatTheUnitSent) {
    std::mt19937 random(18);
    for (int round = 0; round < 24; ++round) {
        sim::Data_Set data = sim::Builtin_Data();
        const int n = 1 + static_cast<int>(random() % 40);
        data.waypoints.resize(static_cast<std::size_t>(n), data.waypoints.front());
        for (int i = 0; i < n; ++i) {
            sim::Waypoint& w = data.waypoints[static_cast<std::size_t>(i)];
            w.ident = "W" + std::to_string(i);
            w.lat = static_cast<std::int32_t>(random());
        }
        auto vp = std::make_shared<VirtualPlatform>();
        auto unit = std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"), data);
        vp->Attach(1, unit);
        TrekcomCtl ctl(vp);
        Recorder rec;
        ctl.Advise(rec);
        ASSERT_TRUE(ctl.PortOpen());
        // Stall or switched off after record k, or the line closed with
        // record k + 1 on it; k = n: no fault.
        const int k = static_cast<int>(random() % static_cast<unsigned>(n + 1));
        sim::Faults& f = unit->Sim().Fault_Knobs();
        const std::pair<int*, int> knobs[] = {{&f.stall_after_record, k}, {&f.hang_up_after_record, k + 1},
                                              {&f.off_after_record, k}};
        if (k < n) {
            const auto& [knob, value] = knobs[random() % 3];
            *knob = value;
        }
        ctl.Request_Waypoints();
        vp->Advance(30000);

        std::vector<std::string> got, sent;
        for (const auto& w : *ctl.Waypoints()) got.push_back(w->Ident);
        for (int i = 0; i < k; ++i) sent.push_back("W" + std::to_string(i));
        EXPECT_EQ(got, sent) << round;
        std::vector<std::string> reports;
        for (const auto& e : rec.errors)
            if (e.code == kIncomplete) reports.push_back(e.message);
        if (k == n) {
            EXPECT_TRUE(rec.errors.empty()) << round << ": " << rec.errors.front().message;
        } else {
            EXPECT_EQ(reports, std::vector<std::string>{"Incomplete transfer: " + std::to_string(k) + " of " +
                                                        std::to_string(n) + " records received"})
                << round;
        }
    }
}

// The receiver switched off in the middle of the PVT stream: the watchdog
// commands the stream again every two seconds and says so, the unanswered
// commands raise error 0 at most, the last record stays, and the stream resumes once it is back on.
TEST_F(Protocol_Test, ReceiverSwitchedOffMidPvt) {
    auto unit = Attach_Unit(sim::Profile::Named("current"));
    ctl.Pvt_Data_Start();
    Run(3500);
    const double lat = ctl.PvtData()->Lat;
    ASSERT_NE(lat, 0);
    const std::size_t before = rec.received.size();
    // The power button: the unit's own off command.
    unit->Sim().Host_Wrote(link::Stuff_Packet(link::Make_Packet(ctl.PID_Command_Data(), {ctl.CMND_Turn_Off_Pwr(), 0})));
    ASSERT_FALSE(unit->Sim().Powered());
    const std::size_t debug_before = rec.debug.size();
    Run(10000);
    EXPECT_EQ(ctl.PvtData()->Lat, lat);
    EXPECT_LE(rec.received.size(), before + 1);  // at most the off command's ACK
    EXPECT_GE(rec.debug.size(), debug_before + 4);
    // The re-commands go unanswered: "No response" (0) is all that is raised.
    for (const auto& e : rec.errors) EXPECT_EQ(e.code, 0) << e.message;

    unit->Sim().Power_On();
    const std::size_t off = rec.received.size();
    EXPECT_TRUE(vp->Run_Until([&] { return rec.received.size() >= off + 3; }, 10000));
    EXPECT_TRUE(unit->Sim().Pvt_On());
    ctl.Pvt_Data_Stop();
}

}  // namespace
}  // namespace trekcom::testing
