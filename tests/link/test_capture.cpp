// A real receiver's binary stream (a GPS 18x sending PVT and satellite
// packets) through the receive path: whatever the chunking, the same packets,
// all with good checksums, and nothing sent back (streamed packets are never
// acknowledged).
#include <fstream>
#include <iterator>

#include "link_fixture.h"

namespace trekcom::testing {
namespace {

std::string Capture_Bytes(const std::string& name) {
    std::ifstream in(std::string(TREKCOM_CAPTURES_DIR) + "/" + name, std::ios::binary);
    std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::size_t pos = 0;
    while (pos < all.size() && all[pos] == '#') pos = all.find('\n', pos) + 1;  // the header lines
    return all.substr(pos);
}

std::size_t Count_In_Reference(const std::string& what) {
    std::ifstream in(std::string(TREKCOM_CAPTURES_DIR) + "/garmin18x-bin.log.chk");
    std::size_t n = 0;
    for (std::string line; std::getline(in, line);) n += line.find(what) != std::string::npos;
    return n;
}

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

TEST(Capture, Garmin18xBinaryStreamParsesTheSameInEveryChunkSize) {
    const std::string wire = Capture_Bytes("garmin18x-bin.log");
    ASSERT_GT(wire.size(), 4000u);
    const std::vector<Bytes> whole = Packets_With_Chunk_Size(wire, wire.size());
    std::size_t pvt = 0, sats = 0;
    for (const Bytes& p : whole) {
        EXPECT_EQ(link::Calc_Checksum(p), p[p.size() - 3]);
        pvt += p[1] == 51;
        sats += p[1] == 114;
    }
    // One position and one satellite packet per second: as many positions as
    // the recording's decoded reference holds.
    EXPECT_EQ(pvt, Count_In_Reference("\"class\":\"TPV\""));
    EXPECT_EQ(sats, pvt);
    for (std::size_t chunk = 1; chunk <= 300; chunk += chunk < 20 ? 1 : 37)
        EXPECT_EQ(Packets_With_Chunk_Size(wire, chunk), whole) << "chunk " << chunk;
}

}  // namespace
}  // namespace trekcom::testing
