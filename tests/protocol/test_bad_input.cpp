// Received bytes are untrusted: odd lengths, missing terminators and unknown
// ids must be handled without reading past the packet.
#include <random>

#include "protocol_fixture.h"

namespace trekcom::testing {
namespace {

// The packet's bytes as they would be if the buffer ended exactly at its
// last element: every read past it lands outside the heap block, where the
// sanitizer build catches it.
Bytes Exact(Bytes packet) {
    packet.shrink_to_fit();
    return packet;
}

TEST_F(Protocol_Test, CapabilityArrayOfAnyLength) {
    // A whole array cut at every length, plus a size byte that claims more
    // than the packet holds.
    const Bytes whole = Array_Packet({"P000", "L002", "A100", "D108", "A201", "D202", "D108", "D210"});
    const std::size_t data = whole[2];
    for (std::size_t n = 0; n <= data; ++n) {
        Bytes cut(whole.begin(), whole.begin() + 3 + static_cast<std::ptrdiff_t>(n));
        cut[2] = static_cast<std::uint8_t>(n);
        cut.insert(cut.end(), {0, 16, 3});
        C().Dispatch_Packet(Exact(cut));
        EXPECT_TRUE(C().engine.Shared().Protocol_Array_Received);
    }
    Bytes lying = {16, 253, 200, 'A', 100, 0, 0, 16, 3};
    C().Dispatch_Packet(Exact(lying));
    EXPECT_EQ(ctl.WayPoint_Transfer_Protocol(), "A100");
    // A last entry with only its tag: the number runs into the checksum and
    // trailer, which the reader allows; the tag itself still counts.
    C().Dispatch_Packet(Exact(link::Make_Packet(253, {'A', 100, 0, 'L'})));
    EXPECT_EQ(ctl.Link_Protocol().substr(0, 1), "L");
}

TEST_F(Protocol_Test, ProductDataWithoutNuls) {
    C().Dispatch_Packet(link::Make_Packet(255, {7, 0, 44, 1, 'G', 'P', 'S', ' ', '3', '8'}));
    EXPECT_EQ(ctl.Product_Data()->Product_ID, 7);
    EXPECT_EQ(ctl.Product_Data()->Software_Version, 300);
    EXPECT_EQ(ctl.Product_Data()->Product_Description_1, "GPS 38");

    // Two texts: the second takes the rest; the third is left as it was.
    ctl.Product_Data()->Product_Description_3 = "kept";
    C().Dispatch_Packet(link::Make_Packet(255, {7, 0, 44, 1, 'A', 0, 'B', 'C'}));
    EXPECT_EQ(ctl.Product_Data()->Product_Description_1, "A");
    EXPECT_EQ(ctl.Product_Data()->Product_Description_2, "BC");
    EXPECT_EQ(ctl.Product_Data()->Product_Description_3, "kept");

    // Anything after a third NUL is dropped; the bytes are Windows-1252.
    C().Dispatch_Packet(link::Make_Packet(248, {'x', 0, 0, 0xE9, 0, 'z'}));
    EXPECT_EQ(ctl.Product_Data()->Product_Description_4, "x");
    EXPECT_EQ(ctl.Product_Data()->Product_Description_5, "");
    EXPECT_EQ(ctl.Product_Data()->Product_Description_6, "\xC3\xA9");

    // Too short for the id and version, or for any text.
    for (std::size_t n = 0; n < 9; ++n) C().Dispatch_Packet(Exact(Bytes(n, 255)));
}

TEST_F(Protocol_Test, UnitIdIsUnsignedDecimal) {
    C().Dispatch_Packet(link::Make_Packet(38, {0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(ctl.Product_Data()->Unit_ID, "4294967295");
    C().Dispatch_Packet(link::Make_Packet(38, {0}));  // too short to hold one: read as 0
    EXPECT_EQ(ctl.Product_Data()->Unit_ID, "0");
    C().Dispatch_Packet(link::Make_Packet(49, {0x00, 0x96, 0x00, 0x00}));
    EXPECT_EQ(C().engine.Shared().Baud_Reply, 38400);
}

// Thousands of random packets with every id in force and random lengths and
// contents: nothing may read outside the packet (the sanitizer build checks),
// and no download event may come from anything but a completion packet.
TEST_F(Protocol_Test, RandomPacketsAreHandledSafely) {
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(0, 270);
    for (int i = 0; i < 20000; ++i) {
        Bytes packet(static_cast<std::size_t>(length(random)));
        for (auto& b : packet) b = static_cast<std::uint8_t>(byte(random));
        if (packet.size() > 1 && i % 2 == 0) packet[1] = static_cast<std::uint8_t>(i % 256);  // every id, often
        const int events_before = rec.Download_Events();
        C().Dispatch_Packet(Exact(packet));
        if (packet.size() < 2 || packet[1] != ctl.PID_Xfer_Cmplt()) {
            ASSERT_EQ(rec.Download_Events(), events_before);
        }
    }
    // Records and completion packets in any order: only the count check speaks.
    for (const auto& e : rec.errors) EXPECT_EQ(e.code, 7) << e.message;
    // Whatever arrived, the protocol strings are still four characters (or
    // the link's three blanks, or the table's empty date and position).
    for (const std::string& s : {ctl.WayPoint_Transfer_Protocol(), ctl.Waypoint_Data_Format()})
        EXPECT_EQ(s.size(), 4u) << s;
}

}  // namespace
}  // namespace trekcom::testing
