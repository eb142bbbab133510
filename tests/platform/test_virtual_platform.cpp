// The virtual platform is the ground every other test stands on: its clock,
// timers, line delivery and rate matching must be exact. (Device wake-ups are
// timed to the millisecond by the simulator's PVT stream in realtime/.)
#include <gtest/gtest.h>

#include "trekcom/virtual_platform.h"

using namespace trekcom;

namespace {
struct Echo : VirtualDevice {
    VirtualLine* line = nullptr;
    std::vector<Bytes> seen;
    void Attached(VirtualLine& l) override { line = &l; }
    void Host_Wrote(const Bytes& b) override {
        seen.push_back(b);
        line->Send(b, line->Now_ms() + 10);
    }
};
}  // namespace

TEST(VirtualPlatform, TimersFireOnTheVirtualClockWithoutReentry) {
    VirtualPlatform vp;
    auto t = vp.Create_Timer();
    int ticks = 0;
    t->Tick = [&] {
        ++ticks;
        vp.DoEvents();  // a nested pump must not tick this timer again
        vp.DoEvents();
    };
    t->Interval(2000);
    t->Enabled(true);
    vp.Advance(5999);
    EXPECT_EQ(ticks, 2);
    EXPECT_NEAR(vp.Now_ms(), 5999, 1.0);
    t->Enabled(false);
    vp.Advance(10000);
    EXPECT_EQ(ticks, 2);
}

TEST(VirtualPlatform, RunUntilJumpsTimeAndStopsAtDeadline) {
    VirtualPlatform vp;
    EXPECT_FALSE(vp.Run_Until([] { return false; }, 29000));
    EXPECT_DOUBLE_EQ(vp.Now_ms(), 29000);
    EXPECT_TRUE(vp.Run_Until([] { return true; }, 1000));
    EXPECT_DOUBLE_EQ(vp.Now_ms(), 29000);
}

TEST(VirtualPlatform, LineDeliversAtScheduledTimeOnlyAtMatchingRate) {
    VirtualPlatform vp;
    auto echo = std::make_shared<Echo>();
    vp.Attach(3, echo);
    auto port = vp.Create_Serial_Port();
    port->CommPort(3);
    int events = 0;
    port->OnComm = [&] {
        ++events;
        EXPECT_EQ(port->CommEvent(), SerialPort::comEvReceive);
        EXPECT_EQ(port->Input(), "abc");
    };
    port->PortOpen(true);
    ASSERT_TRUE(port->PortOpen());
    port->RThreshold(1);
    port->Output("abc");
    vp.Advance(9);
    EXPECT_EQ(events, 0);
    vp.Advance(2);
    EXPECT_EQ(events, 1);

    echo->line->Device_Baud(4800);
    port->Output("xyz");  // lost: the host runs at 9600
    EXPECT_EQ(echo->seen.size(), 1u);
    port->Settings("4800,N,8,1");
    port->Output("abc");
    vp.Advance(20);
    EXPECT_EQ(events, 2);
}

TEST(VirtualPlatform, MissingPortFailsToOpenAndBadSettingsAreRefused) {
    VirtualPlatform vp;
    vp.Missing_Port(7);
    auto port = vp.Create_Serial_Port();
    port->CommPort(7);
    port->PortOpen(true);
    EXPECT_FALSE(port->PortOpen());
    EXPECT_NE(port->Last_Error(), "");
    port->CommPort(2);
    port->Settings("fast please");
    port->PortOpen(true);
    EXPECT_FALSE(port->PortOpen());
    port->Settings("28800,N,8,1");
    port->PortOpen(true);
    EXPECT_TRUE(port->PortOpen());
}

// An interrupt ends a long wait soon after it comes, whoever is waiting, and
// keeps ending waits until the host clears it.
TEST(VirtualPlatform, InterruptEndsWaitsUntilCleared) {
    VirtualPlatform vp;
    auto t = vp.Create_Timer();
    double at = -1;
    t->Tick = [&] {
        vp.Interrupt();
        at = vp.Now_ms();
        t->Enabled(false);
    };
    t->Interval(1234);
    t->Enabled(true);
    EXPECT_FALSE(vp.Run_Until([] { return false; }, 3600e3));
    EXPECT_TRUE(vp.Interrupted());
    EXPECT_LE(vp.Now_ms() - at, 100);
    const double later = vp.Now_ms();
    EXPECT_FALSE(vp.Run_Until([] { return false; }, 5000));
    EXPECT_EQ(vp.Now_ms(), later);
    EXPECT_TRUE(vp.Run_Until([] { return true; }, 5000));  // a wait already done still says so
    vp.Clear_Interrupt();
    EXPECT_FALSE(vp.Run_Until([] { return false; }, 5000));
    EXPECT_NEAR(vp.Now_ms(), later + 5000, 1.0);
}
