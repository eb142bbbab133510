// A control on the virtual platform that records, at every PVT and
// satellite packet it receives, the record the packet left behind, and the
// time of every HexDebug line.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "link/link_fixture.h"
#include "trekcom_sim/unit.h"

namespace trekcom::testing {

inline const std::string kWatchdog_Line = "PC ** GPS Not receiving PVT data";

struct Live_Recorder : Recorder {
    TrekcomCtl* ctl = nullptr;
    struct Update {
        double at_ms;
        cPvtData pvt;
    };
    std::vector<Update> pvt;
    std::vector<std::vector<cSat>> tables;
    std::vector<double> watchdog_ms;  // when each watchdog line came

    void Receive(Bytes& p) override {
        Recorder::Receive(p);
        if (p[1] == ctl->PID_Pvt_Data()) pvt.push_back({ctl->Platform()->Now_ms(), *ctl->PvtData()});
        if (p[1] == ctl->PID_Sats()) {
            std::vector<cSat> table;
            for (const auto& s : *ctl->Sats()) table.push_back(*s);
            tables.push_back(std::move(table));
        }
    }
    void HexDebug(std::string& text) override {
        Recorder::HexDebug(text);
        if (text == kWatchdog_Line) watchdog_ms.push_back(ctl->Platform()->Now_ms());
    }
};

// A control on the virtual platform, its events recorded by `live`.
class Realtime_Test : public Host_Test {
protected:
    Realtime_Test() {
        live.ctl = &ctl;
        ctl.Advise(live);
    }
    template <typename Device>
    std::shared_ptr<Device> Attach(std::shared_ptr<Device> device) {
        vp->Attach(1, device);
        EXPECT_TRUE(ctl.PortOpen());
        return device;
    }
    std::shared_ptr<sim::Virtual_Unit> Attach_Unit(const sim::Profile& profile) {
        return Attach(std::make_shared<sim::Virtual_Unit>(profile));
    }
    std::shared_ptr<Scripted_Receiver> Attach_Script() { return Attach(std::make_shared<Scripted_Receiver>()); }

    Live_Recorder live;
};

}  // namespace trekcom::testing
