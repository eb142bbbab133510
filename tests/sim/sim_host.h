// A tiny scripted host for the simulated receiver: it writes frames on a
// virtual serial port and reads the unit's frames back, with virtual time.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "link/framing.h"
#include "support/sim_frames.h"
#include "trekcom/virtual_platform.h"
#include "trekcom_sim/unit.h"

namespace sim_test {

using trekcom::Bytes;
using trekcom::testing::Frame;

class Host {
public:
    explicit Host(trekcom::VirtualPlatform& platform, std::string settings = "9600,N,8,1", std::string name = "gps")
        : platform_(platform), port_(platform.Create_Serial_Port()) {
        port_->Port_Name(name);
        port_->Settings(settings);
        port_->PortOpen(true);
    }

    trekcom::SerialPort& Port() { return *port_; }
    double Now() const { return platform_.Now_ms(); }

    void Write(const Bytes& wire) { port_->Output(std::string(wire.begin(), wire.end())); }
    void Send(std::uint8_t id, const Bytes& data = {}) {
        Write(trekcom::link::Stuff_Packet(trekcom::link::Make_Packet(id, data)));
    }
    void Command(std::uint16_t cmd, std::uint8_t pid = 10) {
        Send(pid, {static_cast<std::uint8_t>(cmd), static_cast<std::uint8_t>(cmd >> 8)});
    }
    void Ack(std::uint8_t id) { Send(6, {id, 0}); }
    void Nak(std::uint8_t id) { Send(21, {id, 0}); }

    // The next frame within ms of virtual time.
    std::optional<Frame> Next(double ms = 5000) {
        std::optional<Frame> f;
        platform_.Run_Until([&] { return (f = Take()).has_value(); }, ms);
        return f;
    }
    // Like Next, but skips the unit's ACKs.
    std::optional<Frame> Next_Data(double ms = 5000) {
        for (;;) {
            auto f = Next(ms);
            if (!f || f->id != 6) return f;
        }
    }
    // Sends a packet and expects the unit's ACK for it.
    bool Send_Acked(std::uint8_t id, const Bytes& data = {}) {
        Send(id, data);
        auto f = Next(3000);
        return f && f->good && f->id == 6 && f->data.size() == 2 && f->data[0] == id && f->data[1] == 0;
    }
    // A whole download: the command, then every packet acknowledged up to the
    // transfer-complete packet (with xfer id), which is returned last.
    std::vector<Frame> Download(std::uint16_t cmd, std::uint8_t cmd_pid = 10, std::uint8_t xfer = 12) {
        std::vector<Frame> out;
        Command(cmd, cmd_pid);
        while (auto f = Next_Data(5000)) {
            if (!f->good) break;
            Ack(f->id);
            out.push_back(*f);
            if (f->id == xfer) break;
        }
        return out;
    }
    // Everything that arrives within ms.
    std::vector<Frame> Drain(double ms) {
        std::vector<Frame> out;
        const double end = Now() + ms;
        while (Now() < end)
            if (auto f = Next(end - Now())) out.push_back(*f);
        return out;
    }

private:
    std::optional<Frame> Take() {
        const std::string input = port_->Input();
        for (Frame& f : deframer_.Feed(Bytes(input.begin(), input.end()))) frames_.push_back(std::move(f));
        if (frames_.empty()) return std::nullopt;
        Frame f = std::move(frames_.front());
        frames_.pop_front();
        return f;
    }

    trekcom::VirtualPlatform& platform_;
    std::unique_ptr<trekcom::SerialPort> port_;
    trekcom::testing::Deframer deframer_;
    std::deque<Frame> frames_;  // read, not yet taken
};

// A simulated unit on the virtual port "gps".
struct Bench {
    explicit Bench(const std::string& profile = "current",
                   trekcom::sim::Data_Set data = trekcom::sim::Builtin_Data(), trekcom::sim::Options options = {})
        : unit(std::make_shared<trekcom::sim::Virtual_Unit>(trekcom::sim::Profile::Named(profile), std::move(data),
                                                            options)) {
        platform.Attach("gps", unit);
    }
    trekcom::sim::Unit& Sim() { return unit->Sim(); }
    trekcom::VirtualPlatform platform;
    std::shared_ptr<trekcom::sim::Virtual_Unit> unit;
};

inline std::uint16_t U16(const Bytes& d, std::size_t at = 0) {
    return d.size() >= at + 2 ? static_cast<std::uint16_t>(d[at] | (d[at + 1] << 8)) : 0xFFFF;
}

}  // namespace sim_test
