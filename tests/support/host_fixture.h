// What every test of the control shares: a recorder of everything the control
// raises, in order. Public headers only, so host-level tests can use it too.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "trekcom/trekcom.h"

namespace trekcom::testing {

struct Recorder : TrekcomCtlEvents {
    struct Error {
        std::int16_t code;
        std::string message;
        Bytes packet;
    };
    struct Counts {
        std::int16_t w, p, r, t;
    };
    std::vector<std::string> order;  // event names as raised
    std::vector<Bytes> received;
    std::vector<Error> errors;
    std::vector<Error> vc_errors;  // the packet text turned back into bytes
    std::vector<std::string> debug;
    std::vector<std::pair<std::string, bool>> nmea;
    std::vector<Counts> counts;
    int waypoints = 0, routes = 0, tracks = 0, flightbook = 0, laps = 0, runs = 0, courses = 0;
    std::vector<std::shared_ptr<cRun>> each_run;
    std::vector<std::size_t> run_after;  // packets received before each run was handed over
    bool twins_match = true;  // vcError repeats what cError was given (off when a handler rewrites it)

    void Receive(Bytes& p) override {
        order.push_back("Receive");
        received.push_back(p);
    }
    void vcReceive(std::string& p) override {
        order.push_back("vcReceive");
        EXPECT_EQ(p, Bytes2String(received.back()));
    }
    void cError(std::int16_t& c, std::string& m, Bytes& p) override {
        order.push_back("cError");
        errors.push_back({c, m, p});
    }
    void vcError(std::int16_t& c, std::string& m, std::string& p) override {
        order.push_back("vcError");
        vc_errors.push_back({c, m, String2Bytes(p)});
        if (!twins_match) return;
        EXPECT_EQ(c, errors.back().code);
        EXPECT_EQ(m, errors.back().message);
        EXPECT_EQ(p, Bytes2String(errors.back().packet));
    }
    void HexDebug(std::string& t) override {
        order.push_back("HexDebug");
        debug.push_back(t);
    }
    void NMEA(std::string& s, bool& ok) override {
        order.push_back("NMEA");
        nmea.emplace_back(s, ok);
    }
    void ReceiveCounts(std::int16_t& w, std::int16_t& p, std::int16_t& r, std::int16_t& t) override {
        counts.push_back({w, p, r, t});
    }
    void ReceivedWaypoints(std::shared_ptr<Collection<cWaypoint>>&) override {
        order.push_back("ReceivedWaypoints");
        ++waypoints;
    }
    std::vector<std::int16_t> image_pcts;  // ReceiveImage, in order
    Picture image;                         // the last one
    void ReceiveImage(std::int16_t& pct, Picture& p) override {
        image_pcts.push_back(pct);
        image = p;
    }
    Picture icon;
    Bytes icon_bmp;
    void ReceiveIcon(std::int16_t&, Picture& p, Bytes& bmp) override {
        icon = p;
        icon_bmp = bmp;
    }
    void ReceivedRoutes(std::shared_ptr<Collection<cRoute>>&) override { ++routes; }
    void ReceivedTracks(std::shared_ptr<Collection<cTrack>>&) override { ++tracks; }
    void ReceivedFlightbook(std::shared_ptr<Collection<cFlightbook_Record>>&) override { ++flightbook; }
    void ReceivedLaps(std::shared_ptr<Collection<cLap>>&) override { ++laps; }
    void ReceivedRun(std::shared_ptr<cRun>& run) override {
        each_run.push_back(run);
        run_after.push_back(received.size());
    }
    void ReceivedRuns(std::shared_ptr<Collection<cRun>>&) override { ++runs; }
    void ReceivedCourses(std::shared_ptr<Collection<cCourse>>&) override { ++courses; }
};

// The errors raised, as one line for a failure message.
inline std::string Errors(const Recorder& rec) {
    std::string s;
    for (const auto& e : rec.errors) s += std::to_string(e.code) + " " + e.message + "; ";
    return s;
}

// A control on the virtual platform with every event recorded.
class Host_Test : public ::testing::Test {
protected:
    Host_Test() { ctl.Advise(rec); }
    void Run(double ms) { vp->Advance(ms); }

    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    TrekcomCtl ctl{vp};
    Recorder rec;
};

}  // namespace trekcom::testing
