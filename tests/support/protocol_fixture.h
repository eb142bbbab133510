// A control on the virtual platform, talking to a simulated receiver (or to a
// scripted one for units the simulator cannot be), with every event recorded.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "control/control.h"
#include "link/link_fixture.h"
#include "trekcom_sim/unit.h"

namespace trekcom::testing {

// A control wired to one device on port 1.
class Protocol_Test : public ::testing::Test {
protected:
    Protocol_Test() { ctl.Advise(rec); }

    std::shared_ptr<sim::Virtual_Unit> Attach_Unit(const sim::Profile& profile) {
        auto unit = std::make_shared<sim::Virtual_Unit>(profile);
        vp->Attach(1, unit);
        EXPECT_TRUE(ctl.PortOpen());
        return unit;
    }
    std::shared_ptr<Scripted_Receiver> Attach_Script() {
        auto device = std::make_shared<Scripted_Receiver>();
        vp->Attach(1, device);
        EXPECT_TRUE(ctl.PortOpen());
        return device;
    }
    detail::Control& C() { return detail::Control::Of(ctl); }
    void Run(double ms) { vp->Advance(ms); }

    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    TrekcomCtl ctl{vp};
    Recorder rec;
};

}  // namespace trekcom::testing
