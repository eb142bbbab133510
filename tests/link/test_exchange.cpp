// The command exchange on the virtual clock: waits, the watchdog's single
// re-send, NAK during a wait, Response 2, the trace.
#include "link/trace.h"
#include "link_fixture.h"

namespace trekcom::testing {
namespace {

const link::Packet kCommand{10, {7, 0}, std::nullopt};
const Bytes kCommand_Frame = link::Frame_Of(kCommand);

TEST_F(Link_Test, WaitUnitRuleSecondsBelow30MillisecondsFrom30TimeOutBelow1) {
    Open();
    device->on_packet = [](const Bytes&) {};  // a silent receiver
    for (auto [wait, expected_ms] : {std::pair{5, 5000.0}, {500, 500.0}, {0, 2000.0}, {29, 29000.0}}) {
        const double start = vp->Now_ms();
        std::uint8_t response = 35;
        EXPECT_FALSE(L().Send_Packet(kCommand, response, wait));
        EXPECT_NEAR(vp->Now_ms() - start, expected_ms, 2.0) << "WaitTime " << wait;
        EXPECT_EQ(response, 0);  // cleared after a wait
    }
    EXPECT_EQ(rec.debug.back(), "Time-out. expecting PID-&H23");  // raised even without DebugLog
}

TEST_F(Link_Test, AWaitEndsOnTheExpectedIdAndDispatchesWhatCameBefore) {
    Open();
    device->on_packet = [this](const Bytes& p) {
        if (p[1] != 10) return;
        device->Ack(10);
        device->Send(Packet(27, {3, 0}));
    };
    std::uint8_t response = 27;
    EXPECT_TRUE(L().Send_Packet(kCommand, response, 0));
    EXPECT_LT(vp->Now_ms(), 100);
    ASSERT_EQ(rec.received.size(), 2u);
    EXPECT_EQ(rec.received[1][1], 27);
    EXPECT_EQ(device->Count(6), 1u);  // the records packet was acknowledged
}

TEST_F(Link_Test, PacketsThatCameWithTheAnswerAreAllHandledWhenTheWaitEnds) {
    Open();
    device->on_packet = [this](const Bytes& p) {
        if (p[1] == 10)
            device->Send_Raw(Wire(Packet(6, {10, 0})) + Wire(Packet(27, {2, 0})) + Wire(Packet(35, {1})) +
                             Wire(Packet(35, {2})));
    };
    std::uint8_t response = 6;
    EXPECT_TRUE(L().Send_Packet(kCommand, response, 0));
    EXPECT_EQ(rec.received.size(), 4u);  // no need for more bytes to arrive first
    EXPECT_TRUE(L().Serial().Buffer().empty());
}

TEST_F(Link_Test, ANakDuringAWaitRestartsItsPeriod) {
    ctl.Time_Out(3000);  // keeps the watchdog's re-send after the wait's end
    Open();
    int naks = 0;
    device->reply_delay_ms = 1500;
    device->on_packet = [&](const Bytes& p) {
        if (p[1] == 10 && naks++ < 2) device->Nak(10);
    };
    const double start = vp->Now_ms();
    std::uint8_t response = 27;
    EXPECT_FALSE(L().Send_Packet(kCommand, response, 2));
    // Two NAKs at 1.5 s and 3 s each restart the 2 s period: it ends at 5 s.
    EXPECT_NEAR(vp->Now_ms() - start, 5000, 5);
    EXPECT_EQ(device->Count(10), 3u);
}

TEST_F(Link_Test, ResponseTwoWritesAndReturnsFalseAtOnce) {
    Open();
    std::uint8_t response = 2;
    EXPECT_FALSE(L().Send_Packet(kCommand, response, 0));
    EXPECT_EQ(vp->Now_ms(), 50);  // only the open's settling pause has passed
    Run(10);
    EXPECT_EQ(device->Count(10), 1u);
    EXPECT_EQ(rec.received.size(), 1u);  // the ACK still reaches the host
}

TEST_F(Link_Test, SilentReceiverGetsOneResendThenErrorZero) {
    Open();
    device->on_packet = [](const Bytes&) {};
    ctl.DebugLog(true);
    ctl.Send(kCommand_Frame, 0, 0);
    Run(1999);
    EXPECT_EQ(device->Count(10), 1u);
    Run(2);
    EXPECT_EQ(device->Count(10), 2u);
    EXPECT_TRUE(rec.errors.empty());
    Run(2000);
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(rec.errors[0].code, 0);
    EXPECT_EQ(rec.errors[0].message, "No response from device");
    EXPECT_EQ(rec.errors[0].packet, kCommand_Frame);
    Run(10000);  // and the watchdog stays quiet afterwards
    EXPECT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(device->Count(10), 2u);
    EXPECT_NE(std::find(rec.debug.begin(), rec.debug.end(), "Re-try after 2000 ms"), rec.debug.end());
}

TEST_F(Link_Test, PowerOffAndStopPvtLeaveTheWatchdogStopped) {
    Open();
    device->on_packet = [](const Bytes&) {};
    ctl.Send(link::Make_Packet(10, {8, 0}), 0, 0);   // turn off
    ctl.Send(link::Make_Packet(10, {50, 0}), 0, 0);  // stop PVT
    ctl.Send(link::Make_Packet(12, {0, 0}), 0, 0);   // transfer complete
    Run(10000);
    EXPECT_TRUE(rec.errors.empty());
    EXPECT_EQ(device->frames.size(), 3u);
}

// Reset pings. To a silent receiver, Reset and a Send given a wait report
// "No response" at once; a Send without one leaves it to the watchdog.
TEST_F(Link_Test, ResetAndSendWithAWaitReportASilentReceiver) {
    Open();
    ctl.Reset();
    EXPECT_TRUE(rec.errors.empty());
    EXPECT_EQ(device->frames.back(), link::Make_Packet(10, {0, 0}));
    device->on_packet = [](const Bytes&) {};
    ctl.Reset();
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(rec.errors[0].code, 0);
    ctl.Send(kCommand_Frame, 27, 0);
    EXPECT_EQ(rec.errors.size(), 1u);
    ctl.Send(kCommand_Frame, 27, 1);
    ASSERT_EQ(rec.errors.size(), 2u);
    EXPECT_EQ(rec.errors[1].message, "No response from device");
}

TEST(Trace, LinesForEachDirection) {
    const Bytes ack = link::Make_Packet(6, {10, 0});
    EXPECT_EQ(link::Trace_Line(ack, "O", 0), "PC -\u00BB GPS 10 06 02 0A 00 EE 10 03 ");
    EXPECT_EQ(link::Trace_Line(ack, "I", 12.34), "PC \u00AB- GPS (   12.3 ms) 10 06 02 0A 00 EE 10 03 ");
    EXPECT_EQ(link::Trace_Line(ack, "X", 0), "PCX\u00AB- GPS (    0.0 ms) 10 06 02 0A 00 EE 10 03 ");
    EXPECT_EQ(link::Trace_Line({}, "*Not receiving PVT data", 0), "PC * GPS Not receiving PVT data");
    EXPECT_EQ(link::Trace_Line({}, "!port busy", 0), "Error port busy");
    EXPECT_EQ(link::Trace_Line({1, 0xAB}, ":USB Device Reset", 0), "USB Device Reset 01 AB ");
    EXPECT_EQ(link::Format_Elapsed(123456.78), "123456.8");
}

TEST_F(Link_Test, TraceTimesTheAnswerToTheLastCommandNotToAcks) {
    Open();
    ctl.DebugLog(true);
    device->reply_delay_ms = 250;
    device->on_packet = [this](const Bytes& p) {
        if (p[1] == 10) device->Send(Packet(27, {1, 0}));
    };
    ctl.Send(kCommand_Frame, 0, 0);
    Run(400);
    // Out: command; in: records after 250 ms; out: our ACK (does not renew the stamp).
    ASSERT_GE(rec.debug.size(), 3u);
    EXPECT_EQ(rec.debug[0].rfind(std::string(link::kArrowOut), 0), 0u);
    EXPECT_NE(rec.debug[1].find("(  250.0 ms) 10 1B"), std::string::npos) << rec.debug[1];
    EXPECT_EQ(rec.debug[2], "PC -\u00BB GPS 10 06 02 1B 00 DD 10 03 ");
    EXPECT_NEAR(L().Shared().LastTraceTime, 12 * 3600 + 0.05, 1e-6);
}

}  // namespace
}  // namespace trekcom::testing
