// The built tool as a user runs it: a subprocess against trekcom-sim on a pty,
// against its own --port sim, and against ports with nobody or nothing there.
#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "files.h"
#include "support/scratch.h"
#include "support/sim_process.h"
#include "trekcom_sim/unit.h"

namespace trekcom::tool {
namespace {

namespace fs = std::filesystem;

using testing::Read_File;
using testing::Sim_Process;
using Scratch = testing::Scratch_Folder;

struct Result {
    int code = -1;
    std::string out, err;
};

// Runs a program with these arguments; no shell, so paths need no quoting.
Result Run_Program(const Scratch& scratch, std::vector<std::string> args) {
    const fs::path out = scratch / "stdout", err = scratch / "stderr";
    const pid_t pid = fork();
    if (pid == 0) {
        const int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(o, 1);
        dup2(e, 2);
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read_File(out), Read_File(err)};
}

Result Run_Tool(const Scratch& scratch, std::vector<std::string> args) {
    args.insert(args.begin(), {TREKCOM_TOOL, "--no-progress"});
    return Run_Program(scratch, std::move(args));
}

class Tool : public ::testing::Test {
protected:
    Result Sim(std::vector<std::string> args) {
        args.insert(args.begin(), {"--port", "sim"});
        return Run_Tool(scratch, std::move(args));
    }
    nlohmann::json Json_Of(const Result& r) {
        EXPECT_EQ(r.code, 0) << r.err;
        return nlohmann::json::parse(r.out, nullptr, false);
    }
    Scratch scratch;
    const sim::Data_Set builtin = sim::Builtin_Data();
    // As the default unit sends it (its layouts set the first point's segment flag, for one).
    const sim::Data_Set visible = sim::Unit(sim::Profile::Named("current")).Visible_Data();
};

// gpsbabel's unicsv output as rows of named columns.
std::vector<std::map<std::string, std::string>> Csv_Rows(const std::string& text) {
    std::vector<std::vector<std::string>> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.ends_with('\r')) line.pop_back();
        lines.emplace_back();
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, ',');) lines.back().push_back(cell);
    }
    std::vector<std::map<std::string, std::string>> rows;
    for (std::size_t i = 1; i < lines.size(); ++i)
        for (std::size_t k = 0; rows.resize(i), k < lines[0].size() && k < lines[i].size(); ++k)
            rows[i - 1][lines[0][k]] = lines[i][k];
    return rows;
}
std::string Csv_Time(std::uint32_t garmin) {  // unicsv's date and time columns, "2024/06/02 07:30:00"
    const std::string iso = Iso_Time(garmin);
    return iso.substr(0, 4) + "/" + iso.substr(5, 2) + "/" + iso.substr(8, 2) + " " + iso.substr(11, 8);
}

