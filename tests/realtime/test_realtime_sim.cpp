// Real-time data against the simulated receiver: the PVT stream and its
// watchdog, the position upload, power off.
#include <algorithm>
#include <cmath>
#include <numbers>

#include <cstring>

#include "realtime_fixture.h"

namespace trekcom::testing {
namespace {

constexpr double kDeg = std::numbers::pi / 180.0;

// Receiver time: seconds since 1989-12-31 00:00:00 UTC.
std::int64_t Receiver_Seconds(const cPvtData& p) {
    return std::int64_t{p.wn_days} * 86400 + std::llround(p.tow) - p.leap_scnds;
}

TEST_F(Realtime_Test, AMinuteOfPvtModeGivesSixtyRecordsMatchingTheUnit) {
    auto unit = Attach_Unit(sim::Profile::Named("current"));
    const sim::Situation& s = unit->Sim().Data().situation;

    ctl.Pvt_Data_Start();
    const double start = vp->Now_ms();
    Run(60000);

    ASSERT_EQ(live.pvt.size(), 60u);
    for (std::size_t k = 0; k < live.pvt.size(); ++k) {
        const cPvtData& p = live.pvt[k].pvt;
        EXPECT_NEAR(live.pvt[k].at_ms - start, 1000.0 * static_cast<double>(k + 1), 1.0);
        EXPECT_EQ(p.Lat, s.lat_deg * kDeg);  // radians, as sent
        EXPECT_EQ(p.Lon, s.lon_deg * kDeg);
        EXPECT_EQ(p.Alt, s.alt_m + 20.0f);
        EXPECT_EQ(p.pfix, 3);
        // The unit's clock, one second further at every record.
        EXPECT_EQ(Receiver_Seconds(p), s.utc_start + std::llround(std::floor(live.pvt[k].at_ms / 1000)));
    }
    ASSERT_EQ(live.tables.size(), 60u);
    for (const auto& table : live.tables) ASSERT_EQ(table.size(), 12u);
    EXPECT_EQ(live.tables.back()[0].svid, 1);
    EXPECT_EQ(live.tables.back()[0].snr, 4200);
    EXPECT_EQ(ctl.sat()->svid, 255);  // the twelfth entry

    ctl.Pvt_Data_Stop();
    EXPECT_FALSE(unit->Sim().Pvt_On());
    Run(10000);
    EXPECT_LE(live.pvt.size(), 61u);  // at most one already on its way
    EXPECT_TRUE(live.watchdog_ms.empty());  // the watchdog stopped with the stream
    EXPECT_TRUE(live.errors.empty());  // (that streamed packets are never acknowledged is link/'s)
}

// A unit that drops out of PVT mode (as after a reset) and, while `deaf`,
// does not hear the command that would bring it back. It still answers
// everything else.
struct Lapsing_Unit : VirtualDevice {
    std::shared_ptr<sim::Virtual_Unit> unit = std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"));
    bool deaf = false;
    int unheard = 0;

