// A control on the virtual platform wired to a scripted receiver. Public API
// and the simulated unit's framing only.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/sim_frames.h"
#include "support/host_fixture.h"
#include "trekcom/trekcom.h"

namespace trekcom::testing {

// The receiver's side: collects the host's frames and answers through a script.
struct Scripted_Receiver : VirtualDevice {
    VirtualLine* line = nullptr;
    std::vector<Bytes> frames;  // unstuffed host packets, in order
    Bytes raw;                  // every byte the host wrote
    // Called for each host packet; the default acknowledges all but ACKs and NAKs.
    std::function<void(const Bytes&)> on_packet = [this](const Bytes& p) {
        if (p[1] != 6 && p[1] != 21) Ack(p[1]);
    };
    double reply_delay_ms = 5;

    void Attached(VirtualLine& l) override { line = &l; }
    void Host_Wrote(const Bytes& bytes) override {
        raw.insert(raw.end(), bytes.begin(), bytes.end());
        for (const Frame& f : deframer_.Feed(bytes)) {
            if (!f.good) continue;
            frames.push_back(f.packet);
            on_packet(f.packet);
        }
    }
    void Send(const Bytes& packet) { line->Send(sim::frame::Wire(packet), line->Now_ms() + reply_delay_ms); }
    void Send_Raw(const std::string& bytes) {
        line->Send(Bytes(bytes.begin(), bytes.end()), line->Now_ms() + reply_delay_ms);
    }
    void Ack(std::uint8_t id) { Send(sim::frame::Packet(6, {id, 0})); }
    void Nak(std::uint8_t id) { Send(sim::frame::Packet(21, {id, 0})); }
    std::size_t Count(std::uint8_t id) const {
        std::size_t n = 0;
        for (const Bytes& f : frames) n += f.size() > 1 && f[1] == id;
        return n;
    }

private:
    Deframer deframer_;
};

inline Bytes Packet(std::uint8_t id, const Bytes& data) { return sim::frame::Packet(id, data); }
// A packet as it goes on the line.
inline std::string Wire(const Bytes& packet) {
    const Bytes w = sim::frame::Wire(packet);
    return std::string(w.begin(), w.end());
}

class Link_Test : public Host_Test {
protected:
    Link_Test() { vp->Attach(1, device); }
    void Open() { ASSERT_TRUE(ctl.PortOpen()); }
    void Run(double ms = 100) { vp->Advance(ms); }

    std::shared_ptr<Scripted_Receiver> device = std::make_shared<Scripted_Receiver>();
};

}  // namespace trekcom::testing
