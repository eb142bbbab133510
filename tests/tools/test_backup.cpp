// Backup and restore: what `get all --json` saves from a unit, `put --verify`
// restores to an empty unit of the same kind, and the restored unit gives
// back the same file, field by field. On the virtual platform, with the
// simulated receiver in-process, so one unit outlives the commands run on it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "commands.h"
#include "files.h"
#include "support/scratch.h"
#include "trekcom/trekcom.h"
#include "trekcom_sim/unit.h"

namespace trekcom::tool {
namespace {

using nlohmann::json;
using trekcom::testing::Read_File;

// One unit on a virtual platform, and the tool's commands run against it.
struct Bench {
    Bench(const std::string& profile, sim::Data_Set data) {
        vp->Attach(1, std::make_shared<sim::Virtual_Unit>(sim::Profile::Named(profile), std::move(data)));
        options.platform = vp;
        options.port = "1";
        options.progress = false;
        options.notes = &notes;
    }
    int Run(Command command, Command_Options c) {
        err.str("");
        return Run_Command(command, options, c, err);
    }
    // Restores a file with --verify; what it printed goes to `said`.
    int Restore(const std::string& file, std::string& said) {
        Command_Options c;
        c.input = file;
        c.verify = true;
        ::testing::internal::CaptureStdout();
        const int code = Run(Run_Put, c);
        said = ::testing::internal::GetCapturedStdout();
        return code;
    }
    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    Session_Options options;
    std::ostringstream err, notes;
};

Command_Options Backup_To(const std::string& file) {
    Command_Options c;
    c.kinds = {"all"};
    c.json = true;
    c.output = file;
    return c;
}

TEST(Backup, EveryKindComesBackFieldByField) {
    trekcom::testing::Scratch_Folder scratch;
    for (const std::string profile : {"current", "aviator", "d110"}) {
        SCOPED_TRACE(profile);
        const std::string saved = (scratch / (profile + ".json")).string();
        const std::string again = (scratch / (profile + "-again.json")).string();
        Bench full(profile, sim::Builtin_Data());
        ASSERT_EQ(full.Run(Run_Get, Backup_To(saved)), kOk) << full.err.str();

        Bench empty(profile, sim::Data_Set{});
        std::string said;
        ASSERT_EQ(empty.Restore(saved, said), kOk) << empty.err.str();
        EXPECT_NE(said.find("verified: every record read back"), std::string::npos) << said;
        EXPECT_EQ(empty.notes.str(), "");  // nothing skipped: the same unit takes all it gave
        ASSERT_EQ(empty.Run(Run_Get, Backup_To(again)), kOk) << empty.err.str();

        json want = json::parse(Read_File(saved)), got = json::parse(Read_File(again));
        // The control sends D302 track points without their altitude and
        // depth (those bytes stay zero), as it always has: on such units the
        // two come back as 0 and are all that may differ.
        if (profile == "d110" || profile == "aviator")
            for (std::size_t t = 0; t < want["tracks"].size(); ++t)
                for (std::size_t i = 0; i < want["tracks"][t]["Points"].size(); ++i) {
                    json& p = got["tracks"][t]["Points"][i];
                    EXPECT_EQ(p.value("Alt", -1.0), 0.0);
                    EXPECT_EQ(p.value("Dpth", -1.0), 0.0);
                    for (json* j : {&want["tracks"][t]["Points"][i], &p}) j->erase("Alt"), j->erase("Dpth");
                }
        for (const char* kind : {"waypoints", "proximity", "routes", "tracks", "laps", "flightbook", "almanac"})
            if (want.contains(kind) && want[kind].empty()) ADD_FAILURE() << "the unit gave no " << kind;
        EXPECT_EQ(want, got) << json::diff(want, got).dump();
    }
}

// A set a unit cannot take whole: the kinds it takes go up, the others are named.
TEST(Backup, KindsTheUnitCannotTakeAreNamedAndSkipped) {
    trekcom::testing::Scratch_Folder scratch;
    const std::string saved = (scratch / "aviator.json").string();
    Bench aviator("aviator", sim::Builtin_Data());
    ASSERT_EQ(aviator.Run(Run_Get, Backup_To(saved)), kOk) << aviator.err.str();

    Bench other("current", sim::Data_Set{});
    std::string said;
    EXPECT_EQ(other.Restore(saved, said), kOk) << other.err.str();
    EXPECT_EQ(other.notes.str(), "trekcom: skipped " + std::to_string(sim::Builtin_Data().flights.size()) +
                                     " flightbook: TREKSIM 60 Software Version 3.80 takes none\n");
    EXPECT_NE(said.find("verified"), std::string::npos) << said;
    EXPECT_EQ(said.find("flightbook"), std::string::npos) << said;
}

// A JSON file is as untrusted as a GPX one: a bad value anywhere fails the
// whole read, naming its place.
TEST(Backup, BadJsonValuesAreNamedByTheirPlace) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"waypoints": [{"Ident": "A", "Lat": 91, "Lon": 6}]})", "waypoints[0].Lat 91 is outside its range"},
        {R"({"waypoints": [{"Ident": "A", "Lat": 1, "Lon": "6"}]})", "waypoints[0].Lon is not a number"},
        {R"({"routes": [{"Waypoints": [{"Smbl": 40000}]}]})", "routes[0].Waypoints[0].Smbl 40000 does not fit its field"},
        {R"({"tracks": [{"Points": [{"Time": "yesterday"}]}]})", "tracks[0].Points[0].Time is not an ISO 8601 time"},
        {R"({"laps": [{"Start_Time": "1989-01-01T00:00:00Z"}]})", "laps[0].Start_Time \"1989-01-01T00:00:00Z\" is before 1990 or after 2126"},
        {R"({"almanac": [{"svid": 256}]})", "almanac[0].svid 256 does not fit its field"},
        {R"({"flightbook": {}})", "flightbook is not a list"},
        {R"({"laps": [3]})", "laps[0] is not an object"},
        {R"([1, 2])", "the file is not a JSON object"},
    };
    for (const auto& [text, what] : cases) {
        Data d;
        std::string error;
        EXPECT_FALSE(Parse_Json(text, "in.json", d, error)) << text;
        EXPECT_EQ(error, std::string("in.json: ") + what) << text;
    }
    Data d;
    std::string error;
    EXPECT_FALSE(Parse_Json("{\"waypoints\": [", "cut.json", d, error));
    EXPECT_EQ(error.find("cut.json: not valid JSON: "), 0u) << error;
}

}  // namespace
}  // namespace trekcom::tool