    void Drop_Out() {
        deaf = true;
        unit->Sim().Set_Mode(sim::Output_Mode::garmin);  // leaves PVT mode
    }
    void Attached(VirtualLine& line) override { unit->Attached(line); }
    void Host_Wrote(const Bytes& bytes) override {
        if (deaf && bytes == sim::frame::Wire(sim::frame::Packet(10, {49, 0}))) {
            ++unheard;
            return;
        }
        unit->Host_Wrote(bytes);
    }
    void Wake() override { unit->Wake(); }
};

TEST_F(Realtime_Test, WatchdogCommandsAgainEveryTwoSecondsUntilTheStreamResumes) {
    auto device = std::make_shared<Lapsing_Unit>();
    vp->Attach(1, device);
    ASSERT_TRUE(ctl.PortOpen());
    ctl.Pvt_Data_Start();
    Run(5500);
    ASSERT_EQ(live.pvt.size(), 5u);
    const double last_record = live.pvt.back().at_ms;

    device->Drop_Out();
    Run(9000);
    ASSERT_EQ(live.pvt.size(), 5u);
    ASSERT_EQ(live.watchdog_ms.size(), 4u);
    EXPECT_NEAR(live.watchdog_ms[0] - last_record, 2000, 1);
    for (std::size_t k = 1; k < live.watchdog_ms.size(); ++k)
        EXPECT_NEAR(live.watchdog_ms[k] - live.watchdog_ms[k - 1], 2000, 1);
    EXPECT_GE(device->unheard, 4);  // a new command with every line

    device->deaf = false;
    const double heard_from = live.watchdog_ms.back() + 2000;
    Run(10000);
    const std::size_t lines = live.watchdog_ms.size();
    EXPECT_EQ(lines, 5u);  // the one whose command was heard
    ASSERT_GE(live.pvt.size(), 5u + 8u);
    EXPECT_NEAR(live.pvt[5].at_ms - heard_from, 1000, 1);  // the stream is back
    EXPECT_EQ(live.pvt.back().pvt.Lat, device->unit->Sim().Data().situation.lat_deg * kDeg);
    EXPECT_TRUE(live.errors.empty());
}

// (Time, position and voltage requests: the tool's, end to end; their layouts: codecs/.)
TEST_F(Realtime_Test, APositionUploadMovesTheUnitAndReadsBackIntoAFreshRecord) {
    auto unit = Attach_Unit(sim::Profile::Named("current"));
    const sim::Situation& s = unit->Sim().Data().situation;
    ctl.Position(std::make_shared<cPosition>(cPosition{-41.2865, -174.7762}));
    ctl.Send_Position_Data();
    EXPECT_NEAR(s.lat_deg, -41.2865, 1e-12);
    EXPECT_NEAR(s.lon_deg, -174.7762, 1e-12);
    // Read back into a record the host emptied: a new one is made.
    ctl.Position(nullptr);
    ctl.Request_Position_Data();
    ASSERT_NE(ctl.Position(), nullptr);
    EXPECT_NEAR(ctl.Position()->Lat, -41.2865, 1e-12);
    EXPECT_NEAR(ctl.Position()->Lon, -174.7762, 1e-12);
    EXPECT_TRUE(live.errors.empty());
}

// An answer whose checksum is 16 ends in DLE DLE DLE ETX on the wire: the
// exchange must see the frame end there, not wait for the unit's re-send.
TEST_F(Realtime_Test, AnswerEndingInAStuffedChecksumEndsTheWait) {
    auto device = Attach_Script();
    double lat = 0.1;
    Bytes answer;
    do {
        lat += 1e-6;
        Bytes data(16, 0);
        std::memcpy(data.data(), &lat, sizeof lat);
        answer = sim::frame::Packet(17, data);
    } while (answer[answer.size() - 3] != 16);
    device->on_packet = [&](const Bytes& p) {
        if (p[1] != 10) return;
        device->Ack(10);
        device->Send(answer);
    };
    const double t0 = vp->Now_ms();
    ctl.Request_Position_Data();
    EXPECT_LT(vp->Now_ms() - t0, 100);
    EXPECT_NEAR(ctl.Position()->Lat, lat * 180 / std::numbers::pi, 1e-12);
    EXPECT_TRUE(live.errors.empty());
}

TEST_F(Realtime_Test, PowerOffEndsPvtModeAndLeavesNoWatchdogRunning) {
    auto unit = Attach_Unit(sim::Profile::Named("current"));
    ctl.Pvt_Data_Start();
    Run(3500);
    ASSERT_EQ(live.pvt.size(), 3u);
    ctl.Power_Off();
    EXPECT_FALSE(unit->Sim().Powered());
    Run(20000);
    EXPECT_EQ(live.pvt.size(), 3u);
    EXPECT_TRUE(live.watchdog_ms.empty());
    EXPECT_TRUE(live.errors.empty());
}

}  // namespace
}  // namespace trekcom::testing
