// Faults injected by the simulated receiver (and by a cable that can be cut)
// into downloads and uploads of every kind: each transfer ends as the link's
// error handling says, with re-sends where it can recover and errors 0, 2 or
// 3 where it cannot, never with a crash or a hang, and every record that
// arrived before the fault stays in its collection. Public API and the
// simulated unit only.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <random>

#include "framer.h"
#include "support/host_fixture.h"
#include "trekcom/trekcom.h"
#include "trekcom_sim/unit.h"
#include "usb/sim_usb_driver.h"

namespace trekcom::testing {
namespace {

// An unstuffed packet as Receive shows it, checked by its own checksum.
bool Sound(const Bytes& p) {
    if (p.size() < 6) return false;
    std::uint8_t sum = 0;
    for (std::size_t i = 1; i + 2 < p.size(); ++i) sum = static_cast<std::uint8_t>(sum + p[i]);
    return sum == 0;
}

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

// The count the last records packet from `from` on announced (-1: none came),
// and the packets after it that are records: all but the link's own and the
// completion. On a serial line Receive also shows the packets refused for
// their checksum; USB packets carry none.
std::pair<int, int> Announced_And_Arrived(TrekcomCtl& ctl, const Recorder& rec, std::size_t from = 0,
                                          bool checksummed = true) {
    int announced = -1, arrived = 0;
    for (std::size_t i = from; i < rec.received.size(); ++i) {
        const Bytes& p = rec.received[i];
        if (checksummed && !Sound(p)) continue;
        if (p[1] == ctl.PID_Records()) {
            announced = p[3] | (p[4] << 8);
            arrived = 0;
        } else if (p[1] != ctl.PID_Ack_Byte() && p[1] != ctl.PID_Nak_Byte() && p[1] != ctl.PID_Xfer_Cmplt()) {
            ++arrived;
        }
    }
    return {announced, arrived};
}

std::string Count_Report(int arrived, int announced) {
    return "Incomplete transfer: " + std::to_string(arrived) + " of " + std::to_string(announced) +
           " records received";
}

// A download whose records packet came says, at its end, how many of the
// announced records arrived when that is not all of them; a whole one says
// nothing.
void Expect_Count_Check(TrekcomCtl& ctl, const Recorder& rec, bool checksummed = true) {
    const auto [announced, arrived] = Announced_And_Arrived(ctl, rec, 0, checksummed);
    std::vector<std::string> reports;
    for (const auto& e : rec.errors)
        if (e.code == kIncomplete) reports.push_back(e.message);
    if (announced < 0 || arrived == announced) {
        EXPECT_TRUE(reports.empty()) << reports.front();
    } else {
        EXPECT_EQ(reports, std::vector<std::string>{Count_Report(arrived, announced)});
    }
}

class Faults : public Host_Test, public ::testing::WithParamInterface<std::tuple<Kind, Fault>> {};

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
            records += std::find(ids.begin(), ids.end(), p[1]) != ids.end() && Sound(p);
        if (kind.items(ctl) >= 0) {
            EXPECT_EQ(kind.items(ctl), records);
        }
        if (fault.cut_after >= 0) {
            EXPECT_EQ(records, kRecord_K);
        } else if (fault.error == 0) {
            EXPECT_EQ(unit->Sim().Stats().abandoned, 0);
        }
        Expect_Count_Check(ctl, rec);
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
    // The line falls quiet: no events for half a minute (a unit that
    // corrupts every packet runs through its records first).
    bool quiet = false;
    for (int i = 0; i < 40 && !quiet; ++i) {
        const std::size_t events = rec.order.size();
        Run(30000);
        quiet = rec.order.size() == events;
    }
    EXPECT_TRUE(quiet);
}

INSTANTIATE_TEST_SUITE_P(Table, Faults, ::testing::Combine(::testing::ValuesIn(kKinds), ::testing::ValuesIn(kFaults)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });


// ---------------------------------------------------------------- the same over USB

// A receiver on USB that fails in the middle of a record transfer: the
// download ends within bounded (virtual) time with the transport's error and
// the count report, the records read before the fault stay, and once the
// receiver is back a new download is whole. Zero-length packets after every
// packet cost nothing.
struct Usb_Fault {
    const char* name;
    void (*arm)(Sim_Usb_Receiver&);
    const char* error;  // the transport's report; null: the transfer completes
};

const Usb_Fault kUsb_Faults[] = {
    {"stall", [](Sim_Usb_Receiver& r) { r.unit.Fault_Knobs().stall_after_record = kRecord_K; },
     "No response from device"},
    // The cable goes with record K + 1 on it.
    {"hang_up", [](Sim_Usb_Receiver& r) { r.unit.Fault_Knobs().hang_up_after_record = kRecord_K + 1; },
     "USB device read failed"},
    {"switched_off", [](Sim_Usb_Receiver& r) { r.unit.Fault_Knobs().off_after_record = kRecord_K; },
     "No response from device"},
    // Pulled out by the user: the records packet and K records were read.
    {"unplugged", [](Sim_Usb_Receiver& r) { r.vanish_after_bulk_reads = r.bulk_reads + kRecord_K + 1; },
     "USB device read failed"},
    {"zero_length_packets", [](Sim_Usb_Receiver& r) { r.unit.Fault_Knobs().usb_zero_length = true; }, nullptr},
};

class Usb_Faults : public Host_Test, public ::testing::WithParamInterface<std::tuple<Kind, Usb_Fault>> {
protected:
    Usb_Faults() { ctl.Port(0); }
    std::shared_ptr<Sim_Usb_Receiver> receiver = Plug_In(vp);
};

TEST_P(Usb_Faults, DownloadEndsWithTheErrorAndKeepsWhatCame) {
    const auto& [kind, fault] = GetParam();
    ctl.Request_Product_Data();
    ASSERT_TRUE(rec.errors.empty());
    fault.arm(*receiver);
    const double start = vp->Now_ms();
    const std::size_t from = rec.received.size();
    (ctl.*kind.request)();
    EXPECT_LT(vp->Now_ms() - start, 15000);  // the transport reads the whole transfer inside the request
    const auto [announced, arrived] = Announced_And_Arrived(ctl, rec, from, false);
    ASSERT_GT(announced, kRecord_K + 1) << (rec.errors.empty() ? "" : rec.errors[0].message);
    if (!fault.error) {
        EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
        EXPECT_EQ(arrived, announced);
    } else {
        EXPECT_EQ(arrived, kRecord_K);
        ASSERT_EQ(rec.errors.size(), 2u) << rec.errors[0].message << " | " << rec.errors.back().message;
        EXPECT_EQ(rec.errors[0].message, fault.error);
        EXPECT_EQ(rec.errors[1].message, Count_Report(kRecord_K, announced));
    }
    if (kind.event != &Recorder::routes) {  // route links fill the route in place
        EXPECT_EQ(kind.items(ctl), arrived);
    }
    const std::size_t events = rec.order.size();
    Run(30000);
    EXPECT_EQ(rec.order.size(), events);  // nothing more comes of it

    // Back on, plugged in: the next download is whole.
    receiver->present = true;
    receiver->vanish_after_bulk_reads = -1;
    receiver->unit.Power_On();
    rec.errors.clear();
    const std::size_t again = rec.received.size();
    (ctl.*kind.request)();
    EXPECT_EQ(Announced_And_Arrived(ctl, rec, again, false), std::make_pair(announced, announced));
    EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
}

INSTANTIATE_TEST_SUITE_P(Table, Usb_Faults,
                         ::testing::Combine(::testing::Values(kKinds[0], kKinds[2], kKinds[3], kKinds[4]),
                                            ::testing::ValuesIn(kUsb_Faults)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

// A host that abandons its waits (Platform::Interrupt, as on Ctrl-C) ends a
// stalled USB read within a second, not after the ten seconds a stall is
// otherwise given; the records read so far stay.
TEST_F(Usb_Faults, AnInterruptEndsAStalledRead) {
    ctl.Request_Product_Data();
    receiver->unit.Fault_Knobs().stall_after_record = kRecord_K;
    auto alarm = vp->Create_Timer();
    alarm->Interval(500);
    alarm->Tick = [&] { vp->Interrupt(); };
    alarm->Enabled(true);
    const double start = vp->Now_ms();
    ctl.Request_Waypoints();
    EXPECT_LT(vp->Now_ms() - start, 1500);
    EXPECT_EQ(ctl.Waypoints()->Count(), kRecord_K);
}

// ---------------------------------------------------------------- every request ends once

// A request ends exactly once: answered (its records or its reply came),
// refused (the unit would not take the host's packet: error 2) or timed out
// ("No response", error 0); never two of those, never none, and then the
// line is quiet. Damaged packets (error 3) and a short count (error 7) are
// reports on the way, not ends.
// Random requests against random faults; a failure prints its seed, and
// TREKCOM_SEED=<n> replays it.
struct Request {
    const char* name;
    const char* profile;
    void (*request)(TrekcomCtl&);
    int Recorder::*event;              // the download's event; null: see answered
    bool (*answered)(TrekcomCtl&, const Recorder&);  // for requests without an event
    bool usb = false;                  // the unit on USB (its faults: stalls, hang-ups, power)
    bool counted = true;               // error 7 reports a short count; else it ends the request
};

template <void (TrekcomCtl::*request)()>
void Ask(TrekcomCtl& c) {
    (c.*request)();
}

bool Picture_Came(TrekcomCtl&, const Recorder& r) {
    return !r.image_pcts.empty() && r.image_pcts.back() == 100;
}

bool Completion_Came(TrekcomCtl& c, const Recorder& r) {
    return std::any_of(r.received.begin(), r.received.end(),
                       [&](const Bytes& p) { return Sound(p) && p[1] == c.PID_Xfer_Cmplt(); });
}

const Request kRequests[] = {
    {"waypoints", "current", Ask<&TrekcomCtl::Request_Waypoints>, &Recorder::waypoints, nullptr},
    {"proximity", "legacy25", Ask<&TrekcomCtl::Request_Prox_Waypoints>, &Recorder::waypoints, nullptr},
    {"routes", "d110", Ask<&TrekcomCtl::Request_Routes>, &Recorder::routes, nullptr},
    {"tracks", "current", Ask<&TrekcomCtl::Request_Tracks>, &Recorder::tracks, nullptr},
    {"laps", "current", Ask<&TrekcomCtl::Request_Laps>, nullptr, Completion_Came},
    {"flightbook", "aviator", Ask<&TrekcomCtl::Request_Flightbook>, nullptr, Completion_Came},
    {"almanac", "legacy29-400", Ask<&TrekcomCtl::Request_Almanac_Data>, nullptr, Completion_Came},
    {"date_time", "current", Ask<&TrekcomCtl::Request_Date_Time>, nullptr,
     [](TrekcomCtl& c, const Recorder&) { return c.Date_Time() != nullptr; }},
    {"position", "current", Ask<&TrekcomCtl::Request_Position_Data>, nullptr,
     [](TrekcomCtl& c, const Recorder&) { return c.Position() != nullptr; }},
    {"screen", "current", Ask<&TrekcomCtl::Request_Display>, nullptr, Picture_Came, false, false},
    {"screen_usb", "d110", Ask<&TrekcomCtl::Request_Display>, nullptr, Picture_Came, true, false},
    {"icon_usb", "d110", [](TrekcomCtl& c) { c.Request_Icon(1); }, nullptr,
     [](TrekcomCtl&, const Recorder& r) { return !r.icon_bmp.empty(); }, true, false},
    {"waypoints_usb", "current", Ask<&TrekcomCtl::Request_Waypoints>, &Recorder::waypoints, nullptr, true},
    {"runs_usb", "fitness", Ask<&TrekcomCtl::Request_Runs>, &Recorder::runs, nullptr, true},
    {"courses_usb", "fitness", Ask<&TrekcomCtl::Request_Courses>, &Recorder::courses, nullptr, true},
};

// Faults the link recovers from or gives up on once; with `beyond`, faults
// that make it give up again and again: a unit that refuses six packets or
// more, or damages every one it sends.
sim::Faults Random_Faults(std::mt19937& rng, bool beyond) {
    sim::Faults f;
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    if (beyond) {
        if (pick(2)) f.nak_first = 6 + pick(6);
        else (pick(2) ? f.corrupt_every : f.drop_byte_every) = 1;
        if (pick(2)) f.garbage = sim::Dle_Etx_Noise();
        return f;
    }
    switch (pick(8)) {
        case 0: break;
        case 1: f.nak_first = pick(6); break;
        case 2: f.corrupt_every = 2 + pick(4); break;
        case 3: f.drop_byte_every = 2 + pick(4); break;
        case 4: f.stall_after_record = pick(4); break;
        case 5: f.hang_up_after_record = 1 + pick(4); break;
        case 6: f.off_after_record = pick(4); break;
        default:
            f.garbage = sim::Dle_Etx_Noise();
            f.corrupt_every = 2 + pick(3);
            f.nak_first = pick(6);
    }
    return f;
}

void Every_Request_Ends_Once(std::uint32_t first, int n, bool beyond) {
    const char* replay = std::getenv("TREKCOM_SEED");
    if (replay) first = static_cast<std::uint32_t>(std::strtoul(replay, nullptr, 10));
    for (std::uint32_t seed = first; seed < first + (replay ? 1 : static_cast<std::uint32_t>(n)); ++seed) {
        std::mt19937 rng(seed);
        const Request& r = kRequests[rng() % std::size(kRequests)];
        SCOPED_TRACE("TREKCOM_SEED=" + std::to_string(seed) + " " + r.name);
        auto vp = std::make_shared<VirtualPlatform>();
        TrekcomCtl ctl(vp);
        std::shared_ptr<sim::Virtual_Unit> on_line;
        std::shared_ptr<Sim_Usb_Receiver> on_usb;
        if (r.usb) {
            on_usb = Plug_In(vp, sim::Profile::Named(r.profile));
            ctl.Port(0);
        } else {
            on_line = std::make_shared<sim::Virtual_Unit>(sim::Profile::Named(r.profile));
            vp->Attach(1, on_line);
        }
        sim::Unit& unit = r.usb ? on_usb->unit : on_line->Sim();
        Recorder rec;
        ctl.Advise(rec);
        ctl.DebugLog(true);  // the trace of every kind of packet, refused ones too
        ASSERT_TRUE(ctl.PortOpen());
        ctl.Request_Product_Data();
        ASSERT_TRUE(rec.errors.empty());
        ctl.Date_Time(nullptr);
        ctl.Position(nullptr);
        rec = Recorder{};
        const sim::Faults f = Random_Faults(rng, beyond);
        unit.Fault_Knobs() = f;
        SCOPED_TRACE("faults: nak " + std::to_string(f.nak_first) + ", corrupt " + std::to_string(f.corrupt_every) +
                     ", drop " + std::to_string(f.drop_byte_every) + ", noise " + std::to_string(f.garbage.size()) +
                     ", stall/hang-up/off " + std::to_string(f.stall_after_record) + "/" +
                     std::to_string(f.hang_up_after_record) + "/" + std::to_string(f.off_after_record));

        r.request(ctl);
        std::size_t events = 0;
        for (int i = 0; i < 20; ++i) {  // until nothing more happens for a minute
            events = rec.order.size();
            vp->Advance(60000);
            if (rec.order.size() == events) break;
        }
        EXPECT_EQ(rec.order.size(), events) << "the line never fell quiet";
        const int answers = r.event ? rec.*r.event : r.answered(ctl, rec);
        // A link that gives up (2, 3) has said how its exchange ended: no
        // "No response" follows for it. A request is two exchanges, the
        // unit's identification and then the transfer, and the transfer goes
        // ahead when identification failed.
        int ends = 0;
        for (const auto& e : rec.errors) {
            EXPECT_TRUE(e.code == 0 || e.code == 2 || e.code == 3 || e.code == 7) << e.code << " " << e.message;
            ends += e.code == 0 || e.code == 2 || (beyond && e.code == 3) || (!r.counted && e.code == 7);
        }
        if (r.event || r.answered == Completion_Came) Expect_Count_Check(ctl, rec, !r.usb);
        EXPECT_LE(answers, 1);
        const int exchanges = beyond ? 2 : 1;
        EXPECT_GE(answers + ends, 1) << "the request never ended; errors: " << Errors(rec);
        EXPECT_LE(answers + ends, exchanges) << answers << " answers; errors: " << Errors(rec);
        if (::testing::Test::HasFailure()) return;
    }
}

TEST(Exchange, EveryRequestEndsExactlyOnce) { Every_Request_Ends_Once(7000, 400, false); }

// Once the link has given up (error 2 after the sixth NAK of the host's
// packet, error 3 after the sixth damaged packet), that is the exchange's
// end: no watchdog re-send, no "No response" after it.
TEST(Exchange, EveryExchangeEndsOnceWhenTheLinkGivesUp) { Every_Request_Ends_Once(9000, 120, true); }

// ---------------------------------------------------------------- the raised line

// A big download with the automatic line rate: raised to the fastest rate
// before it, and back at the host's rate, at both ends, however it ends.
// The end is armed once the records flow, so that it is the raised line
// that fails.
struct Line_End {
    const char* name;
    void (*end)(sim::Unit&, VirtualPlatform&, std::optional<TrekcomCtl>&);
};

const Line_End kLine_Ends[] = {
    {"completed", [](sim::Unit&, VirtualPlatform&, std::optional<TrekcomCtl>&) {}},
    {"time_out", [](sim::Unit& u, VirtualPlatform&, std::optional<TrekcomCtl>&) { u.Fault_Knobs().stall_after_record = 500; }},
    {"refused_packets", [](sim::Unit& u, VirtualPlatform&, std::optional<TrekcomCtl>&) { u.Fault_Knobs().corrupt_every = 1; }},
    {"interrupted_then_closed",
     [](sim::Unit&, VirtualPlatform& vp, std::optional<TrekcomCtl>& ctl) {
         vp.Interrupt();
         ctl->PortClose();
     }},
    // A host that goes away mid-transfer.
    {"control_destroyed", [](sim::Unit&, VirtualPlatform&, std::optional<TrekcomCtl>& ctl) { ctl.reset(); }},
};

class Raised_Line : public ::testing::TestWithParam<Line_End> {};

TEST_P(Raised_Line, EndsAtTheHostsRateAtBothEnds) {
    auto vp = std::make_shared<VirtualPlatform>();
    std::optional<TrekcomCtl> ctl(std::in_place, vp);
    sim::Data_Set data = sim::Builtin_Data();
    sim::Add_Generated_Track(data, 2000);
    sim::Options paced;  // the records take line time: the end comes among them
    paced.pace = true;
    auto unit = std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"), data, paced);
    vp->Attach(1, unit);
    ctl->Settings("9600,N,8,1");
    ctl->Auto_Baud_Rate(true);
    ASSERT_TRUE(ctl->PortOpen());
    ctl->Request_Tracks();
    EXPECT_EQ(unit->Sim().Baud(), 115200);
    vp->Advance(100);
    ASSERT_LT(ctl->Tracks()->Count(), 500);
    GetParam().end(unit->Sim(), *vp, ctl);
    vp->Clear_Interrupt();
    vp->Advance(60000);
    EXPECT_EQ(unit->Sim().Baud(), 9600);
    if (ctl) {
        EXPECT_EQ(ctl->Settings(), "9600,N,8,1");
    }
}

INSTANTIATE_TEST_SUITE_P(Table, Raised_Line, ::testing::ValuesIn(kLine_Ends),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace trekcom::testing
