// Interoperability with an independent host: gpsbabel, run as a black box
// against the trekcom-sim tool over a real pseudo-terminal. Its downloads must
// give back exactly the unit's data: the simulated unit that the library's
// tests measure against is checked against a host written apart from both.
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

INSTANTIATE_TEST_SUITE_P(Profiles, SimGpsbabel, ::testing::ValuesIn(Profile::Names()),
                         [](const auto& info) {
                             std::string n = info.param;
                             for (char& c : n)
                                 if (c == '-') c = '_';
                             return n;
                         });
