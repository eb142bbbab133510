// The round trip over the line: packets framed by the simulated unit's framer
// (a reading of the protocol apart from the library's) and fed to the receive
// parser in chunks must come out exactly as they went in, in order. Any id,
// any size byte, any data: 16s and 3s in every place, runs of 16s before a 3.
// The library's own frame helpers agree with the unit's framer on each packet.
//
// Input: byte 0 is the chunk size the bytes arrive in (0: all at once). The
// rest is a list of packets, each an id, a length n and n data bytes (cut
// where the input ends).
#include <cstdlib>
#include <vector>

#include "framer.h"
#include "fuzz_common.h"

namespace {

struct Received : trekcom::TrekcomCtlEvents {
    std::vector<trekcom::Bytes> packets;
    void Receive(trekcom::Bytes& packet) override { packets.push_back(packet); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    if (size < 1) return 0;
    fuzz::Fuzz_Control f;
    Received received;
    f.ctl.Advise(received);
    const std::size_t chunk = data[0];

    std::vector<Bytes> sent;
    std::string line;
    for (std::size_t i = 1; i + 1 < size;) {
        const std::uint8_t id = data[i];
        const std::size_t n = std::min<std::size_t>(data[i + 1], size - i - 2);
        const Bytes packet = sim::frame::Packet(id, Bytes(data + i + 2, data + i + 2 + n));
        i += 2 + n;
        const Bytes wire = sim::frame::Wire(packet);
        const std::string text(wire.begin(), wire.end());
        if (link::Make_Packet(id, Bytes(data + i - n, data + i)) != packet || link::Stuff_Packet(packet) != wire ||
            link::Unstuff_Frame(text) != packet || link::Packet_Data(packet) != Bytes(data + i - n, data + i) ||
            link::Unstuff_Frame(text.substr(0, text.size() - 1)))
            std::abort();
        // Frames without data are thrown away by design; identification
        // packets would change what the control takes for ACKs and records.
        if (n == 0 || id >= 248) continue;
        line.append(wire.begin(), wire.end());
        sent.push_back(packet);
    }
    fuzz::Feed(f.C().link, line, chunk);
    if (received.packets != sent) std::abort();
    return 0;
}
