// The USB transport against the simulated receiver's USB side, on the
// virtual platform: packet forms, hostile blocks, the device search, the
// session and its reset, and the control's requests over Port 0 compared
// with the same requests over a serial line.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "control/control.h"
#include "formats.h"
#include "support/protocol_fixture.h"
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

TEST(UsbForms, SerialAndUsbFormsOfEachSize) {
    const Bytes data{1, 2, 3};
    EXPECT_EQ(cUSB::Serial_Form(35, data.data(), 3), (Bytes{16, 35, 3, 1, 2, 3, 0, 16, 3}));
    // Id 300: expanded, size+6 in byte 2, the 32-bit size, then the 16-bit id.
    EXPECT_EQ(cUSB::Serial_Form(300, data.data(), 3), (Bytes{16, 123, 9, 3, 0, 0, 0, 0x2C, 0x01, 1, 2, 3, 0, 16, 3}));
    const Bytes big(300, 7);
    const Bytes long_form = cUSB::Serial_Form(34, big.data(), 300);
    ASSERT_EQ(long_form.size(), 312u);
    EXPECT_EQ(long_form[1], 123);
    EXPECT_EQ(long_form[2], 255);
    EXPECT_EQ(long_form[4], 1);  // 300 = 0x12C

    // Back to USB: normal, expanded, a bare protocol request.
    EXPECT_EQ(cUSB::Usb_Form({16, 35, 3, 1, 2, 3, 0, 16, 3}), Usb_Packet(20, 35, 3, data));
    EXPECT_EQ(cUSB::Usb_Form(cUSB::Serial_Form(300, big.data(), 300)), Usb_Packet(20, 300, 300, big));
    EXPECT_EQ(cUSB::Usb_Form({0, 5}), Usb_Packet(0, 5, 0, {}));
    // Sizes that claim more than the packet holds are cut to what it holds.
    EXPECT_EQ(cUSB::Usb_Form({16, 35, 200, 1}), Usb_Packet(20, 35, 1, {1}));
    EXPECT_EQ(cUSB::Usb_Form({16, 123, 255, 0xFF, 0xFF, 0xFF, 0xFF, 1, 0}), Usb_Packet(20, 1, 0, {}));
    EXPECT_TRUE(cUSB::Usb_Form({16}).empty());
}

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

