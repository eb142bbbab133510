// Every wait of the tool ends: a USB search with nothing plugged in gives up
// after --timeout, and an interrupt of the platform (what SIGINT and SIGTERM
// do) ends any wait within a second. On the virtual platform, so the clock
// that is measured is the one the waits run on.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "commands.h"
#include "trekcom/trekcom.h"
#include "trekcom_sim/unit.h"

namespace trekcom::tool {
namespace {

struct Outcome {
    int code = -1;
    std::string err;
    double elapsed_ms = 0;
};

class Waits : public ::testing::Test {
public:
    Waits() { Fresh(); }
    // A new platform, and options that wait as long as the tool allows.
    void Fresh() {
        vp = std::make_shared<VirtualPlatform>();
        options = {};
        options.platform = vp;
        options.progress = false;
        options.port = "1";
        options.timeout_ms = 600000;
        cmd = {};
        cmd.output = "/dev/null";
        interrupted_at = -1;
    }
    // Runs a command; an interrupt arrives after_ms into it (never, when < 0).
    Outcome Run(Command command, double after_ms = -1) {
        auto timer = vp->Create_Timer();
        timer->Interval(static_cast<std::int32_t>(after_ms));
        timer->Tick = [&] {
            vp->Interrupt();
            interrupted_at = vp->Now_ms();
            timer->Enabled(false);
        };
        timer->Enabled(after_ms >= 0);
        std::ostringstream err;
        options.notes = &err;
        const double start = vp->Now_ms();
        const int code = Run_Command(command, options, cmd, err);
        return {code, err.str(), vp->Now_ms() - start};
    }
    void No_Usb_Receiver() {
        vp->Usb_Driver_Handler([] { return Make_Null_Usb_Driver(Usb_Status::not_found); });
        options.port = "usb";
    }
    std::shared_ptr<sim::Virtual_Unit> Attach(sim::Options o = {}, sim::Faults f = {}) {
        auto unit = std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"), sim::Builtin_Data(), o);
        unit->Sim().Fault_Knobs() = f;
        vp->Attach(1, unit);
        return unit;
    }

    std::shared_ptr<VirtualPlatform> vp;
    Session_Options options;
    Command_Options cmd;
    double interrupted_at = -1;
};

TEST_F(Waits, UsbSearchWithNothingPluggedInGivesUpAfterTheTimeout) {
    No_Usb_Receiver();
    for (int timeout : {3000, 10000}) {
        options.timeout_ms = timeout;
        const Outcome r = Run(Run_Info);
        EXPECT_EQ(r.code, kNo_Device) << r.err;
        EXPECT_GE(r.elapsed_ms, timeout);
        EXPECT_LT(r.elapsed_ms, timeout + 1000);
        EXPECT_EQ(r.err, "trekcom: waiting for a Garmin USB receiver (connect it and switch it on)...\n"
                         "trekcom: no device: no Garmin USB receiver appeared within " +
                             std::to_string(timeout) + " ms (--timeout)\n");
    }
}

// A port where nothing streams: pvt gives up as any command does.
TEST_F(Waits, PvtOnASilentPortTimesOut) {
    options.timeout_ms = 3000;
    const Outcome r = Run(Run_Pvt);
    EXPECT_EQ(r.code, kTimeout) << r.err;
    EXPECT_EQ(r.err.find("trekcom: timeout: no receiver answers"), 0u) << r.err;
}

// Each kind of wait, interrupted well inside it, ends within a second with 130.
TEST_F(Waits, AnInterruptEndsEveryWaitWithinASecond) {
    struct Case {
        const char* name;
        std::function<void(Waits&)> setup;
        Command command;
    };
    const Case cases[] = {
        {"usb device search", [](Waits& t) { t.No_Usb_Receiver(); }, Run_Info},
        {"pvt stream", [](Waits& t) { t.Attach(); }, Run_Pvt},
        {"nmea monitor",
         [](Waits& t) {
             sim::Options o;
             o.mode = sim::Output_Mode::nmea;
             o.baud = 4800;
             t.Attach(o);
         },
         Run_Nmea},
        {"stalled transfer",
         [](Waits& t) {
             sim::Faults f;
             f.stall_after_record = 3;
             t.Attach({}, f);
             t.cmd.kinds = {"waypoints"};
         },
         Run_Get},
        // Nothing answers at any rate.
        {"baud search", [](Waits&) {}, Run_Baud},
        {"identify, nobody there", [](Waits&) {}, Run_Time},
        // pvt listens for a unit that streams unasked while it asks who is there.
        {"pvt, nobody there", [](Waits&) {}, Run_Pvt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Fresh();
        c.setup(*this);
        const Outcome r = Run(c.command, 1500);
        EXPECT_EQ(r.code, kInterrupted) << r.err;
        ASSERT_GE(interrupted_at, 0);
        EXPECT_LT(vp->Now_ms() - interrupted_at, 1000);
        EXPECT_NE(r.err.find("trekcom: interrupted"), std::string::npos) << r.err;
    }
}

}  // namespace
}  // namespace trekcom::tool
