// Interoperability with an independent host: gpsbabel, run as a black box
// against the trekcom-sim tool over a real pseudo-terminal. Its downloads must
// give back exactly the unit's data, and its uploads must be stored exactly.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <pugixml.hpp>

#include "civil_time.h"
#include "support/scratch.h"
#include "support/sim_process.h"
#include "trekcom_sim/unit.h"

using namespace trekcom::sim;
using trekcom::testing::Sim_Process;
namespace fs = std::filesystem;

namespace {

bool Have_Gpsbabel() { return std::system("gpsbabel -V > /dev/null 2>&1") == 0; }

std::string Trim(std::string s) {
    while (!s.empty() && s.back() == ' ') s.pop_back();
    while (!s.empty() && s.front() == ' ') s.erase(0, 1);
    return s;
}

std::string Iso(std::uint32_t t) {
    const Civil c = Civil_From_Unix(std::int64_t{t} + kEpochOffset_s);
    char buf[32];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02dZ", c.year, c.month, c.day, c.hour, c.minute, c.second);
    return buf;
}

int Babel(const std::string& args, const fs::path& log) {
    return std::system(("timeout 60 gpsbabel " + args + " > '" + log.string() + "' 2>&1").c_str());
}

bool Has_Altitude(std::uint16_t wpt_type) { return wpt_type >= 108 && wpt_type != 400 && wpt_type != 403; }

class SimGpsbabel : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        if (!Have_Gpsbabel()) GTEST_SKIP() << "gpsbabel is not installed";
    }
    trekcom::testing::Scratch_Folder scratch;
    const fs::path& dir_ = scratch.path;
};

}  // namespace

TEST_P(SimGpsbabel, DownloadsGiveBackTheUnitsData) {
    const Profile profile = Profile::Named(GetParam());
    const Data_Set want = Unit(profile).Visible_Data();
    Sim_Process sim(dir_, {"--profile", GetParam(), "--dump", (dir_ / "dump.json").string()});
    ASSERT_TRUE(sim.Ready());
    for (const char* kind : {"-w", "-r", "-t"})
        ASSERT_EQ(Babel(std::string(kind) + " -i garmin -f " + sim.Link() + " -o gpx -F " +
                            (dir_ / (kind + 1)).string() + ".gpx",
                        dir_ / "log"),
                  0)
            << kind;
    EXPECT_EQ(sim.Stop(), 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status(sim.Link())));  // the link goes with the tool

    auto near = [](const pugi::xml_node& n, std::int32_t lat, std::int32_t lon) {
        return std::fabs(n.attribute("lat").as_double() - Semi_To_Deg(lat)) <= 1e-6 &&
               std::fabs(n.attribute("lon").as_double() - Semi_To_Deg(lon)) <= 1e-6;
    };

    pugi::xml_document w;
    ASSERT_TRUE(w.load_file((dir_ / "w.gpx").c_str()));
    std::size_t i = 0;
    for (auto n : w.child("gpx").children("wpt")) {
        ASSERT_LT(i, want.waypoints.size());
        const Waypoint& x = want.waypoints[i++];
        EXPECT_EQ(Trim(n.child_value("name")), x.ident);
        EXPECT_EQ(Trim(n.child_value("cmt")), x.comment) << x.ident;
        EXPECT_TRUE(near(n, x.lat, x.lon)) << x.ident;
        if (Has_Altitude(profile.waypoint_type)) {
            EXPECT_NEAR(n.child("ele").text().as_double(-1e9), x.alt, 1e-3) << x.ident;
        }
        if (profile.waypoint_type == 110) {
            EXPECT_EQ(std::string(n.child_value("time")), Iso(x.time)) << x.ident;
        }
    }
    EXPECT_EQ(i, want.waypoints.size());

    pugi::xml_document r;
    ASSERT_TRUE(r.load_file((dir_ / "r.gpx").c_str()));
    std::size_t ri = 0;
    for (auto rte : r.child("gpx").children("rte")) {
        ASSERT_LT(ri, want.routes.size());
        const Route& x = want.routes[ri++];
        if (profile.route_header_type == 202) {
            EXPECT_EQ(Trim(rte.child_value("name")), x.ident);
        }
        if (profile.route_header_type == 201) {
            EXPECT_EQ(Trim(rte.child_value("name")), x.comment);
        }
        std::size_t pi = 0;
        for (auto n : rte.children("rtept")) {
            ASSERT_LT(pi, x.points.size());
            const Waypoint& p = x.points[pi++];
            EXPECT_EQ(Trim(n.child_value("name")), p.ident);
            EXPECT_TRUE(near(n, p.lat, p.lon)) << p.ident;
        }
        EXPECT_EQ(pi, x.points.size());
    }
    EXPECT_EQ(ri, want.routes.size());

    pugi::xml_document t;
    ASSERT_TRUE(t.load_file((dir_ / "t.gpx").c_str()));
    std::vector<Track_Point> points;
    std::vector<std::string> names;
    for (const Track& x : want.tracks) {
        points.insert(points.end(), x.points.begin(), x.points.end());
        names.push_back(x.ident);
    }
    std::size_t ti = 0, segments = 0, starts = 0;
    std::vector<std::string> got_names;
    for (auto trk : t.child("gpx").children("trk")) {
        got_names.push_back(trk.child_value("name"));
        for (auto seg : trk.children("trkseg")) {
            ++segments;
            for (auto n : seg.children("trkpt")) {
                ASSERT_LT(ti, points.size());
                const Track_Point& p = points[ti++];
                EXPECT_TRUE(near(n, p.lat, p.lon)) << ti;
                EXPECT_EQ(std::string(n.child_value("time")), Iso(p.time)) << ti;
                if (profile.track_point_type >= 301) {
                    EXPECT_NEAR(n.child("ele").text().as_double(-1e9), p.alt, 1e-3);
                }
            }
        }
    }
    for (const auto& p : points) starts += p.new_segment;
    EXPECT_EQ(ti, points.size());
    if (profile.track_protocol) {
        EXPECT_EQ(segments, starts);
    }
    if (profile.track_header_type == 310 || profile.track_header_type == 312) {
        EXPECT_EQ(got_names, names);
    }
}

