// The receive path over a virtual line: framing in every chunking, the
// parser's discard rules, acknowledgement and refusal, the link errors.
#include <random>

#include "link_fixture.h"

namespace trekcom::testing {
namespace {

constexpr auto P = Packet;
constexpr auto W = Wire;

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

// ---------------------------------------------------------------- any packet

// A random packet heavy in what framing gets wrong: 16s and 3s as the id, the
// size, the data and the checksum, and runs of 16s of any length before a 3.
Bytes Awkward_Packet(std::mt19937& rng, bool plain_id) {
    auto pick = [&](std::initializer_list<int> v) { return static_cast<std::uint8_t>(*(v.begin() + rng() % v.size())); };
    // Ids the parser treats apart (ACK, NAK, the expanded form) and the
    // identification packets are left out: the control answers those.
    std::uint8_t id;
    do id = rng() % 3 ? static_cast<std::uint8_t>(rng()) : pick({0x10, 0x03});
    while (id == 6 || id == 21 || id == 123 || id >= 248 || (plain_id && (id == 0x10 || id == 0x03)));
    const std::size_t size = rng() % 4 == 0 ? pick({0x10, 0x03, 1, 255}) : 1 + rng() % 60;
    Bytes data;
    while (data.size() < size) {
        if (rng() % 3 == 0) {
            const std::size_t run = 1 + rng() % 5;
            data.insert(data.end(), run, 0x10);
            data.push_back(0x03);
        } else {
            data.push_back(rng() % 2 ? pick({0x10, 0x03}) : static_cast<std::uint8_t>(rng()));
        }
    }
    data.resize(size);
    // Now and then the last data byte is chosen so the checksum is 16 or 3.
    if (rng() % 4 == 0) {
        const std::uint8_t want = pick({0x10, 0x03});
        unsigned sum = id + size;
        for (std::size_t i = 0; i + 1 < size; ++i) sum += data[i];
        data.back() = static_cast<std::uint8_t>(0u - sum - want);
    }
    return Packet(id, data);
}

// What may come between two frames on a real line. Noise that leaves a frame
// open (a lone DLE ETX, a frame cut short) is told apart from the next frame
// only by that frame's DLE and id, so the line cannot say where it ends when
// the next id is itself 16 or 3: the generator avoids that one case.
struct Between {
    std::string bytes;
    bool leaves_frame_open = false;
};

Between Noise(std::mt19937& rng) {
    switch (rng() % 6) {
    case 0: {
        std::string junk;
        for (std::size_t n = 1 + rng() % 12; n > 0; --n) {
            char c;
            do c = static_cast<char>(rng());
            while (c == 0x10);
            junk += c;
        }
        return {junk};
    }
    case 1: return {std::string("xx\x10\x03yy", 6), true};
    case 2: return {"$GPGLL,4916.45,N,12311.12,W,225444,A*31\r\n"};
    case 3: {
        // A frame cut short, never right after a data DLE (that would double
        // the next frame's); its opening DLE and id always stay.
        std::string cut = Wire(Awkward_Packet(rng, false));
        cut.resize(2 + rng() % (cut.size() - 3));
        while (cut.size() > 2 && cut.back() == '\x10') cut.pop_back();
        return {cut, true};
    }
    default: return {};
    }
}

class Any_Packet : public Link_Test, public ::testing::WithParamInterface<unsigned> {};

// Any packet survives the line: framed by the simulated unit's framer, sent
// in random chunks with noise, sentences and broken frames between them, it
// comes out exactly as sent, in order, and nothing is refused.
TEST_P(Any_Packet, SurvivesFramingChunkingAndNoise) {
    const unsigned seed = GetParam();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    Open();
    device->on_packet = [](const Bytes&) {};
    std::vector<Bytes> sent;
    std::string line;
    bool open_frame = false;
    for (int i = 0; i < 400; ++i) {
        const Bytes packet = Awkward_Packet(rng, open_frame);
        line += Wire(packet);
        sent.push_back(packet);
        const Between noise = Noise(rng);
        line += noise.bytes;
        open_frame = noise.leaves_frame_open;
    }
    double at = vp->Now_ms();
    for (std::size_t pos = 0; pos < line.size();) {
        const std::size_t n = std::min<std::size_t>(seed % 2 ? 1 + rng() % 9 : 1 + rng() % 700, line.size() - pos);
        device->line->Send(Bytes(line.begin() + pos, line.begin() + pos + n), at += 0.5);
        pos += n;
    }
    Run(at - vp->Now_ms() + 50);
    ASSERT_EQ(rec.received.size(), sent.size());
    for (std::size_t i = 0; i < sent.size(); ++i) ASSERT_EQ(rec.received[i], sent[i]) << "packet " << i;
    EXPECT_EQ(device->Count(21), 0u) << "a good frame was refused";
}
INSTANTIATE_TEST_SUITE_P(Seeds, Any_Packet, ::testing::Range(1u, 9u));

// A broken frame costs only itself: after a lone DLE inside a frame, a line
// error in the middle of one, or a frame that lost a byte, the next good
// frame is read. What is left of a damaged frame is refused, so the unit
// sends it again instead of waiting for an answer that never comes.
TEST_F(Link_Test, ABrokenFrameCostsOnlyItself) {
    Open();
    device->on_packet = [](const Bytes&) {};
    const Bytes good = P(0x22, {0x10, 0x10, 0x03, 0x10});
    std::string lone_dle = Wire(P(0x23, {1, 2, 3, 4}));
    lone_dle.insert(4, "\x10", 1);  // DLE then 2: no frame goes on like that
    std::string short_one = Wire(P(0x24, {1, 2, 3, 4}));
    short_one.erase(4, 1);
    device->Send_Raw(lone_dle + Wire(good) + short_one + Wire(good));
    Run(50);
    ASSERT_EQ(rec.received, (std::vector<Bytes>{good, good}));
    // The lone DLE opens a frame of id 2, whose length then disagrees.
    ASSERT_EQ(device->frames,
              (std::vector<Bytes>{P(21, {0x02, 0}), P(6, {0x22, 0}), P(21, {0x24, 0}), P(6, {0x22, 0})}));

    device->Send_Raw(std::string("\x10\x22\x05\x01", 4));
    Run(20);
    device->line->Break();
    Run(20);
    device->Send_Raw(Wire(good));
    Run(20);
    EXPECT_EQ(rec.received.size(), 3u);
    EXPECT_TRUE(L().Serial().Buffer().empty());
}

// Lines wait below 83 characters and are dropped at 83; bytes that are
// neither frame nor line go through the next CR LF; a line switches to NMEA
// mode and a DLE switches back.
TEST_F(Link_Test, TheParsersRulesForLinesAndNoise) {
    L().Serial().Parse_Input("$GPGGA," + std::string(70, 'x'));
    EXPECT_EQ(L().Serial().Buffer().size(), 77u);
    L().Serial().Parse_Input(std::string(5, 'y'));
    EXPECT_EQ(L().Serial().Buffer().size(), 82u);
    L().Serial().Parse_Input("z");
    EXPECT_TRUE(L().Serial().Buffer().empty());
    EXPECT_TRUE(rec.nmea.empty());

    L().Serial().Parse_Input("noise\r\nmore");
    EXPECT_EQ(L().Serial().Buffer().View(), "more");
    L().Serial().Parse_Input("");
    EXPECT_TRUE(L().Serial().Buffer().empty());
    EXPECT_FALSE(L().Shared().NMEAMode);

    L().Serial().Parse_Input("$GPRMC,1*00\r\n");
    EXPECT_TRUE(L().Shared().NMEAMode);
    EXPECT_EQ(L().Shared().Settings, "4800,N,8,1");
    ASSERT_EQ(rec.nmea.size(), 1u);
    EXPECT_EQ(rec.nmea[0].first, "$GPRMC,1*00");
    L().Serial().Parse_Input(std::string("\x10", 1));
    EXPECT_FALSE(L().Shared().NMEAMode);
}

// Every complete line of a read is raised at once, the last ones too, not
// when the next byte happens to arrive.
TEST_F(Link_Test, EveryLineOfAReadIsRaisedAtOnce) {
    Open();
    device->Send_Raw("$GPGLL,1*00\r\n$GPGLL,2*00\r\n$GPGLL,3*00\r\n$GPG");
    Run(20);
    ASSERT_EQ(rec.nmea.size(), 3u);
    EXPECT_EQ(rec.nmea[2].first, "$GPGLL,3*00");
    EXPECT_EQ(L().Serial().Buffer().View(), "$GPG");
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
    EXPECT_EQ(L().Last_Frame(), P(6, {35, 0}));
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
    EXPECT_EQ(L().Serial().Nak_Count(), 0);
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

// A unit that damages every packet, and sends it again on every NAK and
// whenever it hears nothing: after the sixth the host reports once and stays
// quiet (no more NAKs, no watchdog re-sends) instead of refusing for ever;
// the next good packet is taken as usual.
TEST_F(Link_Test, AUnitThatDamagesEveryPacketEndsTheExchangeOnce) {
    Open();
    Bytes bad = P(35, {7});
    bad[bad.size() - 3] ^= 0x55;
    device->on_packet = [&](const Bytes& p) {
        if (p[1] == 21) device->Send(bad);
    };
    ctl.Send(P(10, {7, 0}), 0, 0);
    for (int i = 0; i < 20; ++i) {  // the unit's own time-outs
        device->Send(bad);
        Run(1500);
    }
    Run(20000);
    EXPECT_EQ(device->Count(21), 5u);
    EXPECT_EQ(device->Count(10), 1u);
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(rec.errors[0].code, 3);
    EXPECT_FALSE(detail::Control::Of(ctl).tmrTimeout->Enabled());

    device->Send(P(35, {8}));
    Run(100);
    EXPECT_EQ(device->frames.back(), P(6, {35, 0}));
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
    EXPECT_EQ(L().Serial().Nak_Count(), 0);
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

// (Random streams in random chunks: the receive fuzz target, whose corpus
// replay checks that what is kept is only the start of a frame or a line.)
TEST_F(Link_Test, AFrameStartWithNoEndIsGivenUpInsteadOfGrowingForever) {
    L().Serial().Parse_Input(std::string(1, '\x10') + std::string(100000, 'a'));
    EXPECT_TRUE(L().Serial().Buffer().empty());
    L().Serial().Parse_Input(std::string("\x10\x10") + std::string(5000, 'b'));
    EXPECT_TRUE(L().Serial().Buffer().empty());
    L().Serial().Parse_Input(W(P(0x0A, {})));  // a frame of size 0 is dropped
    EXPECT_TRUE(L().Serial().Buffer().empty());
    L().Serial().Parse_Input(W(P(0x22, {1})));
    ASSERT_EQ(rec.received.size(), 1u);
    EXPECT_EQ(rec.received[0], P(0x22, {1}));
    EXPECT_TRUE(L().Serial().Buffer().empty());
}

}  // namespace
}  // namespace trekcom::testing
