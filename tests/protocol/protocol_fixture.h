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

// The product data packet of a unit: id, version, NUL-terminated descriptions.
inline Bytes Product_Packet(std::uint16_t product, std::int16_t version, const std::vector<std::string>& texts) {
    Bytes d{static_cast<std::uint8_t>(product), static_cast<std::uint8_t>(product >> 8),
            static_cast<std::uint8_t>(version), static_cast<std::uint8_t>(static_cast<std::uint16_t>(version) >> 8)};
    for (const std::string& t : texts) {
        d.insert(d.end(), t.begin(), t.end());
        d.push_back(0);
    }
    return link::Make_Packet(255, d);
}

// A capability array from entries such as "A100".
inline Bytes Array_Packet(const std::vector<std::string>& entries) {
    Bytes d;
    for (const std::string& e : entries) {
        const int n = std::stoi(e.substr(1));
        d.push_back(static_cast<std::uint8_t>(e[0]));
        d.push_back(static_cast<std::uint8_t>(n));
        d.push_back(static_cast<std::uint8_t>(n >> 8));
    }
    return link::Make_Packet(253, d);
}

}  // namespace trekcom::testing
