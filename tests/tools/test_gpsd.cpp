// What the recorded receiver never sends (no fix, 2D and differential fixes,
// ports by number, a clock far ahead); gpsd_capture.py plays its stream.
#include <gtest/gtest.h>

#include "commands.h"
#include "gpsd.h"
#include "trekcom_sim/unit.h"

namespace trekcom::tool {
namespace {

TEST(Gpsd, EachFixKindGivesItsModeAndOnlyTheFieldsItHas) {
    cPvtData p;
    p.msl_hght = 26, p.Alt = 100, p.up = 1.5;
    // pfix: mode, status (0: none), how many keys.
    const int cases[][4] = {{0, 1, 0, 4},  {1, 1, 0, 4},  {2, 2, 0, 14}, {3, 3, 0, 20},
                            {4, 2, 2, 15}, {5, 3, 2, 21}, {9, 0, 0, 4}};
    for (const auto& [pfix, mode, status, keys] : cases) {
        p.pfix = static_cast<std::int16_t>(pfix);
        const auto tpv = Gpsd_Tpv(p, 0, "x");
        EXPECT_EQ(tpv["mode"], mode) << pfix;
        EXPECT_EQ(tpv.value("status", 0), status) << pfix;
        EXPECT_EQ(tpv.size(), static_cast<std::size_t>(keys)) << pfix;
        EXPECT_EQ(tpv.contains("altMSL"), mode == 3) << pfix;
    }
    EXPECT_EQ(Gpsd_Time(946'500'000.9996), "2019-12-28T20:40:01.000Z");  // to the nearest millisecond
    EXPECT_EQ(Gpsd_Time(-0.25), "1989-12-30T23:59:59.750Z");
}

TEST(Gpsd, ADateHalfARolloverBehindTheClockMovesOnByWholeRollovers) {
    constexpr double kWeek = 7 * 86400.0;
    cPvtData p;
    p.tow = 3600;
    for (const auto& [clock_weeks, moved_weeks] : {std::pair{-100, 0}, {511, 0}, {513, 1024}, {1600, 2048}})
        EXPECT_EQ(Pvt_Garmin_Seconds(p, 3600 + clock_weeks * kWeek), 3600 + moved_weeks * kWeek) << clock_weeks;
}

// The simulated unit on port 1 of the virtual platform sends each table after its record.
TEST(Gpsd, PvtNamesThePortAndStopsAtTheNthUpdate) {
    auto vp = std::make_shared<VirtualPlatform>();
    vp->Attach(1, std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"), sim::Builtin_Data()));
    Session_Options options;
    options.platform = vp, options.progress = false, options.port = "1";
    Command_Options cmd;
    cmd.gpsd = true, cmd.count = 2;
    ::testing::internal::CaptureStdout();
    ASSERT_EQ(Run_Pvt(options, cmd), kOk);
    const std::string out = ::testing::internal::GetCapturedStdout();
    std::string classes;
    for (std::size_t at = 0, end; (end = out.find("\r\n", at)) != std::string::npos; at = end + 2) {
        const auto j = nlohmann::json::parse(out.substr(at, end - at));
        EXPECT_EQ(j["device"], "/dev/ttyS0");
        classes += j["class"].get<std::string>() + " ";
    }
    EXPECT_EQ(classes, "TPV SKY TPV ") << out;
}

}  // namespace
}  // namespace trekcom::tool
