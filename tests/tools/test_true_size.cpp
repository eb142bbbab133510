// Track_Point_True_Size: off, D301 and D302 points go out with the D300 size
// byte and a unit that checks it refuses them; on, they carry their own size
// and are stored. D300 points are the same either way.
#include <gtest/gtest.h>

#include <trekcom/trekcom.h>

#include "trekcom_sim/unit.h"

namespace trekcom {
namespace {

struct Errors : TrekcomCtlEvents {
    int count = 0;
    void cError(std::int16_t&, std::string&, Bytes&) override { ++count; }
};

struct Upload {
    std::size_t stored = 0;
    long bad_frames = 0;
    int errors = 0;
};

Upload Send_Points(const std::string& profile, bool true_size) {
    auto vp = std::make_shared<VirtualPlatform>();
    auto unit = std::make_shared<sim::Virtual_Unit>(sim::Profile::Named(profile), sim::Data_Set{});
    vp->Attach(1, unit);
    TrekcomCtl ctl(vp);
    Errors errors;
    ctl.Advise(errors);
    EXPECT_FALSE(ctl.Track_Point_True_Size());  // the default
    ctl.Track_Point_True_Size(true_size);
    EXPECT_TRUE(ctl.PortOpen());
    ctl.Request_Product_Data();
    std::int16_t n = 3;
    ctl.Start_of_Records(n);
    for (int i = 0; i < n; ++i) {
        auto p = std::make_shared<cTrack>();
        p->Lat = 46.5 + i * 0.01;
        p->Lon = 6.5;
        p->Seconds = 1000000 + i;
        p->Alt = 500;
        p->Temp = 20;
        p->New_Segment = i == 0;
        ctl.Track(p);
        ctl.Send_Track();
    }
    ctl.End_of_Records();
    Upload u;
    for (const auto& t : unit->Sim().Uploaded().tracks) u.stored += t.points.size();
    u.bad_frames = unit->Sim().Stats().bad_frames;
    u.errors = errors.count;
    return u;
}

TEST(TrackPointTrueSize, OffKeepsTheD300SizeThatCheckingUnitsRefuse) {
    for (const char* profile : {"current", "d110"}) {  // D301, D302
        const Upload u = Send_Points(profile, false);
        EXPECT_EQ(u.stored, 0u) << profile;
        EXPECT_GE(u.bad_frames, 3) << profile;
        EXPECT_GT(u.errors, 0) << profile;
    }
}

TEST(TrackPointTrueSize, OnSendsTheLayoutsOwnSize) {
    for (const char* profile : {"current", "d110", "legacy25"}) {  // D301, D302, D300
        const Upload u = Send_Points(profile, true);
        EXPECT_EQ(u.stored, 3u) << profile;
        EXPECT_EQ(u.bad_frames, 0) << profile;
        EXPECT_EQ(u.errors, 0) << profile;
    }
}

}  // namespace
}  // namespace trekcom