// A download from the fitness unit read back by an independent reader: the TCX (well formed, as xmllint finds it)
// and the GPX give gpsbabel every point that has a position, with its time, place and heart rate, and one lap mark
// at the start of each lap that has points, numbered as the laps are.
TEST_F(Tool, RunsReadBackByGpsbabelWithTheirLapsPointsTimesPlacesAndHeartRates) {
    if (std::system("gpsbabel -V > /dev/null 2>&1 && xmllint --version > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "gpsbabel or xmllint is not installed";
    sim::Data_Set data;
    sim::Add_Fitness_Data(data);
    std::vector<const sim::Fitness_Point*> placed;
    std::vector<std::pair<std::size_t, std::uint32_t>> marks;  // lap number, time of its first point
    for (const sim::Run& run : data.runs)
        for (std::uint32_t k = run.first_lap; k <= run.last_lap; ++k) {
            const std::uint32_t from = data.fitness_laps[k].start_time;
            const std::uint32_t to = k < run.last_lap ? data.fitness_laps[k + 1].start_time : UINT32_MAX;
            for (const auto& t : data.fitness_tracks)
                for (const auto& p : t.points) {
                    if (t.index != run.track_index || p.time < from || p.time >= to || p.lat == 0x7FFFFFFF) continue;
                    if (marks.empty() || marks.back().first != k + 1) marks.emplace_back(k + 1, p.time);
                    placed.push_back(&p);
                }
        }
    for (const char* file : {"runs.tcx", "runs.gpx"}) {
        SCOPED_TRACE(file);
        const std::string path = (scratch / file).string();
        ASSERT_EQ(Sim({"--sim-profile", "fitness", "get", "runs", "-o", path}).code, 0);
        EXPECT_EQ(std::system(("xmllint --noout " + path).c_str()), 0);
        for (const char* none : {">0<", ">255<", "e+25"}) EXPECT_EQ(Read_File(path).find(none), std::string::npos) << none;
        const std::string format = std::string(file).ends_with("tcx") ? "gtrnctr" : "gpx";
        ASSERT_EQ(std::system(("gpsbabel -t -i " + format + " -f " + path + " -o unicsv -F " + path + ".csv").c_str()), 0);
        const auto points = Csv_Rows(Read_File(path + ".csv"));
        ASSERT_EQ(points.size(), placed.size());
        for (std::size_t i = 0; i < points.size(); ++i) {
            const sim::Fitness_Point& want = *placed[i];
            EXPECT_EQ(points[i].at("Date") + " " + points[i].at("Time"), Csv_Time(want.time)) << i;
            EXPECT_NEAR(std::stod(points[i].at("Latitude")), sim::Semi_To_Deg(want.lat), 1e-6) << i;
            EXPECT_NEAR(std::stod(points[i].at("Longitude")), sim::Semi_To_Deg(want.lon), 1e-6) << i;
            EXPECT_EQ(points[i].at("Heartrate"), want.heart_rate ? std::to_string(want.heart_rate) : "") << i;
        }
        if (format == "gpx") continue;
        ASSERT_EQ(std::system(("gpsbabel -w -i gtrnctr -f " + path + " -o unicsv -F " + path + ".laps").c_str()), 0);
        const auto laps = Csv_Rows(Read_File(path + ".laps"));
        ASSERT_EQ(laps.size(), marks.size());
        for (std::size_t i = 0; i < laps.size(); ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "\"LAP%03zu\"", marks[i].first);
            EXPECT_EQ(laps[i].at("Name"), name);
            EXPECT_EQ(laps[i].at("Date") + " " + laps[i].at("Time"), Csv_Time(marks[i].second));
        }
    }
}

TEST_F(Tool, InfoShowsTheUnitAndItsProtocols) {
    Sim_Process unit(scratch.path);
    ASSERT_TRUE(unit.Ready());
    const Result r = Run_Tool(scratch, {"--port", unit.Link(), "info"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("Product:      TREKSIM 60 Software Version 3.80"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Unit id:      3456789012"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  Tracks         A301  D310 D301\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  Flightbook     -\n"), std::string::npos) << r.out;
    const auto j = Json_Of(Sim({"--json", "info"}));
    EXPECT_EQ(j["Product_ID"], 1000);
    EXPECT_EQ(j["Protocols"]["Routes"]["Formats"], nlohmann::json({"D202", "D108", "D210"}));
}

// The grey unit's frame lies a quarter turn from its 160 x 288 screen; the
// PNG is the screen, and a rename is refused without a word to the unit.
TEST_F(Tool, ScreenshotWritesThePngAndNameRefusesARename) {
    const fs::path png = scratch / "screen.png";
    const Result r = Sim({"--sim-profile", "grey-legend", "screenshot", "-o", png.string()});
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string file = Read_File(png);
    ASSERT_GE(file.size(), 24u);
    EXPECT_EQ(file.substr(1, 3), "PNG");
    EXPECT_EQ(file.substr(16, 8), std::string("\0\0\0\xA0\0\0\x01\x20", 8));  // width, height
    const Result rename = Sim({"name", "NEW NAME"});
    EXPECT_EQ(rename.code, 5);
    EXPECT_NE(rename.out.find("Unit id:      3456789012"), std::string::npos) << rename.out;
    EXPECT_NE(rename.err.find("nothing was sent"), std::string::npos) << rename.err;
}

TEST_F(Tool, GetAllWritesGpxAndSkipsWhatTheUnitLacks) {
    const fs::path out = scratch / "all.gpx";
    const Result r = Sim({"get", "all", "-o", out.string()});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("12 waypoints, 2 proximity waypoints, 2 routes (8 points), 2 tracks"), std::string::npos)
        << r.out;
    Data d;
    std::string error;
    ASSERT_TRUE(Read_Records(out.string(), d, error)) << error;
    EXPECT_EQ(d.waypoints.size(), builtin.waypoints.size());
    EXPECT_EQ(d.proximity.size(), builtin.proximity.size());
    EXPECT_EQ(d.tracks.size(), builtin.tracks.size());
    const std::string text = Read_File(out);
    EXPECT_NE(text.find("<sym>Residence</sym>"), std::string::npos);  // HOME, symbol 10
    EXPECT_NE(text.find("<trekcom:lap "), std::string::npos);
}

// Uploaded to an empty unit and read back, a file gives back the same GPX.
TEST_F(Tool, PutThenGetGivesBackTheSameGpx) {
    const fs::path original = scratch / "original.gpx", back = scratch / "back.gpx", empty = scratch / "empty.json";
    ASSERT_EQ(Sim({"get", "waypoints", "proximity", "routes", "tracks", "-o", original.string()}).code, 0);
    std::ofstream(empty) << "{}";
    Sim_Process unit(scratch.path, {"--data", empty.string()});
    ASSERT_TRUE(unit.Ready());
    const Result put = Run_Tool(scratch, {"--port", unit.Link(), "put", original.string()});
    ASSERT_EQ(put.code, 0) << put.err;
    EXPECT_EQ(put.out, "uploaded 12 waypoints, 2 proximity waypoints, 2 routes (8 points), 2 tracks (65 points) to "
                       "TREKSIM 60 Software Version 3.80\n");
    const Result get = Run_Tool(scratch, {"--port", unit.Link(), "get", "waypoints", "proximity", "routes", "tracks", "-o",
                                     back.string()});
    ASSERT_EQ(get.code, 0) << get.err;
    EXPECT_EQ(Read_File(back), Read_File(original));
}

TEST_F(Tool, PvtCountsAndRealTimeRequests) {
    const Result pvt = Sim({"pvt", "-n", "3"});
    ASSERT_EQ(pvt.code, 0) << pvt.err;
    EXPECT_EQ(std::count(pvt.out.begin(), pvt.out.end(), '\n'), 3) << pvt.out;
    EXPECT_NE(pvt.out.find("2024-06-01T12:00:0"), std::string::npos) << pvt.out;
    EXPECT_NE(pvt.out.find("46.635600    6.282200"), std::string::npos) << pvt.out;

    const Result nmea = Sim({"pvt", "-n", "2", "--nmea"});
    ASSERT_EQ(nmea.code, 0) << nmea.err;
    EXPECT_EQ(nmea.out.find("$GPGGA,120001.00,4638.1360,N,00616.9320,E,1,"), 0u) << nmea.out;

    const auto counts = Json_Of(Sim({"--json", "counts"}));
    EXPECT_EQ(counts["waypoints"], builtin.waypoints.size());
    EXPECT_EQ(counts["proximity"], builtin.proximity.size());

    EXPECT_EQ(Sim({"time"}).out, "2024-06-01T12:00:00Z\n");
    EXPECT_EQ(Sim({"position"}).out, "46.635600 6.282200\n");
    const auto v = Json_Of(Sim({"--json", "voltages"}));
    EXPECT_NEAR(v["Internal_Voltage"].get<double>(), 2.95, 1e-6);
    EXPECT_NE(Sim({"sats"}).out.find("\n   1 4200    45      120"), std::string::npos);
    EXPECT_EQ(Sim({"baud", "38400"}).out, "now at 38400 baud\n");
}

TEST_F(Tool, FailuresGiveTheirCodeAndOneLine) {
    const auto one_line = [](const Result& r) { return std::count(r.err.begin(), r.err.end(), '\n') == 1; };

    const Result missing = Run_Tool(scratch, {"--port", (scratch / "no-such-tty").string(), "info"});
    EXPECT_EQ(missing.code, 3);
    EXPECT_EQ(missing.err.find("trekcom: no device at "), 0u) << missing.err;
    EXPECT_TRUE(one_line(missing)) << missing.err;

    // A pty nobody answers on.
    int master = -1, slave = -1;
    char name[256] = {};
    ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
    const Result silent = Run_Tool(scratch, {"--port", name, "--timeout", "2000", "info"});
    close(master);
    close(slave);
    EXPECT_EQ(silent.code, 4);
    EXPECT_EQ(silent.err, std::string("trekcom: timeout: no receiver answers on ") + name +
                              " (No response from device)\n");

    // A unit that falls silent after two of its waypoints: the tool saves
    // the two and says how many came.
    Sim_Process stalling(scratch.path, {"--stall-after", "2"});
    ASSERT_TRUE(stalling.Ready());
    const fs::path partial = scratch / "partial.json";
    const Result stalled = Run_Tool(
        scratch, {"--port", stalling.Link(), "--timeout", "2000", "--json", "get", "waypoints", "-o", partial});
    EXPECT_EQ(stalled.code, 8);
    EXPECT_EQ(stalled.err, "trekcom: waypoints: Incomplete transfer: 2 of " +
                               std::to_string(builtin.waypoints.size()) + " records received\n");
    const auto saved = nlohmann::json::parse(Read_File(partial), nullptr, false);
    EXPECT_EQ(saved["waypoints"].size(), 2u) << saved.dump();

    const Result unsupported = Sim({"get", "flightbook"});
    EXPECT_EQ(unsupported.code, 5);
    EXPECT_EQ(unsupported.err, "trekcom: unsupported kind: TREKSIM 60 Software Version 3.80 has no flightbook\n");

    const fs::path bad = scratch / "bad.gpx";
    std::ofstream(bad) << "<gpx version=\"1.1\">\n<wpt lat=\"46\" lon=\"6\"><name>OK</name></wpt>\n"
                          "<wpt lat=\"46\" lon=\"east\"><name>BAD</name></wpt>\n</gpx>\n";
    const Result malformed = Sim({"put", bad.string()});
    EXPECT_EQ(malformed.code, 6);
    EXPECT_EQ(malformed.err, "trekcom: bad file: " + bad.string() + ":3: wpt lon \"east\" is not a number\n");
    EXPECT_EQ(malformed.out, "");  // nothing was uploaded, not even the good waypoint

    const Result typo = Sim({"bogus"});
    EXPECT_EQ(typo.code, 2);
    EXPECT_EQ(typo.err.find("trekcom: unknown command \"bogus\" (commands: info, get, put,"), 0u) << typo.err;
    EXPECT_TRUE(one_line(typo)) << typo.err;

    const Result unknown = Sim({"get", "pebbles"});
    EXPECT_EQ(unknown.code, 2);
    EXPECT_TRUE(one_line(unknown)) << unknown.err;
    EXPECT_EQ(Run_Tool(scratch, {"get"}).code, 2);
    EXPECT_EQ(Run_Tool(scratch, {"put", "--help"}).code, 0);
}

// SIGINT and SIGTERM reach the tool's waits: here the search for a USB
// receiver, which this machine does not have.
TEST_F(Tool, SignalsEndAWaitWithExit130) {
    for (int sig : {SIGINT, SIGTERM}) {
        const fs::path err = scratch / ("stderr-" + std::to_string(sig));
        const pid_t pid = fork();
        if (pid == 0) {
            const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(e, 2);
            execl(TREKCOM_TOOL, TREKCOM_TOOL, "--port", "usb", "--timeout", "600000", "info", nullptr);
            _exit(127);
        }
        // Until it says it is waiting (it exits at once where USB is not supported).
        int status = 0;
        bool waiting = false;
        for (int i = 0; i < 1000 && !waiting; ++i) {
            if (waitpid(pid, &status, WNOHANG) == pid) break;
            waiting = Read_File(err).find("waiting for a Garmin USB receiver") != std::string::npos;
            if (!waiting) usleep(10000);
        }
        if (!waiting) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            GTEST_SKIP() << "the tool did not wait for a USB receiver here: " << Read_File(err);
        }
        kill(pid, sig);
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
        EXPECT_EQ(WEXITSTATUS(status), 130);
        EXPECT_NE(Read_File(err).find("trekcom: interrupted"), std::string::npos) << Read_File(err);
    }
}