TEST_P(SimGpsbabel, UploadsAreStoredExactly) {
    const Profile profile = Profile::Named(GetParam());
    {
        std::ofstream in(dir_ / "in.gpx");
        in << R"(<?xml version="1.0" encoding="UTF-8"?>
<gpx version="1.1" creator="test" xmlns="http://www.topografix.com/GPX/1/1">
  <wpt lat="47.123456" lon="8.654321"><ele>512.5</ele><name>UPA</name><cmt>FIRST UPLOAD</cmt></wpt>
  <wpt lat="-12.500001" lon="-77.000002"><ele>12.25</ele><name>UPB</name><cmt>SOUTH WEST</cmt></wpt>
  <rte><name>UPROUTE</name>
    <rtept lat="47.1" lon="8.6"><name>RA</name></rtept>
    <rtept lat="47.2" lon="8.7"><name>RB</name></rtept>
    <rtept lat="47.3" lon="8.8"><name>RC</name></rtept>
  </rte>
  <trk><name>UPTRACK</name><trkseg>
    <trkpt lat="47.000001" lon="8.000001"><ele>400.5</ele><time>2024-03-01T10:00:00Z</time></trkpt>
    <trkpt lat="47.000101" lon="8.000201"><ele>401.5</ele><time>2024-03-01T10:00:05Z</time></trkpt>
  </trkseg><trkseg>
    <trkpt lat="47.000201" lon="8.000401"><ele>402.5</ele><time>2024-03-01T10:10:00Z</time></trkpt>
  </trkseg></trk>
</gpx>
)";
    }
    Sim_Process sim(dir_, {"--profile", GetParam(), "--dump", (dir_ / "dump.json").string()});
    ASSERT_TRUE(sim.Ready());
    for (const char* kind : {"-w", "-r", "-t"})
        ASSERT_EQ(Babel(std::string(kind) + " -i gpx -f " + (dir_ / "in.gpx").string() + " -o garmin -F " +
                            sim.Link(),
                        dir_ / "log"),
                  0)
            << kind;
    ASSERT_EQ(sim.Stop(), 0);
    Data_Set up;
    std::string error;
    ASSERT_TRUE(Load_Data((dir_ / "dump.json").string(), up, error)) << error;

    auto at = [](std::int32_t semi, double deg) { return std::fabs(Semi_To_Deg(semi) - deg) <= 1e-6; };
    ASSERT_EQ(up.waypoints.size(), 2u);
    EXPECT_EQ(up.waypoints[0].ident, "UPA");
    EXPECT_EQ(up.waypoints[1].ident, "UPB");
    EXPECT_TRUE(at(up.waypoints[0].lat, 47.123456) && at(up.waypoints[0].lon, 8.654321));
    EXPECT_TRUE(at(up.waypoints[1].lat, -12.500001) && at(up.waypoints[1].lon, -77.000002));
    // gpsbabel squeezes older units' comments to their character set itself.
    if (profile.waypoint_type >= 108 && profile.waypoint_type <= 110) {
        EXPECT_EQ(up.waypoints[0].comment, "FIRST UPLOAD");
        EXPECT_EQ(up.waypoints[0].alt, 512.5f);
        EXPECT_EQ(up.waypoints[1].alt, 12.25f);
    }

    // The newer protocols carry routes and tracks whole; with the older
    // ones gpsbabel adds records of its own (blank route points, a lead-in
    // track point), so there only what it meant is checked.
    ASSERT_EQ(up.routes.size(), 1u);
    std::vector<Waypoint> rpts;
    for (const auto& p : up.routes[0].points)
        if (!p.ident.empty()) rpts.push_back(p);
    ASSERT_EQ(rpts.size(), 3u);
    EXPECT_EQ(rpts[0].ident, "RA");
    EXPECT_EQ(rpts[2].ident, "RC");
    EXPECT_TRUE(at(rpts[1].lat, 47.2) && at(rpts[1].lon, 8.7));
    if (profile.route_header_type == 202) {
        EXPECT_EQ(up.routes[0].ident, "UPROUTE");
        EXPECT_EQ(up.routes[0].points.size(), 3u);
        EXPECT_EQ(up.routes[0].links.size(), 2u);
    }

    if (!profile.track_protocol) {
        EXPECT_TRUE(up.tracks.empty());
        return;
    }
    ASSERT_EQ(up.tracks.size(), 1u);
    std::vector<Track_Point> pts;
    for (const auto& p : up.tracks[0].points)
        if (p.lat != 0 || p.lon != 0) pts.push_back(p);
    ASSERT_EQ(pts.size(), 3u);
    EXPECT_TRUE(at(pts[2].lat, 47.000201) && at(pts[2].lon, 8.000401));
    EXPECT_EQ(Iso(pts[0].time), "2024-03-01T10:00:00Z");
    EXPECT_EQ(Iso(pts[2].time), "2024-03-01T10:10:00Z");
    EXPECT_TRUE(pts[0].new_segment);
    EXPECT_FALSE(pts[1].new_segment);
    EXPECT_TRUE(pts[2].new_segment);
    if (profile.track_header_type == 310 || profile.track_header_type == 312) {
        EXPECT_EQ(up.tracks[0].ident, "UPTRACK");
        EXPECT_EQ(up.tracks[0].points.size(), 3u);
        EXPECT_EQ(pts[1].alt, 401.5f);
    }
}

INSTANTIATE_TEST_SUITE_P(Profiles, SimGpsbabel, ::testing::ValuesIn(Profile::Names()),
                         [](const auto& info) {
                             std::string n = info.param;
                             for (char& c : n)
                                 if (c == '-') c = '_';
                             return n;
                         });
