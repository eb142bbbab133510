// A trace kept from HexDebug and replayed: the receiver's packets come back
// through the receive path as if it had just sent them.
#include "host.h"

namespace host_test {
namespace {

namespace fs = std::filesystem;

// A control that replays `log` when asked for the screen; with a unit on its
// line when the test also talks to one.
struct Replayer : Host {
    explicit Replayer(const fs::path& log, bool with_unit = false)
        : Host(with_unit ? std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current")) : nullptr) {
        vp->File_Dialog_Handler([log](const std::string&) { return log.string(); });
    }
};

// A waypoint download from the simulated receiver with DebugLog on, its
// trace written to `log` as a host writing a log keeps it.
struct Live_Session : Host {
    explicit Live_Session(const fs::path& log) : Host(std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"))) {
        ctl.DebugLog(true);
        EXPECT_TRUE(ctl.PortOpen());
        ctl.Request_Product_Data();
        ctl.Request_Waypoints();
        vp->Run_Until([&] { return events.waypoints > 0; }, 60000);
        EXPECT_EQ(events.waypoints, 1);
        EXPECT_TRUE(events.errors.empty());
        std::string text;
        for (const std::string& line : events.debug) text += line + "\r\n";
        Write_File(log, text);
    }
};

// Counting leaves raw events off and passes only records packets until the
// next request; the replay is a request, so after counting it still sees
// every packet.
TEST(Replay, ATraceWrittenWithDebugLogReplaysToTheSamePacketsAndRecords) {
    Scratch_Folder folder;
    const fs::path log = folder.path / "session.log";
    Live_Session live(log);

    for (const bool counted_first : {false, true}) {
        SCOPED_TRACE(counted_first ? "after counting" : "fresh");
        Replayer r(log, counted_first);
        if (counted_first) {
            ASSERT_TRUE(r.ctl.PortOpen());
            r.ctl.Request_Counts();
            ASSERT_EQ(r.events.counts.size(), 1u);
            r.events.received.clear();
        }
        r.ctl.Request_Display();
        EXPECT_TRUE(r.events.errors.empty());  // a log was replayed: no capture error
        EXPECT_EQ(r.events.received, live.events.received);
        EXPECT_EQ(r.events.waypoints, 1);
        EXPECT_EQ(r.ctl.Waypoints()->Count(), live.ctl.Waypoints()->Count());
        if (counted_first) continue;
        EXPECT_EQ(r.ctl.Incoming_Records_Count(), live.ctl.Incoming_Records_Count());
        EXPECT_EQ(r.ctl.Product_Data()->Product_ID, live.ctl.Product_Data()->Product_ID);
        EXPECT_EQ(r.ctl.Product_Data()->Software_Version, live.ctl.Product_Data()->Software_Version);
        EXPECT_EQ(r.ctl.Waypoint_Data_Format(), live.ctl.Waypoint_Data_Format());
        EXPECT_EQ(r.ctl.Track_Transfer_Protocol(), live.ctl.Track_Transfer_Protocol());
    }
}

TEST(Replay, OnlyWellFormedReceivedLinesAreReplayed) {
    Scratch_Folder folder;
    const fs::path log = folder.path / "hand.log";
    const std::string unit_id = "10 26 04 01 02 03 04 CC 10 03 ";  // unit id 0x04030201
    Write_File(log,
               "PC \u00AB- GPS (   12.5 ms) " + unit_id + "\r\n"  // kept
               "PC \xAB- GPS (    3.0 ms) 10 06 02 0A 00 EE 10 03\n"  // Windows-1252 mark, bare LF: kept
               "PC -\u00BB GPS 10 0A 02 0E 00 E4 10 03 \r\n"  // sent by the host
               "Re-try after NAK\r\n"
               "PC \u00AB- GPS (   1.0 ms) 10 26 04 01 02 03 04 CD 10 03 \r\n"  // bad checksum
               "PC \u00AB- GPS (   1.0 ms) 10 26 05 01 02 03 04 CC 10 03 \r\n"  // size disagrees
               "PC \u00AB- GPS (   1.0 ms) 10 26 0G 01 \r\n"                   // not hex
               "PC \u00AB- GPS (   1.0 ms) 10 26 \r\n"                         // cut short
               "PC \u00AB- GPS (   1.0 ms) 100 26 \r\n"                        // not a byte
               "PC \u00AB- GPS ( no time stamp " + unit_id + "\r\n"
               "PC \u00AB- GPS (   1.0 ms) " + std::string(100000, 'A') + "\r\n"
               "\r\n"
               // A USB application packet (type 20) and a protocol-layer one (type 0).
               "PC \u00AB- GPS (   2.0 ms) 14 00 00 00 26 00 00 00 04 00 00 00 05 06 07 08 \r\n"
               "PC \u00AB- GPS (   2.0 ms) 00 00 00 00 06 00 00 00 04 00 00 00 05 06 07 08 \r\n"
               "PC \u00AB- GPS (   2.0 ms) 14 00 00 00 26 00 00 00 09 00 00 00 05 06 07 08 \r\n"
               "PC \u00AB- GPS (   4.0 ms) " + unit_id);  // the last line, without an end
    Replayer r(log);
    r.ctl.Request_Display();
    EXPECT_TRUE(r.events.errors.empty());
    const Bytes first{16, 0x26, 4, 1, 2, 3, 4, 0xCC, 16, 3};
    const Bytes ack{16, 6, 2, 10, 0, 0xEE, 16, 3};
    const Bytes usb{16, 0x26, 4, 5, 6, 7, 8, 0xBC, 16, 3};
    EXPECT_EQ(r.events.received, (std::vector<Bytes>{first, ack, usb, first}));
    EXPECT_EQ(r.ctl.Product_Data()->Unit_ID, std::to_string(0x04030201));
}

TEST(Replay, NoLogChosenOrNoneReadableEndsTheReplayQuietly) {
    Scratch_Folder folder;
    for (const fs::path& chosen : {fs::path(), folder.path / "missing.log", folder.path}) {
        Replayer r(chosen);
        r.ctl.Request_Display();
        EXPECT_TRUE(r.events.received.empty());
        ASSERT_FALSE(r.events.errors.empty());  // the capture went on to a unit that is not there
        EXPECT_EQ(r.events.errors[0].message, "No response from device");
    }
}

}  // namespace
}  // namespace host_test
