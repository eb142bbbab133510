// Identification: what each kind of unit leaves in the protocol properties.
#include <functional>

#include "protocol_fixture.h"

namespace trekcom::testing {
namespace {

// Transfer protocols, then record formats, "|"-separated, spaces kept.
std::string Transfers(const TrekcomCtl& c) {
    return c.Link_Protocol() + "|" + c.WayPoint_Transfer_Protocol() + "|" + c.Route_Transfer_Protocol() + "|" +
           c.Track_Transfer_Protocol() + "|" + c.Prox_Wpt_Transfer_Protocol() + "|" + c.Almanac_Transfer_Protocol() +
           "|" + c.Date_Transfer_Protocol() + "|" + c.Posn_Transfer_Protocol() + "|" + c.Pvt_Transfer_Protocol() + "|" +
           c.Laps_Transfer_Protocol() + "|" + c.Flightbook_Transfer_Protocol();
}
std::string Formats(const TrekcomCtl& c) {
    return c.Waypoint_Data_Format() + "|" + c.Route_Header_Format() + "|" + c.Route_Wpt_Data_Format() + "|" +
           c.Route_Link_Format() + "|" + c.Track_Header_Format() + "|" + c.Track_Point_Format() + "|" +
           c.Prox_Wpt_Data_Format() + "|" + c.Almanac_Data_Format() + "|" + c.Date_Data_Format() + "|" +
           c.Posn_Data_Format() + "|" + c.Pvt_Data_Format() + "|" + c.Laps_Data_Format() + "|" +
           c.Flightbook_Data_Format();
}
// The ids and codes that L002 moves.
std::string Switched_Ids(const TrekcomCtl& c) {
    std::string s;
    for (int v : {c.PID_Command_Data(), c.PID_Xfer_Cmplt(), c.PID_Date_Time(), c.PID_Position_Data(),
                  c.PID_Prx_Wpt_Data(), c.PID_Records(), c.PID_Rte_Hdr(), c.PID_Rte_Wpt_Data(), c.PID_Almanac_Data(),
                  c.PID_Wpt_Data()})
        s += std::to_string(v) + " ";
    s += "|";
    for (int v : {c.CMND_Transfer_Alm(), c.CMND_Transfer_Prx(), c.CMND_Transfer_Rte(), c.CMND_Transfer_Time(),
                  c.CMND_Transfer_Wpt(), c.CMND_Turn_Off_Pwr()})
        s += " " + std::to_string(v);
    return s;
}

const std::string kL001_Ids = "10 12 14 17 19 27 29 30 31 35 | 1 3 4 5 7 8";
const std::string kL002_Table_Ids = "11 12 20 24 19 35 37 30 4 43 | 4 3 8 20 21 26";
const std::string kL002_Array_Ids = "11 12 20 24 27 35 37 30 4 43 | 4 17 8 20 21 26";

sim::Profile Modified(const std::string& base, const std::function<void(sim::Profile&)>& change) {
    sim::Profile p = sim::Profile::Named(base);
    change(p);
    return p;
}

struct Identity_Case {
    const char* name;
    sim::Profile profile;
    bool by_array;
    std::string transfers, formats, ids;
};

class Identify : public Protocol_Test, public ::testing::WithParamInterface<Identity_Case> {};

TEST_P(Identify, FillsEveryProtocolProperty) {
    const Identity_Case& c = GetParam();
    auto unit = Attach_Unit(c.profile);
    ctl.Request_Product_Data();

    EXPECT_EQ(Transfers(ctl), c.transfers);
    EXPECT_EQ(Formats(ctl), c.formats);
    EXPECT_EQ(Switched_Ids(ctl), c.ids);
    EXPECT_EQ(C().engine.Shared().Protocol_Array_Received, c.by_array);
    const auto pd = ctl.Product_Data();
    EXPECT_EQ(pd->Product_ID, static_cast<std::int16_t>(c.profile.product_id));
    EXPECT_EQ(pd->Software_Version, c.profile.software_version);
    EXPECT_EQ(pd->Product_Description_1, c.profile.descriptions.at(0));
    // Only units with a capability array are asked for their unit id.
    const bool answers_id = c.by_array && c.profile.unit_id;
    EXPECT_EQ(pd->Unit_ID, answers_id ? std::to_string(unit->Sim().Data().situation.unit_id) : "");
    EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
}

const std::string kDefaults_Transfers = "L001|A100|A200|    |    |A500|A600|A700|A800|A906|A650";
const std::string kDefaults_Formats = "D100|D200|D100|    |    |    |    |D500|D600|D700|D800|D906|D650";

INSTANTIATE_TEST_SUITE_P(
    Profiles, Identify,
    ::testing::Values(
        Identity_Case{"current", sim::Profile::Named("current"), true,
                      "L001|A100|A201|A301|A400|A500|A600|A700|A800|A906|    ",
                      "D108|D202|D108|D210|D310|D301|D400|D501|D600|D700|D800|D906|    ", kL001_Ids},
        Identity_Case{"d110", sim::Profile::Named("d110"), true,
                      "L001|A100|A201|A301|    |A500|A600|A700|A800|    |    ",
                      "D110|D202|D110|D210|D312|D302|    |D501|D600|D700|D800|    |    ", kL001_Ids},
        // A650 with D650: the protocol is recorded, the format stays blank.
        Identity_Case{"aviator", sim::Profile::Named("aviator"), true,
                      "L001|A100|A201|A301|    |A500|A600|A700|A800|    |A650",
                      "D109|D202|D109|D210|D310|D302|    |D501|D600|D700|D800|    |    ", kL001_Ids},
        // By table: date, position and PVT come out empty, laps and
        // flightbook keep their defaults.
        Identity_Case{"legacy25", sim::Profile::Named("legacy25"), false, "L001|A100|A200|A300|A400|A500||||A906|A650",
                      "D100|D200|D100|    |    |D300|D400|D500||||D906|D650", kL001_Ids},
        Identity_Case{"legacy29_399", sim::Profile::Named("legacy29-399"), false,
                      "L001|A100|A200|A300|A400|A500||||A906|A650",
                      "D101|D201|D101|    |    |D300|D101|D500||||D906|D650", kL001_Ids},
        Identity_Case{"legacy29_400", sim::Profile::Named("legacy29-400"), false,
                      "L001|A100|A200|A300|A400|A500||||A906|A650",
                      "D102|D201|D102|    |    |D300|D102|D500||||D906|D650", kL001_Ids},
        Identity_Case{"l002_by_table", sim::Profile::Named("l002"), false,
                      "L002|A100|A200|    |A400|A500||||A906|A650",
                      "D150|D201|D150|    |    |    |D450|D550||||D906|D650", kL002_Table_Ids},
        Identity_Case{"l002_d551", sim::Profile::Named("l002-d551"), false,
                      "L002|A100|A200|    |A400|A500||||A906|A650",
                      "D150|D201|D150|    |    |    |D450|D551||||D906|D650", kL002_Table_Ids},
        Identity_Case{"l002_by_array",
                      Modified("l002", [](sim::Profile& p) { p.capability_array = true; p.unit_id = true; }), true,
                      "L002|A100|A200|    |A400|A500|A600|    |    |    |    ",
                      "D150|D201|D150|    |    |    |D450|D550|D600|    |    |    |    ", kL002_Array_Ids},
        // Column 12 is the point format and column 13 the header, as stored.
        Identity_Case{"product128_by_table",
                      Modified("legacy25", [](sim::Profile& p) { p.product_id = 128; p.software_version = 250; }),
                      false, "L001|A100|A201|A301|    |A500||||A906|A650",
                      "D108|D202|D108|D210|D301|D310|    |D501||||D906|D650", kL001_Ids},
        // 3.60 lies above the single-precision bound of the 3.50..3.60 row
        // and below the 3.61 one: no row, the defaults stay.
        Identity_Case{"product77_360_no_row",
                      Modified("legacy25", [](sim::Profile& p) { p.product_id = 77; p.software_version = 360; }),
                      false, kDefaults_Transfers, kDefaults_Formats, kL001_Ids},
        Identity_Case{"unknown_product",
                      Modified("legacy25", [](sim::Profile& p) { p.product_id = 4242; }), false, kDefaults_Transfers,
                      kDefaults_Formats, kL001_Ids}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Protocol_Test, ExtendedProductDataFillsDescriptionsFourToSix) {
    Attach_Unit(sim::Profile::Named("current"));
    ctl.Request_Product_Data();
    EXPECT_EQ(ctl.Product_Data()->Product_Description_4, "SIM Basemap 2.00");
    EXPECT_EQ(ctl.Product_Data()->Product_Description_5, "Trekcom simulated receiver");
    EXPECT_EQ(ctl.Product_Data()->Product_Description_6, "");
}

// A scripted unit sending the capability array of a D108 unit, then
// answering the unit-id request.
TEST_F(Protocol_Test, CapabilityArrayOfAD108Unit) {
    auto device = Attach_Script();
    device->on_packet = [&](const Bytes& p) {
        if (p[1] == 6 || p[1] == 21) return;
        device->Ack(p[1]);
        if (p[1] == 254) {
            device->Send(Product_Packet(104, 310, {"GPSMAP 76", "", ""}));
            device->Send(Array_Packet({"P000", "L001", "A010", "A100", "D108", "A201", "D202", "D108", "D210", "A301",
                                       "D310", "D301", "A500", "D501", "A600", "D600", "A700", "D700", "A800",
                                       "D800"}));
        } else if (p[1] == 10 && p[3] == 14) {
            device->Send(link::Make_Packet(38, {0x15, 0xCD, 0x5B, 0x07}));
        }
    };
    ctl.Request_Product_Data();

    EXPECT_EQ(Transfers(ctl), "L001|A100|A201|A301|    |A500|A600|A700|A800|    |    ");
    EXPECT_EQ(Formats(ctl), "D108|D202|D108|D210|D310|D301|    |D501|D600|D700|D800|    |    ");
    EXPECT_EQ(ctl.Product_Data()->Unit_ID, "123456789");
    // After the array: the unit-id request, then asynchronous messages off.
    std::vector<Bytes> sent;
    for (const Bytes& f : device->frames)
        if (f[1] != 6) sent.push_back(f);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0], link::Make_Packet(254, {}));
    EXPECT_EQ(sent[1], link::Make_Packet(10, {14, 0}));
    EXPECT_EQ(sent[2], link::Make_Packet(28, {0, 0}));
    EXPECT_TRUE(rec.errors.empty());
}

TEST_F(Protocol_Test, SilentUnitReportsNoResponse) {
    auto device = Attach_Script();
    device->on_packet = [](const Bytes&) {};
    ctl.Request_Product_Data();
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(rec.errors[0].message, "No response from device");
    EXPECT_EQ(Transfers(ctl), kDefaults_Transfers);  // nothing learnt, nothing lost
}

// Once a unit has reported L002, its numbers route packets: 35 is the
// records packet and 27 (an L001 records id) means nothing.
TEST_F(Protocol_Test, L002UnitIsDispatchedByItsOwnIds) {
    Attach_Unit(sim::Profile::Named("l002"));
    ctl.Request_Product_Data();
    C().Dispatch_Packet(link::Make_Packet(35, {5, 0}));
    EXPECT_EQ(ctl.Incoming_Records_Count(), 5);
    C().Dispatch_Packet(link::Make_Packet(27, {9, 0}));
    EXPECT_EQ(ctl.Incoming_Records_Count(), 5);
}

}  // namespace
}  // namespace trekcom::testing
