// The USB transport against the simulated receiver's USB side, on the
// virtual platform: hostile blocks, the device search, the session and its
// reset, the watchdog and polling over Port 0. (Transfers over USB against
// the same over a serial line: records_e2e; faults mid-transfer: faults/.)
// Public API and the simulated unit only.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/host_fixture.h"
#include "support/sim_frames.h"
#include "sim_usb_driver.h"
#include "trekcom/trekcom.h"

namespace trekcom::testing {
namespace {

Bytes Usb_Packet(std::uint8_t type, std::uint16_t id, std::uint32_t size, const Bytes& data) {
    Bytes p{type, 0, 0, 0, static_cast<std::uint8_t>(id), static_cast<std::uint8_t>(id >> 8), 0, 0};
    for (int i = 0; i < 4; ++i) p.push_back(static_cast<std::uint8_t>(size >> (8 * i)));
    p.insert(p.end(), data.begin(), data.end());
    return p;
}

// A packet as the receiver's interrupt pipe hands it over: 64-byte blocks.
std::vector<Bytes> Blocks(const Bytes& packet) {
    std::vector<Bytes> out;
    for (std::size_t i = 0; i < packet.size(); i += 64)
        out.emplace_back(packet.begin() + static_cast<std::ptrdiff_t>(i),
                         packet.begin() + static_cast<std::ptrdiff_t>(std::min(packet.size(), i + 64)));
    return out;
}

struct Usb_Recorder : cUSBEvents {
    std::vector<Bytes> serial, usb, sent;
    std::vector<std::string> debug;
    std::vector<std::pair<std::int16_t, std::string>> errors;
    void USBReceived(Bytes& p, Bytes& u) override {
        serial.push_back(p);
        usb.push_back(u);
    }
    void USBSent(Bytes& u) override { sent.push_back(u); }
    void USBDebug(std::string& t) override { debug.push_back(t); }
    void USBError(std::int16_t& seq, std::string& m, Bytes&) override {
        errors.emplace_back(seq, m);
        seq = 0;
    }
};

class Usb_Transport : public ::testing::Test {
protected:
    Usb_Transport() {
        usb.Advise(rec);
        receiver->unit.Usb_Host_Wrote(Usb_Packet(0, 5, 0, {}));  // the unit now answers on USB
        receiver->unit.Usb_Interrupt_Read();
    }
    void Inject(const Bytes& packet) {
        for (Bytes& b : Blocks(packet)) receiver->interrupt_blocks.push_back(std::move(b));
    }

    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    std::shared_ptr<Sim_Usb_Receiver> receiver = Plug_In(vp);
    cUSB usb{vp};
    Usb_Recorder rec;
};

// (Random blocks and bulk reads, lying headers included, are the usb fuzz
// target's: every packet it hands on must be whole.)
TEST_F(Usb_Transport, BlocksOfAnyContentAreDroppedOrDeliveredWhole) {
    ASSERT_TRUE(usb.Open());
    Inject(Usb_Packet(20, 35, 0, {}));                 // size 0
    Inject(Usb_Packet(20, 35, 1047, Bytes(1047, 1)));  // one byte too large
    Inject(Usb_Packet(20, 0, 2, {1, 2}));              // id 0
    Inject(Usb_Packet(7, 35, 2, {1, 2}));              // no such layer
    receiver->interrupt_blocks.push_back({20, 0, 0});  // shorter than a header
    Inject(Usb_Packet(20, 35, 1046, Bytes(1046, 2)));  // the largest: 17 blocks
    Inject(Usb_Packet(20, 300, 2, {9, 8}));            // an id past a byte
    Inject(Usb_Packet(20, 36, 100, Bytes(60, 3)));     // cut off by the end of the read
    EXPECT_FALSE(usb.Read_Packets(0x24));

    ASSERT_EQ(rec.serial.size(), 2u);
    const Bytes& largest = rec.serial[0];
    ASSERT_EQ(largest.size(), 1046u + 12);
    EXPECT_EQ(largest[1], 123);
    EXPECT_EQ(largest[2], 255);
    EXPECT_EQ(largest[9], 2);
    EXPECT_EQ(rec.usb[0], Usb_Packet(20, 35, 1046, Bytes(1046, 2)));
    EXPECT_EQ(rec.serial[1], (Bytes{16, 123, 8, 2, 0, 0, 0, 0x2C, 0x01, 9, 8, 0, 16, 3}));
    EXPECT_EQ(usb.Stats().packets_cut, 1);
    EXPECT_FALSE(usb.Busy());
    EXPECT_TRUE(usb.Is_Open());
    EXPECT_TRUE(receiver->interrupt_blocks.empty());
}

// (A device that vanishes mid-transfer is the unplugged row of Usb_Faults.)
TEST_F(Usb_Transport, SessionStartAsksForTheSessionAndTheProtocols) {
    ASSERT_TRUE(usb.Open());
    EXPECT_TRUE(usb.Start_Session());
    EXPECT_EQ(usb.Max_Packet_Size(), 64u);
    ASSERT_GE(receiver->written.size(), 2u);
    EXPECT_EQ(receiver->written[0], Usb_Packet(0, 5, 0, {}));
    EXPECT_EQ(receiver->written[1], Usb_Packet(0, 16, 0, {}));
}

// A control on Port 0, its events recorded.
class Usb_Control : public Host_Test {
protected:
    Usb_Control() { ctl.Port(0); }
    std::shared_ptr<Sim_Usb_Receiver> receiver = Plug_In(vp);
};

TEST_F(Usb_Control, SearchRepeatsWhileTheHostLeavesCodeFour) {
    receiver->present = false;
    struct Host : Recorder {
        int leave = 2;
        void vcError(std::int16_t& c, std::string& m, std::string& p) override {
            Recorder::vcError(c, m, p);
            if (c == 4 && leave-- <= 0) c = 0;
        }
    } host;
    ctl.Advise(host);
    EXPECT_FALSE(ctl.PortOpen());
    EXPECT_EQ(receiver->searches, 3);
    ASSERT_EQ(host.errors.size(), 3u);
    EXPECT_EQ(host.errors[0].code, 4);
    EXPECT_EQ(host.errors[0].message, "Garmin USB GPS device not found\r\nor device not turned on.");

    // Plugged in while the host waits: the next search finds it.
    struct Plugging : Recorder {
        Sim_Usb_Receiver* r = nullptr;
        void cError(std::int16_t& c, std::string& m, Bytes& p) override {
            Recorder::cError(c, m, p);
            r->present = true;  // and the code stays 4
        }
    } plugging;
    plugging.r = receiver.get();
    receiver->present = false;
    ctl.Advise(plugging);
    EXPECT_TRUE(ctl.PortOpen());
    EXPECT_EQ(plugging.errors.size(), 1u);

    // Nobody listening: no endless search.
    receiver->present = false;
    ctl.PortClose();
    ctl.Unadvise();
    EXPECT_FALSE(ctl.PortOpen());

    // A host that keeps the code at 4 whatever happens: an interrupt of the
    // platform (a signal, say) still ends the search.
    struct Stubborn : Recorder {
        Platform* platform = nullptr;
        void cError(std::int16_t& c, std::string& m, Bytes& p) override {
            Recorder::cError(c, m, p);
            if (errors.size() == 3) platform->Interrupt();
            if (errors.size() > 50) c = 0;  // the search failed to stop: end it for the test's sake
        }
    } stubborn;
    stubborn.platform = vp.get();
    ctl.Advise(stubborn);
    EXPECT_FALSE(ctl.PortOpen());
    EXPECT_EQ(stubborn.errors.size(), 3u);
    vp->Clear_Interrupt();
}

TEST_F(Usb_Control, OpenFailuresSayWhy) {
    receiver->deny_open = true;
    EXPECT_FALSE(ctl.PortOpen());
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_NE(rec.errors[0].message.find("No permission"), std::string::npos);

    // A system without a USB driver.
    auto bare = std::make_shared<VirtualPlatform>();
    TrekcomCtl other(bare);
    Recorder r;
    other.Advise(r);
    other.Port(0);
    other.Request_Product_Data();
    ASSERT_EQ(r.errors.size(), 2u);
    EXPECT_EQ(r.errors[0].message, "USB is not supported on this system");
    EXPECT_EQ(r.errors[1].message, "USB connection failure");
}

TEST_F(Usb_Control, SessionThatFailsGetsOneReset) {
    receiver->swallow_session_starts = 1;
    ctl.Request_Product_Data();
    EXPECT_EQ(receiver->resets, 1);
    EXPECT_NE(std::find(rec.debug.begin(), rec.debug.end(), "USB Device Reset"), rec.debug.end());
    EXPECT_EQ(ctl.Product_Data()->Product_ID, receiver->unit.Unit_Profile().product_id);
    EXPECT_TRUE(rec.errors.empty());

    // A reset that fails ends the request.
    ctl.PortClose();
    receiver->swallow_session_starts = 1;
    receiver->reset_fails = true;
    ctl.Request_Product_Data();
    ASSERT_EQ(rec.errors.size(), 2u);
    EXPECT_EQ(rec.errors[0].message, "USB Device failed to reset after error");
    EXPECT_EQ(rec.errors[1].message, "USB connection failure");
}

// (Faults in the middle of a transfer over USB: faults/, beside the serial ones.)

// A packet sent on USB without a wait arms the watchdog as on a serial line:
// unanswered, it goes once more, then the host hears "No response".
TEST_F(Usb_Control, AnUnansweredSendEndsWithNoResponse) {
    ctl.Request_Product_Data();
    ASSERT_TRUE(rec.errors.empty());
    const std::size_t before = receiver->written.size();
    ctl.Send(sim::frame::Packet(ctl.PID_Command_Data(), {99, 0}));  // a command the unit does not know
    vp->Advance(3 * ctl.Time_Out());
    EXPECT_EQ(receiver->written.size(), before + 2);
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(rec.errors[0].message, "No response from device");
    vp->Advance(10000);
    EXPECT_EQ(receiver->written.size(), before + 2);
    EXPECT_EQ(rec.errors.size(), 1u);
}

// ---------------------------------------------------------------- requests beside polling

// In asynchronous mode the host polls USB every millisecond, in PVT mode
// every second. A request made meanwhile gets its own reply: the poll must
// not read it away from the request's wait.
enum class Polling { async, pvt };

class Usb_Polling : public Usb_Control, public ::testing::WithParamInterface<Polling> {
protected:
    std::size_t Received(std::uint8_t id) const {
        return static_cast<std::size_t>(
            std::count_if(rec.received.begin(), rec.received.end(), [id](const Bytes& p) { return p[1] == id; }));
    }
    bool Written(std::uint16_t id) const {
        return std::any_of(receiver->written.begin(), receiver->written.end(),
                           [id](const Bytes& u) { return u.size() >= 12 && u[0] == 20 && (u[4] | (u[5] << 8)) == id; });
    }
};

TEST_P(Usb_Polling, RequestsGetTheirRepliesWhileTheHostPolls) {
    const bool async = GetParam() == Polling::async;
    ctl.Request_Product_Data();
    async ? ctl.Async_Start() : ctl.Pvt_Data_Start();
    const long reads = receiver->interrupt_reads;
    vp->Advance(3 * ctl.Time_Out());
    // Asynchronous mode reads about every millisecond; the PVT stream keeps
    // the watchdog of its start command quiet.
    EXPECT_GT(receiver->interrupt_reads - reads, async ? 1000 : 1);
    EXPECT_EQ(receiver->unit.Pvt_On(), !async);
    EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;

    // Requests at many points of the poll's period, to a unit whose answers
    // come during the write's pause or only during the wait.
    for (int round = 0; round < 100; ++round) {
        receiver->slow_answers = round % 2 ? 0 : 3;
        ctl.Date_Time(std::make_shared<cDate_Time>());
        ctl.Request_Date_Time();
        EXPECT_GE(ctl.Date_Time()->year, 2000);
        if (round % 10 == 0) {
            const int before = rec.waypoints;
            ctl.Request_Waypoints();
            EXPECT_TRUE(vp->Run_Until([&] { return rec.waypoints == before + 1; }, 5000));
            EXPECT_EQ(ctl.Waypoints()->Count(), static_cast<std::int32_t>(receiver->unit.Data().waypoints.size()));
        }
        vp->Advance(7);
    }
    if (!async) {
        EXPECT_GE(Received(ctl.PID_Pvt_Data()), 5u);  // the stream went on meanwhile
    }

    // Stopped: the unit is told, and the polling ends.
    async ? ctl.Async_Stop() : ctl.Pvt_Data_Stop();
    if (async) {
        EXPECT_TRUE(Written(28));  // asynchronous messages off
    }
    EXPECT_FALSE(receiver->unit.Pvt_On());
    const long stopped = receiver->interrupt_reads;
    vp->Advance(5000);
    EXPECT_EQ(receiver->interrupt_reads, stopped);
    EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
}

INSTANTIATE_TEST_SUITE_P(Modes, Usb_Polling, ::testing::Values(Polling::async, Polling::pvt),
                         [](const auto& info) { return info.param == Polling::async ? "async" : "pvt"; });

}  // namespace
}  // namespace trekcom::testing