// A trace written by one run replays through the control in another, with no receiver.
TEST_F(Tool, TraceReplaysAndNmeaGoesBothWays) {
    const fs::path trace = scratch / "trace.log";
    ASSERT_EQ(Sim({"--trace", trace.string(), "get", "waypoints", "-o", (scratch / "w.gpx").string()}).code, 0);
    const Result r = Run_Tool(scratch, {"replay", trace.string()});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("packets replayed from " + trace.string() + ": 12 waypoints"), std::string::npos) << r.out;
    EXPECT_EQ(Run_Tool(scratch, {"replay", (scratch / "none.log").string()}).code, 6);

    const Result monitor = Sim({"--sim-mode", "nmea", "nmea", "-n", "3"});
    ASSERT_EQ(monitor.code, 0) << monitor.err;
    EXPECT_EQ(std::count(monitor.out.begin(), monitor.out.end(), '$'), 3) << monitor.out;
    EXPECT_EQ(monitor.out.find("checksum"), std::string::npos) << monitor.out;  // every one checked good
    EXPECT_EQ(Sim({"--sim-mode", "nmea", "nmea", "--send", "$PGRMO,,3"}).out, "$PGRMO,,3*74\n");
}

// The two example programs do what docs/trekcom.md says they do.
TEST_F(Tool, ExamplesRunAgainstTheSimulator) {
    Sim_Process unit(scratch.path);
    ASSERT_TRUE(unit.Ready());
    const Result w = Run_Program(scratch, {TREKCOM_EXAMPLE_WAYPOINTS, unit.Link()});
    ASSERT_EQ(w.code, 0) << w.err;
    EXPECT_EQ(w.out.find("TREKSIM 60 Software Version 3.80 (product 1000, waypoints A100 D108)\nHOME "), 0u) << w.out;
    EXPECT_EQ(std::count(w.out.begin(), w.out.end(), '\n'), 1 + static_cast<long>(builtin.waypoints.size()));
    const Result p = Run_Program(scratch, {TREKCOM_EXAMPLE_PVT, unit.Link(), "2"});
    ASSERT_EQ(p.code, 0) << p.err;
    EXPECT_EQ(std::count(p.out.begin(), p.out.end(), '\n'), 2) << p.out;
    EXPECT_NE(p.out.find("46.635600    6.282200"), std::string::npos) << p.out;
}

}  // namespace
}  // namespace trekcom::tool
