// The real-time decoders on packets too short, too long or lying about their
// size; then a PVT stream with malformed packets in it through the receive path.
#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <tuple>

#include "realtime_fixture.h"
#include "records/fields.h"

namespace trekcom::testing {
namespace {

Bytes Pvt_Packet(double lat_rad, std::size_t size = 64, std::uint8_t fill = 0) {
    Bytes data(size, fill);
    Bytes p = link::Make_Packet(51, data);
    records::Put_Double(p, 3 + 26, lat_rad);
    link::Seal_Packet(p);
    return p;
}

TEST_F(Realtime_Test, ShortSatellitePacketStillGivesTwelveEntries) {
    // Two whole entries and most of a third.
    Bytes data = {7, 0x34, 0x12, 45, 0x2C, 0x01, 5, 9, 0x9C, 0xFF, 30, 90, 0, 21, 11, 0x10, 0x0E, 15, 200, 0};
    auto held = ctl.Sats();
    C().Dispatch_Packet(link::Make_Packet(114, data));
    ASSERT_EQ(ctl.Sats(), held);  // filled in place
    ASSERT_EQ(held->Count(), 12);
    const auto fields = [&](int k) {
        const cSat& e = *held->Item(k);
        return std::tuple(int{e.svid}, int{e.snr}, int{e.elev}, int{e.azimuth}, int{e.status});
    };
    EXPECT_EQ(fields(1), std::tuple(7, 0x1234, 45, 300, 5));
    EXPECT_EQ(fields(2), std::tuple(9, -100, 30, 90, 21));
    EXPECT_EQ(fields(3), std::tuple(11, 3600, 15, 200, 0));  // its status would be the checksum
    for (int k = 4; k <= 12; ++k) EXPECT_EQ(held->Item(k)->svid, 0) << k;
    EXPECT_EQ(ctl.sat(), held->Item(12));

    // A second table replaces the first rather than adding to it.
    C().Dispatch_Packet(link::Make_Packet(114, Bytes(84, 1)));
    EXPECT_EQ(held->Count(), 12);
    EXPECT_EQ(held->Item(1)->svid, 1);
}

// A field that the data does not wholly hold reads as 0, never as checksum,
// trailer or whatever lies beyond; extra data is ignored.
TEST_F(Realtime_Test, FieldsNeverReachPastTheData) {
    // 62 data bytes: wn_days (60..63) is cut short; leap_scnds (58..59) is whole.
    C().Dispatch_Packet(link::Make_Packet(51, Bytes(62, 0x11)));
    EXPECT_EQ(ctl.PvtData()->leap_scnds, 0x1111);
    EXPECT_EQ(ctl.PvtData()->wn_days, 0);

    // No data at all.
    C().Dispatch_Packet(link::Make_Packet(51, {}));
    EXPECT_EQ(ctl.PvtData()->Alt, 0.0f);
    EXPECT_EQ(ctl.PvtData()->leap_scnds, 0);

    // Oversized: the first 64 bytes are the record.
    C().Dispatch_Packet(Pvt_Packet(0.5, 255, 0x22));
    EXPECT_EQ(ctl.PvtData()->Lat, 0.5);
    EXPECT_EQ(ctl.PvtData()->wn_days, 0x22222222);

    // A size byte that claims more than arrived: only what arrived is read.
    Bytes lying = {16, 51, 64, 0x33, 0x33, 0x33, 0x33, 0x33, 0x33};
    C().Dispatch_Packet(lying);
    EXPECT_EQ(ctl.PvtData()->Alt, std::bit_cast<float>(0x33333333u));
    EXPECT_EQ(ctl.PvtData()->epe, 0.0f);

    // Short date, position and voltage packets: the missing fields are 0.
    C().Dispatch_Packet(link::Make_Packet(14, {3, 4, 0xE8, 0x07, 9}));
    EXPECT_EQ(ctl.Date_Time()->year, 2024);
    EXPECT_EQ(ctl.Date_Time()->hour, 0);
    EXPECT_EQ(ctl.Date_Time()->second, 0);
    C().Dispatch_Packet(link::Make_Packet(17, Bytes(15, 0x40)));
    EXPECT_NE(ctl.Position()->Lat, 0.0);
    EXPECT_EQ(ctl.Position()->Lon, 0.0);
    C().Dispatch_Packet(link::Make_Packet(40, {0x64, 0}));
    EXPECT_EQ(ctl.Voltages()->Internal_Voltage, 1.0f);
    EXPECT_EQ(ctl.Voltages()->External_Voltage, 0.0f);
    C().Dispatch_Packet(Bytes{16, 40});
    EXPECT_EQ(ctl.Voltages()->Internal_Voltage, 0.0f);
}

// Good records every second, with a malformed PVT packet half a second after
// each: a frame cut off, a short record, a bad checksum, an oversized record.
// The stream goes on, the good records arrive, the watchdog stays quiet and
// nothing is answered.
TEST_F(Realtime_Test, MalformedPvtPacketsDoNotStopTheStream) {
    auto device = Attach_Script();
    ctl.Pvt_Data_Start();
    const double t0 = vp->Now_ms();
    constexpr int kSeconds = 20;
    constexpr double kBad_Lat = 9;
    for (int k = 1; k <= kSeconds; ++k) {
        const double at = t0 + 1000.0 * k;
        device->line->Send(link::Stuff_Packet(Pvt_Packet(0.01 * k)), at);
        Bytes bad = link::Stuff_Packet(Pvt_Packet(kBad_Lat));
        switch (k % 4) {
            case 0: bad.resize(30); break;
            case 1: bad = link::Stuff_Packet(link::Make_Packet(51, Bytes(9, 0x7F))); break;
            case 2: bad[bad.size() - 3] ^= 0x55; break;
            case 3: bad = link::Stuff_Packet(Pvt_Packet(kBad_Lat, 200, 0x7F)); break;
        }
        device->line->Send(bad, at + 500);
    }
    const std::size_t sent_before = device->frames.size();
    EXPECT_TRUE(vp->Run_Until([&] { return vp->Now_ms() > t0 + 1000.0 * kSeconds + 100; }, 60000));

    // A cut frame runs into the record after it, which is lost with it; every
    // other good record arrives, in order.
    // (A packet that fails its checksum is still shown to the host, with the
    // record as the last good one left it.)
    std::vector<int> good;
    for (const auto& u : live.pvt) {
        if (u.pvt.Lat == kBad_Lat || u.pvt.Lat == 0) continue;  // the oversized and the short ones
        const int k = static_cast<int>(std::lround(u.pvt.Lat / 0.01));
        EXPECT_EQ(u.pvt.Lat, 0.01 * k);
        if (good.empty() || good.back() != k) good.push_back(k);
    }
    std::vector<int> expected;
    for (int k = 1; k <= kSeconds; ++k)
        if (k == 1 || (k - 1) % 4 != 0) expected.push_back(k);
    std::vector<int> arrived_of_expected;
    std::copy_if(good.begin(), good.end(), std::back_inserter(arrived_of_expected),
                 [&](int k) { return std::find(expected.begin(), expected.end(), k) != expected.end(); });
    EXPECT_EQ(arrived_of_expected, expected);
    EXPECT_TRUE(std::is_sorted(good.begin(), good.end()));
    EXPECT_TRUE(live.watchdog_ms.empty());
    EXPECT_TRUE(live.errors.empty());
    EXPECT_TRUE(Pvt_Timer_On());
    EXPECT_EQ(device->frames.size(), sent_before);  // no ACK, no NAK
}

}  // namespace
}  // namespace trekcom::testing
