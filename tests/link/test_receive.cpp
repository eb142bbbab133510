// The receive path over a virtual line: framing in every chunking, the
// parser's discard rules, acknowledgement and refusal, the link errors.
#include <random>

#include "link_fixture.h"

namespace trekcom::testing {
namespace {

struct Frame_Case {
    const char* legend;
    std::string wire;            // what the receiver puts on the line
    std::vector<Bytes> packets;  // what the host must receive, in order
};

constexpr auto P = Packet;
constexpr auto W = Wire;

std::vector<Frame_Case> Cases() {
    const Bytes sixteen_bytes(16, 0x41);                 // size byte 16 is doubled
    const Bytes checksum_16 = P(0x22, {0xCD});           // 0x22+1+0xCD+0x10 = 0x100
    const Bytes data_ends_16 = P(0x22, {0x01, 0x10});    // ... 10 10 chk 10 03
    return {
        {"plain", W(P(0x22, {1, 2, 3})), {P(0x22, {1, 2, 3})}},
        {"16 in the size", W(P(0x22, sixteen_bytes)), {P(0x22, sixteen_bytes)}},
        {"DLE DLE ETX inside the data", W(P(0x22, {0x07, 0x10, 0x03, 0x07})), {P(0x22, {0x07, 0x10, 0x03, 0x07})}},
        {"DLE DLE DLE ETX ends the frame", W(checksum_16), {checksum_16}},
        {"16 at the end of the data", W(data_ends_16), {data_ends_16}},
        {"garbage before a DLE", "xyz\x03\x03" + W(P(0x33, {9})), {P(0x33, {9})}},
        {"two frames run together", W(P(0x22, {1})) + W(P(0x23, {2})), {P(0x22, {1}), P(0x23, {2})}},
        {"size 0 frame is dropped", W(P(0x0A, {})) + W(P(0x22, {5})), {P(0x22, {5})}},
        {"junk between frames", W(P(0x22, {1})) + "\xff\xfe" + W(P(0x23, {2})), {P(0x22, {1}), P(0x23, {2})}},
    };
}

class Framing : public Link_Test, public ::testing::WithParamInterface<int> {};

// 0: whole, 1: a byte at a time, 2..: random chunks with that seed.
TEST_P(Framing, EveryCaseGivesTheSamePacketsWhateverTheChunking) {
    Open();
    std::mt19937 rng(GetParam());
    for (const Frame_Case& c : Cases()) {
        SCOPED_TRACE(c.legend);
        rec.received.clear();
        double at = vp->Now_ms();
        for (std::size_t pos = 0; pos < c.wire.size();) {
            std::size_t n = GetParam() == 0 ? c.wire.size() : GetParam() == 1 ? 1 : 1 + rng() % 7;
            n = std::min(n, c.wire.size() - pos);
            device->line->Send(Bytes(c.wire.begin() + pos, c.wire.begin() + pos + n), at += 0.5);
            pos += n;
        }
        Run(50);
        EXPECT_EQ(rec.received, c.packets);
        EXPECT_TRUE(L().ReceiveBuffer.empty());
    }
}
INSTANTIATE_TEST_SUITE_P(Chunkings, Framing, ::testing::Values(0, 1, 2, 3, 4));

TEST(FrameHelpers, StuffingAndChecksumByTheBook) {
    // id 0x22, size 2, data 10 03: checksum = -(0x22+2+0x10+3) = 0xC9
    const Bytes packet = link::Make_Packet(0x22, {0x10, 0x03});
    EXPECT_EQ(packet, (Bytes{0x10, 0x22, 0x02, 0x10, 0x03, 0xC9, 0x10, 0x03}));
    EXPECT_EQ(link::Stuff_Packet(packet), (Bytes{0x10, 0x22, 0x02, 0x10, 0x10, 0x03, 0xC9, 0x10, 0x03}));
    // The id is never doubled, even when it is 16.
    EXPECT_EQ(link::Stuff_Packet(link::Make_Packet(0x10, {}))[2], 0x00);
    // A frame that ends before its checksum gives nothing.
    EXPECT_FALSE(link::Unstuff_Frame(std::string("\x10\x22\x05\x01\x10\x03", 6)));
    // The expanded id trusts the frame's length, not the size byte.
    auto expanded = link::Unstuff_Frame(std::string("\x10\x7B\x00\x01\x02\x77\x10\x03", 8));
    ASSERT_TRUE(expanded);
    EXPECT_EQ(expanded->size(), 8u);
}

TEST_F(Link_Test, AStuffedDleEtxAtTheVeryStartOfTheDataReadsAsAShortFrame) {
    // The short-frame rule looks at the first DLE ETX before anything else, so
    // data that opens with 16, 3 is taken for a frame too short to keep.
    L().Parse_Input(W(P(0x22, {0x10, 0x03, 0x07})));
    EXPECT_TRUE(rec.received.empty());
}

// Lines wait below 83 characters and are dropped at 83; bytes that are
// neither frame nor line go through the next CR LF; a line switches to NMEA
// mode and a DLE switches back.
TEST_F(Link_Test, TheParsersRulesForLinesAndNoise) {
    L().Parse_Input("$GPGGA," + std::string(70, 'x'));
    EXPECT_EQ(L().ReceiveBuffer.size(), 77u);
    L().Parse_Input(std::string(5, 'y'));
    EXPECT_EQ(L().ReceiveBuffer.size(), 82u);
    L().Parse_Input("z");
    EXPECT_TRUE(L().ReceiveBuffer.empty());
    EXPECT_TRUE(rec.nmea.empty());

    L().Parse_Input("noise\r\nmore");
    EXPECT_EQ(L().ReceiveBuffer.View(), "more");
    L().Parse_Input("");
    EXPECT_TRUE(L().ReceiveBuffer.empty());
    EXPECT_FALSE(L().NMEAMode);

    L().Parse_Input("$GPRMC,1*00\r\n");
    EXPECT_TRUE(L().NMEAMode);
    EXPECT_EQ(L().Settings, "4800,N,8,1");
    ASSERT_EQ(rec.nmea.size(), 1u);
    EXPECT_EQ(rec.nmea[0].first, "$GPRMC,1*00");
    L().Parse_Input(std::string("\x10", 1));
    EXPECT_FALSE(L().NMEAMode);
}

TEST_F(Link_Test, GoodPacketsAreAcknowledgedStreamedOnesNever) {
    Open();
    device->Send(P(35, {1, 2, 3}));
    device->Send(P(51, {1}));   // PVT
    device->Send(P(114, {1}));  // satellites
    device->Send(P(69, {1}));   // display data
    Run();
    ASSERT_EQ(rec.received.size(), 4u);
    ASSERT_EQ(device->frames.size(), 1u);
    EXPECT_EQ(device->frames[0], P(6, {35, 0}));
    EXPECT_EQ(L().LastPacket, P(6, {35, 0}));
}

TEST_F(Link_Test, BadChecksumsAreRefusedAndTheSixthIsAnError) {
    Open();
    Bytes bad = P(35, {7});
    bad[bad.size() - 3] ^= 0x55;
    for (int i = 0; i < 6; ++i) device->Send(bad);
    Run();
    EXPECT_EQ(device->Count(21), 5u);  // five NAKs, then the error
    EXPECT_EQ(device->frames[0], P(21, {35, 0}));
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(rec.errors[0].code, 3);
    EXPECT_EQ(rec.errors[0].message, "Invalid message received from device");
    EXPECT_EQ(rec.errors[0].packet, bad);
    EXPECT_EQ(L().NakCount, 0);
    // A bad packet is still raised to the host (it unstuffed), never dispatched or ACKed.
    EXPECT_EQ(rec.received.size(), 6u);
    EXPECT_EQ(device->Count(6), 0u);
    // A streamed packet with a bad checksum is not refused either.
    Bytes bad_pvt = P(51, {7});
    bad_pvt[bad_pvt.size() - 3] ^= 1;
    device->Send(bad_pvt);
    Run();
    EXPECT_EQ(device->Count(21), 5u);
}

TEST_F(Link_Test, NakResendsTheLastPacketFiveTimesThenErrorTwo) {
    Open();
    const Bytes command = P(10, {7, 0});
    device->on_packet = [this](const Bytes& p) { device->Nak(p[1]); };
    ctl.Send(command, 0, 0);
    Run(1000);
    EXPECT_EQ(device->Count(10), 6u);  // the send and five re-sends
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(rec.errors[0].code, 2);
    EXPECT_EQ(rec.errors[0].message, "Unable to communicate with device");
    EXPECT_EQ(rec.errors[0].packet, command);
    // The count starts again after the error.
    EXPECT_EQ(L().NakCount, 0);
}

TEST_F(Link_Test, UserFlowControlSilencesAckNakAndWatchdog) {
    ctl.UserFlowControl(true);
    Open();
    device->on_packet = [](const Bytes&) {};
    Bytes bad = P(35, {7});
    bad[bad.size() - 3] ^= 1;
    device->Send(P(35, {1}));
    for (int i = 0; i < 8; ++i) device->Send(bad);
    device->Send(P(21, {35, 0}));
    ctl.Send(P(10, {7, 0}), 0, 0);
    Run(20000);
    EXPECT_EQ(device->frames.size(), 1u);  // only the host's own send
    EXPECT_TRUE(rec.errors.empty());
}

TEST_F(Link_Test, LineErrorEventDiscardsBufferedInput) {
    Open();
    device->Send_Raw(std::string("\x10\x22\x05\x01", 4));
    Run(20);
    EXPECT_FALSE(L().ReceiveBuffer.empty());
    device->line->Break();
    Run(20);
    EXPECT_TRUE(L().ReceiveBuffer.empty());
}

// Any byte sequence is safe: random streams heavy in the bytes the parser
// cares about, in random chunks, never crash, hang or keep garbage around.
TEST_F(Link_Test, RandomStreamsAreSurvivedAndLeaveNoGarbageBehind) {
    Open();
    device->on_packet = [](const Bytes&) {};
    std::mt19937 rng(20261121);
    const std::uint8_t alphabet[] = {0x10, 0x10, 0x10, 0x03, 0x03, '$', '@', '\r', '\n', 0x06, 0x15, 0x22, 0x00, 0xFF};
    for (int round = 0; round < 300; ++round) {
        Bytes stream(rng() % 400);
        for (auto& b : stream)
            b = rng() % 3 ? alphabet[rng() % sizeof alphabet] : static_cast<std::uint8_t>(rng());
        double at = vp->Now_ms();
        for (std::size_t pos = 0; pos < stream.size();) {
            const std::size_t n = std::min<std::size_t>(1 + rng() % 40, stream.size() - pos);
            device->line->Send(Bytes(stream.begin() + pos, stream.begin() + pos + n), at += 1);
            pos += n;
        }
        Run(at - vp->Now_ms() + 5);
    }
    // What is left can only be the start of a frame or of a line.
    const std::string_view rest = L().ReceiveBuffer.View();
    EXPECT_TRUE(rest.empty() || rest[0] == 0x10 || rest[0] == '$' || rest[0] == '@') << rest.size();
    EXPECT_LT(rest.size(), 1000u);
}

TEST_F(Link_Test, AFrameStartWithNoEndIsGivenUpInsteadOfGrowingForever) {
    L().Parse_Input(std::string(1, '\x10') + std::string(100000, 'a'));
    EXPECT_TRUE(L().ReceiveBuffer.empty());
    L().Parse_Input(std::string("\x10\x10") + std::string(5000, 'b'));
    EXPECT_TRUE(L().ReceiveBuffer.empty());
    L().Parse_Input(W(P(0x22, {1})));
    ASSERT_EQ(rec.received.size(), 1u);
    EXPECT_EQ(rec.received[0], P(0x22, {1}));
}

}  // namespace
}  // namespace trekcom::testing
