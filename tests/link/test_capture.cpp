// A real receiver's binary stream (a GPS 18x sending PVT and satellite
// packets) through the receive path: whatever the chunking, the same packets,
// all with good checksums, and nothing sent back (streamed packets are never
// acknowledged).
#include "link_fixture.h"
#include "support/captures.h"

namespace trekcom::testing {
namespace {

std::vector<Bytes> Packets_With_Chunk_Size(const std::string& wire, std::size_t chunk) {
    auto vp = std::make_shared<VirtualPlatform>();
    auto device = std::make_shared<Scripted_Receiver>();
    vp->Attach(1, device);
    TrekcomCtl ctl(vp);
    Recorder rec;
    ctl.Advise(rec);
    EXPECT_TRUE(ctl.PortOpen());
    double at = vp->Now_ms();
    for (std::size_t pos = 0; pos < wire.size(); pos += chunk) {
        const std::string piece = wire.substr(pos, chunk);
        device->line->Send(Bytes(piece.begin(), piece.end()), at += 0.25);
    }
    vp->Advance(at - vp->Now_ms() + 10);
    EXPECT_TRUE(device->raw.empty()) << "chunk " << chunk;
    EXPECT_TRUE(rec.errors.empty()) << "chunk " << chunk;
    return rec.received;
}

// (What the packets hold, and that there is one of each kind per second, is
// checked against the recording's reference in realtime/.)
TEST(Capture, Garmin18xBinaryStreamParsesTheSameInEveryChunkSize) {
    const std::string wire = Capture_Wire("garmin18x-bin.log");
    ASSERT_GT(wire.size(), 4000u);
    const std::vector<Bytes> whole = Packets_With_Chunk_Size(wire, wire.size());
    ASSERT_GT(whole.size(), 50u);
    for (const Bytes& p : whole) EXPECT_EQ(link::Calc_Checksum(p), p[p.size() - 3]);
    for (std::size_t chunk = 1; chunk <= 300; chunk += chunk < 20 ? 1 : 37)
        EXPECT_EQ(Packets_With_Chunk_Size(wire, chunk), whole) << "chunk " << chunk;
}

}  // namespace
}  // namespace trekcom::testing
