// The simulated unit's side of the serial link, driven by a scripted host on
// the virtual platform: framing, ACK/NAK, stop and wait, time-outs, rates and faults.
#include <gtest/gtest.h>

#include <random>

#include "sim_host.h"

using namespace trekcom::sim;
using sim_test::Bench;
using sim_test::Host;
using trekcom::Bytes;
namespace framing = trekcom::link;

TEST(SimLink, AcknowledgesGoodFramesAndRefusesDamagedOnes) {
    Bench b;
    Host host(b.platform);
    EXPECT_TRUE(host.Send_Acked(10, {0, 0}));  // the ping

    // A damaged checksum: NAK carrying the id, data size 2.
    Bytes bad = framing::Make_Packet(10, {0, 0});
    bad[bad.size() - 3] ^= 1;
    host.Write(framing::Stuff_Packet(bad));
    auto nak = host.Next();
    ASSERT_TRUE(nak && nak->good);
    EXPECT_EQ(nak->id, 21);
    EXPECT_EQ(nak->data, (Bytes{10, 0}));

    // A size byte that disagrees with the frame is damage too.
    Bytes wrong_size = framing::Make_Packet(10, {0, 0, 0});
    wrong_size[2] = 2;
    framing::Seal_Packet(wrong_size);
    host.Write(framing::Stuff_Packet(wrong_size));
    nak = host.Next();
    ASSERT_TRUE(nak);
    EXPECT_EQ(nak->id, 21);

    // Unknown ids are acknowledged and otherwise ignored.
    EXPECT_TRUE(host.Send_Acked(77, {1, 2, 3}));
    EXPECT_EQ(b.Sim().Stats().unknown_packets, 1);
    EXPECT_EQ(b.Sim().Stats().bad_frames, 2);
}

TEST(SimLink, ReadsStuffedFramesInAnyChunkingAmongNoise) {
    Bench b;
    Host host(b.platform);
    // Data that needs stuffing everywhere: 16s in size, data and checksum.
    Bytes data(16, 16);
    data[3] = 3;  // DLE ETX inside the data must not end the frame
    const Bytes wire = framing::Stuff_Packet(framing::Make_Packet(77, data));
    Bytes noisy = {0xFF, 3, 16, 3, 'x'};
    noisy.insert(noisy.end(), wire.begin(), wire.end());
    noisy.insert(noisy.end(), {0, 0, 16, 16});  // noise, then a stray DLE DLE
    noisy.insert(noisy.end(), wire.begin(), wire.end());
    for (std::uint8_t byte : noisy) host.Write({byte});
    int acks = 0;
    while (auto f = host.Next(500)) acks += f->good && f->id == 6 && f->data[0] == 77;
    EXPECT_EQ(acks, 2);
}

TEST(SimLink, SurvivesRandomBytesAndKeepsServing) {
    Bench b;
    Host host(b.platform);
    std::mt19937 rng(7);
    for (int round = 0; round < 200; ++round) {
        Bytes junk(rng() % 300);
        for (auto& x : junk) x = static_cast<std::uint8_t>(rng() % 4 == 0 ? 16 : rng());
        host.Write(junk);
    }
    host.Drain(5000);  // whatever the junk provoked, the unit settles
    host.Write({16, 3, 16, 3});  // close any frame the junk left open, as a host's retry would
    host.Drain(100);
    EXPECT_TRUE(host.Send_Acked(10, {0, 0}));
}

