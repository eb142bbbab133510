// What the host-level tests share: the event recorder, a plain line device,
// and a scratch folder. Only the public surface.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <trekcom/trekcom.h>
#include <trekcom_sim/unit.h>

#include "support/host_fixture.h"
#include "support/scratch.h"

namespace host_test {

using namespace trekcom;

using Events = trekcom::testing::Recorder;

// A receiver that keeps what the host writes and sends what a test gives it.
struct Line_Device : VirtualDevice {
    VirtualLine* line = nullptr;
    std::string written;
    void Attached(VirtualLine& l) override { line = &l; }
    void Host_Wrote(const Bytes& bytes) override { written.append(bytes.begin(), bytes.end()); }
    // The text paced as a 4800-baud line delivers it, a few bytes at a time.
    void Send_Paced(const std::string& text, std::size_t chunk = 8) {
        double at = line->Now_ms();
        for (std::size_t pos = 0; pos < text.size(); pos += chunk) {
            const std::string piece = text.substr(pos, chunk);
            at += piece.size() * 10 * 1000.0 / 4800;
            line->Send(Bytes(piece.begin(), piece.end()), at);
        }
    }
};

// A control on a virtual platform, with a device (when given) on the port named "gps".
struct Host {
    explicit Host(std::shared_ptr<VirtualDevice> device = nullptr, const std::string& settings = "9600,N,8,1") {
        if (device) {
            vp->Attach("gps", std::move(device));
            ctl.Port_Name("gps");
        }
        ctl.Settings(settings);
        ctl.Advise(events);
    }
    void Run(double ms) { vp->Advance(ms); }

    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    TrekcomCtl ctl{vp};
    Events events;
};

using trekcom::testing::Read_File;
using trekcom::testing::Scratch_Folder;
using trekcom::testing::Write_File;

}  // namespace host_test
