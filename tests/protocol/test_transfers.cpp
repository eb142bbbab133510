// Downloads, record counts and upload framing against the simulated receiver.
#include "protocol_fixture.h"

namespace trekcom::testing {
namespace {

// How many packets a unit announces for each kind (its records count).
std::int16_t Route_Packets(const sim::Data_Set& d, const sim::Profile& p) {
    std::size_t n = 0;
    for (const auto& r : d.routes) n += 1 + r.points.size() + (p.route_link_type && !r.points.empty() ? r.points.size() - 1 : 0);
    return static_cast<std::int16_t>(n);
}
std::int16_t Track_Packets(const sim::Data_Set& d, const sim::Profile& p) {
    std::size_t n = 0;
    for (const auto& t : d.tracks) n += (p.track_protocol != 300 && p.track_header_type ? 1 : 0) + t.points.size();
    return static_cast<std::int16_t>(n);
}

struct Count_Case {
    const char* profile;
    bool prox, tracks;  // whether a count comes (else -1)
    std::size_t unanswered;  // "No response from device" reports
};

class Counts : public Protocol_Test, public ::testing::WithParamInterface<Count_Case> {};

TEST_P(Counts, GivesTheFourCountsAndSuppressesCompletionUntilTheNextRequest) {
    auto unit = Attach_Unit(sim::Profile::Named(GetParam().profile));
    const sim::Data_Set& d = unit->Sim().Data();
    const sim::Profile& p = unit->Sim().Unit_Profile();
    ctl.Request_Counts();

    ASSERT_EQ(rec.counts.size(), 1u);
    const auto& c = rec.counts[0];
    EXPECT_EQ(c.w, static_cast<std::int16_t>(d.waypoints.size()));
    EXPECT_EQ(c.p, GetParam().prox ? static_cast<std::int16_t>(d.proximity.size()) : -1);
    EXPECT_EQ(c.r, Route_Packets(d, p));
    EXPECT_EQ(c.t, GetParam().tracks ? Track_Packets(d, p) : -1);
    EXPECT_EQ(ctl.Counts()->Waypoint_Records, c.w);
    EXPECT_EQ(ctl.Counts()->Prox_Waypoint_records, c.p);
    EXPECT_EQ(ctl.Counts()->Route_Records, c.r);
    EXPECT_EQ(ctl.Counts()->Track_Records, c.t);
    EXPECT_EQ(ctl.Incoming_Records_Count(), 0);
    ASSERT_EQ(rec.errors.size(), GetParam().unanswered);
    for (const auto& e : rec.errors) EXPECT_EQ(e.message, "No response from device");
    for (const Bytes& p : rec.received) EXPECT_NE(p[1], ctl.PID_Records());  // no Receive while counting

    // The unit stopped before its first record, and stays quiet.
    Run(5000);
    EXPECT_EQ(rec.Download_Events(), 0);
    // A completion packet now raises nothing, until the next request.
    C().Dispatch_Packet(link::Make_Packet(ctl.PID_Xfer_Cmplt(), {ctl.CMND_Transfer_Wpt(), 0}));
    EXPECT_EQ(rec.waypoints, 0);
    ctl.Request_Waypoints();
    EXPECT_TRUE(vp->Run_Until([&] { return rec.waypoints == 1; }, 30000));
}

INSTANTIATE_TEST_SUITE_P(Profiles, Counts,
                         ::testing::Values(Count_Case{"current", true, true, 0}, Count_Case{"d110", false, true, 0},
                                           Count_Case{"legacy25", true, true, 0},
                                           // Known by the table, it keeps the L001 proximity command,
                                           // which it does not answer.
                                           Count_Case{"l002", false, false, 1}),
                         [](const auto& info) { return std::string(info.param.profile); });

// The records packet counts in 16 bits; what arrives is counted in full and
// compared in those 16 bits (a count stuck at 65,535 met by anything from
// there up). A mismatch names the count arrived and the nearest announced one.
TEST_F(Protocol_Test, DownloadCountIsCheckedInSixteenBits) {
    struct Case {
        std::uint16_t announced;
        std::uint32_t sent;
        const char* report;  // null: the transfer is whole
    };
    const Case cases[] = {
        {6, 6, nullptr},
        {6, 5, "Incomplete transfer: 5 of 6 records received"},
        {6, 7, "Incomplete transfer: 7 of 6 records received"},
        {0, 0, nullptr},
        {0, 65536, nullptr},
        {70000 % 65536, 70000, nullptr},
        {70000 % 65536, 69999, "Incomplete transfer: 69999 of 70000 records received"},
        {65535, 65535, nullptr},
        {65535, 100000, nullptr},
        {65535, 65534, "Incomplete transfer: 65534 of 65535 records received"},
        {40000, 39999, "Incomplete transfer: 39999 of 40000 records received"},
    };
    const Bytes point = link::Make_Packet(ctl.PID_Trk_Data(), Bytes(24, 0));
    for (const Case& c : cases) {
        rec.errors.clear();
        ctl.Tracks()->Clear();
        C().Dispatch_Packet(link::Make_Packet(ctl.PID_Records(), {static_cast<std::uint8_t>(c.announced),
                                                                   static_cast<std::uint8_t>(c.announced >> 8)}));
        for (std::uint32_t i = 0; i < c.sent; ++i) C().Dispatch_Packet(point);
        C().Dispatch_Packet(link::Make_Packet(ctl.PID_Xfer_Cmplt(), {ctl.CMND_Transfer_Trk(), 0}));
        if (!c.report) {
            EXPECT_TRUE(rec.errors.empty()) << c.sent << ": " << rec.errors.front().message;
            continue;
        }
        ASSERT_EQ(rec.errors.size(), 1u) << c.sent;
        EXPECT_EQ(rec.errors[0].code, 7);
        EXPECT_EQ(rec.errors[0].message, c.report);
        EXPECT_EQ(ctl.Tracks()->Count(), static_cast<std::int32_t>(c.sent));  // kept all the same
    }
}

// Identification, the dispatcher and the counts write into Product_Data and
// Counts; a host that set them to null gets fresh objects filled, not a crash.
TEST_F(Protocol_Test, NullProductDataAndCountsAreFilledAfresh) {
    auto unit = Attach_Unit(sim::Profile::Named("current"));
    ctl.Product_Data(nullptr);
    ctl.Counts(nullptr);
    ASSERT_TRUE(ctl.Product_Data());
    ASSERT_TRUE(ctl.Counts());
    ctl.Request_Counts();
    EXPECT_EQ(ctl.Counts()->Waypoint_Records, static_cast<std::int16_t>(unit->Sim().Data().waypoints.size()));
    EXPECT_EQ(ctl.Product_Data()->Product_ID, unit->Sim().Unit_Profile().product_id);
    ctl.Product_Data(nullptr);
    C().Dispatch_Packet(link::Make_Packet(ctl.PID_Unit_ID(), {1, 0, 0, 0}));
    EXPECT_EQ(ctl.Product_Data()->Unit_ID, "1");
    ctl.Product_Data(nullptr);
    ctl.Request_Waypoints();
    EXPECT_TRUE(vp->Run_Until([&] { return rec.waypoints == 1; }, 30000));
    EXPECT_EQ(ctl.Product_Data()->Product_ID, unit->Sim().Unit_Profile().product_id);
    EXPECT_TRUE(rec.errors.empty());
}

// The product table moves every id to L002 but the proximity ones: such a
// unit is asked with the A010 code 3, which the simulator does not answer
// (Counts/l002, and the codes in Identify). Identified by its capability
// array it is asked with 17 and its proximity waypoints come down.
TEST_F(Protocol_Test, L002UnitKnownByItsArrayGivesItsProximityWaypoints) {
    sim::Profile with_array = sim::Profile::Named("l002");
    with_array.capability_array = true;
    Attach_Unit(with_array);
    ctl.Request_Prox_Waypoints();
    EXPECT_TRUE(vp->Run_Until([&] { return rec.waypoints == 1; }, 30000));
    EXPECT_EQ(ctl.CMND_Transfer_Prx(), 17);
}

// The event hands over the control's own collection, emptied in place.
TEST_F(Protocol_Test, DownloadDeliversTheCollectionItEmptied) {
    Attach_Unit(sim::Profile::Named("current"));
    const auto held = ctl.Waypoints();
    held->Add(std::make_shared<cWaypoint>());
    ctl.Request_Waypoints();
    EXPECT_EQ(held->Count(), 0);
    ASSERT_TRUE(vp->Run_Until([&] { return rec.waypoints == 1; }, 30000));
    EXPECT_EQ(rec.last_waypoints, held);
}

struct Refusal_Case {
    const char* profile;
    void (TrekcomCtl::*request)();
    const char* message;
};

class Refusal : public Protocol_Test, public ::testing::WithParamInterface<Refusal_Case> {};

TEST_P(Refusal, UnsupportedKindIsReportedAndNothingIsSent) {
    Attach_Unit(sim::Profile::Named(GetParam().profile));
    (ctl.*GetParam().request)();
    (ctl.*GetParam().request)();  // a request reports every time
    ASSERT_EQ(rec.errors.size(), 2u);
    EXPECT_EQ(rec.errors[1].code, 0);
    EXPECT_EQ(rec.errors[1].message, GetParam().message);
    EXPECT_EQ(rec.errors[1].packet, Bytes{0});
    Run(5000);
    EXPECT_EQ(rec.Download_Events(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Refusal,
    ::testing::Values(Refusal_Case{"l002", &TrekcomCtl::Request_Tracks, "GPS model/version does not support Tracks"},
                      Refusal_Case{"d110", &TrekcomCtl::Request_Prox_Waypoints,
                                   "GPS model/version does not support Proximity Waypoints"},
                      Refusal_Case{"d110", &TrekcomCtl::Request_Laps, "GPS model/version does not support Lap Data"},
                      Refusal_Case{"current", &TrekcomCtl::Request_Flightbook,
                                   "GPS model/version does not support Flightbook Data"}),
    [](const auto& info) { return std::to_string(info.index) + "_" + info.param.profile; });

// The upload frame an L002 unit sees: its records id, and a completion
// packet that names the transfer in its own command codes.
TEST_F(Protocol_Test, UploadFramingSpeaksTheUnitsNumbers) {
    auto device = Attach_Script();
    device->on_packet = [&](const Bytes& p) {
        if (p[1] == 6 || p[1] == 21) return;
        device->Ack(p[1]);
        if (p[1] == 254) device->Send(Product_Packet(20, 250, {"GPS 12"}));
    };
    ctl.Request_Product_Data();
    ASSERT_EQ(ctl.Link_Protocol(), "L002");
    device->frames.clear();

    std::int16_t count = 258;
    ctl.Start_of_Records(count);
    std::uint8_t ack = ctl.PID_Ack_Byte();
    C().link.Send_Packet({ctl.PID_Wpt_Data(), Bytes(58, 0), std::nullopt}, ack, 2);
    ctl.End_of_Records();

    ASSERT_EQ(device->frames.size(), 3u);
    EXPECT_EQ(device->frames[0], link::Make_Packet(35, {2, 1}));
    EXPECT_EQ(device->frames[2], link::Make_Packet(12, {21, 0}));
    EXPECT_TRUE(rec.errors.empty());
}

}  // namespace
}  // namespace trekcom::testing
