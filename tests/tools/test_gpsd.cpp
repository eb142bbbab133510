// gpsd's objects from PVT records the recorded receiver never sends (no fix,
// 2D and differential fixes), gpsd's time text, and the week-rollover rule
// with the host's clock held still. The recorded stream itself is played to
// the built tool by gpsd_capture.py.
#include <gtest/gtest.h>

#include "commands.h"
#include "gpsd.h"
#include "trekcom/trekcom.h"
#include "trekcom_sim/unit.h"

namespace trekcom::tool {
namespace {

constexpr double kWeek = 7 * 86400.0;

cPvtData Fix(std::int16_t pfix) {
    cPvtData p;
    p.pfix = pfix;
    p.Lat = 0.5;
    p.Lon = -1.5;
    p.Alt = 100;
    p.msl_hght = 26;
    p.up = 1.5;
    p.north = -3;
    p.east = 4;
    p.eph = 5, p.epv = 6, p.epe = 7;
    return p;
}

std::vector<std::string> Keys(const nlohmann::ordered_json& j) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : j.items()) keys.push_back(key);
    return keys;
}

TEST(Gpsd, EachFixKindGivesItsModeAndOnlyTheFieldsItHas) {
    using Names = std::vector<std::string>;
    const Names none = {"class", "device", "mode", "time"};
    const Names flat = {"class", "device", "mode", "time", "leapseconds", "lat", "lon", "geoidSep", "speed", "track",
                        "velN", "velE", "eph", "sep"};
    const Names full = {"class", "device", "mode", "time", "leapseconds", "lat", "lon", "altHAE", "altMSL", "alt",
                        "geoidSep", "speed", "track", "climb", "velN", "velE", "velD", "eph", "epv", "sep"};
    const struct {
        std::int16_t pfix;
        int mode;
        bool differential;
        Names keys;
    } cases[] = {{0, 1, false, none}, {1, 1, false, none}, {2, 2, false, flat},
                 {3, 3, false, full}, {4, 2, true, flat},  {5, 3, true, full}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pfix);
        auto tpv = Gpsd_Tpv(Fix(c.pfix), 0, "/dev/ttyS0");
        EXPECT_EQ(tpv["mode"], c.mode);
        EXPECT_EQ(tpv.value("status", 0), c.differential ? 2 : 0);
        tpv.erase("status");
        EXPECT_EQ(Keys(tpv), c.keys);
    }
    const auto tpv = Gpsd_Tpv(Fix(3), 0, "/dev/ttyS0");
    EXPECT_EQ(tpv["altMSL"], 126.0);      // above the ellipsoid, plus the ellipsoid above sea level
    EXPECT_EQ(tpv["geoidSep"], -26.0);   // the geoid below the ellipsoid here
    EXPECT_EQ(tpv["velD"], -1.5);
    EXPECT_EQ(tpv["speed"], 5.0);
    EXPECT_NEAR(tpv["track"].get<double>(), 126.8699, 1e-4);  // south-east
    EXPECT_EQ(Gpsd_Tpv(Fix(9), 0, "x")["mode"], 0);  // a fix kind the receiver never names
}

TEST(Gpsd, TimeIsUtcToTheMillisecond) {
    EXPECT_EQ(Gpsd_Time(0), "1989-12-31T00:00:00.000Z");
    EXPECT_EQ(Gpsd_Time(946'500'000.9996), "2019-12-28T20:40:01.000Z");  // rounds into the next second
    EXPECT_EQ(Gpsd_Time(946'500'000.25), "2019-12-28T20:40:00.250Z");
    EXPECT_EQ(Gpsd_Time(-0.5), "1989-12-30T23:59:59.500Z");
}

TEST(Gpsd, ADateHalfARolloverBehindTheClockMovesOnByWholeRollovers) {
    cPvtData p;
    p.wn_days = 10'000;
    p.tow = 3600;
    p.leap_scnds = 18;
    const double t = 10'000 * 86400.0 + 3600 - 18;
    EXPECT_EQ(Pvt_Garmin_Seconds(p, t), t);
    EXPECT_EQ(Pvt_Garmin_Seconds(p, t - 100 * kWeek), t);  // a clock behind the receiver leaves it be
    EXPECT_EQ(Pvt_Garmin_Seconds(p, t + 511 * kWeek), t);
    EXPECT_EQ(Pvt_Garmin_Seconds(p, t + 513 * kWeek), t + 1024 * kWeek);
    EXPECT_EQ(Pvt_Garmin_Seconds(p, t + 1600 * kWeek), t + 2048 * kWeek);
}

// Port 1 with the simulated unit on it, on the virtual platform (the unit
// sends each satellite table after its PVT record): the device is named by
// the platform, and nothing follows the Nth update.
TEST(Gpsd, PvtNamesThePortAndStopsAtTheNthUpdate) {
    auto vp = std::make_shared<VirtualPlatform>();
    vp->Attach(1, std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"), sim::Builtin_Data()));
    Session_Options options;
    options.platform = vp;
    options.progress = false;
    options.port = "1";
    Command_Options cmd;
    cmd.gpsd = true;
    cmd.count = 2;
    ::testing::internal::CaptureStdout();
    const int code = Run_Pvt(options, cmd);
    const std::string out = ::testing::internal::GetCapturedStdout();
    ASSERT_EQ(code, kOk);
    std::vector<std::string> classes;
    for (std::size_t at = 0, end; (end = out.find("\r\n", at)) != std::string::npos; at = end + 2) {
        const auto j = nlohmann::json::parse(out.substr(at, end - at));
        EXPECT_EQ(j["device"], "/dev/ttyS0");
        classes.push_back(j["class"]);
    }
    EXPECT_EQ(classes, (std::vector<std::string>{"TPV", "SKY", "TPV"})) << out;
}

}  // namespace
}  // namespace trekcom::tool