TEST_F(Usb_Transport, ExpectedIdsThatNeedNoRead) {
    ASSERT_TRUE(usb.Open());
    Inject(Usb_Packet(20, 6, 2, {1, 0}));
    for (std::uint16_t id : {6, 2}) EXPECT_TRUE(usb.Read_Packets(id));
    EXPECT_EQ(receiver->interrupt_reads, 0);
    // 1 reads for real and waits for 6; an expanded packet answers 123.
    EXPECT_TRUE(usb.Read_Packets(1));
    Inject(Usb_Packet(20, 300, 1, {1}));
    EXPECT_TRUE(usb.Read_Packets(123));
    EXPECT_FALSE(usb.Read_Packets(0));  // nothing left
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
class Usb_Control : public ::testing::Test {
protected:
    Usb_Control() {
        ctl.Advise(rec);
        ctl.Port(0);
    }

    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    std::shared_ptr<Sim_Usb_Receiver> receiver = Plug_In(vp);
    TrekcomCtl ctl{vp};
    Recorder rec;
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

// ---------------------------------------------------------------- faults mid-transfer

// A receiver on USB that fails in the middle of a record transfer, kind by
// kind: the download ends within bounded (virtual) time with the transport's
// error and the control's count report, the records read before the fault
// stay in their collection, and once the receiver is back a new download is
// whole. Zero-length packets after every packet cost nothing.
constexpr int kRecord_K = 1;

struct Usb_Fault {
    const char* name;
    void (*arm)(Sim_Usb_Receiver&);
    const char* error;  // the transport's report; null: the transfer completes
};

const Usb_Fault kUsb_Faults[] = {
    {"stall", [](Sim_Usb_Receiver& r) { r.unit.Fault_Knobs().stall_after_record = kRecord_K; },
     "No response from device"},
    // The cable goes with record K + 1 on it.
    {"hang_up", [](Sim_Usb_Receiver& r) { r.unit.Fault_Knobs().hang_up_after_record = kRecord_K + 1; },
     "USB device read failed"},
    {"switched_off", [](Sim_Usb_Receiver& r) { r.unit.Fault_Knobs().off_after_record = kRecord_K; },
     "No response from device"},
    // Pulled out by the user: the records packet and K records were read.
    {"unplugged", [](Sim_Usb_Receiver& r) { r.vanish_after_bulk_reads = r.bulk_reads + kRecord_K + 1; },
     "USB device read failed"},
    {"zero_length_packets", [](Sim_Usb_Receiver& r) { r.unit.Fault_Knobs().usb_zero_length = true; }, nullptr},
};

// A host that abandons its waits (Platform::Interrupt, as on Ctrl-C) ends a
// stalled USB read within a second, not after the ten seconds a stall is
// otherwise given; the records read so far stay.
TEST_F(Usb_Control, AnInterruptEndsAStalledRead) {
    ctl.Request_Product_Data();
    receiver->unit.Fault_Knobs().stall_after_record = kRecord_K;
    auto alarm = vp->Create_Timer();
    alarm->Interval(500);
    alarm->Tick = [&] { vp->Interrupt(); };
    alarm->Enabled(true);
    const double start = vp->Now_ms();
    ctl.Request_Waypoints();
    EXPECT_LT(vp->Now_ms() - start, 1500);
    EXPECT_EQ(ctl.Waypoints()->Count(), kRecord_K);
}

struct Usb_Kind {
    const char* name;
    void (TrekcomCtl::*request)();
    std::int32_t (*items)(TrekcomCtl&);  // what its collection holds
};

const Usb_Kind kUsb_Kinds[] = {
    {"waypoints", &TrekcomCtl::Request_Waypoints, [](TrekcomCtl& c) { return c.Waypoints()->Count(); }},
    // Route headers and waypoints; the links fill the current route in place.
    {"routes", &TrekcomCtl::Request_Routes,
     [](TrekcomCtl& c) {
         std::int32_t n = c.Routes()->Count();
         for (const auto& r : *c.Routes()) n += r->Waypoints->Count();
         return n;
     }},
    {"tracks", &TrekcomCtl::Request_Tracks, [](TrekcomCtl& c) { return c.Tracks()->Count(); }},
    {"laps", &TrekcomCtl::Request_Laps, [](TrekcomCtl& c) { return c.Laps()->Count(); }},
};

class Usb_Faults : public Usb_Control, public ::testing::WithParamInterface<std::tuple<Usb_Kind, Usb_Fault>> {
protected:
    // The count the last records packet announced, and the packets of the
    // transfer after it (the completion aside).
    std::pair<int, int> Announced_And_Arrived(std::size_t from) const {
        int announced = -1, arrived = 0;
        for (std::size_t i = from; i < rec.received.size(); ++i) {
            const Bytes& p = rec.received[i];
            if (p[1] == ctl.PID_Records()) {
                announced = p[3] | (p[4] << 8);
                arrived = 0;
            } else if (p[1] != ctl.PID_Xfer_Cmplt()) {
                ++arrived;
            }
        }
        return {announced, arrived};
    }
};

TEST_P(Usb_Faults, DownloadEndsWithTheErrorAndKeepsWhatCame) {
    const auto& [kind, fault] = GetParam();
    ctl.Request_Product_Data();
    ASSERT_TRUE(rec.errors.empty());
    fault.arm(*receiver);
    const double start = vp->Now_ms();
    const std::size_t from = rec.received.size();
    (ctl.*kind.request)();
    // The transport reads the whole transfer inside the request.
    EXPECT_LT(vp->Now_ms() - start, 15000);
    const auto [announced, arrived] = Announced_And_Arrived(from);
    ASSERT_GT(announced, kRecord_K + 1) << (rec.errors.empty() ? "" : rec.errors[0].message);
    if (!fault.error) {
        EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
        EXPECT_EQ(arrived, announced);
    } else {
        EXPECT_EQ(arrived, kRecord_K);
        ASSERT_EQ(rec.errors.size(), 2u) << rec.errors[0].message << " | " << rec.errors.back().message;
        EXPECT_EQ(rec.errors[0].message, fault.error);
        EXPECT_EQ(rec.errors[1].code, 7);
        EXPECT_EQ(rec.errors[1].message, "Incomplete transfer: " + std::to_string(kRecord_K) + " of " +
                                             std::to_string(announced) + " records received");
    }
    if (std::string(kind.name) != "routes") {
        EXPECT_EQ(kind.items(ctl), arrived);
    }
    // Nothing more comes of it.
    const std::size_t events = rec.order.size();
    vp->Advance(30000);
    EXPECT_EQ(rec.order.size(), events);

    // Back on, plugged in: the next download is whole.
    receiver->present = true;
    receiver->vanish_after_bulk_reads = -1;
    receiver->unit.Power_On();
    rec.errors.clear();
    const std::size_t again = rec.received.size();
    (ctl.*kind.request)();
    const auto [announced_again, arrived_again] = Announced_And_Arrived(again);
    EXPECT_EQ(arrived_again, announced_again);
    EXPECT_EQ(announced_again, announced);
    EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
}

INSTANTIATE_TEST_SUITE_P(Table, Usb_Faults,
                         ::testing::Combine(::testing::ValuesIn(kUsb_Kinds), ::testing::ValuesIn(kUsb_Faults)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

// A packet sent on USB without a wait arms the watchdog as on a serial line:
// unanswered, it goes once more, then the host hears "No response".
TEST_F(Usb_Control, AnUnansweredSendEndsWithNoResponse) {
    ctl.Request_Product_Data();
    ASSERT_TRUE(rec.errors.empty());
    const std::size_t before = receiver->written.size();
    ctl.Send(link::Make_Packet(ctl.PID_Command_Data(), {99, 0}));  // a command the unit does not know
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
    EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
    if (!async) {
        EXPECT_GE(Received(ctl.PID_Pvt_Data()), 5u);  // the stream went on meanwhile
    }

    // Stopped: the unit is told, and the polling ends.
    async ? ctl.Async_Stop() : ctl.Pvt_Data_Stop();
    EXPECT_TRUE(rec.errors.empty()) << rec.errors.front().message;
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

// (The same downloads over USB and over a serial line, on random data sets
// thick with stuffed bytes: records_e2e's Differential.)

// (PVT packets arriving while the host polls: Usb_Polling.)
TEST_F(Usb_Control, UploadNeedsNoAcknowledgements) {
    ctl.Request_Product_Data();
    ASSERT_TRUE(rec.errors.empty());
    // An upload needs no acknowledgements, and no watchdog re-sends a record.
    std::int16_t count = 1;
    ctl.Start_of_Records(count);
    sim::Waypoint w = receiver->unit.Data().waypoints.at(0);
    w.ident = "USBWPT";
    ctl.Send(link::Make_Packet(35, sim::formats::Encode_Waypoint(w, receiver->unit.Unit_Profile().waypoint_type)));
    ctl.End_of_Records();
    vp->Advance(10000);
    EXPECT_EQ(receiver->unit.Stats().uploads_completed, 1);
    ASSERT_EQ(receiver->unit.Uploaded().waypoints.size(), 1u);
    EXPECT_EQ(receiver->unit.Uploaded().waypoints[0].ident, "USBWPT");
    EXPECT_TRUE(rec.errors.empty());
    const auto before = receiver->written.size();
    vp->Advance(10000);
    EXPECT_EQ(receiver->written.size(), before);
}

}  // namespace
}  // namespace trekcom::testing
