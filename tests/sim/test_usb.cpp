// The unit's USB side as a host driver meets it: the session start, answers
// read from the interrupt pipe in 64-byte blocks, record transfers announced
// by Data Available and read from the bulk pipe, and hostile packets. (Only
// the test driver in usb/ drives this side; the host's transport over it is
// checked there, against the serial line.)
#include <gtest/gtest.h>

#include <functional>

#include "sim_host.h"
#include "trekcom_sim/unit.h"
#include "usb_packet.h"

using namespace trekcom::sim;
using trekcom::Bytes;

namespace {

std::uint32_t Size_Field(const Bytes& p) {
    return static_cast<std::uint32_t>(p[8] | (p[9] << 8) | (p[10] << 16) | (p[11] << 24));
}

// Reads the way a host driver does: a packet starts with a fresh read, and
// reads are collected until the header and the data it announces are in.
class Usb_Host {
public:
    explicit Usb_Host(Unit& unit) : unit_(unit) {}

    void Write(std::uint8_t type, std::uint16_t id, const Bytes& data = {}) {
        unit_.Usb_Host_Wrote(usb::Make_Packet(type, id, data));
    }
    void Command(std::uint16_t cmd) { Write(usb::kApplication, 10, {static_cast<std::uint8_t>(cmd), 0}); }

    std::vector<usb::Packet> Interrupt(std::size_t block = 64) {
        return Collect([&] { return unit_.Usb_Interrupt_Read(block); }, block);
    }
    std::vector<usb::Packet> Bulk(std::size_t max = 4096) {
        return Collect([&] { return unit_.Usb_Bulk_Read(max); }, max);
    }
    // The interrupt pipe, with the bulk pipe read in wherever it was announced.
    std::vector<usb::Packet> Read() {
        std::vector<usb::Packet> out;
        for (usb::Packet& p : Interrupt()) {
            if (p.type == usb::kProtocol && p.id == usb::kDataAvailable) {
                EXPECT_TRUE(p.data.empty());
                for (usb::Packet& b : Bulk()) out.push_back(std::move(b));
            } else {
                out.push_back(std::move(p));
            }
        }
        return out;
    }

private:
    std::vector<usb::Packet> Collect(const std::function<Bytes()>& read, std::size_t max) {
        std::vector<usb::Packet> out;
        for (Bytes packet = read(); !packet.empty(); packet = read()) {
            EXPECT_LE(packet.size(), max);
            while (packet.size() < usb::kHeaderSize || packet.size() < usb::kHeaderSize + Size_Field(packet)) {
                const Bytes more = read();
                if (more.empty()) {
                    ADD_FAILURE() << "the pipe ran dry inside a packet";
                    return out;
                }
                EXPECT_LE(more.size(), max);
                packet.insert(packet.end(), more.begin(), more.end());
            }
            usb::Packet p;
            EXPECT_TRUE(usb::Parse(packet, p)) << "a read held bytes of two packets";
            out.push_back(std::move(p));
        }
        return out;
    }

    Unit& unit_;
};

std::vector<std::uint16_t> Ids(const std::vector<usb::Packet>& packets) {
    std::vector<std::uint16_t> ids;
    for (const auto& p : packets) ids.push_back(p.id);
    return ids;
}

}  // namespace

// (What the answers and transfers hold is compared with the serial ones
// through the host's transport in usb/.)
TEST(SimUsb, SessionAnswersAndTransfersTakeTheirPipes) {
    Unit unit(Profile::Named("current"));
    Usb_Host host(unit);
    host.Write(usb::kProtocol, usb::kStartSession);
    auto got = host.Interrupt();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].id, usb::kSessionStarted);
    EXPECT_EQ(got[0].data, (Bytes{0x14, 0x6A, 0x0A, 0xCE}));  // the unit id, 3456789012

    // Short answers come on the interrupt pipe, unacknowledged.
    host.Write(usb::kApplication, 254);
    got = host.Interrupt();
    EXPECT_EQ(Ids(got), (std::vector<std::uint16_t>{255, 248, 253}));
    for (const auto& p : got) EXPECT_EQ(p.type, usb::kApplication);
    EXPECT_TRUE(unit.Usb_Bulk_Read(4096).empty());

    // A transfer is announced on the interrupt pipe and travels on the bulk pipe.
    host.Command(7);
    got = host.Interrupt();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].type, usb::kProtocol);
    EXPECT_EQ(got[0].id, usb::kDataAvailable);
    const auto transfer = host.Bulk();
    ASSERT_EQ(transfer.size(), unit.Visible_Data().waypoints.size() + 2);
    EXPECT_EQ(transfer.front().id, 27);
    EXPECT_EQ(transfer.back().id, 12);
    EXPECT_TRUE(unit.Usb_Interrupt_Read().empty());
    EXPECT_EQ(unit.Stats().acks_sent, 0);
}

TEST(SimUsb, AbortDropsUnreadBulkDataButNotAHalfReadPacket) {
    Unit unit(Profile::Named("current"));
    Usb_Host host(unit);
    host.Command(7);
    host.Interrupt();
    const Bytes head = unit.Usb_Bulk_Read(5);
    ASSERT_EQ(head.size(), 5u);
    host.Write(usb::kApplication, 12, {7, 0});  // the host's abort
    EXPECT_EQ(unit.Stats().transfers_aborted, 1);
    EXPECT_EQ(unit.Usb_Bulk_Read(4096).size(), usb::kHeaderSize + 2 - 5);  // the rest of the records packet
    EXPECT_TRUE(unit.Usb_Bulk_Read(4096).empty());

    // A new request replaces a transfer the host never read.
    host.Command(7);
    host.Command(7);
    EXPECT_EQ(unit.Stats().transfers_aborted, 2);
    EXPECT_EQ(host.Read().size(), unit.Data().waypoints.size() + 2);
}

TEST(SimUsb, MalformedHostPacketsAreIgnored) {
    Unit unit(Profile::Named("current"));
    Usb_Host host(unit);
    unit.Usb_Host_Wrote({});
    unit.Usb_Host_Wrote(usb::Make_Packet(usb::kApplication, 254, Bytes(1047, 0)));
    unit.Usb_Host_Wrote({20, 0, 0, 0, 254, 0, 0, 0, 9, 0, 0, 0});  // size beyond the data
    unit.Usb_Host_Wrote({7, 0, 0, 0, 254, 0, 0, 0, 0, 0, 0, 0});   // no such layer
    EXPECT_EQ(unit.Stats().bad_frames, 4);
    EXPECT_EQ(unit.Stats().frames_received, 0);
    host.Write(usb::kApplication, 10);                   // a command without its code
    host.Write(usb::kApplication, 300);                  // no application id that large
    host.Write(usb::kApplication, 200, Bytes(1046, 0));  // the largest packet, of no known kind
    EXPECT_EQ(unit.Stats().frames_received, 3);
    EXPECT_EQ(unit.Stats().unknown_packets, 3);
    EXPECT_TRUE(host.Read().empty());
    host.Write(usb::kProtocol, usb::kStartSession);  // and it still serves
    EXPECT_EQ(Ids(host.Interrupt()), std::vector<std::uint16_t>{usb::kSessionStarted});
}
