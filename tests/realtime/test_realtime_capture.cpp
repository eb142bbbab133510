// A real GPS 18x's binary stream (PVT and satellite packets, one of each per
// second) through the receive path, compared with what another decoder read
// from the same bytes: positions, altitudes, velocities, times and the
// satellite tables. Nothing goes back to the receiver.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numbers>

#include "realtime_fixture.h"
#include "support/captures.h"

namespace trekcom::testing {
namespace {

using namespace std::chrono;
using nlohmann::json;

// One second of the reference: its position report and, when the decoder
// printed one, its satellite report.
struct Epoch {
    json tpv;
    json sky;  // null when the reference has none for this second
};

std::vector<Epoch> Reference() {
    std::ifstream in(std::string(TREKCOM_CAPTURES_DIR) + "/garmin18x-bin.log.chk");
    std::vector<Epoch> epochs;
    json sky;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] != '{') continue;  // NMEA renderings of the same reports
        json j = json::parse(line);
        if (j["class"] == "SKY") sky = j;
        if (j["class"] == "TPV") {
            epochs.push_back({j, sky});
            sky = nullptr;
        }
    }
    return epochs;
}

// The receiver's week count wrapped 1024 weeks early (the recording notes it):
// its dates are 1024 weeks behind the true ones.
constexpr int kRollover_Days = 1024 * 7;

std::string Utc_Text(const cPvtData& p) {
    const auto t = sys_days(1989y / December / 31) + days(p.wn_days + kRollover_Days) +
                   seconds(std::llround(std::floor(p.tow)) - p.leap_scnds);
    const auto day = floor<days>(t);
    const year_month_day ymd(day);
    const hh_mm_ss hms(t - day);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02ld:%02ld:%02lld.000Z", static_cast<int>(ymd.year()),
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                  static_cast<long>(hms.hours().count()), static_cast<long>(hms.minutes().count()),
                  static_cast<long long>(hms.seconds().count()));
    return text;
}

// (That the packets are the same whatever the chunking is Any_Packet's, in link/.)
TEST_F(Realtime_Test, Garmin18xStreamGivesWhatTheReceiverMeant) {
    auto device = Attach_Script();
    const std::string wire = Capture_Wire("garmin18x-bin.log");
    device->line->Send(Bytes(wire.begin(), wire.end()));
    Run(10);

    // Record by record.
    const std::vector<Epoch> reference = Reference();
    ASSERT_EQ(reference.size(), 29u);
    ASSERT_EQ(live.pvt.size(), reference.size());
    ASSERT_EQ(live.tables.size(), live.pvt.size());  // each second's table precedes its record
    const double rad_to_deg = 180 / std::numbers::pi;
    std::size_t skies = 0;
    for (std::size_t i = 0; i < reference.size(); ++i) {
        const json& tpv = reference[i].tpv;
        const cPvtData& p = live.pvt[i].pvt;
        for (const auto& [got, key, tolerance] :
             {std::tuple<double, const char*, double>{p.Lat * rad_to_deg, "lat", 1e-8}, {p.Lon * rad_to_deg, "lon", 1e-8},
              {p.Alt, "altHAE", 1e-3}, {p.Alt + p.msl_hght, "altMSL", 1e-3}, {p.north, "velN", 1e-3},
              {p.east, "velE", 1e-3}, {-p.up, "velD", 1e-3}})
            EXPECT_NEAR(got, tpv[key].get<double>(), tolerance) << i << " " << key;
        EXPECT_EQ(p.leap_scnds, tpv["leapseconds"].get<int>()) << i;
        EXPECT_EQ(p.pfix, tpv["mode"].get<int>()) << i;  // a 3D fix throughout
        EXPECT_EQ(Utc_Text(p), tpv["time"].get<std::string>()) << i;

        const json& sky = reference[i].sky;
        if (sky.is_null()) continue;
        ++skies;
        const std::vector<cSat>& table = live.tables[i];
        ASSERT_EQ(table.size(), 12u);
        const json& sats = sky["satellites"];
        ASSERT_LE(sats.size(), 12u);
        for (std::size_t k = 0; k < 12; ++k) {
            if (k >= sats.size()) {
                EXPECT_EQ(table[k].svid, 255) << i << "/" << k;  // an empty channel
                continue;
            }
            const json& s = sats[k];
            EXPECT_EQ(table[k].svid, s["PRN"].get<int>()) << i << "/" << k;
            EXPECT_EQ(table[k].elev, s["el"].get<double>()) << i << "/" << k;
            EXPECT_EQ(table[k].azimuth, s["az"].get<double>()) << i << "/" << k;
            EXPECT_EQ(table[k].snr / 100.0, s["ss"].get<double>()) << i << "/" << k;  // hundredths of a dB
            EXPECT_EQ((table[k].status & 4) != 0, s["used"].get<bool>()) << i << "/" << k;
        }
    }
    EXPECT_EQ(skies, 22u);
    EXPECT_TRUE(device->raw.empty());  // streamed packets are never acknowledged
    EXPECT_TRUE(live.errors.empty());
}

}  // namespace
}  // namespace trekcom::testing