TEST(SimLink, StopAndWaitResendsOnNakAndOnceAfterTimeout) {
    Options o;
    o.ack_timeout_ms = 1000;
    Bench b("current", Builtin_Data(), o);
    Host host(b.platform);
    ASSERT_TRUE(host.Send_Acked(254));
    auto product = host.Next_Data();
    ASSERT_TRUE(product);
    EXPECT_EQ(product->id, 255);

    // Nothing more until the ACK: the extended data waits.
    EXPECT_FALSE(host.Next(900).has_value());
    // A NAK brings the same packet again.
    host.Nak(255);
    auto again = host.Next();
    ASSERT_TRUE(again);
    EXPECT_EQ(again->id, 255);
    EXPECT_EQ(again->data, product->data);
    // An ACK for another id does not count.
    host.Ack(253);
    // Silence: one re-send after the time-out, then the unit gives up.
    const double t0 = host.Now();
    auto resent = host.Next(5000);
    ASSERT_TRUE(resent);
    EXPECT_EQ(resent->id, 255);
    EXPECT_NEAR(host.Now() - t0, 1000, 1);
    EXPECT_FALSE(host.Next(5000).has_value());
    EXPECT_EQ(b.Sim().Stats().resends_after_nak, 1);
    EXPECT_EQ(b.Sim().Stats().resends_after_timeout, 1);
    EXPECT_EQ(b.Sim().Stats().abandoned, 1);
    EXPECT_EQ(b.Sim().Stats().stray_acks, 1);
    // And it still answers.
    EXPECT_TRUE(host.Send_Acked(10, {0, 0}));
}

// (That a line at another rate carries nothing is the virtual platform's,
// checked in platform/.)
TEST(SimLink, BaudChangeMovesTheUnitOnceItsReplyIsAcknowledged) {
    Bench b;
    Host host(b.platform);
    ASSERT_TRUE(host.Send_Acked(48, {0x00, 0xE1, 0x00, 0x00}));  // 57600
    auto reply = host.Next_Data();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->id, 49);
    EXPECT_EQ(reply->data, (Bytes{0x00, 0xE1, 0x00, 0x00}));
    EXPECT_EQ(b.Sim().Baud(), 9600);  // not before the reply is acknowledged
    host.Ack(49);
    host.Drain(10);
    EXPECT_EQ(b.Sim().Baud(), 57600);
    host.Port().Settings("57600,N,8,1");
    EXPECT_TRUE(host.Send_Acked(10, {0, 0}));
}

TEST(SimLink, FaultsNakFirstAndDroppedBytes) {
    Bench b;
    Host host(b.platform);
    b.Sim().Fault_Knobs().nak_first = 2;
    for (int i = 0; i < 2; ++i) {
        host.Send(10, {0, 0});
        auto f = host.Next();
        ASSERT_TRUE(f);
        EXPECT_EQ(f->id, 21);
    }
    EXPECT_TRUE(host.Send_Acked(10, {0, 0}));

    // (Corrupt packets and garbage between frames, recovered from by NAKs,
    // are rows of the control's Faults table.)
    // A dropped byte: the frame fails its check, and the re-send is whole.
    b.Sim().Fault_Knobs() = {};
    b.Sim().Fault_Knobs().drop_byte_every = 1;
    host.Send(254);
    host.Next();  // ACK
    auto broken = host.Next();
    ASSERT_TRUE(broken);
    EXPECT_FALSE(broken->good);
}

// (A stall after record k, once only, is RandomStalls' and Usb_Faults'.)
TEST(SimLink, HangUpMidTransferIsALineEvent) {
    Bench b;
    Host host(b.platform);
    b.Sim().Fault_Knobs().hang_up_after_record = 0;
    host.Command(7);
    host.Drain(3000);
    EXPECT_EQ(host.Port().CommEvent(), trekcom::SerialPort::comEventFrame);
    EXPECT_EQ(host.Download(7).back().id, 12);
}

TEST(SimLink, PacingTakesLineTime) {
    Options o;
    o.pace = true;
    Bench b("current", Builtin_Data(), o);
    b.Sim().Data().tracks.clear();
    Add_Generated_Track(b.Sim().Data(), 200);
    Host host(b.platform);
    const double t0 = host.Now();
    auto got = host.Download(6);
    ASSERT_EQ(got.back().id, 12);
    // 200 points of 27 wire bytes or more, at 960 bytes a second.
    EXPECT_GT(host.Now() - t0, 200 * 27 / 0.96);
    EXPECT_LT(host.Now() - t0, 200 * 40 / 0.96 + 1000);
}
